#include "pxrt_test_control.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <map>
#include <mutex>
#include <set>
#include <sstream>

namespace pxrt_test {

namespace {

struct Failure {
    int result = 0;
    int after = 0;
    int times = 0;  // -1: forever
};

struct State {
    std::mutex lock;
    SessionLayout default_layout;
    std::map<std::string, SessionLayout> layouts;
    std::map<Op, Failure> failures;
    RunHook run_hook;
    CreateSessionHook create_session_hook;
    std::vector<Call> calls;
    size_t counts[static_cast<int>(Op::kOpCount)] = {};
    bool recording = true;
    std::set<const void*> interpreters;
    std::set<const void*> sessions;
    std::set<const void*> tensors;
    long sessions_dropped = 0;
    int loads = 0;
    int unloads = 0;
};

// Never destroyed: objects may be released from static destructors or detached threads at exit.
State& S() {
    static State* s = new State;
    return *s;
}

// Under the lock.
void Record(State& s, const Call& c) {
    ++s.counts[static_cast<int>(c.op)];
    if (s.recording) s.calls.push_back(c);
}

// Under the lock: true when this call of `op` is to fail, with the result to return.
bool ShouldFail(State& s, Op op, int* result) {
    auto it = s.failures.find(op);
    if (it == s.failures.end()) return false;
    Failure& f = it->second;
    if (f.after > 0) {
        --f.after;
        return false;
    }
    if (f.times == 0) return false;
    if (f.times > 0) --f.times;
    *result = f.result;
    return true;
}

class TestInterpreter;

struct TestSession {
    TestInterpreter* owner;
    std::string model;
    SessionLayout layout;
    bool copy = false;  // Run copies each input to its output when no hook is set
};

// A model file of the test runtime: "pxrt-test-model", then "input <bytes>" and "output <bytes>" lines
// in tensor order and optionally "run copy". False when `path` is no such file.
bool ReadModelFile(const std::string& path, SessionLayout* layout, bool* copy) {
    std::ifstream in(path);
    std::string line;
    if (!std::getline(in, line) || line != "pxrt-test-model") return false;
    SessionLayout s;
    s.input_bytes.clear();
    s.output_bytes.clear();
    bool c = false;
    while (std::getline(in, line)) {
        std::istringstream words(line);
        std::string key, value;
        words >> key >> value;
        if (key == "input") s.input_bytes.push_back(std::strtoul(value.c_str(), nullptr, 10));
        if (key == "output") s.output_bytes.push_back(std::strtoul(value.c_str(), nullptr, 10));
        if (key == "run") c = value == "copy";
    }
    *layout = s;
    *copy = c;
    return true;
}

class TestTensor : public PXRT::ITensor {
  public:
    // A tensor over a caller's buffer uses it, as the real runtime does; others own their bytes.
    TestTensor(const TensorInfo& info, void* buffer)
        : info_(info), buffer_(buffer), data_(buffer != nullptr ? 0 : info.bytes) {}
    ~TestTensor() override {
        State& s = S();
        std::lock_guard<std::mutex> g(s.lock);
        s.tensors.erase(this);
    }
    int Reserved0() override { return -1; }
    void* GetData() override { return buffer_ != nullptr ? buffer_ : data_.data(); }
    const TensorInfo& info() const { return info_; }

  private:
    TensorInfo info_;
    void* buffer_;
    std::vector<unsigned char> data_;
};

class TestInterpreter : public PXRT::Interpreter {
  public:
    ~TestInterpreter() override {
        State& s = S();
        std::lock_guard<std::mutex> g(s.lock);
        for (TestSession* session : open_) {
            s.sessions.erase(session);
            ++s.sessions_dropped;
            delete session;
        }
        s.interpreters.erase(this);
    }

