// Captures the library's log lines through the host platform library's sink.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "vai_host_platform.h"

struct LogLine {
    int prio;
    std::string tag;
    std::string text;
};

class LogCapture {
  public:
    LogCapture() { previous_ = vai_host_set_log_sink(&LogCapture::Sink, this); }
    ~LogCapture() { vai_host_set_log_sink(previous_, nullptr); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<LogLine> Lines() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return lines_;
    }
    std::vector<std::string> Texts() const {
        std::vector<std::string> out;
        for (const LogLine& l : Lines()) out.push_back(l.text);
        return out;
    }
    // Lines containing `needle`.
    size_t Count(const std::string& needle) const {
        size_t n = 0;
        for (const std::string& t : Texts()) n += t.find(needle) != std::string::npos;
        return n;
    }
    bool Contains(const std::string& needle) const { return Count(needle) > 0; }
    void Clear() {
        std::lock_guard<std::mutex> lock(mutex_);
        lines_.clear();
    }

  private:
    static int Sink(int prio, const char* tag, const char* text, void* user) {
        auto* self = static_cast<LogCapture*>(user);
        std::lock_guard<std::mutex> lock(self->mutex_);
        self->lines_.push_back({prio, tag, text});
        return 0;
    }

    mutable std::mutex mutex_;
    std::vector<LogLine> lines_;
    vai_host_log_sink previous_ = nullptr;
};

// Sets a global for the scope of a test and restores it afterwards.
template <typename T>
class ScopedValue {
  public:
    ScopedValue(T& ref, T value) : ref_(ref), saved_(ref) { ref_ = value; }
    ~ScopedValue() { ref_ = saved_; }

  private:
    T& ref_;
    T saved_;
};
