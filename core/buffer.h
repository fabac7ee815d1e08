// SPDX-License-Identifier: MIT
// Sample buffers: planar blocks of C rows, the form in which audio passes between stages.
//
// Channel c starts at data + capacity * c. The capacity is both the length and the stride of a row, and is always rounded up
// to whole 64-byte lines, so that every row of every buffer starts on a 64-byte boundary. `size` counts the valid samples
// of each row; the stage that writes a buffer sets it.
#pragma once

#include "core/alignment.h"
#include "core/kernels.h"
#include "core/rt_alloc.h"

#include <array>
#include <concepts>
#include <limits>
#include <new>
#include <stdexcept>
#include <utility>
#include <vector>

namespace quorel {

// A buffer without storage was used: it was moved from.
class UninitializedBuffer : public std::exception {
public:
    const char* what() const noexcept override { return "Buffer not initialized"; }
};

// Asks for a zeroed buffer of the same capacity as another one.
struct SameCapacity {};

template <typename T, std::size_t C>
class Buffer {
    static_assert(std::same_as<T, float> || std::same_as<T, Complex>);

public:
    // Zeroed; the capacity in samples is rounded up, size is 0. A capacity of 0 fails with UninitializedBuffer.
    explicit Buffer(std::uint64_t capacity);
    Buffer(SameCapacity, const Buffer& other) : Buffer(other.capacity_) {}

    // One row that holds a copy of the samples.
    explicit Buffer(const std::vector<float>& samples) requires(std::same_as<T, float>&& C == 1);

    Buffer(Buffer&& other) noexcept;
    Buffer& operator=(Buffer&& other) noexcept;

    T* channel(std::size_t c) { return checked() + capacity_ * c; }
    const T* channel(std::size_t c) const { return checked() + capacity_ * c; }

    // Zeroes every row over its full capacity and leaves the size.
    void clear();

    std::uint64_t capacity() const noexcept { return capacity_; }
    std::uint64_t size() const noexcept { return size_; }
    void setSize(std::uint64_t n) noexcept { size_ = n; }

    // `n` rounded up to whole 64-byte lines of samples.
    static constexpr std::uint64_t rounded(std::uint64_t n) noexcept { return roundedUp(n, cacheLine / sizeof(T)); }

private:
    T* checked() const
    {
        if (data == nullptr)
            throw UninitializedBuffer();
        return data.get();
    }

    static T* allocate(std::uint64_t capacity);

    std::uint64_t capacity_; // samples in a row
    std::uint64_t size_ = 0; // valid samples in a row
    RtPointer<T> data;
};

// Sample `first` of every row, as what works on several rows at once takes them.
template <typename T, std::size_t C>
std::array<const T*, C> rows(const Buffer<T, C>& buffer, std::uint64_t first = 0);
template <typename T, std::size_t C>
std::array<T*, C> rows(Buffer<T, C>& buffer, std::uint64_t first = 0);

// A block of complex rows.
template <std::size_t C>
using SpectrumBuffer = Buffer<Complex, C>;

// A float buffer that retains `overlap` samples of history ahead of each block. Its size counts both.
template <std::size_t C>
class PaddedBuffer : public Buffer<float, C> {
public:
    // Both arguments in samples, both rounded up to a multiple of 16. Fails when capacity - overlap < overlap.
    // Required: the difference is unsigned, so an overlap beyond the capacity wraps and is accepted.
    PaddedBuffer(std::uint64_t capacity, std::uint64_t overlap);

    std::uint64_t overlap() const noexcept { return overlap_; }

    // The samples of the new block, without the history.
    std::uint64_t validFrames() const noexcept { return this->size() < overlap_ ? 0 : this->size() - overlap_; }

    // Moves the last `overlap` samples of each row to its front and clears what follows: ready for the next block.
    void slide();

private:
    std::uint64_t overlap_; // samples of history
};

// ---------------------------------------------------------------------------------------------------------------------

template <typename T, std::size_t C>
Buffer<T, C>::Buffer(std::uint64_t capacity) : capacity_(rounded(capacity)), data(allocate(capacity_))
{
    clear();
}

template <typename T, std::size_t C>
Buffer<T, C>::Buffer(const std::vector<float>& samples) requires(std::same_as<T, float>&& C == 1) : Buffer(samples.size())
{
    check(ippsCopy_32f(samples.data(), channel(0), length32(samples.size())));
    size_ = samples.size();
}

template <typename T, std::size_t C>
Buffer<T, C>::Buffer(Buffer&& other) noexcept
    : capacity_(std::exchange(other.capacity_, 0)), size_(std::exchange(other.size_, 0)), data(std::move(other.data))
{
}

template <typename T, std::size_t C>
Buffer<T, C>& Buffer<T, C>::operator=(Buffer&& other) noexcept
{
    if (this != &other) {
        data = std::move(other.data);
        capacity_ = std::exchange(other.capacity_, 0);
        size_ = std::exchange(other.size_, 0);
    }
    return *this;
}

template <typename T, std::size_t C>
void Buffer<T, C>::clear()
{
    T* all = checked();
    if constexpr (std::same_as<T, float>)
        check(ippsZero_32f(all, length32(capacity_ * C)));
    else
        check(ippsZero_32fc(all, length32(capacity_ * C)));
}

template <typename T, std::size_t C>
T* Buffer<T, C>::allocate(std::uint64_t capacity)
{
    if (capacity > std::numeric_limits<std::uint64_t>::max() / (sizeof(T) * C))
        throw std::bad_alloc();
    return static_cast<T*>(rt_alloc(capacity * sizeof(T) * C));
}

template <typename T, std::size_t C>
std::array<const T*, C> rows(const Buffer<T, C>& buffer, std::uint64_t first)
{
    std::array<const T*, C> starts;
    for (std::size_t c = 0; c < C; ++c)
        starts[c] = buffer.channel(c) + first;
    return starts;
}

template <typename T, std::size_t C>
std::array<T*, C> rows(Buffer<T, C>& buffer, std::uint64_t first)
{
    std::array<T*, C> starts;
    for (std::size_t c = 0; c < C; ++c)
        starts[c] = buffer.channel(c) + first;
    return starts;
}

template <std::size_t C>
PaddedBuffer<C>::PaddedBuffer(std::uint64_t capacity, std::uint64_t overlap)
    : Buffer<float, C>(capacity), overlap_(this->rounded(overlap))
{
    if (this->capacity() - overlap_ < overlap_)
        throw std::invalid_argument("PaddedBuffer: capacity > overlap failed");
}

template <std::size_t C>
void PaddedBuffer<C>::slide()
{
    const auto size = this->size();
    const auto capacity = this->capacity();
    if (overlap_ > capacity && capacity > 0) // the history would overrun its row; one that was moved from has none
        throw ipps::Error(ippStsSizeErr);

    for (std::size_t c = 0; c < C; ++c) {
        float* row = this->channel(c);
        const float* source = row + (size >= overlap_ ? size - overlap_ : 0);
        check(ippsMove_32f(source, row, length32(overlap_)));
        check(ippsZero_32f(row + overlap_, length32(capacity - overlap_)));
    }
    this->setSize(overlap_);
}

} // namespace quorel
