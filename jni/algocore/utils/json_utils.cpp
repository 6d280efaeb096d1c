#include "algocore/utils/json_utils.h"

#include <cstdio>

#include "algocore/utils/json_reader.h"
#include "algocore/utils/vai_log.h"

namespace {

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
    static_assert(vai::kJsonParseFlags == 48, "configuration parse flags");
    const bool failed = vai::JsonParseStream(fp, doc).IsError();
    std::fclose(fp);
    if (failed) {
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
