// A 16-bit semi-planar test frame, shared by the test suites and the benchmarks.
#pragma once

#include <cstdint>
#include <vector>

#include "interface/vai_types.h"

namespace vai_test {

// One 16-bit semi-planar frame (luma, then interleaved chroma at half height), MSB-aligned samples.
struct Frame {
    int w, h;
    std::vector<uint16_t> luma, chroma;
    vAIPROC::VAI_IMG_ img{};

    Frame(int width, int height, uint16_t luma_value = 0, uint16_t chroma_value = 0)
        : w(width),
          h(height),
          luma(size_t(width) * height, luma_value),
          chroma(size_t(width) * height / 2, chroma_value) {
        img.btw = 10;
        img.img_num = 1;
        img.plane_num = 2;
        img.plane_addr[0] = reinterpret_cast<unsigned char*>(luma.data());
        img.plane_addr[1] = reinterpret_cast<unsigned char*>(chroma.data());
        img.stride[0] = img.stride[1] = width * 2;
        img.slice[0] = height;
        img.slice[1] = height / 2;
        img.plane_size[0] = static_cast<uint32_t>(luma.size() * 2);
        img.plane_size[1] = static_cast<uint32_t>(chroma.size() * 2);
        img.width = width;
        img.height = height;
    }
    Frame(const Frame&) = delete;
    Frame& operator=(const Frame&) = delete;
    bool operator==(const Frame& o) const { return luma == o.luma && chroma == o.chroma; }
};

}  // namespace vai_test
