// Row loops of the vector packing kernels, written with NEON intrinsics; other processors compile
// the same source through SIMDe. This file is built once per variant (packing_rows.h): whatever it
// defines besides the variant's table must stay internal, or the linker could share one variant's
// machine code with another.
#include "algocore/utils/packing_rows.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__aarch64__)
#include <arm_neon.h>
#else
#define SIMDE_ENABLE_NATIVE_ALIASES
#include <simde/arm/neon.h>
#endif

#ifndef VAI_ROWS_TABLE
#define VAI_ROWS_TABLE kBaselineRows
#define VAI_ROWS_NAME "baseline"
#endif

// Byte table lookups are single instructions on Arm and byte shuffles from SSE4.1 on; without them
// SIMDe falls back to a loop per byte, so such builds use zips and unzips (single shuffles in any
// SSE2) and SIMDe's three-way loads and stores are avoided everywhere for the same reason.
#if defined(__aarch64__) || defined(__SSE4_1__)
#define VAI_BYTE_TABLES 1
#else
#define VAI_BYTE_TABLES 0
#endif

using vAIPROC::VAI_IMG_;

namespace vai::packing {
namespace {

constexpr int kStep = 8;  // positions per vector step: 16 pixels of a row

// Streams are prefetched this far ahead. A prefetch past the end of a buffer never faults; the
// address is formed as an integer so that no pointer leaves its object.
// Grey space to depth has only two read streams and measured faster running twice as far ahead.
constexpr uintptr_t kReadAhead = 2048;
constexpr uintptr_t kWriteAhead = 1024;
constexpr uintptr_t kFarReadAhead = 2 * kReadAhead;
constexpr uintptr_t kFarWriteAhead = 2 * kWriteAhead;

inline void PrefetchRead(const unsigned char* p, uintptr_t ahead = kReadAhead) {
    __builtin_prefetch(reinterpret_cast<const void*>(reinterpret_cast<uintptr_t>(p) + ahead), 0);
}
inline void PrefetchWrite(const unsigned char* p, uintptr_t ahead = kWriteAhead) {
    __builtin_prefetch(reinterpret_cast<const void*>(reinterpret_cast<uintptr_t>(p) + ahead), 1);
}

inline unsigned char* Row(unsigned char* plane, int stride, int row) {
    return plane + static_cast<ptrdiff_t>(row) * stride;
}

#if !VAI_BYTE_TABLES
// Only the zip paths use these; clang warns about unused ones.
inline uint32x4_t AsU32(uint8x16_t v) {
    return vreinterpretq_u32_u8(v);
}
inline uint8x16_t AsU8(uint32x4_t v) {
    return vreinterpretq_u8_u32(v);
}

// High bytes of 16 little-endian samples held in two vectors.
inline uint8x16_t HighBytes(uint8x16_t lo, uint8x16_t hi) {
    return vuzp2q_u8(lo, hi);
}
#endif

// ---- space to depth -------------------------------------------------------------------------------

#if VAI_BYTE_TABLES
// Space to depth picks high bytes: sample i of a 16-byte load has its high byte at 2i + 1.
// 8 positions: 16 samples of luma rows a and b and 8 chroma pairs to 48 tensor bytes. Each 16-byte
// block of the tensor is one lookup in the three rows loaded 8 bytes further on per block (table
// bytes 0-15 row a, 16-31 row b, 32-47 chroma).
alignas(16) constexpr uint8_t kYuvBlocks[3][16] = {
    {1, 3, 17, 19, 33, 35, 5, 7, 21, 23, 37, 39, 9, 11, 25, 27},
    {33, 35, 5, 7, 21, 23, 37, 39, 9, 11, 25, 27, 41, 43, 13, 15},
    {21, 23, 37, 39, 9, 11, 25, 27, 41, 43, 13, 15, 29, 31, 45, 47},
};

// Unrolled by hand so that each lookup sees a constant index.
template <int block>
inline void YuvBlock(const unsigned char* a, const unsigned char* b, const unsigned char* c,
                     unsigned char* t) {
    constexpr int at = 8 * block;
    const uint8x16x3_t rows = {{vld1q_u8(a + at), vld1q_u8(b + at), vld1q_u8(c + at)}};
    vst1q_u8(t + 16 * block, vqtbl3q_u8(rows, vld1q_u8(kYuvBlocks[block])));
}

inline void SpaceToDepthYuvStep(const unsigned char* a, const unsigned char* b, const unsigned char* c,
                                unsigned char* t) {
    YuvBlock<0>(a, b, c, t);
    YuvBlock<1>(a, b, c, t);
    YuvBlock<2>(a, b, c, t);
}

// 8 positions of a 16-bit grey row pair to 32 tensor bytes: one lookup per four positions in the
// two rows (table bytes 0-15 row a, 16-31 row b).
alignas(16) constexpr uint8_t kGrayQuads[16] = {1, 3, 17, 19, 5, 7, 21, 23, 9, 11, 25, 27, 13, 15, 29, 31};

inline void SpaceToDepthGray16Step(const unsigned char* a, const unsigned char* b, unsigned char* t) {
    const uint8x16_t quads = vld1q_u8(kGrayQuads);
    for (int half = 0; half < 2; ++half) {
        const uint8x16x2_t rows = {{vld1q_u8(a + 16 * half), vld1q_u8(b + 16 * half)}};
        vst1q_u8(t + 16 * half, vqtbl2q_u8(rows, quads));
    }
}
#else
// 8 positions: 16 samples of luma rows a and b and 8 chroma pairs to 48 tensor bytes. Each position
// is stored as 8 bytes, its six and two that the next position overwrites, so a step writes 2 bytes
// past its block; the caller leaves the tensor's last position to the scalar code.
inline void SpaceToDepthYuvStep(const unsigned char* a, const unsigned char* b, const unsigned char* c,
                                unsigned char* t) {
    const uint32x4_t a0 = AsU32(vld1q_u8(a)), a1 = AsU32(vld1q_u8(a + 16));
    const uint32x4_t b0 = AsU32(vld1q_u8(b)), b1 = AsU32(vld1q_u8(b + 16));
    // A 32-bit lane is the sample pair of one position, so zipping rows gives the luma channel order.
    const uint32x4_t ab03 = AsU32(HighBytes(AsU8(vzip1q_u32(a0, b0)), AsU8(vzip2q_u32(a0, b0))));
    const uint32x4_t ab47 = AsU32(HighBytes(AsU8(vzip1q_u32(a1, b1)), AsU8(vzip2q_u32(a1, b1))));
    const uint16x8_t uv = vreinterpretq_u16_u8(HighBytes(vld1q_u8(c), vld1q_u8(c + 16)));
    const uint16x8_t zero = vdupq_n_u16(0);
    const uint32x4_t uv03 = vreinterpretq_u32_u16(vzip1q_u16(uv, zero));
    const uint32x4_t uv47 = vreinterpretq_u32_u16(vzip2q_u16(uv, zero));
    const uint8x16_t p01 = AsU8(vzip1q_u32(ab03, uv03)), p23 = AsU8(vzip2q_u32(ab03, uv03));
    const uint8x16_t p45 = AsU8(vzip1q_u32(ab47, uv47)), p67 = AsU8(vzip2q_u32(ab47, uv47));
    vst1_u8(t, vget_low_u8(p01));
    vst1_u8(t + 6, vget_high_u8(p01));
    vst1_u8(t + 12, vget_low_u8(p23));
    vst1_u8(t + 18, vget_high_u8(p23));
    vst1_u8(t + 24, vget_low_u8(p45));
    vst1_u8(t + 30, vget_high_u8(p45));
    vst1_u8(t + 36, vget_low_u8(p67));
    vst1_u8(t + 42, vget_high_u8(p67));
}

// 8 positions of a 16-bit grey row pair to 32 tensor bytes.
inline void SpaceToDepthGray16Step(const unsigned char* a, const unsigned char* b, unsigned char* t) {
    const uint32x4_t a0 = AsU32(vld1q_u8(a)), a1 = AsU32(vld1q_u8(a + 16));
    const uint32x4_t b0 = AsU32(vld1q_u8(b)), b1 = AsU32(vld1q_u8(b + 16));
    vst1q_u8(t, HighBytes(AsU8(vzip1q_u32(a0, b0)), AsU8(vzip2q_u32(a0, b0))));
    vst1q_u8(t + 16, HighBytes(AsU8(vzip1q_u32(a1, b1)), AsU8(vzip2q_u32(a1, b1))));
}
#endif

// 8 positions of an 8-bit grey row pair to 32 tensor bytes.
inline void SpaceToDepthGray8Step(const unsigned char* a, const unsigned char* b, unsigned char* t) {
    const uint16x8_t ra = vreinterpretq_u16_u8(vld1q_u8(a)), rb = vreinterpretq_u16_u8(vld1q_u8(b));
    vst1q_u8(t, vreinterpretq_u8_u16(vzip1q_u16(ra, rb)));
    vst1q_u8(t + 16, vreinterpretq_u8_u16(vzip2q_u16(ra, rb)));
}

void SpaceToDepthYuvRows(const VAI_IMG_* in, unsigned char* t) {
    const int stride = in->stride[0];
    const int positions = in->width / 2;
    const int pairs = in->height / 2;
    for (int r = 0; r < pairs; ++r) {
        const unsigned char* a = Row(in->plane_addr[0], stride, 2 * r);
        const unsigned char* b = Row(in->plane_addr[0], stride, 2 * r + 1);
        const unsigned char* c = Row(in->plane_addr[1], stride, r);
        const int vectorEnd = r + 1 < pairs ? positions : positions - 1;
        int p = 0;
        // Two steps a turn: one prefetch per cache line of each row.
        for (; p + 2 * kStep <= vectorEnd; p += 2 * kStep, t += 12 * kStep) {
            const ptrdiff_t off = 4 * p;
            PrefetchRead(a + off);
            PrefetchRead(b + off);
            PrefetchRead(c + off);
            PrefetchWrite(t);
            PrefetchWrite(t + 64);
            SpaceToDepthYuvStep(a + off, b + off, c + off, t);
            SpaceToDepthYuvStep(a + off + 32, b + off + 32, c + off + 32, t + 48);
        }
        for (; p + kStep <= vectorEnd; p += kStep, t += 6 * kStep) {
            const ptrdiff_t off = 4 * p;
            PrefetchRead(a + off);
            PrefetchRead(b + off);
            PrefetchRead(c + off);
            PrefetchWrite(t);
            SpaceToDepthYuvStep(a + off, b + off, c + off, t);
        }
        for (; p < positions; ++p, t += 6) {
            const ptrdiff_t off = 4 * p;
            // High bytes of little-endian samples.
            t[0] = a[off + 1];
            t[1] = a[off + 3];
            t[2] = b[off + 1];
            t[3] = b[off + 3];
            t[4] = c[off + 1];
            t[5] = c[off + 3];
        }
    }
}

void SpaceToDepthGrayRows(const VAI_IMG_* in, unsigned char* t) {
    const bool wide = in->btw > 8;
    const int bytes = wide ? 2 : 1;  // per sample
    const int hi = bytes - 1;        // offset of a sample's high byte
    const int stride = in->stride[0];
    const int positions = in->width / 2;
    const int pairs = in->height / 2;
    for (int r = 0; r < pairs; ++r) {
        const unsigned char* a = Row(in->plane_addr[0], stride, 2 * r);
        const unsigned char* b = Row(in->plane_addr[0], stride, 2 * r + 1);
        int p = 0;
        if (wide) {
            // 32 pixels a turn: one cache line of each row.
            for (; p + 2 * kStep <= positions; p += 2 * kStep, t += 8 * kStep) {
                const ptrdiff_t off = 4 * p;
                PrefetchRead(a + off, kFarReadAhead);
                PrefetchRead(b + off, kFarReadAhead);
                PrefetchWrite(t, kFarWriteAhead);
                SpaceToDepthGray16Step(a + off, b + off, t);
                SpaceToDepthGray16Step(a + off + 32, b + off + 32, t + 32);
            }
        }
        for (; p + kStep <= positions; p += kStep, t += 4 * kStep) {
            const ptrdiff_t off = 2 * bytes * p;
            PrefetchRead(a + off);
            PrefetchRead(b + off);
            PrefetchWrite(t);
            if (wide) {
                SpaceToDepthGray16Step(a + off, b + off, t);
            } else {
                SpaceToDepthGray8Step(a + off, b + off, t);
            }
        }
        for (; p < positions; ++p, t += 4) {
            const ptrdiff_t off = 2 * bytes * p;
            t[0] = a[off + hi];
            t[1] = a[off + bytes + hi];
            t[2] = b[off + hi];
            t[3] = b[off + bytes + hi];
        }
    }
}

// ---- depth to space -------------------------------------------------------------------------------

struct VecWeights {
    uint16x8_t frame;
    uint16x8_t tensor;
};

VecWeights Splat(Weights w) {
    return {vdupq_n_u16(w.frame), vdupq_n_u16(w.tensor)};
}

// Both products fit 16 bits (1023 * 64 and 255 * 256); only their sum is saturated.
inline uint16x8_t Mix(uint16x8_t x, uint16x8_t t, VecWeights w) {
    return vqaddq_u16(vmulq_u16(vshrq_n_u16(x, 6), w.frame), vmulq_u16(t, w.tensor));
}

inline void MixStore(const unsigned char* x, unsigned char* o, uint16x8_t t, VecWeights w) {
    vst1q_u8(o, vreinterpretq_u8_u16(Mix(vreinterpretq_u16_u8(vld1q_u8(x)), t, w)));
}

// A step's tensor bytes widened to 16 bits, per output row: row a's two vectors, row b's, chroma's.
template <int n>
struct TensorSamples {
    uint16x8_t v[n];
};

#if VAI_BYTE_TABLES
inline uint16x8_t Lookup(uint8x16_t table, uint8x16_t index) {
    return vreinterpretq_u16_u8(vqtbl1q_u8(table, index));
}
inline uint16x8_t Lookup(uint8x16x2_t table, uint8x16_t index) {
    return vreinterpretq_u16_u8(vqtbl2q_u8(table, index));
}
#else
// Four positions of (a a b b) bytes to the tensor bytes of rows a and b, widened: 8 samples each.
// Widening is a zip with zero (little-endian), a single unpack once translated.
inline void SplitRows(uint8x16_t ab, uint16x8_t* ta, uint16x8_t* tb) {
    const uint8x16_t zero = vdupq_n_u8(0);
    const uint32x4_t lo = AsU32(vzip1q_u8(ab, zero));
    const uint32x4_t hi = AsU32(vzip2q_u8(ab, zero));
    *ta = vreinterpretq_u16_u32(vuzp1q_u32(lo, hi));
    *tb = vreinterpretq_u16_u32(vuzp2q_u32(lo, hi));
}
#endif

// 48 tensor bytes (8 positions) mixed into 16 samples of luma rows a and b and of the chroma row.
#if VAI_BYTE_TABLES
// A position is 6 bytes: a0 a1 b0 b1 u v. Four positions (24 bytes) come from two 16-byte loads, 12
// bytes apart, taken as one 32-byte table; each lookup picks one channel pair of the four positions
// and widens it to 16 bits (index 255 gives 0).
alignas(16) constexpr uint8_t kYuvRowA[16] = {0,  255, 1,  255, 6,  255, 7,  255,
                                              16, 255, 17, 255, 22, 255, 23, 255};
alignas(16) constexpr uint8_t kYuvRowB[16] = {2,  255, 3,  255, 8,  255, 9,  255,
                                              18, 255, 19, 255, 24, 255, 25, 255};
alignas(16) constexpr uint8_t kYuvChroma[16] = {4,  255, 5,  255, 10, 255, 11, 255,
                                                20, 255, 21, 255, 26, 255, 27, 255};

// The last load reads 4 bytes past the block; the caller leaves the tensor's last position to the
// scalar code.
inline TensorSamples<6> UnpackYuv(const unsigned char* t) {
    const uint8x16x2_t p03 = {{vld1q_u8(t), vld1q_u8(t + 12)}};
    const uint8x16x2_t p47 = {{vld1q_u8(t + 24), vld1q_u8(t + 36)}};
    const uint8x16_t rowA = vld1q_u8(kYuvRowA), rowB = vld1q_u8(kYuvRowB), chroma = vld1q_u8(kYuvChroma);
    return {{Lookup(p03, rowA), Lookup(p47, rowA), Lookup(p03, rowB), Lookup(p47, rowB), Lookup(p03, chroma),
             Lookup(p47, chroma)}};
}
#else
inline TensorSamples<6> UnpackYuv(const unsigned char* t) {
    // One position per 64-bit lane: its six bytes and two ignored ones, which for the last position
    // lie past the block; the caller leaves the tensor's last position to the scalar code.
    const uint8x16_t q0 = vcombine_u8(vld1_u8(t), vld1_u8(t + 6));
    const uint8x16_t q1 = vcombine_u8(vld1_u8(t + 12), vld1_u8(t + 18));
    const uint8x16_t q2 = vcombine_u8(vld1_u8(t + 24), vld1_u8(t + 30));
    const uint8x16_t q3 = vcombine_u8(vld1_u8(t + 36), vld1_u8(t + 42));
    // Even 32-bit lanes are the luma quads, odd ones the chroma pairs.
    const uint8x16_t ab03 = AsU8(vuzp1q_u32(AsU32(q0), AsU32(q1)));
    const uint8x16_t ab47 = AsU8(vuzp1q_u32(AsU32(q2), AsU32(q3)));
    const uint8x16_t uv03 = AsU8(vuzp2q_u32(AsU32(q0), AsU32(q1)));
    const uint8x16_t uv47 = AsU8(vuzp2q_u32(AsU32(q2), AsU32(q3)));
    TensorSamples<6> s;
    uint16x8_t unused;
    SplitRows(ab03, &s.v[0], &s.v[2]);
    SplitRows(ab47, &s.v[1], &s.v[3]);
    SplitRows(uv03, &s.v[4], &unused);
    SplitRows(uv47, &s.v[5], &unused);
    return s;
}
#endif

inline void DepthToSpaceYuvStep(const unsigned char* t, const unsigned char* xa, const unsigned char* xb,
                                const unsigned char* xc, unsigned char* oa, unsigned char* ob,
                                unsigned char* oc, VecWeights wy, VecWeights wc) {
    const TensorSamples<6> s = UnpackYuv(t);
    MixStore(xa, oa, s.v[0], wy);
    MixStore(xa + 16, oa + 16, s.v[1], wy);
    MixStore(xb, ob, s.v[2], wy);
    MixStore(xb + 16, ob + 16, s.v[3], wy);
    MixStore(xc, oc, s.v[4], wc);
    MixStore(xc + 16, oc + 16, s.v[5], wc);
}

// 32 tensor bytes (8 positions) mixed into 16 samples of grey rows a and b.
#if VAI_BYTE_TABLES
// A position is 4 bytes: a0 a1 b0 b1; one lookup takes a row's pairs of four positions, widened.
alignas(16) constexpr uint8_t kGrayRowA[16] = {0, 255, 1, 255, 4,  255, 5,  255,
                                               8, 255, 9, 255, 12, 255, 13, 255};
alignas(16) constexpr uint8_t kGrayRowB[16] = {2,  255, 3,  255, 6,  255, 7,  255,
                                               10, 255, 11, 255, 14, 255, 15, 255};

inline TensorSamples<4> UnpackGray(const unsigned char* t) {
    const uint8x16_t p03 = vld1q_u8(t), p47 = vld1q_u8(t + 16);
    const uint8x16_t rowA = vld1q_u8(kGrayRowA), rowB = vld1q_u8(kGrayRowB);
    return {{Lookup(p03, rowA), Lookup(p47, rowA), Lookup(p03, rowB), Lookup(p47, rowB)}};
}
#else
inline TensorSamples<4> UnpackGray(const unsigned char* t) {
    TensorSamples<4> s;
    SplitRows(vld1q_u8(t), &s.v[0], &s.v[2]);
    SplitRows(vld1q_u8(t + 16), &s.v[1], &s.v[3]);
    return s;
}
#endif

inline void DepthToSpaceGrayStep(const unsigned char* t, const unsigned char* xa, const unsigned char* xb,
                                 unsigned char* oa, unsigned char* ob, VecWeights w) {
    const TensorSamples<4> s = UnpackGray(t);
    MixStore(xa, oa, s.v[0], w);
    MixStore(xa + 16, oa + 16, s.v[1], w);
    MixStore(xb, ob, s.v[2], w);
    MixStore(xb + 16, ob + 16, s.v[3], w);
}

// The same arithmetic for one position's pair of samples (4 bytes), for what the vector steps leave.
inline void MixPair(const unsigned char* x, unsigned char* o, const unsigned char* t, Weights w) {
    for (int i = 0; i < 2; ++i) {
        uint16_t v;
        std::memcpy(&v, x + 2 * i, sizeof(v));
        const unsigned mixed = (v >> 6) * unsigned{w.frame} + t[i] * unsigned{w.tensor};
        v = static_cast<uint16_t>(mixed > 65535u ? 65535u : mixed);
        std::memcpy(o + 2 * i, &v, sizeof(v));
    }
}

void DepthToSpaceYuvRows(VAI_IMG_* out, const VAI_IMG_* in, const unsigned char* t, Weights wy, Weights wc) {
    const int stride = out->stride[0];
    const int positions = out->width / 2;
    const int pairs = out->height / 2;
    const VecWeights vy = Splat(wy), vc = Splat(wc);
    for (int r = 0; r < pairs; ++r) {
        const unsigned char* xa = Row(in->plane_addr[0], stride, 2 * r);
        const unsigned char* xb = Row(in->plane_addr[0], stride, 2 * r + 1);
        const unsigned char* xc = Row(in->plane_addr[1], stride, r);
        unsigned char* oa = Row(out->plane_addr[0], stride, 2 * r);
        unsigned char* ob = Row(out->plane_addr[0], stride, 2 * r + 1);
        unsigned char* oc = Row(out->plane_addr[1], stride, r);
        const int vectorEnd = r + 1 < pairs ? positions : positions - 1;
        int p = 0;
        // Two steps a turn: one prefetch per cache line of each sample stream.
        for (; p + 2 * kStep <= vectorEnd; p += 2 * kStep, t += 12 * kStep) {
            const ptrdiff_t off = 4 * p;
            PrefetchRead(t);
            PrefetchRead(t + 64);
            PrefetchRead(xa + off);
            PrefetchRead(xb + off);
            PrefetchRead(xc + off);
            PrefetchWrite(oa + off);
            PrefetchWrite(ob + off);
            PrefetchWrite(oc + off);
            DepthToSpaceYuvStep(t, xa + off, xb + off, xc + off, oa + off, ob + off, oc + off, vy, vc);
            DepthToSpaceYuvStep(t + 48, xa + off + 32, xb + off + 32, xc + off + 32, oa + off + 32,
                                ob + off + 32, oc + off + 32, vy, vc);
        }
        for (; p + kStep <= vectorEnd; p += kStep, t += 6 * kStep) {
            const ptrdiff_t off = 4 * p;
            DepthToSpaceYuvStep(t, xa + off, xb + off, xc + off, oa + off, ob + off, oc + off, vy, vc);
        }
        for (; p < positions; ++p, t += 6) {
            const ptrdiff_t off = 4 * p;
            MixPair(xa + off, oa + off, t, wy);
            MixPair(xb + off, ob + off, t + 2, wy);
            MixPair(xc + off, oc + off, t + 4, wc);
        }
    }
}

void DepthToSpaceGrayRows(VAI_IMG_* out, const VAI_IMG_* in, const unsigned char* t, Weights w) {
    const int stride = out->stride[0];
    const int positions = out->width / 2;
    const int pairs = out->height / 2;
    const VecWeights vw = Splat(w);
    for (int r = 0; r < pairs; ++r) {
        const unsigned char* xa = Row(in->plane_addr[0], stride, 2 * r);
        const unsigned char* xb = Row(in->plane_addr[0], stride, 2 * r + 1);
        unsigned char* oa = Row(out->plane_addr[0], stride, 2 * r);
        unsigned char* ob = Row(out->plane_addr[0], stride, 2 * r + 1);
        int p = 0;
        // Two steps a turn: one prefetch per cache line of each stream.
        for (; p + 2 * kStep <= positions; p += 2 * kStep, t += 8 * kStep) {
            const ptrdiff_t off = 4 * p;
            PrefetchRead(t);
            PrefetchRead(xa + off);
            PrefetchRead(xb + off);
            PrefetchWrite(oa + off);
            PrefetchWrite(ob + off);
            DepthToSpaceGrayStep(t, xa + off, xb + off, oa + off, ob + off, vw);
            DepthToSpaceGrayStep(t + 32, xa + off + 32, xb + off + 32, oa + off + 32, ob + off + 32, vw);
        }
        for (; p + kStep <= positions; p += kStep, t += 4 * kStep) {
            const ptrdiff_t off = 4 * p;
            PrefetchRead(t);
            PrefetchRead(xa + off);
            PrefetchRead(xb + off);
            DepthToSpaceGrayStep(t, xa + off, xb + off, oa + off, ob + off, vw);
        }
        for (; p < positions; ++p, t += 4) {
            const ptrdiff_t off = 4 * p;
            MixPair(xa + off, oa + off, t, w);
            MixPair(xb + off, ob + off, t + 2, w);
        }
    }
}

}  // namespace

extern const RowKernels VAI_ROWS_TABLE = {VAI_ROWS_NAME, SpaceToDepthYuvRows, SpaceToDepthGrayRows,
                                          DepthToSpaceYuvRows, DepthToSpaceGrayRows};

}  // namespace vai::packing
