// The reference runtime's model file: a JSON manifest naming the ONNX network and describing, for each
// tensor the library exchanges with the runtime, its byte size and how its bytes map onto the network.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace pxrt_ref {

enum class ElementType { kUint8, kInt8, kUint16, kInt16, kFloat32 };
size_t ElementSize(ElementType type);

enum class Layout {
    kHwc,     // height x width x channels elements, channels interleaved; network blob 1xCxHxW
    kVector,  // count elements; network blob 1 x count
    kUnused,  // accepted and sized, never given to the network
};

struct TensorDesc {
    std::string name;  // the network's input or output name
    size_t bytes = 0;
    Layout layout = Layout::kHwc;
    ElementType type = ElementType::kUint8;
    int height = 0, width = 0, channels = 0;  // kHwc
    int count = 0;                            // kVector
    double scale = 1.0;                       // network value = element x scale
};

struct Manifest {
    std::string onnx_path;  // resolved against the manifest's directory
    std::vector<TensorDesc> inputs, outputs;
};

// Reads and checks `path`. On failure returns false with a one-line reason in `error`.
bool LoadManifest(const char* path, Manifest* manifest, std::string* error);

}  // namespace pxrt_ref
