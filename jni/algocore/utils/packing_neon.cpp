// Vector packing functions: argument checks and strengths here, the row loops in packing_rows.cpp.
#include "algocore/utils/packing.h"

#include <algorithm>
#include <atomic>
#include <cstddef>

#include "algocore/utils/packing_rows.h"
#include "algocore/utils/vai_log.h"

using vAIPROC::VAI_IMG_;

namespace vai::packing {

namespace {

// Found once; no allocation, so that no frame ever allocates.
struct RowsFound {
    RowsFound() {
        rows[count++] = &kBaselineRows;
#if defined(VAI_HAVE_AVX2_ROWS)
        __builtin_cpu_init();
        if (__builtin_cpu_supports("avx2")) rows[count++] = &kAvx2Rows;
#endif
    }
    const RowKernels* rows[2] = {};
    size_t count = 0;
};

const RowsFound& Found() {
    static const RowsFound found;
    return found;
}

std::atomic<const RowKernels*> sChosenRows{nullptr};

}  // namespace

RowList AvailableRows() {
    return {Found().rows, Found().count};
}

const RowKernels& ActiveRows() {
    if (const RowKernels* chosen = sChosenRows.load(std::memory_order_relaxed)) return *chosen;
    const RowList available = AvailableRows();
    return *available.rows[available.count - 1];
}

void SetActiveRows(const RowKernels* rows) {
    sChosenRows.store(rows, std::memory_order_relaxed);
}

}  // namespace vai::packing

namespace {

using vai::packing::ActiveRows;
using vai::packing::Weights;

constexpr unsigned kFullStrength = 64;

unsigned Clamp(unsigned char strength) {
    return std::min<unsigned>(strength, kFullStrength);
}

// `s` is already clamped.
Weights WeightsFor(unsigned s) {
    return {static_cast<uint16_t>(kFullStrength - s), static_cast<uint16_t>(4 * s)};
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
    ActiveRows().depthToSpaceYuv(out, in, static_cast<const unsigned char*>(tensor), WeightsFor(sy),
                                 WeightsFor(suv));
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
    ActiveRows().depthToSpaceGray(out, in, static_cast<const unsigned char*>(tensor), WeightsFor(s));
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
    ActiveRows().spaceToDepthYuv(in, static_cast<unsigned char*>(tensor));
}

void SpaceToDepthGray_NEON(void* tensor, VAI_IMG_* in) {
    if (tensor == nullptr || in == nullptr) {
        VAI_LOGE("Input or output buffer is nullptr in SpaceToDepthGray_NEON!");
        return;
    }
    ActiveRows().spaceToDepthGray(in, static_cast<unsigned char*>(tensor));
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
