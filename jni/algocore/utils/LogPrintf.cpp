#include "algocore/utils/LogPrintf.h"

#include <android/log.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "algocore/utils/Properties.h"
#include "algocore/utils/vai_log.h"

unsigned char g_log_level = 1;

namespace vemo {

unsigned int LogPrintf::mLogLevel = 1;

LogPrintf::LogPrintf() {
    mLogLevel = 1;
}

// Resetting on destruction is deliberate: a host's temporary logger restores the default.
LogPrintf::~LogPrintf() {
    mLogLevel = 1;
}

void LogPrintf::setLogStatus(unsigned int level) {
    mLogLevel = level;
}

int LogPrintf::setLogStatusByProp(const char* property, const char* defaultValue) {
    char value[92];
    std::memset(value, 0, sizeof(value));
    property_get(property, value, defaultValue);
    int level = std::atoi(value);
    if (level == 0) return 0;
    mLogLevel = static_cast<unsigned int>(level) & 63u;
    return level;
}

void LogPrintf::logPrint(unsigned int level, const char* format, ...) {
    const unsigned int mask = mLogLevel;
    if (mask == 0) return;

    char text[1024];
    va_list ap;
    va_start(ap, format);
    std::vsnprintf(text, 1023, format, ap);
    va_end(ap);

    if (mask == kAllToConsole) {
        std::printf("%s \n", text);
        return;
    }
    static const int kPriority[] = {ANDROID_LOG_ERROR, ANDROID_LOG_WARN, ANDROID_LOG_INFO, ANDROID_LOG_DEBUG,
                                    ANDROID_LOG_VERBOSE};
    const unsigned int enabled = mask & level;
    for (unsigned int bit = 0; bit < 5; ++bit) {
        if (enabled & (1u << bit)) {
            __android_log_write(kPriority[bit], "Algorithm", text);
            return;
        }
    }
    // The console bit is the mask's own, so logPrint(kError, ...) reaches a console-only mask.
    if (mask & kConsole) std::printf("%s %s\n", "Algorithm", text);
}

}  // namespace vemo
