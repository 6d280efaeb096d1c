#include "algocore/utils/json_utils.h"

#include <rapidjson/filereadstream.h>
#include <rapidjson/reader.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "algocore/utils/vai_log.h"

namespace {

// Comments allowed, numbers at full precision.
constexpr unsigned kParseFlags = rapidjson::kParseCommentsFlag | rapidjson::kParseFullPrecisionFlag;
static_assert(kParseFlags == 48, "configuration parse flags");

// Deeper nesting is refused: the parser recurses once per level, and a HAL thread's stack is small.
constexpr unsigned kMaxDepth = 128;

// The document's own handler, counting how deep objects and arrays nest.
class DepthLimited {
  public:
    explicit DepthLimited(rapidjson::Document& doc) : doc_(doc) {}
    bool Null() { return doc_.Null(); }
    bool Bool(bool b) { return doc_.Bool(b); }
    bool Int(int i) { return doc_.Int(i); }
    bool Uint(unsigned u) { return doc_.Uint(u); }
    bool Int64(int64_t i) { return doc_.Int64(i); }
    bool Uint64(uint64_t u) { return doc_.Uint64(u); }
    bool Double(double d) { return doc_.Double(d); }
    bool RawNumber(const char* s, rapidjson::SizeType n, bool) { return Number(std::string(s, n)); }
    bool String(const char* s, rapidjson::SizeType n, bool copy) { return doc_.String(s, n, copy); }
    bool Key(const char* s, rapidjson::SizeType n, bool copy) { return doc_.Key(s, n, copy); }
    bool StartObject() { return Enter() && doc_.StartObject(); }
    bool EndObject(rapidjson::SizeType n) { return Leave() && doc_.EndObject(n); }
    bool StartArray() { return Enter() && doc_.StartArray(); }
    bool EndArray(rapidjson::SizeType n) { return Leave() && doc_.EndArray(n); }

  private:
    // Numbers arrive as text (RapidJSON 1.1.0's own conversion of some long fractions reads outside
    // its tables) and get the types RapidJSON would give them: integers the narrowest of unsigned,
    // int, 64-bit, and everything else a double, rounded correctly as full precision promises.
    bool Number(const std::string& text) {
        if (text.find_first_of(".eE") == std::string::npos) {
            errno = 0;
            if (text[0] == '-') {
                const long long v = std::strtoll(text.c_str(), nullptr, 10);
                if (errno != ERANGE) return v >= INT32_MIN ? doc_.Int(static_cast<int>(v)) : doc_.Int64(v);
            } else {
                const unsigned long long v = std::strtoull(text.c_str(), nullptr, 10);
                if (errno != ERANGE) {
                    return v <= UINT32_MAX ? doc_.Uint(static_cast<unsigned>(v)) : doc_.Uint64(v);
                }
            }
        }
        return doc_.Double(std::strtod(text.c_str(), nullptr));
    }
    bool Enter() { return ++depth_ <= kMaxDepth; }
    bool Leave() { return depth_-- > 0; }
    rapidjson::Document& doc_;
    unsigned depth_ = 0;
};

// Fills the document through Populate, which takes the root off the document's stack.
struct ParseInto {
    rapidjson::FileReadStream& stream;
    rapidjson::ParseResult result{};
    bool operator()(rapidjson::Document& doc) {
        DepthLimited handler(doc);
        rapidjson::GenericReader<rapidjson::UTF8<>, rapidjson::UTF8<>> reader;
        result = reader.Parse<kParseFlags | rapidjson::kParseNumbersAsStringsFlag>(stream, handler);
        return !result.IsError();
    }
};

template <typename T>
struct JsonType;

template <>
struct JsonType<unsigned int> {
    static bool Is(const rapidjson::Value& v) { return v.IsUint(); }
    static unsigned int Get(const rapidjson::Value& v) { return v.GetUint(); }
};

}  // namespace

bool JsonParseFile(const char* path, rapidjson::Document& doc) {
    FILE* fp = path == nullptr ? nullptr : std::fopen(path, "r");
    if (fp == nullptr) {
        VAI_LOGE("file \"%s\" fopen failed!", path);
        return false;
    }
    char buffer[10000];
    rapidjson::FileReadStream stream(fp, buffer, sizeof(buffer));
    ParseInto parse{stream};
    doc.Populate(parse);
    std::fclose(fp);
    if (parse.result.IsError()) {
        VAI_LOGE("\"%s\" parse failed!", path);
        return false;
    }
    return true;
}

template <typename T>
bool JsonGet(const rapidjson::Value& obj, const char* key, T& out) {
    if (key == nullptr || !obj.IsObject()) {
        VAI_LOGE("parse \"%s\" pars failed!", key);
        return false;
    }
    auto it = obj.FindMember(key);
    if (it == obj.MemberEnd() || !JsonType<T>::Is(it->value)) {
        VAI_LOGE("parse \"%s\" pars failed!", key);
        return false;
    }
    out = JsonType<T>::Get(it->value);
    return true;
}

template <typename T>
bool JsonGetArray(const rapidjson::Value& obj, const char* key, T* out, unsigned char max_count) {
    if (key == nullptr || !obj.IsObject()) {
        VAI_LOGE("parse \"%s\" pars failed!", key);
        return false;
    }
    auto it = obj.FindMember(key);
    if (it == obj.MemberEnd() || !it->value.IsArray()) {
        VAI_LOGE("parse \"%s\" pars failed!", key);
        return false;
    }
    const auto& array = it->value;
    const rapidjson::SizeType n = array.Size() < max_count ? array.Size() : max_count;
    for (rapidjson::SizeType i = 0; i < n; ++i) {
        if (!JsonType<T>::Is(array[i])) {
            VAI_LOGE("datatype is diff, parse \"%s\" pars failed!", key);
            return false;
        }
        out[i] = JsonType<T>::Get(array[i]);
    }
    return true;
}

template VAI_EXPORT bool JsonGet<unsigned int>(const rapidjson::Value&, const char*, unsigned int&);
template VAI_EXPORT bool JsonGetArray<unsigned int>(const rapidjson::Value&, const char*, unsigned int*,
                                                    unsigned char);
