// The traced memory operations' size rules, tracing on: a sequence of allocations, look-ups, copies and
// fills over up to four live blocks, each operation and its sizes taken from the input. Block sizes
// passed to the copies are the true ones (a wrong size is the caller's to get right); amounts, offsets
// and element sizes are anything, small or near the top of the range.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <mutex>

#include "algocore/memory/ALGOGalloc.h"
#include "algocore/memory/ALGONativeGalloc.h"
#include "fuzz_util.h"
#include "interface/VideoAIProc.h"

namespace {

using vemo::Native;

struct Block {
    unsigned char* p = nullptr;
    unsigned long size = 0;
};

constexpr int kBlocks = 4;
constexpr unsigned long kMaxBlock = 4096;

// Small most of the time; any 64-bit value when the selector's top bit is set.
unsigned long Amount(vai_fuzz::Reader& in, uint8_t sel, int bit) {
    if (sel & (1u << bit)) return in.Take<uint64_t>();
    return in.Take<uint16_t>() % (kMaxBlock + 64);
}

// [p, p + n) lies inside block b.
bool Inside(const Block& b, const void* p, unsigned long n) {
    const auto start = reinterpret_cast<uintptr_t>(b.p), at = reinterpret_cast<uintptr_t>(p);
    return at >= start && at - start <= b.size && n <= b.size - (at - start);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    vai_fuzz::QuietLog();
    vemo::AlgorithmMemory::memTraceInit(256);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    vai_fuzz::Reader in(data, size);
    Block blocks[kBlocks];
    for (int step = 0; step < 64 && in.Left() > 0; ++step) {
        const uint8_t op = in.Byte(), sel = in.Byte();
        Block& a = blocks[sel % kBlocks];
        Block& b = blocks[(sel >> 2) % kBlocks];
        switch (op % 9) {
            case 0:
            case 1: {
                if (a.p != nullptr) break;
                const unsigned long n = in.Take<uint16_t>() % kMaxBlock;
                const unsigned long count = op % 9 == 1 ? in.Byte() % 8 : 1;
                a.p = static_cast<unsigned char*>(op % 9 == 0 ? Native::malloc(n, __FILE__, __LINE__)
                                                             : Native::calloc(count, n, __FILE__, __LINE__));
                a.size = a.p != nullptr ? n * count : 0;
                if (n * count == 0) FUZZ_CHECK(a.p == nullptr || op % 9 == 1);
                if (a.p != nullptr && a.size == 0) {
                    Native::free(a.p, __FILE__, __LINE__);
                    a.p = nullptr;
                }
                break;
            }
            case 2: {
                const unsigned long n = in.Take<uint16_t>() % kMaxBlock;
                if (n == 0) break;  // realloc to 0 returns null and keeps the block: not for this sequence
                void* q = Native::realloc(a.p, n, __FILE__, __LINE__);
                FUZZ_CHECK(q != nullptr);
                a.p = static_cast<unsigned char*>(q);
                a.size = n;
                break;
            }
            case 3:
                Native::free(a.p, __FILE__, __LINE__);
                a = Block{};
                break;
            case 4: {
                if (a.p == nullptr) break;
                const unsigned long offset = Amount(in, sel, 7), element = Amount(in, sel, 6) % 17;
                const unsigned long n = Amount(in, sel, 5);
                void* r = Native::get(a.p, offset, element, n, __FILE__, __LINE__);
                if (r != nullptr) FUZZ_CHECK(Inside(a, r, n));
                break;
            }
            case 5: {
                if (a.p == nullptr || b.p == nullptr) break;
                const unsigned long n = Amount(in, sel, 7);
                void* r = Native::memcpy(a.p, b.p, a.size, b.size, n, __FILE__, __LINE__);
                if (r != nullptr) FUZZ_CHECK(r == a.p);
                break;
            }
            case 6: {
                if (a.p == nullptr || b.p == nullptr) break;
                const unsigned long dst_off = Amount(in, sel, 7), src_off = Amount(in, sel, 6);
                const unsigned long dst_el = in.Byte() % 9, src_el = in.Byte() % 9;
                const unsigned long n = Amount(in, sel, 5);
                Native::memncpy(a.p, b.p, dst_off, dst_el, a.size, src_off, src_el, b.size, n, __FILE__,
                                __LINE__);
                break;
            }
            case 7: {
                if (a.p == nullptr) break;
                // A fill has no size to check against but the caller's own.
                Native::memset(a.p, in.Byte(), in.Take<uint16_t>() % (a.size + 1), __FILE__, __LINE__);
                break;
            }
            case 8: {
                if (a.p == nullptr || b.p == nullptr) break;
                const unsigned long n = in.Take<uint16_t>() % (std::min(a.size, b.size) + 1);
                Native::defectMemcpy(a.p, static_cast<const void*>(b.p), n, __FILE__, __LINE__);
                break;
            }
        }
    }
    for (Block& b : blocks) Native::free(b.p, __FILE__, __LINE__);
    FUZZ_CHECK(vemo::AlgorithmMemory::getInternalMemSize() == 0);
    std::lock_guard<std::mutex> lock(vemo::AlgorithmMemory::sMapLock);
    FUZZ_CHECK(vemo::AlgorithmMemory::sMemMap.empty());
    return 0;
}
