// Process-wide registry of traced memory blocks, byte counters and leak reports.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>

#include "interface/vai_export.h"

namespace vemo {

// Selects a report: internal memory, hardware buffers or graphic buffers.
enum AlgoMemFlag : int {
    ALGO_NATIVE_MEM = 0,
    ALGO_HARDWARE_BUFFER = 1,
    ALGO_GRAPHIC_BUFFER = 2,
};

// One registered block (also the record of hardware and graphic buffers).
struct AlgoMemInfo {
    void* addr = nullptr;
    unsigned long long virtureAddr = 0;
    void* startAddr = nullptr;
    void* endAddr = nullptr;
    std::string file;
    int line = 0;
    unsigned long size = 0;
    int refs = 0;
    int type = 0;  // 0 internal, 1 attached
};

// A GL object the host registered (texture, framebuffer, shader, program, buffer, vertex array).
struct AlgoGLInfo {
    unsigned int id = 0;
    std::string file;
    int line = 0;
};

// A GL surface or context the host registered.
struct AlgoGLEnvInfo {
    unsigned long long id = 0;
    std::string file;
    int line = 0;
};

class VAI_EXPORT AlgorithmMemory {
  public:
    // Opens a tracing period; tracing is on for mode 256 or when the debug property is 1.
    static int memTraceInit(int mode);
    static void setInputHandle(void* handle);

    static unsigned long mapInsert(void* addr, unsigned long size, int type, const char* file, int line);
    static unsigned long virtureMapInsert(unsigned long long handle, void* addr, unsigned long size, int type,
                                          const char* file, int line);
    static unsigned long mapDelete(void* addr, const char* file, int line);
    static unsigned long virtureMapDelete(unsigned long long handle);
    static unsigned long mapFind(void* addr);
    static bool mapCheck(void* addr, unsigned long offset, unsigned long elementSize, unsigned long size,
                         const char* file, int line);
    static bool checkMemcpyAddr(void* addr, unsigned long offset, unsigned long elementSize,
                                unsigned long size, const char* file, int line);
    static bool checkOverrideMemcpyAddr(void* dst, const void* src, unsigned long dstOffset,
                                        unsigned long dstElementSize, unsigned long dstSize,
                                        unsigned long srcOffset, unsigned long srcElementSize,
                                        unsigned long srcSize, unsigned long size, const char* file,
                                        int line);

    static void nativeMemAdd(unsigned long size);
    static void nativeMemDec(unsigned long size);
    static void externalMemAdd(unsigned long size);
    static void externalMemDec(unsigned long size);
    static void virtureMemAdd(unsigned long size);
    static void virtureMemDec(unsigned long size);

    static unsigned long getTotalMemSize();
    static unsigned long getInternalMemSize();
    static unsigned long getInternalMemMaxSize();
    static unsigned long getTotalHardwareSize();
    static unsigned long getTotalGraphicSize();

    static void checkAddr(void* addr, AlgoMemFlag flag, void* ptr, std::string file, int line);
    static void checkAddr(void* addr, int flag, void* ptr, std::string file, int line);

    static void memLogPrint(void* addr, unsigned long size, AlgoMemFlag flag, int isFree, std::string file,
                            int line, int refs, int type);
    static void mapPrint(AlgoMemFlag flag);
    static int memFinalCheck();
    static int glFinalCheck();
    static int glCheckMem(std::mutex& lock, std::map<unsigned int, AlgoGLInfo>& map);
    static int glCheckEnvMem(std::mutex& lock, std::map<unsigned long long, AlgoGLEnvInfo>& map);

    static int64_t sDebugEnable;
    static std::atomic<int32_t> sInitNumber;
    static void* sInputHandle;
    static uint64_t sNativeUsingSize;
    static uint64_t sNativeUsingMaxSize;
    static uint64_t sExternalUsingSize;
    static uint64_t sVirtureUsingSize;
    static std::mutex sMemLock;

    static std::map<void*, AlgoMemInfo> sMemMap;
    static std::mutex sMapLock;
    static std::map<void*, AlgoMemInfo> sRefNum;
    static std::mutex sHardBuffLock;
    static std::map<void*, AlgoMemInfo> sGBMap;
    static std::mutex sGraphicBuffLock;

    static std::map<unsigned int, AlgoGLInfo> sGLBufferMap;
    static std::mutex sGLBufferMapLock;
    static std::map<unsigned int, AlgoGLInfo> sGLVaoMap;
    static std::mutex sGLVaoMapLock;
    static std::map<unsigned int, AlgoGLInfo> sGLTextureMap;
    static std::mutex sGLTextureMapLock;
    static std::map<unsigned int, AlgoGLInfo> sGLFBMap;
    static std::mutex sGLFBMapLock;
    static std::map<unsigned int, AlgoGLInfo> sGLShaderMap;
    static std::mutex sGLShaderMapLock;
    static std::map<unsigned int, AlgoGLInfo> sGLProgramMap;
    static std::mutex sGLProgramMapLock;
    static std::map<unsigned long long, AlgoGLEnvInfo> sGLSurfaceMap;
    static std::mutex sGLSurfaceMapLock;
    static std::map<unsigned long long, AlgoGLEnvInfo> sGLContextMap;
    static std::mutex sGLContextMapLock;
};

}  // namespace vemo
