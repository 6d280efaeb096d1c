// Public entry points of libVideoAIProc.
#pragma once

#include <cstdint>

#include "interface/vai_export.h"
#include "interface/vai_types.h"

extern "C" {

// Version of the back-end for `algo_mode` (the argument, not the current mode); "Invalid" if none.
VAI_EXPORT const char* Video_AI_Proc_GetVersion(uint32_t algo_mode);

// Selects the process-wide mode from params->algo_mode and creates an instance, or returns null.
VAI_EXPORT void* Video_AI_Proc_Init(vAIPROC::InitParams_* params);

// MediaTek back-ends: creates the sessions; returns the camera type, -1, or a status.
VAI_EXPORT int Video_AI_Model_Init(void* handle, vAIPROC::InitParams_* params);

// Processes one frame: `out` receives the result of `in`. Returns 0 on success.
VAI_EXPORT int Video_AI_Proc_Process(void* handle, vAIPROC::VAI_IMG_* out, vAIPROC::VAI_IMG_* in,
                                     vAIPROC::ProcParams_* params);

VAI_EXPORT int Video_AI_Model_Uninit(void* handle);
VAI_EXPORT int Video_AI_Proc_Uninit(void* handle);

}  // extern "C"

// Process-wide algorithm mode, written by Video_AI_Proc_Init.
extern VAI_EXPORT int32_t g_algo_mode;
// Log threshold of the library (0 silent, 1 errors (default) .. 5 verbose); back-ends overwrite it with
// their configuration's "LogLevel" at initialisation.
extern VAI_EXPORT unsigned char g_log_level;
