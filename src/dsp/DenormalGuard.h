#pragma once

#include <cstdint>

#ifdef __SSE2__
#include <immintrin.h>
#endif

namespace dsp {

/// While it exists, the thread's arithmetic takes denormal numbers, which are slow on most
/// processors, for 0: a decaying filter costs the same to its end.
class DenormalGuard {
public:
    DenormalGuard() : previous_(read()) { write(previous_ | kFlushToZero); }
    ~DenormalGuard() { write(previous_); }
    DenormalGuard(const DenormalGuard&) = delete;
    DenormalGuard& operator=(const DenormalGuard&) = delete;

private:
#if defined(__SSE2__)
    using Register = std::uint32_t;
    static constexpr Register kFlushToZero = 0x8040;  // results, and operands
    static Register read() {
        return _mm_getcsr();
    }
    static void write(Register value) {
        _mm_setcsr(value);
    }
#elif defined(__aarch64__)
    using Register = std::uint64_t;
    static constexpr Register kFlushToZero = std::uint64_t{1} << 24;
    static Register read() {
        Register value = 0;
        __asm__ volatile("mrs %0, fpcr" : "=r"(value));
        return value;
    }
    static void write(Register value) {
        __asm__ volatile("msr fpcr, %0" : : "r"(value));
    }
#else
    using Register = std::uint32_t;
    static constexpr Register kFlushToZero = 0;
    static Register read() {
        return 0;
    }
    static void write(Register) {
    }
#endif

    const Register previous_;
};

}  // namespace dsp
