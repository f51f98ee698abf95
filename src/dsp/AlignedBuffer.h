#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <new>
#include <type_traits>

namespace dsp {

/// A fixed number of numbers, 0 at first, that begin where a vector register may be loaded from.
template <typename Number>
class AlignedBuffer {
    static_assert(std::is_arithmetic_v<Number>);

public:
    AlignedBuffer() = default;
    explicit AlignedBuffer(std::size_t size)
        : size_(size), data_(new (kAlignment) Number[size > 0 ? size : 1]()) {}

    [[nodiscard]] std::size_t size() const { return size_; }
    [[nodiscard]] Number* data() { return data_.get(); }
    [[nodiscard]] const Number* data() const { return data_.get(); }
    Number& operator[](std::size_t index) { return data_[index]; }
    const Number& operator[](std::size_t index) const { return data_[index]; }

    void clear() { std::fill_n(data_.get(), size_, Number{}); }

private:
    static constexpr std::align_val_t kAlignment{64};

    struct Free {
        void operator()(Number* numbers) const { ::operator delete[](numbers, kAlignment); }
    };

    std::size_t size_{0};
    std::unique_ptr<Number[], Free> data_;
};

}  // namespace dsp
