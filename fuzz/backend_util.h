// Set-up shared by the targets that drive the back-ends through the entry points with the test runtime.
#pragma once

#include <mutex>

#include "algocore/memory/ALGOGalloc.h"
#include "fuzz_util.h"
#include "interface/pxrt_binding.h"
#include "pxrt_test_control.h"

namespace vai_fuzz {

// Once per process: the test runtime is the one loaded, allocations are traced, logs are quiet.
inline void SetUpBackends() {
    setenv("VAI_PXRT_LIBRARY", VAI_FUZZ_RUNTIME_PATH, 1);
    QuietLog();
    vemo::AlgorithmMemory::memTraceInit(256);
    pxrt_test::SetRecording(false);
}

// Nothing of an instance outlives its teardown: runtime objects, the runtime itself, traced blocks.
inline void CheckTornDown() {
    const pxrt_test::Live live = pxrt_test::LiveObjects();
    FUZZ_CHECK(live.interpreters == 0 && live.sessions == 0 && live.tensors == 0 && live.sessions_dropped == 0);
    FUZZ_CHECK(g_hDllLib == nullptr && pxrt_test::Loads() == pxrt_test::Unloads());
    std::lock_guard<std::mutex> lock(vemo::AlgorithmMemory::sMapLock);
    FUZZ_CHECK(vemo::AlgorithmMemory::sMemMap.empty());
}

}  // namespace vai_fuzz
