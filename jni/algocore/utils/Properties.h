// Typed readers of system properties with defaults; failures fall back to the default.
#pragma once

#include <cstdint>

#include "interface/vai_export.h"

// Values live in buffers of this size (91 characters and a terminator).
constexpr int kPropertyValueMax = 92;

VAI_EXPORT int property_get(const char* key, char* value, const char* defaultValue);
VAI_EXPORT bool property_get_bool(const char* key, bool defaultValue);
VAI_EXPORT intmax_t property_get_imax(const char* key, intmax_t lower, intmax_t upper, intmax_t defaultValue);
VAI_EXPORT int64_t property_get_int64(const char* key, int64_t defaultValue);
VAI_EXPORT int32_t property_get_int32(const char* key, int32_t defaultValue);
VAI_EXPORT int property_set(const char* key, const char* value);
VAI_EXPORT int property_list(void (*callback)(const char* key, const char* value, void* cookie),
                             void* cookie);
