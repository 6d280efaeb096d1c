// Clips on disk for vaitool: YUV4MPEG2 with 4:2:0 chroma (8 or 10 bits), raw semi-planar frames, or raw
// Bayer mosaics.
//
// In memory a YUV frame is always semi-planar, as a raw clip holds it: the luma plane, then interleaved
// chroma at half height and width; 8-bit samples, or 16-bit little-endian words with MSB-aligned
// values above 8 bits. A Bayer frame (bayer10) is one plane of RGGB samples, each a 16-bit
// little-endian word holding a 10-bit value as it is (not shifted up), black at 64 and white at 1023:
// what the MediaTek RAW back-end and its network take.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace vaitool {

enum class Layout { kNV12, kNV21, kP010, kBayer10 };

// "nv12", "nv21", "p010", "bayer10"; false for anything else.
bool ParseLayout(const std::string& name, Layout* layout);
const char* LayoutName(Layout layout);

constexpr int kBayerBlack = 64, kBayerWhite = 1023;
// The white balance a camera would apply, undone when a mosaic is synthesised and redone to view one.
constexpr double kBayerRedGain = 2.0, kBayerBlueGain = 1.7;

struct ClipFormat {
    bool y4m = false;
    int width = 0;
    int height = 0;
    Layout layout = Layout::kNV12;
    int bits = 8;  // 8 for NV12/NV21; the value width inside the 16-bit words for P010 and Bayer
    // Y4M header fields other than size and colour space (frame rate, aspect...), kept on output.
    std::string y4m_extra = " F30:1 Ip A1:1";

    bool bayer() const { return layout == Layout::kBayer10; }
    bool wide() const { return layout == Layout::kP010 || bayer(); }
    // Bits a stored word is shifted up from its value.
    int shift() const { return layout == Layout::kP010 ? 16 - bits : 0; }
    size_t LumaBytes() const { return size_t(width) * height * (wide() ? 2 : 1); }
    size_t FrameBytes() const { return bayer() ? LumaBytes() : LumaBytes() * 3 / 2; }
    // Full scale of the values compared: white - black for a mosaic.
    double peak() const { return bayer() ? kBayerWhite - kBayerBlack : (1 << bits) - 1; }
    std::string Describe() const;
};

// Y4M colour tags read: 420jpeg, 420paldv, 420mpeg2, 420 (8-bit) and 420p10 (10-bit).
extern const char kY4mColourTags[];

class ClipReader {
  public:
    ClipReader() = default;
    ~ClipReader();
    ClipReader(const ClipReader&) = delete;
    ClipReader& operator=(const ClipReader&) = delete;

    // A file that starts with the Y4M signature is read as Y4M; anything else as raw frames of `raw`.
    // Returns an error text, empty on success.
    std::string Open(const std::string& path, const ClipFormat& raw);
    const ClipFormat& format() const { return format_; }
    // Frames in the file; for Y4M counted as if every frame header were a bare "FRAME".
    int frame_count() const { return frame_count_; }
    // False at the end of the clip; on a damaged clip also sets `error`.
    bool Read(std::vector<uint8_t>* frame, std::string* error);

  private:
    std::FILE* file_ = nullptr;
    std::string path_;
    ClipFormat format_;
    int frame_count_ = 0;
    std::vector<uint8_t> planar_;
};

// Writes to a temporary name beside `path` and renames it into place on Commit; anything else removes
// it, so a failed run leaves no partial clip behind.
class ClipWriter {
  public:
    ClipWriter() = default;
    ~ClipWriter();
    ClipWriter(const ClipWriter&) = delete;
    ClipWriter& operator=(const ClipWriter&) = delete;

    std::string Open(const std::string& path, const ClipFormat& format);
    bool Write(const std::vector<uint8_t>& frame);
    std::string Commit();

  private:
    std::FILE* file_ = nullptr;
    std::string path_, tmp_;
    ClipFormat format_;
    std::vector<uint8_t> planar_;
};

// The same frame in `to`'s layout (same size): chroma order swapped, samples widened (value << 8) or
// narrowed with rounding as needed. Bayer frames convert to Bayer only.
std::vector<uint8_t> ConvertFrame(const std::vector<uint8_t>& frame, const ClipFormat& from,
                                  const ClipFormat& to);

// Sample (x, y) of plane `p` (0 luma or mosaic, 1 chroma with x counting samples, 2*cx + c), at the
// clip's bit depth (P010 words shifted down to their value).
inline int Sample(const uint8_t* frame, const ClipFormat& f, int p, int x, int y) {
    const size_t row = size_t(f.width) * (f.wide() ? 2 : 1);
    const size_t off = (p == 0 ? 0 : f.LumaBytes()) + row * y + size_t(x) * (f.wide() ? 2 : 1);
    if (!f.wide()) return frame[off];
    return (frame[off] | frame[off + 1] << 8) >> f.shift();
}

}  // namespace vaitool
