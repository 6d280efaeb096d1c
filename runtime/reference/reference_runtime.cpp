// Reference inference runtime: the runtime interface over OpenCV's DNN module, running ONNX networks on
// the CPU. Its model files are JSON manifests (manifest.h). Every failure is a non-zero result (or a
// null object from a factory) with one line on stderr; no exception leaves this library.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <opencv2/core.hpp>
#include <opencv2/core/utility.hpp>
#include <opencv2/core/utils/logger.hpp>
#include <opencv2/dnn.hpp>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "interface/pxrt_interface.h"
#include "manifest.h"

namespace pxrt_ref {
namespace {

// Time spent in the networks, for tools that want the library's own share of a frame.
std::atomic<uint64_t> g_inference_us{0};
std::atomic<uint64_t> g_inference_runs{0};

// Results of the interpreter's operations.
constexpr int kOk = 0;
constexpr int kBadArgument = 1;
constexpr int kBadModel = 2;
constexpr int kBadTensors = 3;
constexpr int kInferenceFailed = 4;

constexpr char kThreadsVariable[] = "VAI_REFERENCE_THREADS";

void Error(const char* format, ...) __attribute__((format(printf, 1, 2)));
void Error(const char* format, ...) {
    char line[1024];
    va_list args;
    va_start(args, format);
    std::vsnprintf(line, sizeof(line), format, args);
    va_end(args);
    // OpenCV's messages span lines; the runtime reports each failure on one.
    std::string text(line);
    for (char& ch : text) {
        if (ch == '\n' || ch == '\r') ch = ' ';
    }
    while (!text.empty() && text.back() == ' ') text.pop_back();
    std::fprintf(stderr, "pxrt-reference: %s\n", text.c_str());
}

// OpenCV logs its own lines on the way to an exception; the runtime reports the exception alone.
class QuietOpenCv {
  public:
    QuietOpenCv() : previous_(cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_SILENT)) {}
    ~QuietOpenCv() { cv::utils::logging::setLogLevel(previous_); }

  private:
    cv::utils::logging::LogLevel previous_;
};

class Tensor : public PXRT::ITensor {
  public:
    // Over `fd` when it is valid (mapped), else over `buffer` in place, else over storage of its own.
    static Tensor* Create(size_t bytes, void* buffer, int32_t fd) {
        auto t = std::unique_ptr<Tensor>(new Tensor(bytes));
        if (fd >= 0) {
            struct stat st {};
            if (fstat(fd, &st) != 0) {
                Error("tensor fd %d: %s", fd, std::strerror(errno));
                return nullptr;
            }
            // A short regular file (memfd) would fault on access past its end.
            if (S_ISREG(st.st_mode) && static_cast<size_t>(st.st_size) < bytes) {
                Error("tensor fd %d holds %lld bytes, the tensor needs %zu", fd, static_cast<long long>(st.st_size),
                      bytes);
                return nullptr;
            }
            void* map = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
            if (map == MAP_FAILED) {
                Error("tensor fd %d: mmap of %zu bytes failed: %s", fd, bytes, std::strerror(errno));
                return nullptr;
            }
            t->data_ = static_cast<uint8_t*>(map);
            t->mapped_ = true;
        } else if (buffer != nullptr) {
            t->data_ = static_cast<uint8_t*>(buffer);
        } else {
            t->own_.assign(bytes, 0);
            t->data_ = t->own_.data();
        }
        return t.release();
    }
    ~Tensor() override {
        if (mapped_) munmap(data_, bytes_);
    }
    int Reserved0() override { return -1; }
    void* GetData() override { return data_; }
    size_t bytes() const { return bytes_; }
    uint8_t* data() { return data_; }

