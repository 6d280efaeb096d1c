// Control API of the test runtime: tests script sessions, inject failures, watch every call the
// library makes and count the objects still alive.
//
// The objects and this state live in libpxrt_test_control.so, which stays loaded for the life of the
// process; libpxrt_test_runtime.so only carries the three entry symbols. The library under test closes
// the runtime before it releases tensors, sessions and the interpreter, so their code must not go
// away with it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "interface/pxrt_interface.h"

namespace pxrt_test {

enum class Op : int {
    kCreateInterpreter,
    kCreateSession,
    kReleaseSession,
    kRun,
    kGetSessionInputNumber,
    kGetSessionOutputNumber,
    kGetSessionInputSize,
    kGetSessionOutputSize,
    kGetVersion,
    kCreateInputTensor,
    kCreateOutputTensor,
    kOpCount,
};
const char* OpName(Op op);

// Returned by Run when the tensors it is given do not fit the session.
constexpr int kRunMismatch = -100;
// Returned by the size queries for an index past the session's count.
constexpr int kBadIndex = -101;
constexpr char kVersion[] = "pxrt-test 1.0";

// Byte sizes of a session's inputs and outputs (their counts are the vector lengths). A model without
// a layout of its own takes the default, unless its file is a test-runtime model:
//   pxrt-test-model
//   input <bytes>      (one line per input, in order)
//   output <bytes>     (one line per output)
//   run copy           (optional: without a run hook, Run copies each input to its output)
struct SessionLayout {
    std::vector<size_t> input_bytes{64};
    std::vector<size_t> output_bytes{64};
};

// One call into the runtime, with its arguments and result. For factories and CreateInterpreter the
// result is 0 when an object was returned, -1 for null.
struct Call {
    Op op{};
    int result = 0;
    const void* interpreter = nullptr;
    void* session = nullptr;
    // CreateSession
    std::string model_path;
    bool model_path_null = false;
    int device = 0;
    bool has_options = false;
    std::vector<std::string> output_names;
    int32_t mode[3] = {};
    int32_t boost = 0;
    int64_t reserved0 = 0;
    int64_t reserved1 = 0;
    int flags = 0;
    bool session_out_null = false;
    // size queries
    size_t index = 0;
    // tensor factories
    size_t bytes = 0;
    int32_t tensor_index = 0;
    int32_t one = 0;
    int32_t kind = 0;
    void* buffer = nullptr;
    int32_t fd = 0;
    int32_t zero = 0;
    const void* tensor = nullptr;
    // Run
    size_t inputs = 0;
    size_t outputs = 0;
};

struct Live {
    long interpreters = 0;
    long sessions = 0;  // created and not yet released through ReleaseSession
    long tensors = 0;
    long sessions_dropped = 0;  // still open when their interpreter was destroyed
};

struct TensorInfo {
    bool input = false;
    size_t bytes = 0;
    int32_t index = 0;
    int32_t kind = 0;
    void* session = nullptr;
};

using RunHook = std::function<int(void* session, PXRT::TensorArray* inputs, PXRT::TensorArray* outputs)>;
using CreateSessionHook = std::function<void(const std::string& model_path)>;

// Forgets calls, layouts, failures and hooks. Live objects and load counts are kept.
void Reset();

// Layout of sessions for any model without one of its own.
void SetDefaultLayout(const SessionLayout& layout);
void SetLayout(const std::string& model_path, const SessionLayout& layout);

// After `after` further calls of `op` that are let through, the next `times` calls (-1: all) fail:
// operations with an int result return `result`; CreateInterpreter and the tensor factories return
// null. CreateSession failing with result 0 returns 0 but leaves the session null.
void Fail(Op op, int result, int after = 0, int times = -1);

// Called by Run after its checks, outside any lock; its result is Run's. Without one Run writes nothing
// (or copies, for a model file that says so).
void SetRunHook(RunHook hook);
// Called at the start of CreateSession, outside any lock (it may block).
void SetCreateSessionHook(CreateSessionHook hook);

std::vector<Call> Calls();
std::vector<Call> Calls(Op op);
// Counts every call, recorded or not.
size_t CallCount(Op op);
// Off: calls are only counted, so the runtime itself allocates nothing per call (on by default).
void SetRecording(bool on);

Live LiveObjects();
// Describes a tensor created by this runtime and still alive; false otherwise.
bool Describe(PXRT::ITensor* tensor, TensorInfo* info);

// Times libpxrt_test_runtime.so was mapped and unmapped.
int Loads();
int Unloads();

namespace detail {
// Used by libpxrt_test_runtime.so.
PXRT::Interpreter* CreateInterpreter();
PXRT::ITensor* CreateTensor(bool input, void* session, size_t bytes, int32_t index, int32_t one, int32_t kind,
                            void* buffer, int32_t fd, int32_t zero);
void NoteLoad();
void NoteUnload();
}  // namespace detail

}  // namespace pxrt_test
