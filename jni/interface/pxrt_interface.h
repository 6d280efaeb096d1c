// Interface of the inference runtime that the back-ends load at run time. The runtime is a separate
// library; only the virtual slot order, the record layouts and the factory signatures below bind us.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace PXRT {

class ITensor;
using TensorArray = std::vector<std::shared_ptr<ITensor>>;

// Passed by address to CreateSession; lives on the caller's stack for the call only.
struct SessionOptions {
    std::vector<std::string> output_names;
    int32_t mode[3];
    int32_t boost;
    int64_t reserved0;
    int64_t reserved1;
};

// Slots: 0/1 destructors, 2 CreateSession, 3 unused, 4 ReleaseSession, 5 unused, 6 Run,
// 7..10 session queries, 11 GetVersion.
class Interpreter {
  public:
    virtual ~Interpreter() = default;
    virtual int CreateSession(const char* model_path, int device, void** session,
                              const SessionOptions* options, int flags) = 0;
    virtual int Reserved3() = 0;
    virtual int ReleaseSession(void* session) = 0;
    virtual int Reserved5() = 0;
    virtual int Run(void* session, TensorArray* inputs, TensorArray* outputs) = 0;
    virtual int GetSessionInputNumber(void* session, size_t* count) = 0;
    virtual int GetSessionOutputNumber(void* session, size_t* count) = 0;
    virtual int GetSessionInputSize(void* session, size_t index, size_t* bytes) = 0;
    virtual int GetSessionOutputSize(void* session, size_t index, size_t* bytes) = 0;
    virtual const char* GetVersion() = 0;
};

// Slots: 0 unused, 1/2 destructors, 3 GetData.
class ITensor {
  public:
    virtual int Reserved0() = 0;
    virtual ~ITensor() = default;
    virtual void* GetData() = 0;
};

}  // namespace PXRT

// Entry symbols of the runtime library ("CreateInterpreter", "CreateInputTensor", "CreateOutputTensor").
// Tensor factories: session, byte size, tensor index, 1, kind code, external buffer (or null), its file
// descriptor (or -1), 0.
using PXRTCreateInterpreterFn = PXRT::Interpreter* (*)();
using PXRTCreateTensorFn = PXRT::ITensor* (*)(void* session, size_t bytes, int32_t index, int32_t one,
                                              int32_t kind, void* buffer, int32_t fd, int32_t zero);