  private:
    explicit Tensor(size_t bytes) : bytes_(bytes) {}
    size_t bytes_;
    uint8_t* data_ = nullptr;
    bool mapped_ = false;
    std::vector<uint8_t> own_;
};

// Element (position p, channel c) of the interleaved bytes is blob element c x positions + p; a
// vector is one channel.
template <typename T>
void ToFloat(const uint8_t* bytes, size_t positions, size_t channels, const TensorDesc& s, float* out) {
    for (size_t p = 0; p < positions; ++p) {
        for (size_t c = 0; c < channels; ++c) {
            T v;
            std::memcpy(&v, bytes + (p * channels + c) * sizeof(T), sizeof(T));
            out[c * positions + p] = static_cast<float>((static_cast<double>(v) - s.offset) * s.scale);
        }
    }
}

// Back to an element: rounded to nearest, saturated to the type and, when set, to the ceiling.
template <typename T>
T Element(float f, const TensorDesc& s) {
    const double v = static_cast<double>(f) / s.scale + s.offset;
    return cv::saturate_cast<T>(s.ceiling > 0 && v > s.ceiling ? s.ceiling : v);
}

template <typename T>
void FromFloat(const float* in, size_t positions, size_t channels, const TensorDesc& s, uint8_t* bytes) {
    for (size_t p = 0; p < positions; ++p) {
        for (size_t c = 0; c < channels; ++c) {
            const T v = Element<T>(in[c * positions + p], s);
            std::memcpy(bytes + (p * channels + c) * sizeof(T), &v, sizeof(T));
        }
    }
}

// The 2x2-block layouts: blob channel k of block (r, c) is the element BlockSources names.
template <typename T>
void BlocksToFloat(const uint8_t* bytes, const TensorDesc& s, float* out) {
    const size_t rows = static_cast<size_t>(s.height) / 2, cols = static_cast<size_t>(s.width) / 2;
    for (const BlockSource& src : BlockSources(s)) {
        for (size_t r = 0; r < rows; ++r) {
            const uint8_t* row =
                bytes + (src.base + r * src.row_step + static_cast<size_t>(src.dx)) * sizeof(T);
            for (size_t c = 0; c < cols; ++c) {
                T v;
                std::memcpy(&v, row + 2 * c * sizeof(T), sizeof(T));
                *out++ = static_cast<float>((static_cast<double>(v) - s.offset) * s.scale);
            }
        }
    }
}

template <typename T>
void BlocksFromFloat(const float* in, const TensorDesc& s, uint8_t* bytes) {
    const size_t rows = static_cast<size_t>(s.height) / 2, cols = static_cast<size_t>(s.width) / 2;
    for (const BlockSource& src : BlockSources(s)) {
        for (size_t r = 0; r < rows; ++r) {
            uint8_t* row =
                bytes + (src.base + r * src.row_step + static_cast<size_t>(src.dx)) * sizeof(T);
            for (size_t c = 0; c < cols; ++c) {
                const T v = Element<T>(*in++, s);
                std::memcpy(row + 2 * c * sizeof(T), &v, sizeof(T));
            }
        }
    }
}

bool Blocks(const TensorDesc& s) {
    return s.layout == Layout::kNv21 || s.layout == Layout::kBayer;
}

size_t Positions(const TensorDesc& s) {
    if (Blocks(s)) return static_cast<size_t>(s.height / 2) * static_cast<size_t>(s.width / 2);
    return s.layout == Layout::kHwc ? static_cast<size_t>(s.height) * static_cast<size_t>(s.width)
                                    : static_cast<size_t>(s.count);
}

std::vector<int> BlobShape(const TensorDesc& s) {
    if (Blocks(s)) return {1, BlobChannels(s), s.height / 2, s.width / 2};
    if (s.layout == Layout::kHwc || s.layout == Layout::kPlane) return {1, s.channels, s.height, s.width};
    return {1, s.count};
}

template <typename T>
void ToBlob(const TensorDesc& s, const uint8_t* bytes, float* out) {
    if (Blocks(s)) {
        BlocksToFloat<T>(bytes, s, out);
    } else {
        ToFloat<T>(bytes, Positions(s), static_cast<size_t>(BlobChannels(s)), s, out);
    }
}

template <typename T>
void FromBlob(const TensorDesc& s, const float* in, uint8_t* bytes) {
    if (Blocks(s)) {
        BlocksFromFloat<T>(in, s, bytes);
    } else {
        FromFloat<T>(in, Positions(s), static_cast<size_t>(BlobChannels(s)), s, bytes);
    }
}

void BytesToBlob(const TensorDesc& s, const uint8_t* bytes, float* out);

// A plane's blob is its first element everywhere.
void BytesToBlob(const TensorDesc& s, const uint8_t* bytes, cv::Mat* blob) {
    if (s.layout == Layout::kPlane) {
        TensorDesc first = s;
        first.layout = Layout::kVector;
        first.count = 1;
        float value = 0;
        BytesToBlob(first, bytes, &value);
        blob->setTo(cv::Scalar(value));
        return;
    }
    BytesToBlob(s, bytes, blob->ptr<float>());
}

void BytesToBlob(const TensorDesc& s, const uint8_t* bytes, float* out) {
    switch (s.type) {
        case ElementType::kUint8: ToBlob<uint8_t>(s, bytes, out); break;
        case ElementType::kInt8: ToBlob<int8_t>(s, bytes, out); break;
        case ElementType::kUint16: ToBlob<uint16_t>(s, bytes, out); break;
        case ElementType::kInt16: ToBlob<int16_t>(s, bytes, out); break;
        case ElementType::kFloat32: ToBlob<float>(s, bytes, out); break;
    }
}

void BlobToBytes(const TensorDesc& s, const cv::Mat& blob, uint8_t* bytes) {
    const float* in = blob.ptr<float>();
    switch (s.type) {
        case ElementType::kUint8: FromBlob<uint8_t>(s, in, bytes); break;
        case ElementType::kInt8: FromBlob<int8_t>(s, in, bytes); break;
        case ElementType::kUint16: FromBlob<uint16_t>(s, in, bytes); break;
        case ElementType::kInt16: FromBlob<int16_t>(s, in, bytes); break;
        case ElementType::kFloat32: FromBlob<float>(s, in, bytes); break;
    }
}

std::string ShapeText(const cv::Mat& m) {
    std::string s;
    for (int i = 0; i < m.dims; ++i) s += (i ? "x" : "") + std::to_string(m.size[i]);
    return s;
}

std::string ShapeText(const std::vector<int>& shape) {
    std::string s;
    for (size_t i = 0; i < shape.size(); ++i) s += (i ? "x" : "") + std::to_string(shape[i]);
    return s;
}

struct Session {
    std::string model_path;
    Manifest manifest;
    cv::dnn::Net net;
    std::vector<cv::Mat> in_blobs;
    std::vector<cv::String> out_names;
    std::vector<cv::Mat> out_blobs;

