// Vector packing kernels. Written with NEON intrinsics; other processors compile the same source
// through SIMDe. Only permutes that SIMDe turns into single vector shuffles are used (zips and unzips,
// 64-bit halves, widening by a zip with zero): its three-way loads and stores are scalar loops.
#include "packing.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "vai_log.h"

#if defined(__aarch64__)
#include <arm_neon.h>
#else
#define SIMDE_ENABLE_NATIVE_ALIASES
#include <simde/arm/neon.h>
#endif

// On x86 development hosts the row loops are also built for AVX2 (the same 128-bit operations with
// three-operand encodings) and the variant is chosen when the library loads. Defining
// VAI_NO_KERNEL_CLONES keeps the baseline build only, to test it on an AVX2 machine. ThreadSanitizer
// builds keep it too: their load-time resolvers would run before the sanitizer is set up.
#if defined(__x86_64__) && !defined(__ANDROID__) && !defined(VAI_NO_KERNEL_CLONES) && \
    !defined(__SANITIZE_THREAD__)
#define VAI_KERNEL __attribute__((target_clones("avx2", "default")))
#else
#define VAI_KERNEL
#endif

using vAIPROC::VAI_IMG_;

namespace {

constexpr unsigned kFullStrength = 64;
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

struct Weights {
    uint16_t frame;   // 64 - s, for the sample shifted right by 6
    uint16_t tensor;  // 4 * s, for the tensor byte
};

unsigned Clamp(unsigned char strength) {
    return std::min<unsigned>(strength, kFullStrength);
}

// `s` is already clamped.
Weights WeightsFor(unsigned s) {
    return {static_cast<uint16_t>(kFullStrength - s), static_cast<uint16_t>(4 * s)};
}

inline unsigned char* Row(unsigned char* plane, int stride, int row) {
    return plane + static_cast<ptrdiff_t>(row) * stride;
}

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

// ---- space to depth -------------------------------------------------------------------------------

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

// 8 positions of an 8-bit grey row pair to 32 tensor bytes.
inline void SpaceToDepthGray8Step(const unsigned char* a, const unsigned char* b, unsigned char* t) {
    const uint16x8_t ra = vreinterpretq_u16_u8(vld1q_u8(a)), rb = vreinterpretq_u16_u8(vld1q_u8(b));
    vst1q_u8(t, vreinterpretq_u8_u16(vzip1q_u16(ra, rb)));
    vst1q_u8(t + 16, vreinterpretq_u8_u16(vzip2q_u16(ra, rb)));
}

VAI_KERNEL void SpaceToDepthYuvRows(const VAI_IMG_* in, unsigned char* t) {
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

VAI_KERNEL void SpaceToDepthGrayRows(const VAI_IMG_* in, unsigned char* t) {
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

// Four positions of (a a b b) bytes to the tensor bytes of rows a and b, widened: 8 samples each.
// Widening is a zip with zero (little-endian), a single unpack once translated.
inline void SplitRows(uint8x16_t ab, uint16x8_t* ta, uint16x8_t* tb) {
    const uint8x16_t zero = vdupq_n_u8(0);
    const uint32x4_t lo = AsU32(vzip1q_u8(ab, zero));
    const uint32x4_t hi = AsU32(vzip2q_u8(ab, zero));
    *ta = vreinterpretq_u16_u32(vuzp1q_u32(lo, hi));
    *tb = vreinterpretq_u16_u32(vuzp2q_u32(lo, hi));
}

// 48 tensor bytes (8 positions) mixed into 16 samples of luma rows a and b and of the chroma row.
inline void DepthToSpaceYuvStep(const unsigned char* t, const unsigned char* xa, const unsigned char* xb,
                                const unsigned char* xc, unsigned char* oa, unsigned char* ob,
                                unsigned char* oc, VecWeights wy, VecWeights wc) {
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
    uint16x8_t ta0, tb0, ta1, tb1, tc0, tc1, unused;
    SplitRows(ab03, &ta0, &tb0);
    SplitRows(ab47, &ta1, &tb1);
    SplitRows(uv03, &tc0, &unused);
    SplitRows(uv47, &tc1, &unused);
    MixStore(xa, oa, ta0, wy);
    MixStore(xa + 16, oa + 16, ta1, wy);
    MixStore(xb, ob, tb0, wy);
    MixStore(xb + 16, ob + 16, tb1, wy);
    MixStore(xc, oc, tc0, wc);
    MixStore(xc + 16, oc + 16, tc1, wc);
}

// 32 tensor bytes (8 positions) mixed into 16 samples of grey rows a and b.
inline void DepthToSpaceGrayStep(const unsigned char* t, const unsigned char* xa, const unsigned char* xb,
                                 unsigned char* oa, unsigned char* ob, VecWeights w) {
    uint16x8_t ta0, tb0, ta1, tb1;
    SplitRows(vld1q_u8(t), &ta0, &tb0);
    SplitRows(vld1q_u8(t + 16), &ta1, &tb1);
    MixStore(xa, oa, ta0, w);
    MixStore(xa + 16, oa + 16, ta1, w);
    MixStore(xb, ob, tb0, w);
    MixStore(xb + 16, ob + 16, tb1, w);
}

// The same arithmetic for one position's pair of samples (4 bytes), for what the vector steps leave.
inline void MixPair(const unsigned char* x, unsigned char* o, const unsigned char* t, Weights w) {
    for (int i = 0; i < 2; ++i) {
        uint16_t v;
        std::memcpy(&v, x + 2 * i, sizeof(v));
        const unsigned mixed = std::min((v >> 6) * unsigned{w.frame} + t[i] * unsigned{w.tensor}, 65535u);
        v = static_cast<uint16_t>(mixed);
        std::memcpy(o + 2 * i, &v, sizeof(v));
    }
}

VAI_KERNEL void DepthToSpaceYuvRows(VAI_IMG_* out, const VAI_IMG_* in, const unsigned char* t, Weights wy,
                                    Weights wc) {
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

VAI_KERNEL void DepthToSpaceGrayRows(VAI_IMG_* out, const VAI_IMG_* in, const unsigned char* t, Weights w) {
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

void DepthToSpaceYuvChecked(VAI_IMG_* out, const VAI_IMG_* in, const void* tensor,
                            const unsigned char* strength) {
    if (out == nullptr || in == nullptr || tensor == nullptr || strength == nullptr) {
        VAI_LOGE("Input or output buffer is nullptr in DepthToSpace_NEON_YUV!");
        return;
    }
    const unsigned sy = Clamp(strength[0]), suv = Clamp(strength[1]);
    VAI_LOGV("The Strength is: (y:%d, uv:%d)", sy, suv);
    if (out->btw < 9) {
        VAI_LOGE("btw of output image buffer is 8bit!");
        return;
    }
    DepthToSpaceYuvRows(out, in, static_cast<const unsigned char*>(tensor), WeightsFor(sy), WeightsFor(suv));
}

void DepthToSpaceGrayChecked(VAI_IMG_* out, const VAI_IMG_* in, const void* tensor,
                             const unsigned char* strength) {
    if (out == nullptr || in == nullptr || tensor == nullptr || strength == nullptr) {
        VAI_LOGE("Input or output buffer is nullptr in DepthToSpaceGray!");
        return;
    }
    const unsigned s = Clamp(strength[0]);
    VAI_LOGV("The Strength is %d", s);
    if (out->btw < 9) {
        VAI_LOGE("btw of output image buffer is 8bit!");
        return;
    }
    DepthToSpaceGrayRows(out, in, static_cast<const unsigned char*>(tensor), WeightsFor(s));
}

}  // namespace

void SpaceToDepthYuv_NEON(void* tensor, VAI_IMG_ const* in) {
    if (tensor == nullptr || in == nullptr) {
        VAI_LOGE("Input or output buffer is nullptr in SpaceToDepth_NEON_YUV!");
        return;
    }
    if (in->btw < 9) {
        VAI_LOGE("btw of input image buffer is 8bit!");
        return;
    }
    SpaceToDepthYuvRows(in, static_cast<unsigned char*>(tensor));
}

void SpaceToDepthGray_NEON(void* tensor, VAI_IMG_* in) {
    if (tensor == nullptr || in == nullptr) {
        VAI_LOGE("Input or output buffer is nullptr in SpaceToDepthGray_NEON!");
        return;
    }
    SpaceToDepthGrayRows(in, static_cast<unsigned char*>(tensor));
}

void DepthToSpaceYuv_NEON(VAI_IMG_* out, VAI_IMG_ const* in, void const* tensor,
                          unsigned char const* strength) {
    DepthToSpaceYuvChecked(out, in, tensor, strength);
}

void DepthToSpaceYuv_NEON(VAI_IMG_* out, void const* tensor, unsigned char const* strength) {
    DepthToSpaceYuvChecked(out, out, tensor, strength);
}

void DepthToSpaceGray_NEON(VAI_IMG_* out, VAI_IMG_ const* in, void const* tensor,
                           unsigned char const* strength) {
    DepthToSpaceGrayChecked(out, in, tensor, strength);
}

void DepthToSpaceGray_NEON(VAI_IMG_* out, void const* tensor, unsigned char const* strength) {
    DepthToSpaceGrayChecked(out, out, tensor, strength);
}
