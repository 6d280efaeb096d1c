// The contract between the entry points (VideoAIProc.h) and a processing back-end. Each back-end is one
// row of the table in backend.cpp, chosen by the process-wide algorithm mode; a new back-end plugs in by
// adding its row. The entry points have already checked their pointer arguments when a slot is called
// (see each slot), so a back-end's own checks guard only direct callers of its exported functions.
//
// Threads: every slot runs on the caller's thread, and the caller serialises the calls on one
// instance. A back-end may run work of its own on other threads (the Qualcomm model switch), but it
// owns their hand-off with the slots below.
//
// Statuses are SDK_* numbers (algocore/utils/status_code.h) plus kNullImage and kImageCountMismatch;
// Video_AI_Proc_Process hands them to the caller narrowed to signed 8 bits.
#pragma once

#include <cstdint>

#include "interface/vai_types.h"

namespace vai {

struct Backend {
    // vAIPROC::VAI_ALGO_MODE_*: the InitParams_::algo_mode value that selects this row.
    int32_t mode;

    // Required. A version string of static storage, never null. Any thread, any time.
    const char* (*get_version)();

    // Required. Builds an instance from `params` (never null). The caller keeps `params` and every
    // string it points to: the back-end copies what it needs and keeps no pointer into them. Returns
    // the instance, owned by the back-end until `uninit`, or null after releasing everything it built
    // (runtime objects, the runtime library, traced memory), with one error line saying why.
    void* (*init)(const vAIPROC::InitParams_* params);

    // Optional: null means the back-end has no model stage, and Video_AI_Model_Init then logs the mode
    // as unsupported and returns SDK_SUCCESS. Creates the sessions for `params` on an instance from
    // `init` (both never null). Returns the camera type the sessions serve, or -1 after releasing the
    // sessions it made; the instance stays usable for `model_uninit` and `uninit`, except in a
    // back-end whose row says its failed set-up destroys the instance (the caller must then drop it).
    int (*model_init)(void* instance, const vAIPROC::InitParams_* params);

    // Required. Writes the processed `in` into `out` (all four pointers never null; `out` may describe
    // the same planes as `in`). Whenever the network cannot run, the frame is copied and the copy's
    // status returned, so the caller always gets a picture. SDK_SUCCESS, SDK_UNINIT_ERROR for a
    // missing instance state, SDK_INVALID_MODEL_ERR when inference fails (output left unwritten), or
    // the copy's kImageCountMismatch / kNullImage.
    int (*process)(void* instance, vAIPROC::VAI_IMG_* out, vAIPROC::VAI_IMG_* in,
                   const vAIPROC::ProcParams_* params);

    // Optional, like `model_init`: releases the sessions of `model_init` (instance never null) and
    // returns SDK_SUCCESS; the instance may get another `model_init`.
    int (*model_uninit)(void* instance);

    // Required. Releases the instance (never null) and everything it holds, unloads the runtime library
    // (process-wide) and returns SDK_SUCCESS. Waits for the back-end's own threads first; the
    // instance pointer is dangling afterwards.
    int (*uninit)(void* instance);
};

// Statuses cross the public boundary as signed 8-bit values widened again.
inline int NarrowStatus(int status) {
    return static_cast<signed char>(status);
}

// The row for `mode`, or null after logging the mode as unsupported.
const Backend* FindBackend(int32_t mode);

}  // namespace vai
