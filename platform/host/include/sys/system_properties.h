// Host stand-in for the Android system-property interface (same signatures as the NDK).
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define PROP_VALUE_MAX 92

typedef struct prop_info prop_info;

int __system_property_get(const char* name, char* value);
int __system_property_set(const char* name, const char* value);
const prop_info* __system_property_find(const char* name);
void __system_property_read_callback(const prop_info* pi,
                                     void (*callback)(void* cookie, const char* name, const char* value,
                                                      uint32_t serial),
                                     void* cookie);
int __system_property_foreach(void (*propfn)(const prop_info* pi, void* cookie), void* cookie);

#ifdef __cplusplus
}
#endif
