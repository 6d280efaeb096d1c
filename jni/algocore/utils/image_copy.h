// Frame pass-through copies.
#pragma once

#include "interface/vai_export.h"
#include "interface/vai_types.h"

// Copies every plane of every image of `in` to `out` (destination first). Returns SDK_SUCCESS,
// kImageCountMismatch when the image counts differ, kNullImage for a null array. Mismatched images and planes are skipped with a message.
VAI_EXPORT int CopyImage(vAIPROC::VAI_IMG_* out, vAIPROC::VAI_IMG_* in);
// Null-checked block copy: SDK_SUCCESS, or kNullImage for a null pointer.
VAI_EXPORT int CopyImage(void* out, void* in, unsigned int size);
