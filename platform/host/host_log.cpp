#include <android/log.h>

#include <atomic>
#include <cstdio>
#include <mutex>

#include "vai_host_platform.h"

namespace {

std::mutex gSinkLock;
vai_host_log_sink gSink = nullptr;
void* gSinkUser = nullptr;

char PriorityLetter(int prio) {
    switch (prio) {
        case ANDROID_LOG_VERBOSE:
            return 'V';
        case ANDROID_LOG_DEBUG:
            return 'D';
        case ANDROID_LOG_INFO:
            return 'I';
        case ANDROID_LOG_WARN:
            return 'W';
        case ANDROID_LOG_ERROR:
            return 'E';
        case ANDROID_LOG_FATAL:
            return 'F';
        default:
            return '?';
    }
}

}  // namespace

extern "C" vai_host_log_sink vai_host_set_log_sink(vai_host_log_sink sink, void* user) {
    std::lock_guard<std::mutex> lock(gSinkLock);
    vai_host_log_sink previous = gSink;
    gSink = sink;
    gSinkUser = user;
    return previous;
}

extern "C" int __android_log_write(int prio, const char* tag, const char* text) {
    if (tag == nullptr) tag = "";
    if (text == nullptr) text = "";
    {
        std::lock_guard<std::mutex> lock(gSinkLock);
        if (gSink != nullptr && gSink(prio, tag, text, gSinkUser) == 0) return 1;
    }
    // One fprintf per line keeps lines of concurrent writers whole.
    return std::fprintf(stderr, "%c/%s: %s\n", PriorityLetter(prio), tag, text) < 0 ? -1 : 1;
}

extern "C" int __android_log_vprint(int prio, const char* tag, const char* fmt, va_list ap) {
    char buf[1024] = "";  // Android's own limit on one log payload
    if (fmt != nullptr) std::vsnprintf(buf, sizeof(buf), fmt, ap);
    return __android_log_write(prio, tag, buf);
}

extern "C" int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    int r = __android_log_vprint(prio, tag, fmt, ap);
    va_end(ap);
    return r;
}
