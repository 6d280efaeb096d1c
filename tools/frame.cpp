#include "frame.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <new>
#include <random>
#include <stdexcept>

namespace vai_frame {

size_t Format::PlaneBytes(int plane) const {
    if (plane >= planes) return 0;
    const int rows = Rows(plane);
    const int samples = plane == 0 ? width : width / 2 * 2;
    if (rows <= 0 || samples <= 0) return 0;
    return static_cast<size_t>(Stride()) * (rows - 1) + static_cast<size_t>(samples) * BytesPerSample();
}

size_t Format::FrameBytes() const {
    return PlaneBytes(0) + PlaneBytes(1);
}

Frame::Frame(const Format& format, Memory memory) : format_(format) {
    for (int p = 0; p < format.planes && p < 2; ++p) {
        Plane& pl = planes_[p];
        pl.size = format.PlaneBytes(p);
        if (memory == Memory::kHeap) {
            pl.heap.assign(pl.size, 0);
            pl.data = pl.heap.data();
            continue;
        }
        const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
        const size_t data_pages = (pl.size + page - 1) / page;
        pl.map_size = (data_pages + 1) * page;
        pl.map = mmap(nullptr, pl.map_size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (pl.map == MAP_FAILED) throw std::bad_alloc();
        auto* base = static_cast<uint8_t*>(pl.map);
        if (mprotect(base + data_pages * page, page, PROT_NONE) != 0) throw std::bad_alloc();
        pl.data = base + data_pages * page - pl.size;
    }
    img_.btw = static_cast<int8_t>(format.bits);
    img_.img_num = 1;
    img_.plane_num = static_cast<uint8_t>(format.planes);
    for (int p = 0; p < format.planes && p < 2; ++p) {
        img_.plane_addr[p] = planes_[p].data;
        img_.stride[p] = format.Stride();
        img_.slice[p] = format.Rows(p);
        img_.plane_size[p] = static_cast<uint32_t>(planes_[p].size);
    }
    for (int& fd : img_.fd) fd = -1;
    img_.width = format.width;
    img_.height = format.height;
}

void Frame::Seal(bool sealed) {
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    for (Plane& pl : planes_) {
        if (pl.map != nullptr &&
            mprotect(pl.map, pl.map_size - page, sealed ? PROT_NONE : PROT_READ | PROT_WRITE) != 0) {
            throw std::runtime_error("cannot seal a frame");
        }
    }
}

Frame::~Frame() {
    for (Plane& pl : planes_) {
        if (pl.map != nullptr) munmap(pl.map, pl.map_size);
    }
}

std::vector<uint8_t> Frame::Bytes() const {
    std::vector<uint8_t> out(PlaneCopy(0));
    const std::vector<uint8_t> chroma = PlaneCopy(1);
    out.insert(out.end(), chroma.begin(), chroma.end());
    return out;
}

std::vector<uint8_t> Frame::PlaneCopy(int p) const {
    return {planes_[p].data, planes_[p].data + planes_[p].size};
}

void Frame::SetBytes(const uint8_t* data) {
    for (Plane& pl : planes_) {
        if (pl.size != 0) std::memcpy(pl.data, data, pl.size);
        data += pl.size;
    }
}

void Frame::FillRandom(uint32_t seed) {
    std::mt19937 rng(seed);
    for (Plane& pl : planes_) {
        for (size_t i = 0; i < pl.size; ++i) pl.data[i] = static_cast<uint8_t>(rng());
    }
}

void Frame::Fill(uint16_t luma, uint16_t chroma) {
    for (int p = 0; p < format_.planes && p < 2; ++p) {
        const int samples = p == 0 ? format_.width : format_.width / 2 * 2;
        for (int y = 0; y < format_.Rows(p); ++y) {
            for (int x = 0; x < samples; ++x) SetSample(p, x, y, p == 0 ? luma : chroma);
        }
    }
}

uint16_t Frame::Sample(int p, int x, int y) const {
    const uint8_t* s = planes_[p].data + static_cast<size_t>(y) * format_.Stride() +
                       static_cast<size_t>(x) * format_.BytesPerSample();
    return format_.BytesPerSample() == 1 ? s[0] : static_cast<uint16_t>(s[0] | s[1] << 8);
}

void Frame::SetSample(int p, int x, int y, uint16_t v) {
    uint8_t* s = planes_[p].data + static_cast<size_t>(y) * format_.Stride() +
                 static_cast<size_t>(x) * format_.BytesPerSample();
    s[0] = static_cast<uint8_t>(v);
    if (format_.BytesPerSample() == 2) s[1] = static_cast<uint8_t>(v >> 8);
}

std::unique_ptr<Frame> Frame::Clone() const {
    auto copy = std::make_unique<Frame>(format_);
    copy->SetBytes(Bytes().data());
    return copy;
}

void Synthesize(Frame& frame, int index) {
    const Format& f = frame.format();
    uint32_t seed = 0x9E3779B9u * static_cast<uint32_t>(index + 1);
    const int max_value = (1 << f.bits) - 1;
    const int shift = f.BytesPerSample() == 2 ? 16 - f.bits : 0;
    for (int p = 0; p < f.planes && p < 2; ++p) {
        const int samples = p == 0 ? f.width : f.width / 2 * 2;
        for (int y = 0; y < f.Rows(p); ++y) {
            for (int x = 0; x < samples; ++x) {
                seed = seed * 1664525u + 1013904223u;
                int v = p == 0 ? x * max_value / (f.width > 1 ? f.width - 1 : 1) : max_value / 2;
                v += static_cast<int>(seed >> 28) - 8;
                v = v < 0 ? 0 : (v > max_value ? max_value : v);
                frame.SetSample(p, x, y, static_cast<uint16_t>(v << shift));
            }
        }
    }
}

}  // namespace vai_frame
