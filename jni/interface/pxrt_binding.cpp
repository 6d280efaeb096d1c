#include "interface/pxrt_binding.h"

#include <dlfcn.h>

#include <cstdlib>

#include "algocore/utils/host_override.h"
#include "algocore/utils/vai_log.h"

void* g_hDllLib = nullptr;
PXRTCreateInterpreterFn mPXRTCreateInterpreterFunc = nullptr;
PXRTCreateTensorFn mPXRTCreateInTensorFunc = nullptr;
PXRTCreateTensorFn mPXRTCreateOutTensorFunc = nullptr;
uint8_t g_is_inline_mode = 0;

namespace vai {

namespace {
constexpr char kDevicePath[] = "/odm/lib64/libPXRT.so";
}

const char* PxrtLibraryPath() {
    return HostOverride("VAI_PXRT_LIBRARY", kDevicePath);
}

bool PxrtLoad() {
    g_hDllLib = dlopen(PxrtLibraryPath(), RTLD_NOW);
    if (g_hDllLib == nullptr) {
        VAI_LOGE("g_hDllLib is nullptr! dlopen libPXRT fail, reason: %s", dlerror());
        return false;
    }
    VAI_LOGV("dlopen libPXRT success!");
    mPXRTCreateInterpreterFunc =
        reinterpret_cast<PXRTCreateInterpreterFn>(dlsym(g_hDllLib, "CreateInterpreter"));
    mPXRTCreateInTensorFunc = reinterpret_cast<PXRTCreateTensorFn>(dlsym(g_hDllLib, "CreateInputTensor"));
    mPXRTCreateOutTensorFunc = reinterpret_cast<PXRTCreateTensorFn>(dlsym(g_hDllLib, "CreateOutputTensor"));
    if (mPXRTCreateInterpreterFunc == nullptr || mPXRTCreateInTensorFunc == nullptr ||
        mPXRTCreateOutTensorFunc == nullptr) {
        VAI_LOGE("mPXRTFunc is nullptr! dlsym Func fail, resaon: %s g_hDllLib: %p", dlerror(), g_hDllLib);
        dlclose(g_hDllLib);
        // The factory pointers keep what dlsym gave, but a closed handle is never kept: a later
        // teardown would close it a second time.
        g_hDllLib = nullptr;
        return false;
    }
    VAI_LOGV("dlsym Func success!");
    return true;
}

void PxrtUnload() {
    if (g_hDllLib == nullptr) return;
    dlclose(g_hDllLib);
    g_hDllLib = nullptr;
    mPXRTCreateInterpreterFunc = nullptr;
    mPXRTCreateInTensorFunc = nullptr;
    mPXRTCreateOutTensorFunc = nullptr;
}

bool PxrtBound() {
    return g_hDllLib != nullptr && mPXRTCreateInterpreterFunc != nullptr && mPXRTCreateInTensorFunc != nullptr &&
           mPXRTCreateOutTensorFunc != nullptr;
}

bool PxrtBoundOrLog(const char* rest) {
    if (PxrtBound()) return true;
    VAI_LOGE("runtime library is unloaded%s", rest);
    return false;
}

}  // namespace vai