    // Feeds the input tensors' bytes (or zeros for the dry run) and runs the network.
    int Forward(const std::vector<const uint8_t*>& inputs) {
        for (size_t i = 0; i < manifest.inputs.size(); ++i) {
            const TensorDesc& s = manifest.inputs[i];
            if (s.layout == Layout::kUnused) continue;
            if (inputs[i] != nullptr) BytesToBlob(s, inputs[i], &in_blobs[i]);
            net.setInput(in_blobs[i], s.name);
        }
        net.forward(out_blobs, out_names);
        for (size_t i = 0; i < manifest.outputs.size(); ++i) {
            const std::vector<int> want = BlobShape(manifest.outputs[i]);
            const cv::Mat& got = out_blobs[i];
            const bool same = got.dims == static_cast<int>(want.size()) && got.type() == CV_32F &&
                              std::equal(want.begin(), want.end(), got.size.p);
            if (!same) {
                Error("%s: output \"%s\" is %s, the manifest says %s", model_path.c_str(),
                      manifest.outputs[i].name.c_str(), ShapeText(got).c_str(), ShapeText(want).c_str());
                return kBadModel;
            }
        }
        return kOk;
    }
};

// Sessions alive in any interpreter, so that the tensor factories can check the one they are given.
std::mutex g_sessions_lock;
std::set<const Session*> g_sessions;

bool SessionAlive(const Session* s) {
    std::lock_guard<std::mutex> lock(g_sessions_lock);
    return g_sessions.count(s) != 0;
}

// Thread count for OpenCV from the environment; all cores when unset.
bool ApplyThreadCount() {
    const char* text = std::getenv(kThreadsVariable);
    if (text == nullptr || *text == '\0') {
        cv::setNumThreads(cv::getNumberOfCPUs());
        return true;
    }
    char* end = nullptr;
    errno = 0;
    const long n = std::strtol(text, &end, 10);
    if (errno != 0 || *end != '\0' || n < 1 || n > 1024) {
        Error("%s=\"%s\" is not a thread count (1..1024)", kThreadsVariable, text);
        return false;
    }
    cv::setNumThreads(static_cast<int>(n));
    return true;
}

class Interpreter : public PXRT::Interpreter {
  public:
    ~Interpreter() override {
        std::lock_guard<std::mutex> lock(g_sessions_lock);
        for (const auto& s : sessions_) g_sessions.erase(s.first);
    }

