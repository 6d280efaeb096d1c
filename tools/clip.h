// Raw semi-planar clips (one luma plane, one interleaved chroma plane at half resolution), 8-bit
// or 16-bit little-endian samples, frames back to back.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "interface/vai_types.h"

struct ClipFormat {
    int width = 0;
    int height = 0;
    int bits = 10;  // above 8: two bytes per sample, most-significant-bit aligned

    int BytesPerSample() const { return bits > 8 ? 2 : 1; }
    size_t LumaBytes() const { return size_t(width) * height * BytesPerSample(); }
    size_t ChromaBytes() const { return LumaBytes() / 2; }
    size_t FrameBytes() const { return LumaBytes() + ChromaBytes(); }
};

// One frame buffer with the image record that describes it.
class Frame {
  public:
    explicit Frame(const ClipFormat& fmt);
    vAIPROC::VAI_IMG_* Image() { return &img_; }
    std::vector<uint8_t>& Bytes() { return data_; }

  private:
    std::vector<uint8_t> data_;
    vAIPROC::VAI_IMG_ img_{};
};

// Fills `frame` with a deterministic test picture (gradient plus noise) for frame number `index`.
void SynthesizeFrame(const ClipFormat& fmt, int index, std::vector<uint8_t>& frame);
