// The NDK's system-property declarations (bionic libc) this tree uses, with its signatures: the host
// platform library implements them, and the Android check compiles against them.
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