    int CreateSession(const char* model_path, int device, void** session, const PXRT::SessionOptions* options,
                      int flags) override {
        State& s = S();
        CreateSessionHook hook;
        {
            std::lock_guard<std::mutex> g(s.lock);
            hook = s.create_session_hook;
        }
        const std::string model = model_path != nullptr ? model_path : "";
        if (hook) hook(model);

        std::lock_guard<std::mutex> g(s.lock);
        Call c;
        c.op = Op::kCreateSession;
        c.interpreter = this;
        c.model_path = model;
        c.model_path_null = model_path == nullptr;
        c.device = device;
        c.flags = flags;
        c.session_out_null = session == nullptr;
        if (options != nullptr) {
            c.has_options = true;
            c.output_names = options->output_names;
            for (int i = 0; i < 3; ++i) c.mode[i] = options->mode[i];
            c.boost = options->boost;
            c.reserved0 = options->reserved0;
            c.reserved1 = options->reserved1;
        }
        int result = 0;
        if (ShouldFail(s, Op::kCreateSession, &result)) {
            c.result = result;
        } else if (session == nullptr || model.empty()) {
            c.result = -2;  // nothing to open
        } else {
            auto it = s.layouts.find(model);
            auto* created =
                new TestSession{this, model, it != s.layouts.end() ? it->second : s.default_layout};
            if (it == s.layouts.end()) ReadModelFile(model, &created->layout, &created->copy);
            open_.insert(created);
            s.sessions.insert(created);
            *session = created;
            c.session = created;
        }
        Record(s, c);
        return c.result;
    }

    int Reserved3() override { return -1; }
    int Reserved5() override { return -1; }

    int ReleaseSession(void* session) override {
        State& s = S();
        std::lock_guard<std::mutex> g(s.lock);
        Call c;
        c.op = Op::kReleaseSession;
        c.interpreter = this;
        c.session = session;
        auto* ts = static_cast<TestSession*>(session);
        if (open_.erase(ts) == 0) {
            c.result = -3;  // not a session of this interpreter
        } else {
            s.sessions.erase(ts);
            delete ts;
        }
        Record(s, c);
        return c.result;
    }

    int Run(void* session, PXRT::TensorArray* inputs, PXRT::TensorArray* outputs) override {
        State& s = S();
        RunHook hook;
        {
            std::lock_guard<std::mutex> g(s.lock);
            Call c;
            c.op = Op::kRun;
            c.interpreter = this;
            c.session = session;
            c.inputs = inputs != nullptr ? inputs->size() : 0;
            c.outputs = outputs != nullptr ? outputs->size() : 0;
            int result = 0;
            if (ShouldFail(s, Op::kRun, &result)) {
                c.result = result;
            } else if (!Fits(s, session, inputs, true) || !Fits(s, session, outputs, false)) {
                c.result = kRunMismatch;
            }
            Record(s, c);
            if (c.result != 0) return c.result;
            hook = s.run_hook;
        }
        if (hook) return hook(session, inputs, outputs);
        if (static_cast<TestSession*>(session)->copy) {
            for (size_t i = 0; i < inputs->size() && i < outputs->size(); ++i) {
                auto* in = static_cast<TestTensor*>((*inputs)[i].get());
                auto* out = static_cast<TestTensor*>((*outputs)[i].get());
                const size_t n = std::min(in->info().bytes, out->info().bytes);
                std::copy_n(static_cast<unsigned char*>(in->GetData()), n,
                            static_cast<unsigned char*>(out->GetData()));
            }
        }
        return 0;
    }

    int GetSessionInputNumber(void* session, size_t* count) override {
        return Query(Op::kGetSessionInputNumber, session, 0, count);
    }
    int GetSessionOutputNumber(void* session, size_t* count) override {
        return Query(Op::kGetSessionOutputNumber, session, 0, count);
    }
    int GetSessionInputSize(void* session, size_t index, size_t* bytes) override {
        return Query(Op::kGetSessionInputSize, session, index, bytes);
    }
    int GetSessionOutputSize(void* session, size_t index, size_t* bytes) override {
        return Query(Op::kGetSessionOutputSize, session, index, bytes);
    }

