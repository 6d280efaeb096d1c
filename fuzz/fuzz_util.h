// What every fuzz target shares: a reader over the fuzz input, a file holding bytes for the loaders that
// take a path, a quiet log, and the checks that make a broken promise a crash libFuzzer reports.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "vai_host_platform.h"

// Aborts with the failed condition: libFuzzer keeps the input, the replay test fails.
#define FUZZ_CHECK(cond)                                                                      \
    do {                                                                                      \
        if (!(cond)) {                                                                        \
            std::fprintf(stderr, "%s:%d: fuzz check failed: %s\n", __FILE__, __LINE__, #cond); \
            std::abort();                                                                     \
        }                                                                                     \
    } while (0)

namespace vai_fuzz {

// Takes values off the front of the input; past its end every value is 0.
class Reader {
  public:
    Reader(const uint8_t* data, size_t size) : data_(data), size_(size) {}
    uint8_t Byte() { return pos_ < size_ ? data_[pos_++] : 0; }
    template <typename T>
    T Take() {
        T v{};
        uint8_t raw[sizeof(T)] = {};
        for (uint8_t& b : raw) b = Byte();
        std::memcpy(&v, raw, sizeof(T));
        return v;
    }
    // A value in lo..hi.
    int Range(int lo, int hi) { return lo + static_cast<int>(Take<uint16_t>() % (hi - lo + 1)); }
    bool Bit() { return (Byte() & 1) != 0; }
    const uint8_t* Rest() const { return data_ + pos_; }
    size_t Left() const { return size_ - pos_; }

  private:
    const uint8_t* data_;
    size_t size_;
    size_t pos_ = 0;
};

// A file in memory holding `size` bytes, passed to the loaders by its /proc path.
class MemFile {
  public:
    MemFile(const uint8_t* data, size_t size) {
        fd_ = memfd_create("vai-fuzz", 0);
        FUZZ_CHECK(fd_ >= 0);
        for (size_t done = 0; done < size;) {
            const ssize_t n = write(fd_, data + done, size - done);
            FUZZ_CHECK(n > 0);
            done += static_cast<size_t>(n);
        }
        path_ = "/proc/self/fd/" + std::to_string(fd_);
    }
    ~MemFile() { close(fd_); }
    MemFile(const MemFile&) = delete;
    MemFile& operator=(const MemFile&) = delete;
    const char* path() const { return path_.c_str(); }

  private:
    int fd_ = -1;
    std::string path_;
};

// Log lines are formatted (their arguments are part of what is fuzzed) but not printed, unless
// VAI_FUZZ_LOG is set, for looking into one input.
inline void QuietLog() {
    if (std::getenv("VAI_FUZZ_LOG") != nullptr) return;
    vai_host_set_log_sink([](int, const char*, const char*, void*) { return 0; }, nullptr);
}

}  // namespace vai_fuzz
