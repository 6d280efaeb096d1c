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
    kNv21,    // height x width luma, then height/2 rows of V,U pairs; blob 1x6x(H/2)x(W/2)
    kBayer,   // height x width mosaic; blob 1x4x(H/2)x(W/2), channels R, G, G, B whatever the order
    kPlane,   // count elements (inputs only); blob 1xCxHxW, every value from element 0
};

// Where network channel k of a 2x2-block layout finds its element for block (r, c):
// base + r x row_step + 2c + dx.
struct BlockSource {
    size_t base = 0, row_step = 0;
    int dx = 0;
};

struct TensorDesc {
    std::string name;  // the network's input or output name
    size_t bytes = 0;
    Layout layout = Layout::kHwc;
    ElementType type = ElementType::kUint8;
    int height = 0, width = 0, channels = 0;  // kHwc, kPlane (the blob's); kNv21, kBayer (the frame's)
    int count = 0;                            // kVector, kPlane
    double scale = 1.0;                       // network value = (element - offset) x scale
    double offset = 0.0;
    double ceiling = 0.0;       // outputs: largest element written, when above 0 (a Bayer white level)
    int cfa[4] = {0, 1, 2, 3};  // kBayer: block position (row x 2 + column) of R, G, G, B
};

// Channels of the blob and, for the 2x2-block layouts, where each one's elements are.
int BlobChannels(const TensorDesc& t);
std::vector<BlockSource> BlockSources(const TensorDesc& t);

struct Manifest {
    std::string onnx_path;  // resolved against the manifest's directory
    std::vector<TensorDesc> inputs, outputs;
};

// Reads and checks `path`. On failure returns false with a one-line reason in `error`.
bool LoadManifest(const char* path, Manifest* manifest, std::string* error);

}  // namespace pxrt_ref
