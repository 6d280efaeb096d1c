// Traced stand-ins for the C library's allocation, mapping, fill and copy calls. Every operation takes
// the caller's source file and line last; they are recorded with allocations and printed in complaints.
#pragma once

#include "interface/vai_export.h"

namespace vemo {

class VAI_EXPORT Native {
  public:
    // Registers an object the caller created itself (with new).
    static void create(void* p, unsigned long size, const char* file, int line);
    static void* malloc(unsigned long size, const char* file, int line);
    static void* calloc(unsigned long count, unsigned long size, const char* file, int line);
    static void* realloc(void* p, unsigned long size, const char* file, int line);
    static void free(void* p, const char* file, int line);
    static void* mmap(void* addr, unsigned long len, int prot, int flags, int fd, long offset,
                      const char* file, int line);
    static int munmap(void* addr, unsigned long len, const char* file, int line);
    // Records memory owned by someone else.
    static void* attach(void* p, unsigned long size, const char* file, int line);
    static void detach(void* p, const char* file, int line);
    // base + offset * elementSize, or null when tracing finds it outside the block.
    static void* get(void* base, unsigned long offset, unsigned long elementSize, unsigned long size,
                     const char* file, int line);

    static void* memset(void* p, int value, unsigned long size, const char* file, int line);
    // Lenient forms: no destination/source sizes, never refused for overlap.
    static void* defectMemset(void* p, int value, unsigned long size, const char* file, int line);
    static void* defectMemcpy(void* dst, void* src, unsigned long size, const char* file, int line);
    static void* defectMemcpy(void* dst, const void* src, unsigned long size, const char* file, int line);

    static void* memcpy(void* dst, void* src, unsigned long dstSize, unsigned long srcSize,
                        unsigned long size, const char* file, int line);
    static void* memcpy(void* dst, const void* src, unsigned long dstSize, unsigned long srcSize,
                        unsigned long size, const char* file, int line);
    // Copies between element offsets; returns dst plus the destination byte offset.
    static void* memncpy(void* dst, void* src, unsigned long dstOffset, unsigned long dstElementSize,
                         unsigned long dstSize, unsigned long srcOffset, unsigned long srcElementSize,
                         unsigned long srcSize, unsigned long size, const char* file, int line);
};

}  // namespace vemo