    const char* GetVersion() override {
        State& s = S();
        std::lock_guard<std::mutex> g(s.lock);
        Call c;
        c.op = Op::kGetVersion;
        c.interpreter = this;
        Record(s, c);
        return kVersion;
    }

  private:
    // Under the lock.
    bool Fits(State& s, void* session, PXRT::TensorArray* tensors, bool input) {
        auto* ts = static_cast<TestSession*>(session);
        if (tensors == nullptr || open_.count(ts) == 0) return false;
        const std::vector<size_t>& bytes = input ? ts->layout.input_bytes : ts->layout.output_bytes;
        if (tensors->size() != bytes.size()) return false;
        for (size_t i = 0; i < bytes.size(); ++i) {
            auto* t = static_cast<TestTensor*>((*tensors)[i].get());
            if (t == nullptr || s.tensors.count(t) == 0) return false;
            const TensorInfo& info = t->info();
            if (info.input != input || info.bytes != bytes[i] || info.session != session) return false;
        }
        return true;
    }

    int Query(Op op, void* session, size_t index, size_t* out) {
        State& s = S();
        std::lock_guard<std::mutex> g(s.lock);
        Call c;
        c.op = op;
        c.interpreter = this;
        c.session = session;
        c.index = index;
        auto* ts = static_cast<TestSession*>(session);
        int result = 0;
        if (ShouldFail(s, op, &result)) {
            c.result = result;
        } else if (out == nullptr || open_.count(ts) == 0) {
            c.result = -3;
        } else {
            const SessionLayout& layout = ts->layout;
            switch (op) {
                case Op::kGetSessionInputNumber:
                    *out = layout.input_bytes.size();
                    break;
                case Op::kGetSessionOutputNumber:
                    *out = layout.output_bytes.size();
                    break;
                case Op::kGetSessionInputSize:
                    if (index < layout.input_bytes.size())
                        *out = layout.input_bytes[index];
                    else
                        c.result = kBadIndex;
                    break;
                default:
                    if (index < layout.output_bytes.size())
                        *out = layout.output_bytes[index];
                    else
                        c.result = kBadIndex;
                    break;
            }
        }
        Record(s, c);
        return c.result;
    }

