// Frames to half-resolution 8-bit tensors and back (space-to-depth / depth-to-space).
//
// Tensor: height/2 rows of width/2 positions, packed, channels interleaved per position. Position (r, c)
// holds the 2x2 block whose top-left pixel is (2r, 2c): channels 0-3 are pixels (2r,2c), (2r,2c+1),
// (2r+1,2c), (2r+1,2c+1); YUV tensors add channels 4-5, the chroma pair c of chroma row r in memory order.
// Every plane is addressed with stride[0] of the (output) image; only the first image of an array is used.
//
// The *_NEON functions work on MSB-aligned 16-bit samples (the tensor takes the high byte; the way back
// gives o = min(65535, (x >> 6) * (64 - s) + t * 4s) with s = min(strength, 64)). The two scalar
// functions work on LSB-aligned samples and divide by 256; the conventions are not interchangeable.
//
// Failures (null pointers, 8-bit frames where 16-bit ones are needed) log one line and write nothing.
// Only whole row pairs and whole 2x2 blocks are processed: an odd last row or column is left alone.
#pragma once

#include "interface/vai_export.h"
#include "interface/vai_types.h"

// 16-bit semi-planar YUV frame to a 6-channel tensor.
VAI_EXPORT void SpaceToDepthYuv_NEON(void* tensor, vAIPROC::VAI_IMG_ const* in);
// Grey frame (8- or 16-bit) to a 4-channel tensor.
VAI_EXPORT void SpaceToDepthGray_NEON(void* tensor, vAIPROC::VAI_IMG_* in);

// Mixes the tensor with `in` into `out` (16-bit YUV). strength[0] is luma, strength[1] chroma.
VAI_EXPORT void DepthToSpaceYuv_NEON(vAIPROC::VAI_IMG_* out, vAIPROC::VAI_IMG_ const* in, void const* tensor,
                                     unsigned char const* strength);
// In place: `out` is also the unprocessed frame.
VAI_EXPORT void DepthToSpaceYuv_NEON(vAIPROC::VAI_IMG_* out, void const* tensor,
                                     unsigned char const* strength);
// Grey, 16-bit; one strength byte.
VAI_EXPORT void DepthToSpaceGray_NEON(vAIPROC::VAI_IMG_* out, vAIPROC::VAI_IMG_ const* in, void const* tensor,
                                      unsigned char const* strength);
VAI_EXPORT void DepthToSpaceGray_NEON(vAIPROC::VAI_IMG_* out, void const* tensor,
                                      unsigned char const* strength);

// Scalar forms for LSB-aligned frames, 8- or 16-bit: o = ((256 - w) x + (t << (btw - 8)) w) >> 8 with
// w = 4 * strength, or 256 above 64.
VAI_EXPORT void DepthToSpaceYuv(vAIPROC::VAI_IMG_* out, vAIPROC::VAI_IMG_ const* in, void const* tensor,
                                unsigned char const* strength);
VAI_EXPORT void DepthToSpaceGray(vAIPROC::VAI_IMG_* out, vAIPROC::VAI_IMG_ const* in, void const* tensor,
                                 unsigned char const* strength);
