// The runtime part of every back-end instance.
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "interface/pxrt_interface.h"

namespace vai {
// Tensors per direction a session may have: the room in VAI_HANDLE_'s byte-size tables.
constexpr size_t kMaxTensors = 4;
}  // namespace vai

// Index 0 is the first session, 1 a second one. Sessions themselves live in each instance record, right
// after its VAI_HANDLE_.
struct VAI_HANDLE_ {
    size_t m_in_num[2] = {};
    size_t m_out_num[2] = {};
    size_t mInputTensorByteSize[2][vai::kMaxTensors] = {};
    size_t mOutputTensorByteSize[2][vai::kMaxTensors] = {};
    std::shared_ptr<PXRT::Interpreter> interpreter;
    PXRT::TensorArray input_tensors[2];
    PXRT::TensorArray output_tensors[2];

    VAI_HANDLE_() = default;
    VAI_HANDLE_(const VAI_HANDLE_&) = delete;
    VAI_HANDLE_& operator=(const VAI_HANDLE_&) = delete;

    // Arrays go in reverse order of declaration, each from its last tensor to its first; the interpreter
    // owner (a member declared earlier) goes last. Sessions must already be released.
    ~VAI_HANDLE_() {
        for (PXRT::TensorArray* a :
             {&output_tensors[1], &output_tensors[0], &input_tensors[1], &input_tensors[0]}) {
            while (!a->empty()) a->pop_back();
        }
    }
};
