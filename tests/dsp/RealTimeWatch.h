#pragma once

#include <cstddef>

/// Counts what an audio thread must not do: allocations, deallocations and locking of mutexes by
/// the thread that watches, while the object exists. The sanitizers do the same to the same
/// functions, so under them it counts nothing.
class RealTimeWatch {
public:
    static constexpr bool kWorks =
#ifdef VESK_SANITIZED
        false;
#else
        true;
#endif

    RealTimeWatch();
    ~RealTimeWatch();
    RealTimeWatch(const RealTimeWatch&) = delete;
    RealTimeWatch& operator=(const RealTimeWatch&) = delete;

    [[nodiscard]] std::size_t offences() const;
};
