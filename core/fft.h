// SPDX-License-Identifier: MIT
// FFT owns a power-of-two transform: its tables, its work storage and the size tests ahead of the kernels.
//
//   FFT<float>           real samples to and from Pack form; Inv divides by the length
//   FFT<float, Complex>  complex samples, inverse only; nothing divides
//
// Built once, with its path; a run allocates nothing. The work storage is shared by the runs of one object, so an object
// belongs to one thread at a time; it holds nothing between runs.
#pragma once

#include "core/buffer_names.h"
#include "core/kernels.h"
#include "core/rt_alloc.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace quorel {

// What the two variants differ in: their kernels and the scaling that they are built with.
template <typename Sample>
struct FFTKernels;

template <>
struct FFTKernels<float> {
    using Spec = FFTSpec_R_32f;
    static constexpr std::uint32_t flag = fftDivideInverse;
    static constexpr auto getSize = ippsFFTGetSize_R_32f;
    static constexpr auto init = ippsFFTInit_R_32f;
};

template <>
struct FFTKernels<Complex> {
    using Spec = FFTSpec_C_32fc;
    static constexpr std::uint32_t flag = fftDivideNeither;
    static constexpr auto getSize = ippsFFTGetSize_C_32fc;
    static constexpr auto init = ippsFFTInit_C_32fc;
};

// Order and storage, the same for both variants.
template <typename Sample>
class FFTStorage {
public:
    using Kernels = FFTKernels<Sample>;

    // order: base-2 logarithm of the length. What the kernels refuse leaves as ipps::Error.
    explicit FFTStorage(std::uint64_t order);

    FFTStorage(FFTStorage&& other) noexcept;
    FFTStorage& operator=(FFTStorage&& other) noexcept;

    std::uint64_t order() const noexcept { return order_; }
    std::uint64_t length() const noexcept { return length_; }
    std::uint32_t flag() const noexcept { return flag_; }

protected:
    void* work() const noexcept { return workStorage.get(); }

    std::uint64_t order_;                         // base-2 logarithm of the length
    std::uint32_t flag_ = Kernels::flag;          // what is divided by the length
    const typename Kernels::Spec* spec = nullptr; // the ready transform inside specStorage; null once moved from
    RtPointer<std::byte> specStorage;
    RtPointer<std::byte> workStorage;
    std::uint64_t length_ = 0; // samples
};

template <typename Real, typename Sample = Real>
class FFT;

template <>
class FFT<float> : public FFTStorage<float> {
public:
    using FFTStorage::FFTStorage;

    // Each row of `in`, its first `length` samples whatever `in.size()` says, into the row of `out` in Pack form.
    // Sets no size. The row of a PaddedBuffer enters with its history at the front.
    template <std::size_t C>
    void Fwd(const Buffer<float, C>& in, Buffer<float, C>& out);

    // Pack form back to samples.
    template <std::size_t C>
    void Inv(const Buffer<float, C>& in, Buffer<float, C>& out);

    // The same for a single row of `length` floats. The caller has seen to the sizes.
    void Fwd(const float* in, float* out) { check(ippsFFTFwd_RToPack_32f(in, out, spec, work())); }
    void Inv(const float* in, float* out) { check(ippsFFTInv_PackToR_32f(in, out, spec, work())); }

private:
    template <std::size_t C, typename Kernel>
    void run(Kernel kernel, const Buffer<float, C>& in, Buffer<float, C>& out);
};

template <>
class FFT<float, Complex> : public FFTStorage<Complex> {
public:
    using FFTStorage::FFTStorage;

    // `length` elements. The caller has seen to the sizes.
    void Inv(const Complex* in, Complex* out) { check(ippsFFTInv_CToC_32fc(in, out, spec, work())); }
};

// ---------------------------------------------------------------------------------------------------------------------

template <typename Sample>
FFTStorage<Sample>::FFTStorage(std::uint64_t order) : order_(order)
{
    // An order beyond the kernels' 32 bits must not wrap into an order that they take.
    const auto order32 = static_cast<std::int32_t>(std::min<std::uint64_t>(order, 64));
    const auto flag32 = static_cast<std::int32_t>(flag_);
    std::int32_t specSize = 0;
    std::int32_t initSize = 0;
    std::int32_t workSize = 0;
    check(Kernels::getSize(order32, flag32, 0, &specSize, &initSize, &workSize));

    const auto allocate = [](std::int32_t bytes) {
        return RtPointer<std::byte>(static_cast<std::byte*>(rt_alloc(static_cast<std::uint64_t>(bytes))));
    };
    specStorage = allocate(specSize);
    const auto initStorage = allocate(initSize); // needed during initialisation alone
    workStorage = allocate(workSize);
    typename Kernels::Spec* ready = nullptr;
    check(Kernels::init(&ready, order32, flag32, 0, specStorage.get(), initStorage.get()));
    spec = ready;
    length_ = std::uint64_t{1} << order;
}

template <typename Sample>
FFTStorage<Sample>::FFTStorage(FFTStorage&& other) noexcept
    : order_(other.order_),
      flag_(other.flag_),
      spec(std::exchange(other.spec, nullptr)),
      specStorage(std::move(other.specStorage)),
      workStorage(std::move(other.workStorage)),
      length_(other.length_)
{
}

template <typename Sample>
FFTStorage<Sample>& FFTStorage<Sample>::operator=(FFTStorage&& other) noexcept
{
    if (this != &other) {
        order_ = other.order_;
        flag_ = other.flag_;
        spec = std::exchange(other.spec, nullptr);
        specStorage = std::move(other.specStorage);
        workStorage = std::move(other.workStorage);
        length_ = other.length_;
    }
    return *this;
}

template <std::size_t C, typename Kernel>
void FFT<float>::run(Kernel kernel, const Buffer<float, C>& in, Buffer<float, C>& out)
{
    for (std::size_t c = 0; c < C; ++c) {
        float* to = out.channel(c);
        const float* from = in.channel(c);
        if (length_ != std::uint64_t{1} << order_) // Required: cannot happen
            throw ipps::Error(ippStsSizeErr);
        check(kernel(from, to, spec, work()));
    }
}

template <std::size_t C>
void FFT<float>::Fwd(const Buffer<float, C>& in, Buffer<float, C>& out)
{
    if (length_ > in.capacity() || length_ > out.capacity())
        throw std::invalid_argument("quorel::FFT<float>::Fwd: sizes must match");
    run(ippsFFTFwd_RToPack_32f, in, out);
}

template <std::size_t C>
void FFT<float>::Inv(const Buffer<float, C>& in, Buffer<float, C>& out)
{
    if (length_ > out.capacity() || length_ > in.capacity())
        throw std::invalid_argument("quorel::FFT<float>::Inv: sizes must match");
    run(ippsFFTInv_PackToR_32f, in, out);
}

} // namespace quorel
