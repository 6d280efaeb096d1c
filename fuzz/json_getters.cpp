// The JSON getters over any document the configuration parser accepts. Byte 0 is the element limit of
// the array getter; the rest is the file. Every member of every object is read with both getters, and
// every non-object value is offered to them too.
#include <rapidjson/document.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

#include "algocore/utils/json_utils.h"
#include "fuzz_util.h"
#include "interface/VideoAIProc.h"

namespace {

constexpr unsigned kGuard = 0xa5a5a5a5u;

void Visit(const rapidjson::Value& v, unsigned char max_count, int depth) {
    unsigned out = kGuard;
    if (!v.IsObject()) {
        FUZZ_CHECK(!JsonGet(v, "key", out) && out == kGuard);
        FUZZ_CHECK(!JsonGetArray(v, "key", &out, max_count) && out == kGuard);
    } else {
        for (auto m = v.MemberBegin(); m != v.MemberEnd(); ++m) {
            const char* key = m->name.GetString();
            // Keys with an embedded NUL name another member, which may well exist.
            const bool plain = std::strlen(key) == m->name.GetStringLength();
            out = kGuard;
            const bool got = JsonGet(v, key, out);
            if (plain && v.FindMember(key) == m) FUZZ_CHECK(got == m->value.IsUint());
            if (got) FUZZ_CHECK(v.FindMember(key)->value.GetUint() == out);
            if (!got) FUZZ_CHECK(out == kGuard);

            // Exactly max_count elements, on the heap: a write past them is an ASan report.
            std::unique_ptr<unsigned[]> array(new unsigned[max_count + 1]);
            const bool read = JsonGetArray(v, key, array.get() + 1, max_count);
            if (plain && v.FindMember(key) == m && !m->value.IsArray()) FUZZ_CHECK(!read);
            if (read) {
                const auto& a = v.FindMember(key)->value;
                for (rapidjson::SizeType i = 0; i < a.Size() && i < max_count; ++i) {
                    FUZZ_CHECK(a[i].GetUint() == array[i + 1]);
                }
            }
        }
    }
    FUZZ_CHECK(!JsonGet(v, nullptr, out));
    if (depth > 64) return;
    if (v.IsObject()) {
        for (auto m = v.MemberBegin(); m != v.MemberEnd(); ++m) Visit(m->value, max_count, depth + 1);
    } else if (v.IsArray()) {
        for (const auto& e : v.GetArray()) Visit(e, max_count, depth + 1);
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    vai_fuzz::QuietLog();
    g_log_level = 5;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    vai_fuzz::Reader in(data, size);
    const unsigned char max_count = in.Byte();
    const vai_fuzz::MemFile file(in.Rest(), in.Left());
    rapidjson::Document doc;
    if (JsonParseFile(file.path(), doc)) Visit(doc, max_count, 0);
    return 0;
}
