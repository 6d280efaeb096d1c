// Frames for the tool, the tests and the benchmarks: one buffer per plane with the image record that
// describes it. Semi-planar YUV (luma, then interleaved chroma at half height) or a single grey plane;
// 8-bit samples, or 16-bit little-endian words with MSB-aligned values.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "interface/vai_types.h"

namespace vai_frame {

struct Format {
    int width = 0;
    int height = 0;
    int bits = 10;   // above 8: two bytes per sample
    int planes = 2;  // 2: luma + interleaved chroma; 1: grey
    int stride = 0;  // bytes per row of both planes; 0: no padding

    int BytesPerSample() const { return bits > 8 ? 2 : 1; }
    int Stride() const { return stride != 0 ? stride : width * BytesPerSample(); }
    int Rows(int plane) const { return plane == 0 ? height : height / 2; }
    // Bytes up to the end of the last sample: the last row carries no padding.
    size_t PlaneBytes(int plane) const;
    size_t FrameBytes() const;
};

enum class Memory {
    kHeap,
    kGuarded,  // each plane ends where a protected page begins: any access past it faults
};

class Frame {
  public:
    explicit Frame(const Format& format, Memory memory = Memory::kHeap);
    ~Frame();
    Frame(const Frame&) = delete;
    Frame& operator=(const Frame&) = delete;

    vAIPROC::VAI_IMG_* img() { return &img_; }
    const vAIPROC::VAI_IMG_* img() const { return &img_; }
    const Format& format() const { return format_; }
    uint8_t* plane(int p) { return planes_[p].data; }
    const uint8_t* plane(int p) const { return planes_[p].data; }
    size_t plane_bytes(int p) const { return planes_[p].size; }

    // The planes back to back, as in a raw clip file.
    std::vector<uint8_t> Bytes() const;
    std::vector<uint8_t> PlaneCopy(int p) const;
    void SetBytes(const uint8_t* data);

    // Every byte, padding included, from a fixed-seed generator.
    void FillRandom(uint32_t seed);
    // Every sample (stored value: MSB-aligned words above 8 bits).
    void Fill(uint16_t luma, uint16_t chroma);
    uint16_t Sample(int p, int x, int y) const;
    void SetSample(int p, int x, int y, uint16_t v);
    // A heap frame with the same format and bytes.
    std::unique_ptr<Frame> Clone() const;
    // Guarded frames only: while sealed, any read or write of a plane faults.
    void Seal(bool sealed);

    bool operator==(const Frame& o) const { return Bytes() == o.Bytes(); }

  private:
    struct Plane {
        uint8_t* data = nullptr;
        size_t size = 0;
        void* map = nullptr;  // guarded planes
        size_t map_size = 0;
        std::vector<uint8_t> heap;
    };
    Format format_;
    Plane planes_[2];
    vAIPROC::VAI_IMG_ img_{};
};

// A deterministic test picture for frame number `index`: a horizontal ramp with a little noise.
void Synthesize(Frame& frame, int index);

}  // namespace vai_frame
