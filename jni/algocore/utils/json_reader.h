// Parsing JSON from files nobody vouches for: nesting is bounded and numbers are converted here.
// Header-only so that the reference runtime's manifest reader parses exactly as the library does.
#pragma once

#include <rapidjson/document.h>
#include <rapidjson/filereadstream.h>
#include <rapidjson/reader.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace vai {

// Comments allowed, numbers at full precision.
constexpr unsigned kJsonParseFlags = rapidjson::kParseCommentsFlag | rapidjson::kParseFullPrecisionFlag;

// Deeper nesting is refused: the parser recurses once per level, and a HAL thread's stack is small.
constexpr unsigned kJsonMaxDepth = 128;

namespace json_detail {

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
    bool Enter() { return ++depth_ <= kJsonMaxDepth; }
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
        result = reader.Parse<kJsonParseFlags | rapidjson::kParseNumbersAsStringsFlag>(stream, handler);
        return !result.IsError();
    }
};

}  // namespace json_detail

// Parses the open file into `doc`. kParseErrorTermination means nesting deeper than kJsonMaxDepth.
inline rapidjson::ParseResult JsonParseStream(FILE* fp, rapidjson::Document& doc) {
    char buffer[4096];
    rapidjson::FileReadStream stream(fp, buffer, sizeof(buffer));
    json_detail::ParseInto parse{stream};
    doc.Populate(parse);
    return parse.result;
}

}  // namespace vai
