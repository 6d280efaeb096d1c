#include "clip.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sstream>

namespace vaitool {

namespace {

constexpr char kY4mSignature[] = "YUV4MPEG2 ";
constexpr char kFrameHeader[] = "FRAME\n";

std::string Errno(const std::string& what, const std::string& path) {
    return what + " '" + path + "': " + std::strerror(errno);
}

// 16-bit scale value of sample i of a frame.
inline unsigned Wide(const uint8_t* d, bool wide, size_t i) {
    return wide ? unsigned(d[2 * i] | d[2 * i + 1] << 8) : unsigned(d[i]) << 8;
}

inline void Put(uint8_t* d, bool wide, size_t i, unsigned v) {
    if (wide) {
        d[2 * i] = static_cast<uint8_t>(v);
        d[2 * i + 1] = static_cast<uint8_t>(v >> 8);
    } else {
        d[i] = static_cast<uint8_t>(std::min(255u, (v + 128) >> 8));
    }
}

// Y4M stores planes: luma, then all U, then all V; 10-bit samples are LSB-aligned words.
void PlanarToSemi(const std::vector<uint8_t>& planar, const ClipFormat& f, std::vector<uint8_t>* frame) {
    const size_t luma = size_t(f.width) * f.height, quarter = luma / 4;
    const int shift = f.wide() ? 16 - f.bits : 0;
    frame->resize(f.FrameBytes());
    for (size_t i = 0; i < luma + 2 * quarter; ++i) {
        // Destination sample: luma in place, then U and V interleaved.
        const size_t o = i < luma ? i : luma + 2 * ((i - luma) % quarter) + (i - luma) / quarter;
        if (f.wide())
            Put(frame->data(), true, o, unsigned(planar[2 * i] | planar[2 * i + 1] << 8) << shift);
        else
            (*frame)[o] = planar[i];
    }
}

void SemiToPlanar(const std::vector<uint8_t>& frame, const ClipFormat& f, std::vector<uint8_t>* planar) {
    const size_t luma = size_t(f.width) * f.height, quarter = luma / 4;
    const int shift = f.wide() ? 16 - f.bits : 0;
    const unsigned top = (1u << f.bits) - 1;
    planar->resize(f.FrameBytes());
    for (size_t i = 0; i < luma + 2 * quarter; ++i) {
        const size_t s = i < luma ? i : luma + 2 * ((i - luma) % quarter) + (i - luma) / quarter;
        if (f.wide()) {
            const unsigned w = frame[2 * s] | frame[2 * s + 1] << 8;
            const unsigned v = shift == 0 ? w : std::min(top, (w + (1u << (shift - 1))) >> shift);
            (*planar)[2 * i] = static_cast<uint8_t>(v);
            (*planar)[2 * i + 1] = static_cast<uint8_t>(v >> 8);
        } else {
            (*planar)[i] = frame[s];
        }
    }
}

}  // namespace

const char kY4mColourTags[] = "420jpeg, 420paldv, 420mpeg2, 420 (8-bit), 420p10 (10-bit)";

bool ParseLayout(const std::string& name, Layout* layout) {
    for (Layout l : {Layout::kNV12, Layout::kNV21, Layout::kP010, Layout::kBayer10}) {
        if (name == LayoutName(l)) {
            *layout = l;
            return true;
        }
    }
    return false;
}

const char* LayoutName(Layout layout) {
    switch (layout) {
        case Layout::kNV12:
            return "nv12";
        case Layout::kNV21:
            return "nv21";
        case Layout::kP010:
            return "p010";
        case Layout::kBayer10:
            return "bayer10";
    }
    return "?";
}

std::string ClipFormat::Describe() const {
    std::ostringstream s;
    s << width << "x" << height << " " << (y4m ? "Y4M 4:2:0" : LayoutName(layout))
      << (bayer() ? " RGGB " : " ") << bits << "-bit";
    return s.str();
}

ClipReader::~ClipReader() {
    if (file_ != nullptr) std::fclose(file_);
}

std::string ClipReader::Open(const std::string& path, const ClipFormat& raw) {
    path_ = path;
    file_ = std::fopen(path.c_str(), "rb");
    if (file_ == nullptr) return Errno("cannot open input clip", path);
    struct stat st {};
    if (fstat(fileno(file_), &st) != 0) return Errno("cannot read input clip", path);
    const size_t size = static_cast<size_t>(st.st_size);

    char sig[sizeof(kY4mSignature) - 1] = {};
    const bool y4m = std::fread(sig, 1, sizeof(sig), file_) == sizeof(sig) &&
                     std::memcmp(sig, kY4mSignature, sizeof(sig)) == 0;
    if (!y4m) {
        std::rewind(file_);
        format_ = raw;
        format_.y4m = false;
        if (raw.width <= 0 || raw.height <= 0)
            return "input clip '" + path + "' is not Y4M: raw " + LayoutName(raw.layout) +
                   " clips need --width and --height";
        const size_t frame = format_.FrameBytes();
        if (size == 0 || frame == 0 || size % frame != 0) {
            std::ostringstream s;
            s << "input clip '" << path << "' is " << size << " bytes, not a whole number of " << raw.width
              << "x" << raw.height << " " << LayoutName(raw.layout) << " frames (" << frame
              << " bytes each); Y4M clips start with \"YUV4MPEG2 \"";
            return s.str();
        }
        frame_count_ = static_cast<int>(size / frame);
        return "";
    }

    std::string header;
    for (int ch; (ch = std::fgetc(file_)) != '\n';) {
        if (ch == EOF || header.size() > 1024)
            return "input clip '" + path + "': Y4M header is not terminated";
        header += static_cast<char>(ch);
    }
    format_ = ClipFormat{};
    format_.y4m = true;
    format_.y4m_extra.clear();
    std::string colour = "420jpeg";
    std::istringstream fields(header);
    for (std::string f; fields >> f;) {
        if (f[0] == 'W') {
            format_.width = std::atoi(f.c_str() + 1);
        } else if (f[0] == 'H') {
            format_.height = std::atoi(f.c_str() + 1);
        } else if (f[0] == 'C') {
            colour = f.substr(1);
        } else if (f.rfind("XYSCSS=", 0) != 0) {
            format_.y4m_extra += " " + f;
        }
    }
    if (colour == "420p10") {
        format_.layout = Layout::kP010;
        format_.bits = 10;
    } else if (colour != "420jpeg" && colour != "420paldv" && colour != "420mpeg2" && colour != "420") {
        return "input clip '" + path + "': Y4M colour space C" + colour +
               " is not supported (supported: " + kY4mColourTags + ")";
    }
    if (format_.width <= 0 || format_.height <= 0 || format_.width % 2 || format_.height % 2)
        return "input clip '" + path + "': Y4M frame size must be even and positive, not " +
               std::to_string(format_.width) + "x" + std::to_string(format_.height);
    const size_t body = size - header.size() - sizeof(kY4mSignature);
    frame_count_ = static_cast<int>(body / (format_.FrameBytes() + sizeof(kFrameHeader) - 1));
    return "";
}

bool ClipReader::Read(std::vector<uint8_t>* frame, std::string* error) {
    error->clear();
    if (format_.y4m) {
        std::string head;
        for (int ch; (ch = std::fgetc(file_)) != '\n';) {
            if (ch == EOF) {
                if (!head.empty()) *error = "input clip '" + path_ + "': truncated frame header";
                return false;
            }
            if (head.size() < 64) head += static_cast<char>(ch);
        }
        if (head.rfind("FRAME", 0) != 0) {
            *error = "input clip '" + path_ + "': expected a Y4M \"FRAME\" header";
            return false;
        }
        planar_.resize(format_.FrameBytes());
        if (std::fread(planar_.data(), 1, planar_.size(), file_) != planar_.size()) {
            *error = "input clip '" + path_ + "': last frame is cut short";
            return false;
        }
        PlanarToSemi(planar_, format_, frame);
        return true;
    }
    frame->resize(format_.FrameBytes());
    const size_t got = std::fread(frame->data(), 1, frame->size(), file_);
    if (got != frame->size() && got != 0) *error = "input clip '" + path_ + "': last frame is cut short";
    return got == frame->size();
}

ClipWriter::~ClipWriter() {
    if (file_ != nullptr) {
        std::fclose(file_);
        std::remove(tmp_.c_str());
    }
}

std::string ClipWriter::Open(const std::string& path, const ClipFormat& format) {
    path_ = path;
    tmp_ = path + ".part";
    format_ = format;
    if (format.y4m && format.bayer()) return "'" + path + "': Y4M holds YUV only, not Bayer frames";
    file_ = std::fopen(tmp_.c_str(), "wb");
    if (file_ == nullptr) return Errno("cannot write", tmp_);
    if (format.y4m) {
        const std::string colour = format.wide() ? "C420p10 XYSCSS=420P10" : "C420jpeg";
        std::fprintf(file_, "%sW%d H%d%s %s\n", kY4mSignature, format.width, format.height,
                     format.y4m_extra.c_str(), colour.c_str());
    }
    return "";
}

bool ClipWriter::Write(const std::vector<uint8_t>& frame) {
    if (file_ == nullptr || frame.size() != format_.FrameBytes()) return false;
    if (!format_.y4m) return std::fwrite(frame.data(), 1, frame.size(), file_) == frame.size();
    SemiToPlanar(frame, format_, &planar_);
    return std::fputs(kFrameHeader, file_) >= 0 &&
           std::fwrite(planar_.data(), 1, planar_.size(), file_) == planar_.size();
}

std::string ClipWriter::Commit() {
    FILE* f = file_;
    file_ = nullptr;
    if (f == nullptr || std::fclose(f) != 0 || std::rename(tmp_.c_str(), path_.c_str()) != 0) {
        const std::string error = Errno("cannot write", path_);
        std::remove(tmp_.c_str());
        return error;
    }
    return "";
}

std::vector<uint8_t> ConvertFrame(const std::vector<uint8_t>& frame, const ClipFormat& from,
                                  const ClipFormat& to) {
    if (from.layout == to.layout) return frame;
    if (from.bayer() || to.bayer()) return {};
    std::vector<uint8_t> out(to.FrameBytes());
    const size_t luma = size_t(from.width) * from.height, total = luma * 3 / 2;
    const bool swap = (from.layout == Layout::kNV21) != (to.layout == Layout::kNV21);
    for (size_t i = 0; i < total; ++i) {
        const size_t s = swap && i >= luma ? i ^ 1 : i;
        Put(out.data(), to.wide(), i, Wide(frame.data(), from.wide(), s));
    }
    return out;
}

}  // namespace vaitool
