// The runtime library the back-ends dlopen: the three entry symbols, forwarding to the control library.
#include "pxrt_test_control.h"

namespace {
__attribute__((constructor)) void OnLoad() {
    pxrt_test::detail::NoteLoad();
}
__attribute__((destructor)) void OnUnload() {
    pxrt_test::detail::NoteUnload();
}
}  // namespace

extern "C" {

__attribute__((visibility("default"))) PXRT::Interpreter* CreateInterpreter() {
    return pxrt_test::detail::CreateInterpreter();
}

__attribute__((visibility("default"))) PXRT::ITensor* CreateInputTensor(void* session, size_t bytes,
                                                                        int32_t index, int32_t one,
                                                                        int32_t kind, void* buffer,
                                                                        int32_t fd, int32_t zero) {
    return pxrt_test::detail::CreateTensor(true, session, bytes, index, one, kind, buffer, fd, zero);
}

// The incomplete variant lacks this symbol, for the binding's dlsym failure.
#ifndef PXRT_TEST_WITHOUT_OUTPUT_FACTORY
__attribute__((visibility("default"))) PXRT::ITensor* CreateOutputTensor(void* session, size_t bytes,
                                                                         int32_t index, int32_t one,
                                                                         int32_t kind, void* buffer,
                                                                         int32_t fd, int32_t zero) {
    return pxrt_test::detail::CreateTensor(false, session, bytes, index, one, kind, buffer, fd, zero);
}
#endif

}  // extern "C"
