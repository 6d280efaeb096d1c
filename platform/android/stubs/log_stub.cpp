// Link-time stand-in for Android's liblog: lets the Android check link with --no-undefined and record
// "liblog.so" as a needed library. Never run.
#include <android/log.h>

int __android_log_write(int, const char*, const char*) { return 0; }
int __android_log_print(int, const char*, const char*, ...) { return 0; }
int __android_log_vprint(int, const char*, const char*, va_list) { return 0; }
