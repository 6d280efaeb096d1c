// Logging of the in-house support layer: tag "Algorithm", gated by the bit mask
// vemo::LogPrintf::mLogLevel, every line prefixed with module, file, line and function.
#pragma once

#include "interface/vai_export.h"

namespace vemo {

class VAI_EXPORT LogPrintf {
  public:
    // Bits of mLogLevel. 255 as a whole value sends everything to standard output instead.
    enum : unsigned int {
        kError = 1,
        kWarning = 2,
        kInfo = 4,
        kDebug = 8,
        kVerbose = 16,
        kConsole = 32,
        kAllToConsole = 255,
    };

    LogPrintf();
    virtual ~LogPrintf();

    static void setLogStatus(unsigned int level);
    // Reads `property` (or `defaultValue` when unset) as a number; 0 leaves the mask alone.
    static int setLogStatusByProp(const char* property, const char* defaultValue);
    static void logPrint(unsigned int level, const char* format, ...) __attribute__((format(printf, 2, 3)));

    static unsigned int mLogLevel;
};

// Base name of a source path, for the log prefix.
constexpr const char* SourceBaseName(const char* path) {
    const char* base = path;
    for (const char* p = path; *p != '\0'; ++p) {
        if (*p == '/') base = p + 1;
    }
    return base;
}

}  // namespace vemo

#if defined(__FILE_NAME__)
#define VEMO_FILE_NAME __FILE_NAME__
#else
#define VEMO_FILE_NAME ::vemo::SourceBaseName(__FILE__)
#endif

#define VEMO_LOG_AT(bit, prefix, fmt, ...)                                                               \
    do {                                                                                                 \
        if (::vemo::LogPrintf::mLogLevel & (bit)) {                                                      \
            ::vemo::LogPrintf::logPrint((bit), prefix "[%s] [%s] %d  %s() " fmt, "VEMO", VEMO_FILE_NAME, \
                                        __LINE__, __func__, ##__VA_ARGS__);                              \
        }                                                                                                \
    } while (0)

#define VEMO_LOGE(fmt, ...) VEMO_LOG_AT(::vemo::LogPrintf::kError, "[ERROR] ", fmt, ##__VA_ARGS__)
#define VEMO_LOGI(fmt, ...) VEMO_LOG_AT(::vemo::LogPrintf::kInfo, "[INFO] ", fmt, ##__VA_ARGS__)
