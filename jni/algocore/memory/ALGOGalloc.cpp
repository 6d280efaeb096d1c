#include "algocore/memory/ALGOGalloc.h"

#include <csignal>
#include <cstdlib>
#include <cstring>

#include "algocore/memory/APSAlgoMemTrace.h"
#include "algocore/utils/LogPrintf.h"
#include "algocore/utils/Properties.h"
#include "algocore/utils/status_code.h"

namespace vemo {

int64_t AlgorithmMemory::sDebugEnable = 0;
std::atomic<int32_t> AlgorithmMemory::sInitNumber{0};
void* AlgorithmMemory::sInputHandle = nullptr;
uint64_t AlgorithmMemory::sNativeUsingSize = 0;
uint64_t AlgorithmMemory::sNativeUsingMaxSize = 0;
uint64_t AlgorithmMemory::sExternalUsingSize = 0;
uint64_t AlgorithmMemory::sVirtureUsingSize = 0;
std::mutex AlgorithmMemory::sMemLock;

std::map<void*, AlgoMemInfo> AlgorithmMemory::sMemMap;
std::mutex AlgorithmMemory::sMapLock;
std::map<void*, AlgoMemInfo> AlgorithmMemory::sRefNum;
std::mutex AlgorithmMemory::sHardBuffLock;
std::map<void*, AlgoMemInfo> AlgorithmMemory::sGBMap;
std::mutex AlgorithmMemory::sGraphicBuffLock;

std::map<unsigned int, AlgoGLInfo> AlgorithmMemory::sGLBufferMap;
std::mutex AlgorithmMemory::sGLBufferMapLock;
std::map<unsigned int, AlgoGLInfo> AlgorithmMemory::sGLVaoMap;
std::mutex AlgorithmMemory::sGLVaoMapLock;
std::map<unsigned int, AlgoGLInfo> AlgorithmMemory::sGLTextureMap;
std::mutex AlgorithmMemory::sGLTextureMapLock;
std::map<unsigned int, AlgoGLInfo> AlgorithmMemory::sGLFBMap;
std::mutex AlgorithmMemory::sGLFBMapLock;
std::map<unsigned int, AlgoGLInfo> AlgorithmMemory::sGLShaderMap;
std::mutex AlgorithmMemory::sGLShaderMapLock;
std::map<unsigned int, AlgoGLInfo> AlgorithmMemory::sGLProgramMap;
std::mutex AlgorithmMemory::sGLProgramMapLock;
std::map<unsigned long long, AlgoGLEnvInfo> AlgorithmMemory::sGLSurfaceMap;
std::mutex AlgorithmMemory::sGLSurfaceMapLock;
std::map<unsigned long long, AlgoGLEnvInfo> AlgorithmMemory::sGLContextMap;
std::mutex AlgorithmMemory::sGLContextMapLock;

namespace {

// Largest size ever registered (guarded by sMapLock). Only entries starting within this distance below
// an address can contain it, which bounds the containment search without changing its answer.
unsigned long g_maxEntrySize = 0;

inline uintptr_t U(const void* p) {
    return reinterpret_cast<uintptr_t>(p);
}
inline unsigned long long ULL(const void* p) {
    return static_cast<unsigned long long>(U(p));
}

// Fewer than `size` bytes from `point` up to `end`. point + size is not formed: a size near the top of
// the range would wrap it back inside the block. (The point itself wraps on purpose: offsets before
// the block are passed as negative numbers.)
bool PastEnd(uintptr_t point, unsigned long size, uintptr_t end) {
    return point > end || size > end - point;
}

unsigned long Insert(unsigned long long handle, void* addr, unsigned long size, int type, const char* file,
                     int line) {
    auto& map = AlgorithmMemory::sMemMap;
    auto it = map.lower_bound(addr);
    if (it != map.end() && it->first == addr) return 0;
    AlgoMemInfo info;
    info.addr = addr;
    info.virtureAddr = handle;
    info.startAddr = addr;
    info.endAddr = reinterpret_cast<void*>(U(addr) + size);
    info.file = file != nullptr ? file : "";
    info.line = line;
    info.size = size;
    info.refs = 1;
    info.type = type;
    map.emplace_hint(it, addr, std::move(info));
    if (size > g_maxEntrySize) g_maxEntrySize = size;
    return size;
}

// Buffers still referenced at least once; the caller holds the map's lock.
unsigned long SumLiveBuffersLocked(const std::map<void*, AlgoMemInfo>& map) {
    unsigned long total = 0;
    for (const auto& kv : map) {
        if (kv.second.refs >= 1) total += kv.second.size;
    }
    return total;
}

unsigned long SumLiveBuffers(std::mutex& lock, const std::map<void*, AlgoMemInfo>& map) {
    std::lock_guard<std::mutex> guard(lock);
    return SumLiveBuffersLocked(map);
}

// One hardware- or graphic-buffer report: `label` "HardwareBuffer", `kind` "hardware", and so on.
void PrintBufferMap(std::mutex& lock, const std::map<void*, AlgoMemInfo>& map, AlgoMemFlag flag,
                    const char* label, const char* kind) {
    std::lock_guard<std::mutex> guard(lock);
    VEMO_LOGI("%s MemTrace Refs Print E total %s buffer use is %ld B", label, kind,
              static_cast<long>(SumLiveBuffersLocked(map)));
    for (const auto& kv : map) {
        const AlgoMemInfo& m = kv.second;
        AlgorithmMemory::memLogPrint(kv.first, m.size, flag, 0, m.file, m.line, m.refs, m.type);
    }
    VEMO_LOGI("%s MemTrace Refs Print X", label);
}

// The counters move only while tracing is on, under sMemLock; a decrement is the negated size, so
// the unsigned arithmetic wraps exactly as a subtraction would.
void AdjustCounter(uint64_t& counter, unsigned long delta) {
    if (!AlgorithmMemory::sDebugEnable) return;
    std::lock_guard<std::mutex> lock(AlgorithmMemory::sMemLock);
    counter += delta;
}

}  // namespace

int AlgorithmMemory::memTraceInit(int mode) {
    const int32_t count = ++sInitNumber;
    VEMO_LOGI("[memTraceInit] sInitNumber:%d", count);
    char value[kPropertyValueMax];
    std::memset(value, 0, sizeof(value));
    property_get("vendor.camera.mem.debug.enable", value, "0");
    const int debug = std::atoi(value);
    VEMO_LOGI("debug enbale:%d", debug);
    {
        std::lock_guard<std::mutex> lock(sMemLock);
        sNativeUsingMaxSize = 0;
    }
    sDebugEnable = (mode == 256 || debug == 1) ? 1 : 0;
    return debug;
}

void AlgorithmMemory::setInputHandle(void* handle) {
    if (handle != nullptr && sDebugEnable) sInputHandle = handle;
}

unsigned long AlgorithmMemory::mapInsert(void* addr, unsigned long size, int type, const char* file,
                                         int line) {
    if (size == 0 || addr == nullptr || !sDebugEnable) return 0;
    std::lock_guard<std::mutex> lock(sMapLock);
    if (Insert(ULL(addr), addr, size, type, file, line) == 0) return 0;
    // Mirrored while sMapLock is held so the host's trace never disagrees with ours.
    APSAlgoMemTrace::mapAPSNativeMemAdd(APSAlgoMemTrace::mapAPSNativeMapInsert(addr, size, file, line));
    return size;
}

unsigned long AlgorithmMemory::virtureMapInsert(unsigned long long handle, void* addr, unsigned long size,
                                                int type, const char* file, int line) {
    if (size == 0 || addr == nullptr || !sDebugEnable) return 0;
    std::lock_guard<std::mutex> lock(sMapLock);
    return Insert(handle, addr, size, type, file, line);
}

unsigned long AlgorithmMemory::mapDelete(void* addr, const char* file, int line) {
    if (!sDebugEnable) return 0;
    std::lock_guard<std::mutex> lock(sMapLock);
    auto it = sMemMap.find(addr);
    if (it == sMemMap.end()) {
        VEMO_LOGI("addr: [%p] not in map!, Source File: %s, Line Num:%d", addr, file, line);
        return 0;
    }
    const unsigned long size = it->second.size;
    sMemMap.erase(it);
    APSAlgoMemTrace::mapAPSNativeMemDec(APSAlgoMemTrace::mapAPSNativeMapDelete(addr, file, line));
    return size;
}

unsigned long AlgorithmMemory::virtureMapDelete(unsigned long long handle) {
    if (!sDebugEnable) return 0;
    std::lock_guard<std::mutex> lock(sMapLock);
    for (auto it = sMemMap.begin(); it != sMemMap.end(); ++it) {
        if (it->second.virtureAddr == handle) {
            const unsigned long size = it->second.size;
            sMemMap.erase(it);
            return size;
        }
    }
    return 0;
}

unsigned long AlgorithmMemory::mapFind(void* addr) {
    if (!sDebugEnable) return 0;
    std::lock_guard<std::mutex> lock(sMapLock);
    auto it = sMemMap.find(addr);
    if (it == sMemMap.end()) {
        VEMO_LOGE("addr: [%p] not in map!", addr);
        return 0;
    }
    return it->second.size;
}

bool AlgorithmMemory::mapCheck(void* addr, unsigned long offset, unsigned long elementSize,
                               unsigned long size, const char* file, int line) {
    if (!sDebugEnable) return true;
    std::lock_guard<std::mutex> lock(sMapLock);
    if (addr == nullptr) {
        VEMO_LOGE("SDK_NULL_POINTER_ERR! addr is NULL");
        return false;
    }
    auto it = sMemMap.find(addr);
    if (it == sMemMap.end()) return false;
    const AlgoMemInfo& info = it->second;
    const uintptr_t point = U(addr) + offset * elementSize;
    if (point < U(info.startAddr) || point >= U(info.endAddr)) {
        VEMO_LOGE(
            "SDK_OUT_OF_MEMORY_ERR! begin 0x%llx, end 0x%llx, point 0x%llx, offset %lu, elementSize %ld, "
            "File: %s, "
            "Line Num:%d",
            ULL(info.startAddr), ULL(info.endAddr), ULL(addr), offset, static_cast<long>(elementSize), file,
            line);
        return false;
    }
    if (PastEnd(point, size, U(info.endAddr))) {
        VEMO_LOGE(
            "SDK_OUT_OF_MEMORY_ERR! begin 0x%llx, end 0x%llx, point 0x%llx, offset %lu, elementSize %ld,size "
            "%lu, "
            "File: %s, Line Num:%d",
            ULL(info.startAddr), ULL(info.endAddr), ULL(addr), offset, static_cast<long>(elementSize), size,
            file, line);
        return false;
    }
    return true;
}

bool AlgorithmMemory::checkMemcpyAddr(void* addr, unsigned long offset, unsigned long elementSize,
                                      unsigned long size, const char* file, int line) {
    if (!sDebugEnable) return true;
    std::lock_guard<std::mutex> lock(sMapLock);
    if (addr == nullptr) {
        VEMO_LOGE("SDK_NULL_POINTER_ERR! addr is NULL");
        return false;
    }
    const AlgoMemInfo* info = nullptr;
    auto exact = sMemMap.lower_bound(addr);
    if (exact != sMemMap.end() && exact->first == addr) {
        info = &exact->second;
    } else {
        // First entry in address order that strictly contains addr.
        const uintptr_t lowest = U(addr) > g_maxEntrySize ? U(addr) - g_maxEntrySize : 0;
        for (auto it = sMemMap.lower_bound(reinterpret_cast<void*>(lowest)); it != exact; ++it) {
            if (U(it->second.startAddr) < U(addr) && U(addr) < U(it->second.endAddr)) {
                info = &it->second;
                break;
            }
        }
        if (info == nullptr) return true;  // memory the registry does not know is accepted
    }
    const uintptr_t start = U(info->startAddr);
    const uintptr_t end = U(info->endAddr);
    const uintptr_t point = U(addr) + offset * elementSize;
    if (point < start) {
        VEMO_LOGE(
            "SDK_OUT_OF_MEMORY_ERR! Source File: %s, Line Num: %d begin 0x%llx, end 0x%llx, point "
            "0x%llx,offset "
            "%llx,out of left memory size %llu elementSize %ld",
            file, line, static_cast<unsigned long long>(start), static_cast<unsigned long long>(end),
            ULL(addr), static_cast<unsigned long long>(offset), static_cast<unsigned long long>(elementSize),
            static_cast<long>(start - point));
        return false;
    }
    if (PastEnd(point, size, end)) {
        VEMO_LOGE(
            "SDK_OUT_OF_MEMORY_ERR! Source File: %s, Line Num: %d begin 0x%llx, end 0x%llx, point "
            "0x%llx,offset %lu, "
            "elementSize %ld, size %lu, out of right memory size %llu",
            file, line, static_cast<unsigned long long>(start), static_cast<unsigned long long>(end),
            ULL(addr), offset, static_cast<long>(elementSize), size,
            static_cast<unsigned long long>(point + size - end));
        return false;
    }
    return true;
}

bool AlgorithmMemory::checkOverrideMemcpyAddr(void* dst, const void* src, unsigned long dstOffset,
                                              unsigned long dstElementSize, unsigned long /*dstSize*/,
                                              unsigned long srcOffset, unsigned long srcElementSize,
                                              unsigned long /*srcSize*/, unsigned long size, const char* file,
                                              int line) {
    if (dst == nullptr || src == nullptr) {
        VEMO_LOGE("SDK_NULL_POINTER_ERR! src:%p dst:%p  is NULL", src, dst);
        return false;
    }
    const uintptr_t srcPoint = U(src) + srcOffset * srcElementSize;
    const uintptr_t dstPoint = U(dst) + dstOffset * dstElementSize;
    if (srcPoint >= dstPoint && dstPoint + size > srcPoint) {
        VEMO_LOGE(
            "SDK_OUT_OF_MEMORY_ERR! Source File: %s, Line Num: %d  dstPoint: %llx srcPoint: %llx "
            "srcOffset;%llxsrcElementSize %llx dstOffset:%llx dstElementSize %llx override right memory "
            ":%llu",
            file, line, ULL(dst), ULL(src), static_cast<unsigned long long>(srcOffset),
            static_cast<unsigned long long>(srcElementSize), static_cast<unsigned long long>(dstOffset),
            static_cast<unsigned long long>(dstElementSize),
            static_cast<unsigned long long>(dstPoint - srcPoint + size));
        return false;
    }
    if (dstPoint >= srcPoint && dstPoint < srcPoint + size) {
        VEMO_LOGE(
            "SDK_OUT_OF_MEMORY_ERR! Source File: %s, Line Num: %d  dstPoint: %llx srcPoint: %llx "
            "srcOffset;%llxsrcElementSize %llx dstOffset:%llx dstElementSize %llx override left memory :%llu",
            file, line, ULL(dst), ULL(src), static_cast<unsigned long long>(srcOffset),
            static_cast<unsigned long long>(srcElementSize), static_cast<unsigned long long>(dstOffset),
            static_cast<unsigned long long>(dstElementSize),
            static_cast<unsigned long long>(srcPoint - dstPoint + size));
        return false;
    }
    return true;
}

void AlgorithmMemory::nativeMemAdd(unsigned long size) {
    if (!sDebugEnable) return;
    std::lock_guard<std::mutex> lock(sMemLock);
    sNativeUsingSize += size;
    if (sNativeUsingSize > sNativeUsingMaxSize) sNativeUsingMaxSize = sNativeUsingSize;
}

void AlgorithmMemory::nativeMemDec(unsigned long size) {
    AdjustCounter(sNativeUsingSize, -size);
}
void AlgorithmMemory::externalMemAdd(unsigned long size) {
    AdjustCounter(sExternalUsingSize, size);
}
void AlgorithmMemory::externalMemDec(unsigned long size) {
    AdjustCounter(sExternalUsingSize, -size);
}
void AlgorithmMemory::virtureMemAdd(unsigned long size) {
    AdjustCounter(sVirtureUsingSize, size);
}
void AlgorithmMemory::virtureMemDec(unsigned long size) {
    AdjustCounter(sVirtureUsingSize, -size);
}

unsigned long AlgorithmMemory::getTotalMemSize() {
    if (!sDebugEnable) return 0;
    std::lock_guard<std::mutex> lock(sMemLock);
    return sNativeUsingSize + sExternalUsingSize + sVirtureUsingSize;
}

unsigned long AlgorithmMemory::getInternalMemSize() {
    if (!sDebugEnable) return 0;
    std::lock_guard<std::mutex> lock(sMemLock);
    return sNativeUsingSize;
}

unsigned long AlgorithmMemory::getInternalMemMaxSize() {
    if (!sDebugEnable) return 0;
    std::lock_guard<std::mutex> lock(sMemLock);
    return sNativeUsingMaxSize;
}

unsigned long AlgorithmMemory::getTotalHardwareSize() {
    return SumLiveBuffers(sHardBuffLock, sRefNum);
}

unsigned long AlgorithmMemory::getTotalGraphicSize() {
    return SumLiveBuffers(sGraphicBuffLock, sGBMap);
}

void AlgorithmMemory::checkAddr(void*, AlgoMemFlag, void*, std::string, int) {}

void AlgorithmMemory::checkAddr(void*, int, void*, std::string, int) {}

void AlgorithmMemory::memLogPrint(void* addr, unsigned long size, AlgoMemFlag flag, int isFree,
                                  std::string file, int line, int refs, int type) {
    if (!sDebugEnable) return;
    const char* f = file.c_str();
    const long sz = static_cast<long>(size);
    if (flag == ALGO_HARDWARE_BUFFER) {
        if (isFree == 0) {
            VEMO_LOGI("File: %s Line :%05d allocate HardwareBuffer %p size: %ld B  REFS: %d", f, line, addr,
                      sz, refs);
        } else {
            VEMO_LOGI("File: %s Line :%05d free HardwareBuffer %p size: %ld B REFS: %d", f, line, addr, sz,
                      refs);
        }
    } else if (flag == ALGO_GRAPHIC_BUFFER) {
        if (isFree == 0) {
            VEMO_LOGI("File: %s Line :%05d allocate GraphicBuffer %p size: %ld B  REFS: %d", f, line, addr,
                      sz, refs);
        } else {
            VEMO_LOGI("File: %s Line :%05d free GraphicBuffer %p size: %ld B REFS: %d", f, line, addr, sz,
                      refs);
        }
    } else if (type == 0) {
        if (isFree == 0) {
            VEMO_LOGI("File: %s Line :%05d allocate Native Memory %p size: %ld B", f, line, addr, sz);
        } else {
            VEMO_LOGI("File: %s Line :%05d free Native Memory %p size: %ld B", f, line, addr, sz);
        }
    } else if (type == 1) {
        if (isFree == 0) {
            VEMO_LOGI("File: %s Line :%05d attach Native Memory %p size: %ld B", f, line, addr, sz);
        } else {
            VEMO_LOGI("File: %s Line :%05d detach Native Memory %p size: %ld B", f, line, addr, sz);
        }
    } else {
        if (isFree == 0) {
            VEMO_LOGI("File: %s Line :%05d virture Memory %p size: %ld B", f, line, addr, sz);
        } else {
            VEMO_LOGI("File: %s Line :%05d free virture Memory %p size: %ld B", f, line, addr, sz);
        }
    }
}

void AlgorithmMemory::mapPrint(AlgoMemFlag flag) {
    VEMO_LOGI("sDebugEnable: %lld", static_cast<long long>(sDebugEnable));
    if (!sDebugEnable) return;
    VEMO_LOGI("ALGOGalloc map print E");
    if (flag == ALGO_NATIVE_MEM) {
        uint64_t total, internal, maxUse;
        {
            std::lock_guard<std::mutex> lock(sMemLock);
            total = sNativeUsingSize + sExternalUsingSize + sVirtureUsingSize;
            internal = sNativeUsingSize;
            maxUse = sNativeUsingMaxSize;
        }
        VEMO_LOGI("Native MemTrace Log Print E Total mem use is %ld B", static_cast<long>(total));
        VEMO_LOGI("Native MemTrace Log Print E internal use is %ld B", static_cast<long>(internal));
        VEMO_LOGI("########## Max Native mem use is %ld B##########", static_cast<long>(maxUse));
        {
            std::lock_guard<std::mutex> lock(sMapLock);
            for (const auto& kv : sMemMap) {
                const AlgoMemInfo& m = kv.second;
                memLogPrint(m.addr, m.size, ALGO_NATIVE_MEM, 0, m.file, m.line, m.refs, m.type);
            }
        }
        VEMO_LOGI("Native MemTrace Log Print X");
    } else if (flag == ALGO_HARDWARE_BUFFER) {
        PrintBufferMap(sHardBuffLock, sRefNum, flag, "HardwareBuffer", "hardware");
    } else if (flag == ALGO_GRAPHIC_BUFFER) {
        PrintBufferMap(sGraphicBuffLock, sGBMap, flag, "GraphicBuffer", "graphic");
    }
    VEMO_LOGI("ALGOGalloc map print  X");
}

int AlgorithmMemory::glCheckMem(std::mutex& lock, std::map<unsigned int, AlgoGLInfo>& map) {
    if (!sDebugEnable) return SDK_SUCCESS;
    std::lock_guard<std::mutex> guard(lock);
    if (map.empty()) return SDK_SUCCESS;
    for (const auto& kv : map) {
        VEMO_LOGE("File: %s Line :%05d gl id: %d is not deleted, memory leak!", kv.second.file.c_str(),
                  kv.second.line, static_cast<int>(kv.first));
    }
    return SDK_OUT_OF_MEMORY_ERR;
}

int AlgorithmMemory::glCheckEnvMem(std::mutex& lock, std::map<unsigned long long, AlgoGLEnvInfo>& map) {
    if (!sDebugEnable) return SDK_SUCCESS;
    std::lock_guard<std::mutex> guard(lock);
    if (map.empty()) return SDK_SUCCESS;
    for (const auto& kv : map) {
        VEMO_LOGE("File: %s Line :%05d gl id: %lu is not deleted, memory leak!", kv.second.file.c_str(),
                  kv.second.line, static_cast<unsigned long>(kv.first));
    }
    return SDK_OUT_OF_MEMORY_ERR;
}

int AlgorithmMemory::glFinalCheck() {
    if (!sDebugEnable) return SDK_SUCCESS;
    const int texture = glCheckMem(sGLTextureMapLock, sGLTextureMap);
    const int fb = glCheckMem(sGLFBMapLock, sGLFBMap);
    const int shader = glCheckMem(sGLShaderMapLock, sGLShaderMap);
    const int program = glCheckMem(sGLProgramMapLock, sGLProgramMap);
    const int surface = glCheckEnvMem(sGLSurfaceMapLock, sGLSurfaceMap);
    const int context = glCheckEnvMem(sGLContextMapLock, sGLContextMap);
    if (texture == 0 && fb == 0 && shader == 0 && program == 0 && surface == 0 && context == 0)
        return SDK_SUCCESS;
    VEMO_LOGE(
        "gl check memory failed! check result texture:%s, fb:%s, shader:%s, retProgram:%s, retSurface:%s, "
        "retContext:%s",
        statusToString(texture), statusToString(fb), statusToString(shader), statusToString(program),
        statusToString(surface), statusToString(context));
    return SDK_OUT_OF_MEMORY_ERR;
}

int AlgorithmMemory::memFinalCheck() {
    const int32_t count = --sInitNumber;
    VEMO_LOGI("[memFinalCheck] sInitNumber:%d", count);
    if (!sDebugEnable || count != 0) return SDK_SUCCESS;

    // One lock at a time: the report below takes them again.
    const unsigned long hardware = getTotalHardwareSize();
    const unsigned long graphic = getTotalGraphicSize();
    unsigned long internal;
    {
        std::lock_guard<std::mutex> lock(sMemLock);
        internal = sNativeUsingSize;
    }
    const int gl = glFinalCheck();
    if (internal == 0 && hardware == 0 && graphic == 0 && gl == SDK_SUCCESS) {
        VEMO_LOGI("release memory is OK!");
        return SDK_SUCCESS;
    }
    if (internal != 0 || hardware != 0 || graphic != 0) {
        if (internal != 0) mapPrint(ALGO_NATIVE_MEM);
        if (hardware != 0) mapPrint(ALGO_HARDWARE_BUFFER);
        if (graphic != 0) mapPrint(ALGO_GRAPHIC_BUFFER);
        VEMO_LOGE("There is memory leak!");
    }
    VEMO_LOGE("Memory leak! Please check memory!");
    // Fatal on purpose: a leak at the end of the last tracing period must not go unnoticed.
    std::raise(SIGABRT);
    return SDK_OUT_OF_MEMORY_ERR;
}

}  // namespace vemo
