#include "algocore/utils/Properties.h"

#include <sys/system_properties.h>

#include <cerrno>
#include <cinttypes>
#include <cstring>

#include "algocore/utils/LogPrintf.h"

int property_get(const char* key, char* value, const char* defaultValue) {
    int len = __system_property_get(key, value);
    if (len > 0) return len;
    if (defaultValue == nullptr) return len;
    size_t n = strnlen(defaultValue, kPropertyValueMax - 1);
    std::memcpy(value, defaultValue, n);
    value[n] = '\0';
    return static_cast<int>(n);
}

bool property_get_bool(const char* key, bool defaultValue) {
    if (key == nullptr) return defaultValue;
    char buf[kPropertyValueMax];
    std::memset(buf, 0, sizeof(buf));
    if (__system_property_get(key, buf) < 1) buf[0] = '\0';

    if (buf[0] != '\0' && buf[1] == '\0') {
        switch (buf[0]) {
            case '0':
            case 'n':
                return false;
            case '1':
            case 'y':
                return true;
            default:
                return defaultValue;
        }
    }
    static const char* const kFalse[] = {"no", "false", "off"};
    static const char* const kTrue[] = {"yes", "true", "on"};
    for (const char* word : kFalse) {
        if (std::strcmp(buf, word) == 0) return false;
    }
    for (const char* word : kTrue) {
        if (std::strcmp(buf, word) == 0) return true;
    }
    return defaultValue;
}

intmax_t property_get_imax(const char* key, intmax_t lower, intmax_t upper, intmax_t defaultValue) {
    if (key == nullptr) return defaultValue;
    char buf[kPropertyValueMax];
    std::memset(buf, 0, sizeof(buf));
    if (__system_property_get(key, buf) < 1) return defaultValue;

    const int savedErrno = errno;
    errno = 0;
    char* end = nullptr;
    intmax_t result = std::strtoimax(buf, &end, 0);
    if ((result == INTMAX_MIN || result == INTMAX_MAX) && errno == ERANGE) {
        VEMO_LOGI("%s(%s,%jd) - overflow", "property_get_imax", key, defaultValue);
        result = defaultValue;
    } else if (result < lower || result > upper) {
        VEMO_LOGI("%s(%s,%jd) - out of range", "property_get_imax", key, defaultValue);
        result = defaultValue;
    } else if (end == buf) {
        VEMO_LOGI("%s(%s,%jd) - numeric conversion failed", "property_get_imax", key, defaultValue);
        result = defaultValue;
    }
    errno = savedErrno;
    return result;
}

int64_t property_get_int64(const char* key, int64_t defaultValue) {
    return static_cast<int64_t>(property_get_imax(key, INT64_MIN, INT64_MAX, defaultValue));
}

int32_t property_get_int32(const char* key, int32_t defaultValue) {
    return static_cast<int32_t>(property_get_imax(key, INT32_MIN, INT32_MAX, defaultValue));
}

int property_set(const char* key, const char* value) {
    return __system_property_set(key, value);
}

namespace {

struct ListCookie {
    void (*callback)(const char*, const char*, void*);
    void* cookie;
};

void ForwardProperty(void* cookie, const char* name, const char* value, uint32_t /*serial*/) {
    auto* pair = static_cast<ListCookie*>(cookie);
    pair->callback(name, value, pair->cookie);
}

void VisitProperty(const prop_info* pi, void* cookie) {
    __system_property_read_callback(pi, ForwardProperty, cookie);
}

}  // namespace

int property_list(void (*callback)(const char* key, const char* value, void* cookie), void* cookie) {
    ListCookie pair{callback, cookie};
    return __system_property_foreach(VisitProperty, &pair);
}