    int CreateSession(const char* model_path, int device, void** session, const PXRT::SessionOptions* options,
                      int flags) override {
        if (session == nullptr) {
            Error("CreateSession: no place for the session");
            return kBadArgument;
        }
        *session = nullptr;
        QuietOpenCv quiet;
        try {
            auto s = std::make_unique<Session>();
            s->model_path = model_path ? model_path : "";
            std::string error;
            if (!LoadManifest(model_path, &s->manifest, &error)) {
                Error("%s", error.c_str());
                return kBadModel;
            }
            if (!ApplyThreadCount()) return kBadArgument;
            if (access(s->manifest.onnx_path.c_str(), R_OK) != 0) {
                Error("%s: cannot read the network %s", model_path, s->manifest.onnx_path.c_str());
                return kBadModel;
            }
            s->net = cv::dnn::readNetFromONNX(s->manifest.onnx_path);
            s->net.setPreferableBackend(cv::dnn::DNN_BACKEND_OPENCV);
            s->net.setPreferableTarget(cv::dnn::DNN_TARGET_CPU);
            for (const TensorDesc& t : s->manifest.inputs) {
                s->in_blobs.emplace_back(BlobShape(t), CV_32F, cv::Scalar(0));
            }
            for (const TensorDesc& t : s->manifest.outputs) s->out_names.push_back(t.name);
            // A dry run on zeros: names and shapes that do not fit the network fail here, not per frame.
            const int ret = s->Forward(std::vector<const uint8_t*>(s->manifest.inputs.size(), nullptr));
            if (ret != kOk) return ret;
            Session* raw = s.get();
            {
                std::lock_guard<std::mutex> lock(g_sessions_lock);
                g_sessions.insert(raw);
            }
            sessions_.emplace(raw, std::move(s));
            *session = raw;
            return kOk;
        } catch (const cv::Exception& e) {
            Error("%s: OpenCV: %s", model_path ? model_path : "(null)", e.what());
        } catch (const std::exception& e) {
            Error("%s: %s", model_path ? model_path : "(null)", e.what());
        } catch (...) {
            Error("%s: unknown exception", model_path ? model_path : "(null)");
        }
        return kBadModel;
    }

    int Reserved3() override { return -1; }

    int ReleaseSession(void* session) override {
        auto it = sessions_.find(static_cast<Session*>(session));
        if (it == sessions_.end()) {
            Error("ReleaseSession: %p is not a session of this interpreter", session);
            return kBadArgument;
        }
        {
            std::lock_guard<std::mutex> lock(g_sessions_lock);
            g_sessions.erase(it->first);
        }
        sessions_.erase(it);
        return kOk;
    }

    int Reserved5() override { return -1; }

    int Run(void* session, PXRT::TensorArray* inputs, PXRT::TensorArray* outputs) override {
        Session* s = Find(session, "Run");
        if (s == nullptr) return kBadArgument;
        if (inputs == nullptr || outputs == nullptr) {
            Error("Run: no tensor array");
            return kBadArgument;
        }
        std::vector<const uint8_t*> in_bytes;
        std::vector<uint8_t*> out_bytes;
        if (!Check(*s, *inputs, s->manifest.inputs, "input", &in_bytes) ||
            !Check(*s, *outputs, s->manifest.outputs, "output", &out_bytes)) {
            return kBadTensors;
        }
        QuietOpenCv quiet;
        try {
            const auto t0 = std::chrono::steady_clock::now();
            const int ret = s->Forward(in_bytes);
            g_inference_us += static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(
                                                        std::chrono::steady_clock::now() - t0)
                                                        .count());
            g_inference_runs++;
            if (ret != kOk) return ret;
            for (size_t i = 0; i < out_bytes.size(); ++i) {
                BlobToBytes(s->manifest.outputs[i], s->out_blobs[i], out_bytes[i]);
            }
            return kOk;
        } catch (const cv::Exception& e) {
            Error("Run %s: OpenCV: %s", s->model_path.c_str(), e.what());
        } catch (const std::exception& e) {
            Error("Run %s: %s", s->model_path.c_str(), e.what());
        } catch (...) {
            Error("Run %s: unknown exception", s->model_path.c_str());
        }
        return kInferenceFailed;
    }

    int GetSessionInputNumber(void* session, size_t* count) override {
        return Count(session, count, true, "GetSessionInputNumber");
    }
    int GetSessionOutputNumber(void* session, size_t* count) override {
        return Count(session, count, false, "GetSessionOutputNumber");
    }
    int GetSessionInputSize(void* session, size_t index, size_t* bytes) override {
        return Size(session, index, bytes, true, "GetSessionInputSize");
    }
    int GetSessionOutputSize(void* session, size_t index, size_t* bytes) override {
        return Size(session, index, bytes, false, "GetSessionOutputSize");
    }

    const char* GetVersion() override { return "pxrt-reference 1.0 (OpenCV " CV_VERSION ")"; }

