// Loading and unloading the inference runtime; the handle and factory pointers are process-wide.
#pragma once

#include <cstdint>

#include "interface/pxrt_interface.h"
#include "interface/vai_export.h"

extern VAI_EXPORT void* g_hDllLib;
extern VAI_EXPORT PXRTCreateInterpreterFn mPXRTCreateInterpreterFunc;
extern VAI_EXPORT PXRTCreateTensorFn mPXRTCreateInTensorFunc;
extern VAI_EXPORT PXRTCreateTensorFn mPXRTCreateOutTensorFunc;
// Inline-mode switch of the MediaTek YUV back-end.
extern VAI_EXPORT uint8_t g_is_inline_mode;

namespace vai {

// Where the runtime is loaded from. Host builds honour VAI_PXRT_LIBRARY, read at every call.
const char* PxrtLibraryPath();

// dlopen + dlsym of the three factories into the globals, with the binding's log lines. On a missing
// symbol the library is closed again and the handle cleared; the factory pointers keep what dlsym
// returned. False on failure.
bool PxrtLoad();

// dlclose, then clears the handle and the factory pointers. Nothing when not loaded.
void PxrtUnload();

// True while the runtime is loaded with its three factories. Any instance's teardown unloads it for
// every back-end, so instances still alive check this before they call a factory.
bool PxrtBound();
// PxrtBound(), with the error line "runtime library is unloaded" + `rest` when it is false; `rest`
// says where, or what the caller does instead.
bool PxrtBoundOrLog(const char* rest);

}  // namespace vai
