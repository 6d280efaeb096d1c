#include "clip.h"

Frame::Frame(const ClipFormat& fmt) : data_(fmt.FrameBytes()) {
    img_.btw = static_cast<int8_t>(fmt.bits);
    img_.img_num = 1;
    img_.plane_num = 2;
    img_.plane_addr[0] = data_.data();
    img_.plane_addr[1] = data_.data() + fmt.LumaBytes();
    img_.stride[0] = img_.stride[1] = fmt.width * fmt.BytesPerSample();
    img_.slice[0] = fmt.height;
    img_.slice[1] = fmt.height / 2;
    img_.plane_size[0] = static_cast<uint32_t>(fmt.LumaBytes());
    img_.plane_size[1] = static_cast<uint32_t>(fmt.ChromaBytes());
    img_.fd[0] = img_.fd[1] = -1;
    img_.width = fmt.width;
    img_.height = fmt.height;
}

void SynthesizeFrame(const ClipFormat& fmt, int index, std::vector<uint8_t>& frame) {
    frame.resize(fmt.FrameBytes());
    uint32_t seed = 0x9E3779B9u * static_cast<uint32_t>(index + 1);
    const int maxValue = (1 << fmt.bits) - 1;
    const size_t samples = frame.size() / fmt.BytesPerSample();
    const size_t lumaSamples = size_t(fmt.width) * fmt.height;
    for (size_t i = 0; i < samples; ++i) {
        seed = seed * 1664525u + 1013904223u;
        const size_t x = (i % fmt.width);
        int v = i < lumaSamples ? int(x * maxValue / (fmt.width > 1 ? fmt.width - 1 : 1)) : maxValue / 2;
        v += int(seed >> 28) - 8;
        v = v < 0 ? 0 : (v > maxValue ? maxValue : v);
        if (fmt.BytesPerSample() == 1) {
            frame[i] = static_cast<uint8_t>(v);
        } else {
            const uint16_t w = static_cast<uint16_t>(v << (16 - fmt.bits));
            frame[2 * i] = static_cast<uint8_t>(w & 0xFF);
            frame[2 * i + 1] = static_cast<uint8_t>(w >> 8);
        }
    }
}
