// Mirrors the library's internal blocks into a memory trace owned by the host.
#pragma once

#include <cstdint>

#include "interface/vai_export.h"
#include "interface/vai_memtrace.h"

namespace vemo {

class VAI_EXPORT APSAlgoMemTrace {
  public:
    // Enables the hand-off when every pointer of `info` is set; 1027 otherwise (hand-off disabled).
    static int setAPSMemInfo(APSMemMapInfo* info);
    static unsigned long long getHashCode(void* addr);

    // Both return the size entered or removed, 0 when nothing changed.
    static unsigned long mapAPSNativeMapInsert(void* addr, unsigned long size, const char* file, int line);
    static unsigned long mapAPSNativeMapDelete(void* addr, const char* file, int line);
    static void mapAPSNativeMemAdd(unsigned long size);
    static void mapAPSNativeMemDec(unsigned long size);

    // Returns the entry's reference count after the call, 0 when nothing was entered.
    static int mapAPSHardwareBuffInsert(void* addr, unsigned long size, const char* file, int line,
                                        unsigned int a, unsigned int b, unsigned int c);
    static void mapAPSHardwareBuffDelete(void* addr, const char* file, int line);

    static int32_t sAPSMemEnable;
    static APSMemMapInfo sAPSMemInfo;
};

}  // namespace vemo
