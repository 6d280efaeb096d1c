#include "algocore/memory/ALGONativeGalloc.h"

#include <sys/mman.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "algocore/memory/ALGOGalloc.h"
#include "algocore/utils/LogPrintf.h"

namespace vemo {

namespace {

constexpr int kInternal = 0;
constexpr int kAttached = 1;

inline bool Tracing() {
    return AlgorithmMemory::sDebugEnable != 0;
}

void Register(void* p, unsigned long size, const char* file, int line) {
    AlgorithmMemory::nativeMemAdd(AlgorithmMemory::mapInsert(p, size, kInternal, file, line));
}

void Unregister(void* p, const char* file, int line) {
    AlgorithmMemory::nativeMemDec(AlgorithmMemory::mapDelete(p, file, line));
}

void* Offset(void* p, unsigned long bytes) {
    return reinterpret_cast<void*>(reinterpret_cast<uintptr_t>(p) + bytes);
}

// The amount rule shared by both memcpy overloads: one short side copies less, two short sides refuse.
void* BoundedCopy(void* dst, const void* src, unsigned long dstSize, unsigned long srcSize,
                  unsigned long size, const char* file, int line) {
    if (!AlgorithmMemory::checkOverrideMemcpyAddr(dst, src, 0, 1, dstSize, 0, 1, srcSize, size, file, line)) {
        VEMO_LOGE("Native out of memory! Source File: %s, Line Num: %d dst: %p src:%p size:%lu", file, line,
                  dst, src, size);
        return nullptr;
    }
    if (srcSize >= size && dstSize >= size) {
        std::memcpy(dst, src, size);
        return dst;
    }
    VEMO_LOGE("Native memcpy error! Source File: %s, Line Num: %d dstSize: %lu srcSize: %lu size:%lu", file,
              line, dstSize, srcSize, size);
    if (dstSize >= size) {
        std::memcpy(dst, src, srcSize);
        return dst;
    }
    if (srcSize >= size) {
        std::memcpy(dst, src, dstSize);
        return dst;
    }
    return nullptr;
}

void CheckOrComplain(void* addr, unsigned long offset, unsigned long elementSize, unsigned long size,
                     void* dst, const void* src, unsigned long reported, const char* file, int line) {
    if (!AlgorithmMemory::checkMemcpyAddr(addr, offset, elementSize, size, file, line)) {
        VEMO_LOGE("Native out of memory! Source File: %s, Line Num: %d dst: %p src:%p size:%lu", file, line,
                  dst, src, reported);
    }
}

}  // namespace

void Native::create(void* p, unsigned long size, const char* file, int line) {
    if (p == nullptr) VEMO_LOGE("Native new error! Source File: %s, Line Num: %d", file, line);
    Register(p, size, file, line);
}

void* Native::malloc(unsigned long size, const char* file, int line) {
    if (size == 0) {
        VEMO_LOGE("malloc size:%lu is error!", size);
        return nullptr;
    }
    void* p = std::malloc(size);
    if (!Tracing()) return p;
    if (p == nullptr) {
        VEMO_LOGE("Native malloc error! Source File: %s, Line Num: %d", file, line);
        return nullptr;
    }
    Register(p, size, file, line);
    return p;
}

void* Native::calloc(unsigned long count, unsigned long size, const char* file, int line) {
    if (size == 0) {
        VEMO_LOGE("calloc size:%lu is error!", size);
        return nullptr;
    }
    void* p = std::calloc(count, size);
    if (!Tracing()) return p;
    if (p == nullptr) {
        VEMO_LOGE("Native calloc error!, Source File: %s, Line Num: %d", file, line);
        return nullptr;
    }
    Register(p, count * size, file, line);
    return p;
}

void* Native::realloc(void* p, unsigned long size, const char* file, int line) {
    if (size == 0) {
        VEMO_LOGE("realloc size:%lu is error!", size);
        return nullptr;
    }
    // Unregistered before the call: once realloc returns, another thread may be handed the old address.
    const bool tracing = Tracing();
    if (tracing && p != nullptr) Unregister(p, file, line);
    void* q = std::realloc(p, size);
    if (!tracing) return q;
    if (q == nullptr) {
        VEMO_LOGE("Native calloc error!, Source File: %s, Line Num: %d", file, line);
        return nullptr;
    }
    Register(q, size, file, line);
    return q;
}

void Native::free(void* p, const char* file, int line) {
    if (p == nullptr) return;
    if (Tracing()) Unregister(p, file, line);
    std::free(p);
}

void* Native::mmap(void* addr, unsigned long len, int prot, int flags, int fd, long offset, const char* file,
                   int line) {
    void* p = ::mmap(addr, len, prot, flags, fd, offset);
    if (!Tracing()) return p;
    if (p == nullptr) {
        VEMO_LOGE("Native mmap error!, Source File: %s, Line Num:%d", file, line);
        return nullptr;
    }
    Register(p, len, file, line);
    return p;
}

int Native::munmap(void* addr, unsigned long len, const char* file, int line) {
    if (Tracing()) Unregister(addr, file, line);
    return ::munmap(addr, len);
}

void* Native::attach(void* p, unsigned long size, const char* file, int line) {
    if (!Tracing()) return p;
    if (p == nullptr) VEMO_LOGE("Native malloc error! Source File: %s, Line Num: %d", file, line);
    AlgorithmMemory::externalMemAdd(AlgorithmMemory::mapInsert(p, size, kAttached, file, line));
    return p;
}

void Native::detach(void* p, const char* file, int line) {
    if (!Tracing()) return;
    AlgorithmMemory::externalMemDec(AlgorithmMemory::mapDelete(p, file, line));
}

void* Native::get(void* base, unsigned long offset, unsigned long elementSize, unsigned long size,
                  const char* file, int line) {
    if (Tracing() && !AlgorithmMemory::mapCheck(base, offset, elementSize, size, file, line)) return nullptr;
    return Offset(base, offset * elementSize);
}

void* Native::memset(void* p, int value, unsigned long size, const char* file, int line) {
    if (p == nullptr || size == 0) {
        VEMO_LOGE("Native memset error! Source File: %s, Line Num: %d addr %p size %lu", file, line, p, size);
        return nullptr;
    }
    if (Tracing() && !AlgorithmMemory::checkMemcpyAddr(p, 0, 1, size, file, line)) {
        VEMO_LOGE("Native out of memory! Source File: %s, Line Num: %d addr:%p size:%lu", file, line, p,
                  size);
    }
    std::memset(p, value, size);
    return p;
}

void* Native::defectMemset(void* p, int value, unsigned long size, const char* file, int line) {
    if (p == nullptr || size == 0) {
        VEMO_LOGE("Native memset error! Source File: %s, Line Num: %d addr %p size %lu", file, line, p, size);
        return nullptr;
    }
    std::memset(p, value, size);
    return p;
}

void* Native::defectMemcpy(void* dst, void* src, unsigned long size, const char* file, int line) {
    if (dst == nullptr || src == nullptr || size == 0) {
        VEMO_LOGE("Native memcpy error! Source File: %s, Line Num: %d dst: %p src:%p size:%lu", file, line,
                  dst, src, size);
        return nullptr;
    }
    if (Tracing()) {
        CheckOrComplain(dst, 0, 1, size, dst, src, size, file, line);
        CheckOrComplain(src, 0, 1, size, dst, src, size, file, line);
    }
    // Overlap is tolerated here, so the copy must be one that allows it.
    std::memmove(dst, src, size);
    return dst;
}

void* Native::defectMemcpy(void* dst, const void* src, unsigned long size, const char* file, int line) {
    if (dst == nullptr || src == nullptr || size == 0) {
        VEMO_LOGE("Native memcpy error! Source File: %s, Line Num: %d dst: %p src:%p size:%lu", file, line,
                  dst, src, size);
        return nullptr;
    }
    if (Tracing()) CheckOrComplain(dst, 0, 1, size, dst, src, size, file, line);
    std::memmove(dst, src, size);
    return dst;
}

void* Native::memcpy(void* dst, void* src, unsigned long dstSize, unsigned long srcSize, unsigned long size,
                     const char* file, int line) {
    if (dst == nullptr || src == nullptr || size == 0) {
        VEMO_LOGE("Native memcpy error! Source File: %s, Line Num: %d dst: %p src:%p size:%lu", file, line,
                  dst, src, size);
        return nullptr;
    }
    if (Tracing()) {
        CheckOrComplain(dst, 0, 1, size, dst, src, size, file, line);
        CheckOrComplain(src, 0, 1, size, dst, src, size, file, line);
        CheckOrComplain(dst, 0, 1, dstSize, dst, src, size, file, line);
        CheckOrComplain(src, 0, 1, srcSize, dst, src, size, file, line);
    }
    return BoundedCopy(dst, src, dstSize, srcSize, size, file, line);
}

void* Native::memcpy(void* dst, const void* src, unsigned long dstSize, unsigned long srcSize,
                     unsigned long size, const char* file, int line) {
    if (dst == nullptr || src == nullptr || size == 0) {
        VEMO_LOGE("Native memcpy error! Source File: %s, Line Num: %d dst: %p src:%p size:%lu", file, line,
                  dst, src, size);
        return nullptr;
    }
    if (Tracing()) {
        CheckOrComplain(dst, 0, 1, size, dst, src, size, file, line);
        CheckOrComplain(dst, 0, 1, dstSize, dst, src, size, file, line);
    }
    return BoundedCopy(dst, src, dstSize, srcSize, size, file, line);
}

void* Native::memncpy(void* dst, void* src, unsigned long dstOffset, unsigned long dstElementSize,
                      unsigned long dstSize, unsigned long srcOffset, unsigned long srcElementSize,
                      unsigned long srcSize, unsigned long size, const char* file, int line) {
    if (dst == nullptr || src == nullptr || size == 0) {
        VEMO_LOGE("Native memcpy error! Source File: %s, Line Num: %d dst: %p src:%p size:%lu", file, line,
                  dst, src, size);
        return nullptr;
    }
    if (Tracing()) {
        CheckOrComplain(dst, dstOffset, dstElementSize, size, dst, src, size, file, line);
        CheckOrComplain(src, srcOffset, srcElementSize, size, dst, src, size, file, line);
        if (!AlgorithmMemory::checkOverrideMemcpyAddr(dst, src, dstOffset, dstElementSize, dstSize, srcOffset,
                                                      srcElementSize, srcSize, size, file, line)) {
            VEMO_LOGE("Native out of memory! Source File: %s, Line Num: %d dst: %p src:%p size:%lu", file,
                      line, dst, src, size);
        }
    }
    // Byte offsets are 32-bit: larger products wrap and are sign-extended.
    const unsigned long dstByteOffset =
        static_cast<unsigned long>(static_cast<long>(static_cast<int32_t>(dstOffset * dstElementSize)));
    const unsigned long srcByteOffset =
        static_cast<unsigned long>(static_cast<long>(static_cast<int32_t>(srcOffset * srcElementSize)));
    void* to = Offset(dst, dstByteOffset);
    const void* from = Offset(src, srcByteOffset);
    const bool dstFits = dstByteOffset <= dstSize && size <= dstSize - dstByteOffset;
    const bool srcFits = srcByteOffset <= srcSize && size <= srcSize - srcByteOffset;
    if (dstFits && srcFits) {
        std::memmove(to, from, size);
        return to;
    }
    // An offset beyond its side (including a wrapped, negative one) leaves nothing to copy.
    unsigned long changeSize = 0;
    if (dstByteOffset <= dstSize && srcByteOffset <= srcSize) {
        changeSize = size;
        if (dstSize - dstByteOffset < changeSize) changeSize = dstSize - dstByteOffset;
        if (srcSize - srcByteOffset < changeSize) changeSize = srcSize - srcByteOffset;
    }
    VEMO_LOGE(
        "Native memcpy error add copy min size! Source File: %s, Line Num: %d dstSize: %lu srcSize: %lu "
        "size:%ludstOffset: %lu dstElementSize: %lu srcOffset: %lu srcElementSize: %lu changeSize: %lu",
        file, line, dstSize, srcSize, size, dstOffset, dstElementSize, srcOffset, srcElementSize, changeSize);
    if (changeSize != 0) std::memmove(to, from, changeSize);
    return to;
}

}  // namespace vemo