    std::set<TestSession*> open_;  // guarded by the state lock
};

}  // namespace

const char* OpName(Op op) {
    switch (op) {
        case Op::kCreateInterpreter:
            return "CreateInterpreter";
        case Op::kCreateSession:
            return "CreateSession";
        case Op::kReleaseSession:
            return "ReleaseSession";
        case Op::kRun:
            return "Run";
        case Op::kGetSessionInputNumber:
            return "GetSessionInputNumber";
        case Op::kGetSessionOutputNumber:
            return "GetSessionOutputNumber";
        case Op::kGetSessionInputSize:
            return "GetSessionInputSize";
        case Op::kGetSessionOutputSize:
            return "GetSessionOutputSize";
        case Op::kGetVersion:
            return "GetVersion";
        case Op::kCreateInputTensor:
            return "CreateInputTensor";
        case Op::kCreateOutputTensor:
            return "CreateOutputTensor";
        case Op::kOpCount:
            break;
    }
    return "?";
}

void Reset() {
    State& s = S();
    RunHook old_run;
    CreateSessionHook old_create;
    {
        std::lock_guard<std::mutex> g(s.lock);
        s.default_layout = SessionLayout{};
        s.layouts.clear();
        s.failures.clear();
        old_run.swap(s.run_hook);
        old_create.swap(s.create_session_hook);
        s.calls.clear();
        for (size_t& n : s.counts) n = 0;
        s.recording = true;
    }
    // Hooks die outside the lock: they may own objects that call back in.
}

void SetDefaultLayout(const SessionLayout& layout) {
    std::lock_guard<std::mutex> g(S().lock);
    S().default_layout = layout;
}

void SetLayout(const std::string& model_path, const SessionLayout& layout) {
    std::lock_guard<std::mutex> g(S().lock);
    S().layouts[model_path] = layout;
}

void Fail(Op op, int result, int after, int times) {
    std::lock_guard<std::mutex> g(S().lock);
    S().failures[op] = Failure{result, after, times};
}

void SetRunHook(RunHook hook) {
    std::lock_guard<std::mutex> g(S().lock);
    S().run_hook.swap(hook);
}

void SetCreateSessionHook(CreateSessionHook hook) {
    std::lock_guard<std::mutex> g(S().lock);
    S().create_session_hook.swap(hook);
}

std::vector<Call> Calls() {
    std::lock_guard<std::mutex> g(S().lock);
    return S().calls;
}

std::vector<Call> Calls(Op op) {
    std::vector<Call> out;
    for (Call& c : Calls()) {
        if (c.op == op) out.push_back(std::move(c));
    }
    return out;
}

size_t CallCount(Op op) {
    std::lock_guard<std::mutex> g(S().lock);
    return S().counts[static_cast<int>(op)];
}

void SetRecording(bool on) {
    std::lock_guard<std::mutex> g(S().lock);
    S().recording = on;
}

Live LiveObjects() {
    State& s = S();
    std::lock_guard<std::mutex> g(s.lock);
    Live l;
    l.interpreters = static_cast<long>(s.interpreters.size());
    l.sessions = static_cast<long>(s.sessions.size());
    l.tensors = static_cast<long>(s.tensors.size());
    l.sessions_dropped = s.sessions_dropped;
    return l;
}

bool Describe(PXRT::ITensor* tensor, TensorInfo* info) {
    State& s = S();
    std::lock_guard<std::mutex> g(s.lock);
    if (tensor == nullptr || s.tensors.count(tensor) == 0) return false;
    if (info != nullptr) *info = static_cast<TestTensor*>(tensor)->info();
    return true;
}

int Loads() {
    std::lock_guard<std::mutex> g(S().lock);
    return S().loads;
}

int Unloads() {
    std::lock_guard<std::mutex> g(S().lock);
    return S().unloads;
}

namespace detail {

PXRT::Interpreter* CreateInterpreter() {
    State& s = S();
    std::lock_guard<std::mutex> g(s.lock);
    Call c;
    c.op = Op::kCreateInterpreter;
    int result = 0;
    TestInterpreter* created = nullptr;
    if (ShouldFail(s, Op::kCreateInterpreter, &result)) {
        c.result = -1;
    } else {
        created = new TestInterpreter;
        s.interpreters.insert(created);
        c.interpreter = created;
    }
    Record(s, c);
    return created;
}

PXRT::ITensor* CreateTensor(bool input, void* session, size_t bytes, int32_t index, int32_t one, int32_t kind,
                            void* buffer, int32_t fd, int32_t zero) {
    State& s = S();
    std::lock_guard<std::mutex> g(s.lock);
    Call c;
    c.op = input ? Op::kCreateInputTensor : Op::kCreateOutputTensor;
    c.session = session;
    c.bytes = bytes;
    c.tensor_index = index;
    c.one = one;
    c.kind = kind;
    c.buffer = buffer;
    c.fd = fd;
    c.zero = zero;
    int result = 0;
    TestTensor* created = nullptr;
    if (ShouldFail(s, c.op, &result) || s.sessions.count(session) == 0) {
        c.result = -1;
    } else {
        TensorInfo info;
        info.input = input;
        info.bytes = bytes;
        info.index = index;
        info.kind = kind;
        info.session = session;
        created = new TestTensor(info, buffer);
        s.tensors.insert(created);
        c.tensor = created;
    }
    Record(s, c);
    return created;
}

void NoteLoad() {
    std::lock_guard<std::mutex> g(S().lock);
    ++S().loads;
}

void NoteUnload() {
    std::lock_guard<std::mutex> g(S().lock);
    ++S().unloads;
}

}  // namespace detail

}  // namespace pxrt_test
