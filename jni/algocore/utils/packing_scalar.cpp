// Scalar depth-to-space for LSB-aligned frames: weights out of 256, truncating division.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "algocore/utils/packing.h"
#include "algocore/utils/vai_log.h"

using vAIPROC::VAI_IMG_;

namespace {

constexpr unsigned kFullStrength = 64;
constexpr unsigned kWeightOne = 256;
// Samples are 16-bit words, so the tensor byte is never shifted above the top of one.
constexpr int kMaxShift = 8;

unsigned WeightOf(unsigned char strength) {
    return strength <= kFullStrength ? 4u * strength : kWeightOne;
}

struct Plane {
    unsigned char* base;
    int stride;
};

// One output sample from unprocessed sample x and tensor byte t.
struct Mixer8 {
    unsigned w;
    unsigned char operator()(unsigned x, unsigned t) const {
        return static_cast<unsigned char>((w * t + (kWeightOne - w) * x) >> 8);
    }
};

struct Mixer16 {
    unsigned w;
    int shift;
    uint16_t operator()(unsigned x, unsigned t) const {
        return static_cast<uint16_t>(((kWeightOne - w) * x + (t << shift) * w) >> 8);
    }
};

// Samples of an 8-bit frame are bytes at row * stride; those of a 16-bit frame are words at
// (row * stride) / 2, the stride being in bytes.
struct Bytes {
    static unsigned Get(const Plane& p, int row, int col) {
        return p.base[static_cast<ptrdiff_t>(row) * p.stride + col];
    }
    static void Put(const Plane& p, int row, int col, unsigned char v) {
        p.base[static_cast<ptrdiff_t>(row) * p.stride + col] = v;
    }
};

struct Words {
    static unsigned char* At(const Plane& p, int row, int col) {
        const ptrdiff_t index = static_cast<ptrdiff_t>(row) * p.stride / 2 + col;
        return p.base + 2 * index;
    }
    static unsigned Get(const Plane& p, int row, int col) {
        uint16_t v;
        std::memcpy(&v, At(p, row, col), sizeof(v));
        return v;
    }
    static void Put(const Plane& p, int row, int col, uint16_t v) {
        std::memcpy(At(p, row, col), &v, sizeof(v));
    }
};

// Walks the tensor position by position; `channels` is 6 (YUV) or 4 (grey).
template <typename Access, typename Mixer>
void Unpack(const VAI_IMG_* out, const VAI_IMG_* in, const unsigned char* t, int channels, Mixer luma,
            Mixer chroma) {
    const int stride = out->stride[0];
    const Plane ox{out->plane_addr[0], stride}, ix{in->plane_addr[0], stride};
    const Plane oc{channels == 6 ? out->plane_addr[1] : nullptr, stride};
    const Plane ic{channels == 6 ? in->plane_addr[1] : nullptr, stride};
    const int pairs = out->height / 2;
    const int positions = out->width / 2;
    for (int r = 0; r < pairs; ++r) {
        for (int c = 0; c < positions; ++c, t += channels) {
            for (int k = 0; k < 4; ++k) {
                const int row = 2 * r + k / 2, col = 2 * c + k % 2;
                Access::Put(ox, row, col, luma(Access::Get(ix, row, col), t[k]));
            }
            if (channels == 6) {
                for (int k = 0; k < 2; ++k) {
                    Access::Put(oc, r, 2 * c + k, chroma(Access::Get(ic, r, 2 * c + k), t[4 + k]));
                }
            }
        }
    }
}

void Mix(VAI_IMG_* out, const VAI_IMG_* in, const void* tensor, int channels, unsigned char sy,
         unsigned char suv) {
    const auto* t = static_cast<const unsigned char*>(tensor);
    if (out->btw < 9) {
        Unpack<Bytes>(out, in, t, channels, Mixer8{WeightOf(sy)}, Mixer8{WeightOf(suv)});
    } else {
        const int shift = std::min(out->btw - 8, kMaxShift);
        Unpack<Words>(out, in, t, channels, Mixer16{WeightOf(sy), shift}, Mixer16{WeightOf(suv), shift});
    }
}

}  // namespace

void DepthToSpaceYuv(VAI_IMG_* out, VAI_IMG_ const* in, void const* tensor, unsigned char const* strength) {
    if (out == nullptr || in == nullptr || tensor == nullptr || strength == nullptr) {
        VAI_LOGE("Input or output buffer is nullptr in DepthToSpaceYuv!");
        return;
    }
    Mix(out, in, tensor, 6, strength[0], strength[1]);
}

void DepthToSpaceGray(VAI_IMG_* out, VAI_IMG_ const* in, void const* tensor, unsigned char const* strength) {
    if (out == nullptr || in == nullptr || tensor == nullptr || strength == nullptr) {
        VAI_LOGE("Input or output buffer is nullptr in DepthToSpaceGray!");
        return;
    }
    Mix(out, in, tensor, 4, strength[0], strength[0]);
}
