// Row loops behind the vector packing functions (packing.h). Their arguments are already checked: the
// functions here do no logging and no validation.
//
// The loops are built once per instruction-set variant: the processor's baseline everywhere, and on
// x86-64 hosts an AVX2 build as well, so that SIMDe can translate byte table lookups into shuffles.
// The public functions call the best variant the processor runs; tests may choose another.
#pragma once

#include <cstddef>
#include <cstdint>

#include "interface/vai_types.h"

namespace vai::packing {

// Mixing weights: (x >> 6) * frame + t * tensor.
struct Weights {
    uint16_t frame;   // 64 - s
    uint16_t tensor;  // 4 * s
};

struct RowKernels {
    const char* name;
    void (*spaceToDepthYuv)(const vAIPROC::VAI_IMG_* in, unsigned char* tensor);
    void (*spaceToDepthGray)(const vAIPROC::VAI_IMG_* in, unsigned char* tensor);
    void (*depthToSpaceYuv)(vAIPROC::VAI_IMG_* out, const vAIPROC::VAI_IMG_* in, const unsigned char* tensor,
                            Weights luma, Weights chroma);
    void (*depthToSpaceGray)(vAIPROC::VAI_IMG_* out, const vAIPROC::VAI_IMG_* in, const unsigned char* tensor,
                             Weights w);
};

// One table per variant; kAvx2Rows is built only where VAI_HAVE_AVX2_ROWS is defined.
extern const RowKernels kBaselineRows;
extern const RowKernels kAvx2Rows;

// The variants this processor can run, baseline first, best last.
struct RowList {
    const RowKernels* const* rows;
    size_t count;
    const RowKernels* const* begin() const { return rows; }
    const RowKernels* const* end() const { return rows + count; }
};
RowList AvailableRows();

// What the public functions use; null restores the best available.
const RowKernels& ActiveRows();
void SetActiveRows(const RowKernels* rows);

}  // namespace vai::packing
