// Desktop builds may redirect device paths through environment variables.
#pragma once

#include <cstdlib>

namespace vai {

// `env`'s value when set and non-empty on a non-Android build, else `devicePath`. Read at every call
// so a test or tool can change it at any time.
inline const char* HostOverride(const char* env, const char* devicePath) {
#ifndef __ANDROID__
    const char* value = std::getenv(env);
    if (value != nullptr && value[0] != '\0') return value;
#else
    (void)env;
#endif
    return devicePath;
}

}  // namespace vai
