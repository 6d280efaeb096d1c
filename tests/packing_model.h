// Plain per-sample models of the packing functions, written from the tensor layout alone, for the
// tests to compare the library against (and for the benchmarks as the scalar baseline).
#pragma once

#include <algorithm>
#include <cstddef>

#include "interface/vai_types.h"

namespace packing_model {

// Tensor channel k of position (r, c) is sample (row, col) of plane kChannels[k][0], with row
// 2r + kChannels[k][1] in luma (r in chroma) and col 2c + kChannels[k][2].
constexpr int kChannels[6][3] = {{0, 0, 0}, {0, 0, 1}, {0, 1, 0}, {0, 1, 1}, {1, 0, 0}, {1, 0, 1}};

// Calls fn(sample, tensor byte, plane) for every tensor byte in order; samples are little-endian.
template <typename Fn>
void ForEachSample(const vAIPROC::VAI_IMG_& img, int channels, Fn fn) {
    const int bps = img.btw > 8 ? 2 : 1;
    int n = 0;
    for (int r = 0; r < img.height / 2; ++r) {
        for (int c = 0; c < img.width / 2; ++c) {
            for (int k = 0; k < channels; ++k, ++n) {
                const int* ch = kChannels[k];
                const int row = ch[0] == 0 ? 2 * r + ch[1] : r;
                fn(static_cast<ptrdiff_t>(row) * img.stride[0] + static_cast<ptrdiff_t>(2 * c + ch[2]) * bps,
                   n, ch[0]);
            }
        }
    }
}

// Frame to tensor. 16-bit samples give their high byte; 8-bit ones are copied.
inline void SpaceToDepth(const vAIPROC::VAI_IMG_& img, unsigned char* t, int channels) {
    const int high = img.btw > 8 ? 1 : 0;
    ForEachSample(img, channels, [&](ptrdiff_t off, int n, int p) { t[n] = img.plane_addr[p][off + high]; });
}

// Vector convention: MSB-aligned samples, exact weighted sum saturated to 16 bits.
inline unsigned MixMsb(unsigned x, unsigned t, unsigned strength) {
    const unsigned s = std::min(strength, 64u);
    return std::min((x >> 6) * (64 - s) + t * 4 * s, 65535u);
}

// Scalar convention: weights out of 256, LSB-aligned samples of `btw` bits (or bytes). Samples are
// 16-bit words, so wider widths mix as 16-bit ones.
inline unsigned MixLsb(unsigned x, unsigned t, unsigned strength, int btw) {
    const unsigned w = strength > 64 ? 256 : 4 * strength;
    if (btw < 9) return (w * t + (256 - w) * x) >> 8;
    return ((256 - w) * x + (t << (std::min(btw, 16) - 8)) * w) >> 8;
}

// Tensor and unprocessed frame `in` to `out`; in/out addressed with out's geometry. `msb` selects the
// vector convention (16-bit only), else the scalar one.
inline void DepthToSpace(vAIPROC::VAI_IMG_& out, const vAIPROC::VAI_IMG_& in, const unsigned char* t,
                         int channels, const unsigned char* strength, bool msb) {
    ForEachSample(out, channels, [&](ptrdiff_t off, int n, int p) {
        const unsigned char* x = in.plane_addr[p] + off;
        unsigned char* o = out.plane_addr[p] + off;
        if (out.btw <= 8) {
            *o = static_cast<unsigned char>(MixLsb(*x, t[n], strength[p], out.btw));
            return;
        }
        const unsigned xv = x[0] | x[1] << 8;
        const unsigned v = msb ? MixMsb(xv, t[n], strength[p]) : MixLsb(xv, t[n], strength[p], out.btw);
        o[0] = static_cast<unsigned char>(v);
        o[1] = static_cast<unsigned char>(v >> 8);
    });
}

}  // namespace packing_model
