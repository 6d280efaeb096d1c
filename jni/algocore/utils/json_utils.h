// Reading JSON configuration files (comments allowed) and typed members of them.
#pragma once

#include <rapidjson/document.h>

#include "interface/vai_export.h"

// True when `path` was opened and parsed without error.
VAI_EXPORT bool JsonParseFile(const char* path, rapidjson::Document& doc);

// Reads member `key` of `obj` into `out`; false (out unchanged) when absent or of another type.
template <typename T>
VAI_EXPORT bool JsonGet(const rapidjson::Value& obj, const char* key, T& out);

// Reads up to `max_count` elements of array member `key` into `out`. Elements past max_count are
// ignored; on a wrongly typed element the ones before it stay written.
template <typename T>
VAI_EXPORT bool JsonGetArray(const rapidjson::Value& obj, const char* key, T* out, unsigned char max_count);

extern template VAI_EXPORT bool JsonGet<unsigned int>(const rapidjson::Value&, const char*, unsigned int&);
extern template VAI_EXPORT bool JsonGetArray<unsigned int>(const rapidjson::Value&, const char*,
                                                           unsigned int*, unsigned char);
