// Logging of the noise-reduction code: Android log, tag "Video_AI_PROC", gated by g_log_level.
#pragma once

#include <android/log.h>

#include "interface/vai_export.h"

// Threshold: 0 silent, 1 errors (default), 2 warnings, 3 info, 4 debug, 5 verbose.
extern VAI_EXPORT unsigned char g_log_level;

#define VAI_LOG_TAG "Video_AI_PROC"

// The level is tested before any argument is evaluated, so a disabled line costs one load.
#define VAI_LOG_AT(min_level, prio, fmt, ...)                             \
    do {                                                                  \
        if (g_log_level >= (min_level)) {                                 \
            __android_log_print((prio), VAI_LOG_TAG, fmt, ##__VA_ARGS__); \
        }                                                                 \
    } while (0)

#define VAI_LOGE(fmt, ...) VAI_LOG_AT(1, ANDROID_LOG_ERROR, fmt, ##__VA_ARGS__)
#define VAI_LOGW(fmt, ...) VAI_LOG_AT(2, ANDROID_LOG_WARN, fmt, ##__VA_ARGS__)
#define VAI_LOGI(fmt, ...) VAI_LOG_AT(3, ANDROID_LOG_INFO, fmt, ##__VA_ARGS__)
#define VAI_LOGD(fmt, ...) VAI_LOG_AT(4, ANDROID_LOG_DEBUG, fmt, ##__VA_ARGS__)
#define VAI_LOGV(fmt, ...) VAI_LOG_AT(5, ANDROID_LOG_VERBOSE, fmt, ##__VA_ARGS__)
