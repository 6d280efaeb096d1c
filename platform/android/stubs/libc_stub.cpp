// Link-time stand-in for the property calls of bionic's libc, which glibc lacks. Its soname is
// bionic's "libc.so". Never run.
#include <sys/system_properties.h>

int __system_property_get(const char*, char* value) {
    value[0] = '\0';
    return 0;
}
int __system_property_set(const char*, const char*) { return -1; }
const prop_info* __system_property_find(const char*) { return nullptr; }
void __system_property_read_callback(const prop_info*, void (*)(void*, const char*, const char*, uint32_t),
                                     void*) {}
int __system_property_foreach(void (*)(const prop_info*, void*), void*) { return 0; }
