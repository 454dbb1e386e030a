#pragma once

#if defined(__SSE__)
#include <xmmintrin.h>
#endif
#include <cstdint>

namespace kracore::utility {

/// While it lives, this thread's denormal results and operands count as zero; the destructor restores
/// the caller's state. Denormals would otherwise cost up to a hundred times a normal operation. [any]
class FlushToZeroScope {
public:
    FlushToZeroScope() : saved_(Read()) { Write(saved_ | kBits); }
    ~FlushToZeroScope() { Write(saved_); }
    FlushToZeroScope(const FlushToZeroScope&) = delete;
    FlushToZeroScope& operator=(const FlushToZeroScope&) = delete;

private:
#if defined(__SSE__)
    using Word = unsigned int;
    static constexpr Word kBits = 0x8040;  // MXCSR: flush-to-zero, denormals-are-zero
    static Word Read() { return _mm_getcsr(); }
    static void Write(Word word) { _mm_setcsr(word); }
#elif defined(__aarch64__)
    using Word = std::uint64_t;
    static constexpr Word kBits = Word{1} << 24;  // FPCR.FZ
    static Word Read() {
        Word word;
        asm volatile("mrs %0, fpcr" : "=r"(word));
        return word;
    }
    static void Write(Word word) { asm volatile("msr fpcr, %0" : : "r"(word)); }
#else
    using Word = unsigned int;
    static constexpr Word kBits = 0;
    static Word Read() { return 0; }
    static void Write(Word) {}
#endif

    Word saved_;
};

}  // namespace kracore::utility