  private:
    Session* Find(void* session, const char* op) {
        auto it = sessions_.find(static_cast<Session*>(session));
        if (it != sessions_.end()) return it->second.get();
        Error("%s: %p is not a session of this interpreter", op, session);
        return nullptr;
    }

    int Count(void* session, size_t* count, bool input, const char* op) {
        Session* s = Find(session, op);
        if (s == nullptr) return kBadArgument;
        if (count == nullptr) {
            Error("%s: null result pointer", op);
            return kBadArgument;
        }
        *count = (input ? s->manifest.inputs : s->manifest.outputs).size();
        return kOk;
    }

    int Size(void* session, size_t index, size_t* bytes, bool input, const char* op) {
        Session* s = Find(session, op);
        if (s == nullptr) return kBadArgument;
        const std::vector<TensorDesc>& descs = input ? s->manifest.inputs : s->manifest.outputs;
        if (bytes == nullptr || index >= descs.size()) {
            Error("%s: index %zu of %zu, or null result pointer", op, index, descs.size());
            return kBadArgument;
        }
        *bytes = descs[index].bytes;
        return kOk;
    }

    // Tensor array against the manifest: count, tensors of this runtime, byte sizes.
    template <typename Ptr>
    static bool Check(const Session& s, const PXRT::TensorArray& array, const std::vector<TensorDesc>& descs,
                      const char* what, std::vector<Ptr>* data) {
        if (array.size() != descs.size()) {
            Error("Run %s: %zu %s tensors given, the manifest has %zu", s.model_path.c_str(), array.size(), what,
                  descs.size());
            return false;
        }
        for (size_t i = 0; i < array.size(); ++i) {
            auto* t = dynamic_cast<Tensor*>(array[i].get());
            if (t == nullptr || t->bytes() != descs[i].bytes) {
                Error("Run %s: %s %zu is %s, the manifest says %zu bytes", s.model_path.c_str(), what, i,
                      t == nullptr ? "missing or foreign" : (std::to_string(t->bytes()) + " bytes").c_str(),
                      descs[i].bytes);
                return false;
            }
            data->push_back(t->data());
        }
        return true;
    }

    std::map<Session*, std::unique_ptr<Session>> sessions_;
};

PXRT::ITensor* CreateTensor(bool input, void* session, size_t bytes, int32_t index, void* buffer, int32_t fd) {
    const char* op = input ? "CreateInputTensor" : "CreateOutputTensor";
    try {
        auto* s = static_cast<const Session*>(session);
        if (!SessionAlive(s)) {
            Error("%s: %p is not a live session", op, session);
            return nullptr;
        }
        const std::vector<TensorDesc>& descs = input ? s->manifest.inputs : s->manifest.outputs;
        if (index < 0 || static_cast<size_t>(index) >= descs.size() || descs[index].bytes != bytes) {
            Error("%s: tensor %d of %zu bytes does not fit %s (%zu tensors)", op, index, bytes, s->model_path.c_str(),
                  descs.size());
            return nullptr;
        }
        return Tensor::Create(bytes, buffer, fd);
    } catch (const std::exception& e) {
        Error("%s: %s", op, e.what());
    }
    return nullptr;
}

}  // namespace
}  // namespace pxrt_ref

extern "C" {

__attribute__((visibility("default"))) PXRT::Interpreter* CreateInterpreter() {
    try {
        return new pxrt_ref::Interpreter();
    } catch (const std::exception& e) {
        pxrt_ref::Error("CreateInterpreter: %s", e.what());
    }
    return nullptr;
}

__attribute__((visibility("default"))) PXRT::ITensor* CreateInputTensor(void* session, size_t bytes, int32_t index,
                                                                        int32_t one, int32_t kind, void* buffer,
                                                                        int32_t fd, int32_t zero) {
    return pxrt_ref::CreateTensor(true, session, bytes, index, buffer, fd);
}

__attribute__((visibility("default"))) PXRT::ITensor* CreateOutputTensor(void* session, size_t bytes, int32_t index,
                                                                         int32_t one, int32_t kind, void* buffer,
                                                                         int32_t fd, int32_t zero) {
    return pxrt_ref::CreateTensor(false, session, bytes, index, buffer, fd);
}

// Not part of the runtime interface: what the networks have cost since the runtime was loaded.
__attribute__((visibility("default"))) void PxrtReferenceInferenceStats(uint64_t* microseconds, uint64_t* runs) {
    if (microseconds != nullptr) *microseconds = pxrt_ref::g_inference_us.load();
    if (runs != nullptr) *runs = pxrt_ref::g_inference_runs.load();
}

}  // extern "C"
