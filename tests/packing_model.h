// Plain per-sample models of the packing functions, written from the tensor layout alone, for the
// tests to compare the library against (and for the benchmarks as the scalar baseline).
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "interface/vai_types.h"

namespace packing_model {

// Tensor channel k of a position: (plane, row offset within the row pair, column offset within the block).
struct Channel {
    int plane;
    int dy;
    int dx;
};
constexpr Channel kChannels[6] = {{0, 0, 0}, {0, 0, 1}, {0, 1, 0}, {0, 1, 1}, {1, 0, 0}, {1, 0, 1}};

// Byte offset of sample (row, col) of channel ch's plane, for position (r, c) of the tensor.
inline ptrdiff_t SampleOffset(const Channel& ch, int r, int c, int stride, int bytesPerSample) {
    const int row = ch.plane == 0 ? 2 * r + ch.dy : r;
    const int col = 2 * c + ch.dx;
    return static_cast<ptrdiff_t>(row) * stride + static_cast<ptrdiff_t>(col) * bytesPerSample;
}

inline unsigned Get16(const unsigned char* p) {
    return p[0] | (p[1] << 8);
}
inline void Put16(unsigned char* p, unsigned v) {
    p[0] = static_cast<unsigned char>(v & 0xff);
    p[1] = static_cast<unsigned char>(v >> 8);
}

// Frame to tensor. 16-bit samples give their high byte; 8-bit ones are copied.
inline void SpaceToDepth(const vAIPROC::VAI_IMG_& img, unsigned char* t, int channels) {
    const int bps = img.btw > 8 ? 2 : 1;
    for (int r = 0; r < img.height / 2; ++r) {
        for (int c = 0; c < img.width / 2; ++c) {
            for (int k = 0; k < channels; ++k) {
                const Channel& ch = kChannels[k];
                const unsigned char* s =
                    img.plane_addr[ch.plane] + SampleOffset(ch, r, c, img.stride[0], bps);
                *t++ = bps == 2 ? s[1] : s[0];
            }
        }
    }
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
    const int bps = out.btw > 8 ? 2 : 1;
    for (int r = 0; r < out.height / 2; ++r) {
        for (int c = 0; c < out.width / 2; ++c) {
            for (int k = 0; k < channels; ++k) {
                const Channel& ch = kChannels[k];
                const unsigned s = strength[ch.plane];
                const ptrdiff_t off = SampleOffset(ch, r, c, out.stride[0], bps);
                const unsigned char* x = in.plane_addr[ch.plane] + off;
                unsigned char* o = out.plane_addr[ch.plane] + off;
                const unsigned tv = *t++;
                if (bps == 1) {
                    *o = static_cast<unsigned char>(MixLsb(*x, tv, s, out.btw));
                } else if (msb) {
                    Put16(o, MixMsb(Get16(x), tv, s));
                } else {
                    Put16(o, MixLsb(Get16(x), tv, s, out.btw));
                }
            }
        }
    }
}

}  // namespace packing_model
