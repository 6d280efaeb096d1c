// The property readers over keys and values set through the host property store. Input: key, NUL,
// value, NUL, then 16 bytes of range bounds and a default for the integer reader.
#include <cinttypes>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include "algocore/utils/Properties.h"
#include "fuzz_util.h"
#include "interface/VideoAIProc.h"

namespace {

std::string TakeString(vai_fuzz::Reader& in) {
    std::string s;
    while (in.Left() > 0) {
        const char c = static_cast<char>(in.Byte());
        if (c == '\0') break;
        s += c;
    }
    return s;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    vai_fuzz::QuietLog();
    g_log_level = 5;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    vai_fuzz::Reader in(data, size);
    const std::string key = TakeString(in);
    const std::string value = TakeString(in);
    intmax_t lower = in.Take<int64_t>(), upper = in.Take<int64_t>();
    const intmax_t fallback = in.Take<int64_t>();
    const bool flag = in.Bit();

    // An empty value reads as unset. (A reset of the store would be simpler, but it visits every key
    // the store has ever seen, so each run would be slower than the last.)
    property_set(key.c_str(), "");
    const int set = property_set(key.c_str(), value.c_str());
    // Values of 92 characters or more are refused, as on a device.
    if (!key.empty() && value.size() < kPropertyValueMax) FUZZ_CHECK(set == 0);

    // Exactly kPropertyValueMax bytes: anything written past them is an ASan report.
    std::unique_ptr<char[]> buf(new char[kPropertyValueMax]);
    const int len = property_get(key.c_str(), buf.get(), "fallback");
    FUZZ_CHECK(len >= 0 && len < kPropertyValueMax && std::strlen(buf.get()) == static_cast<size_t>(len));
    if (set == 0 && !value.empty()) FUZZ_CHECK(value.compare(0, std::string::npos, buf.get()) == 0);
    if (set != 0 || value.empty()) FUZZ_CHECK(std::strcmp(buf.get(), "fallback") == 0);

    property_get_bool(key.c_str(), flag);
    const intmax_t got = property_get_imax(key.c_str(), lower, upper, fallback);
    FUZZ_CHECK(got == fallback || (got >= lower && got <= upper));
    const int32_t got32 = property_get_int32(key.c_str(), static_cast<int32_t>(fallback));
    if (got32 != static_cast<int32_t>(fallback)) FUZZ_CHECK(got32 == std::strtoimax(buf.get(), nullptr, 0));
    property_get_int64(key.c_str(), fallback);
    return 0;
}
