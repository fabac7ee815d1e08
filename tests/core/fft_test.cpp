// SPDX-License-Identifier: MIT
#include "core/fft.h"

#include "core/buffer.h"
#include "tests/support/failure.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <random>
#include <string>
#include <type_traits>

namespace quorel {
namespace {

// Two transforms in single precision.
constexpr float tolerance = 1e-6F;

template <std::size_t C>
void fillWithNoise(Buffer<float, C>& buffer, unsigned seed)
{
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> uniform(-1.0F, 1.0F);
    for (std::size_t c = 0; c < C; ++c)
        for (std::size_t i = 0; i < buffer.capacity(); ++i)
            buffer.channel(c)[i] = uniform(random);
}

// A transform whose stored length disagrees with its order.
class Inconsistent : public FFT<float> {
public:
    Inconsistent(std::uint64_t order, std::uint64_t length) : FFT<float>(order) { length_ = length; }
};

constexpr const char* forwardText = "quorel::FFT<float>::Fwd: sizes must match";
constexpr const char* inverseText = "quorel::FFT<float>::Inv: sizes must match";

TEST(FFT, KnowsItsOrderItsLengthAndItsScaling)
{
    const FFT<float> real(10);
    EXPECT_EQ(real.order(), 10U);
    EXPECT_EQ(real.length(), 1024U);
    EXPECT_EQ(real.flag(), 2U);
    const FFT<float, Complex> complex(9);
    EXPECT_EQ(complex.order(), 9U);
    EXPECT_EQ(complex.length(), 512U);
    EXPECT_EQ(complex.flag(), 8U);
}

TEST(FFT, ForwardThenInverseGivesTheRowItself)
{
    FFT<float> fft(10);
    Buffer<float, 2> in(1024);
    Buffer<float, 2> spectrum(1024);
    Buffer<float, 2> out(1024);
    fillWithNoise(in, 1);
    fft.Fwd(in, spectrum);
    fft.Inv(spectrum, out);
    for (std::size_t c = 0; c < 2; ++c)
        for (std::size_t i = 0; i < 1024; ++i)
            EXPECT_NEAR(out.channel(c)[i], in.channel(c)[i], tolerance);
}

TEST(FFT, ForwardDividesNothing)
{
    FFT<float> fft(10);
    Buffer<float, 1> in(1024);
    Buffer<float, 1> out(1024);
    for (std::size_t i = 0; i < 1024; ++i)
        in.channel(0)[i] = 1;
    fft.Fwd(in, out);
    EXPECT_EQ(out.channel(0)[0], 1024.0F);
    for (std::size_t i = 1; i < 1024; ++i)
        EXPECT_NEAR(out.channel(0)[i], 0, 1024 * tolerance);
}

TEST(FFT, ACapacityOfExactlyTheLengthServes)
{
    FFT<float> fft(10);
    Buffer<float, 2> in(1024);
    Buffer<float, 2> out(1024);
    EXPECT_NO_THROW(fft.Fwd(in, out));
    EXPECT_NO_THROW(fft.Inv(in, out));
}

TEST(FFT, ForwardRefusesASmallerCapacityOnEitherSide)
{
    FFT<float> fft(10);
    Buffer<float, 2> enough(1024);
    Buffer<float, 2> small(1008);
    EXPECT_EQ(failureText<std::invalid_argument>([&] { fft.Fwd(enough, small); }), forwardText);
    EXPECT_EQ(failureText<std::invalid_argument>([&] { fft.Fwd(small, enough); }), forwardText);
}

TEST(FFT, InverseRefusesASmallerCapacityOnEitherSide)
{
    FFT<float> fft(10);
    Buffer<float, 2> enough(1024);
    Buffer<float, 2> small(1008);
    EXPECT_EQ(failureText<std::invalid_argument>([&] { fft.Inv(enough, small); }), inverseText);
    EXPECT_EQ(failureText<std::invalid_argument>([&] { fft.Inv(small, enough); }), inverseText);
}

TEST(FFT, ARefusedBufferIsNotTouched)
{
    FFT<float> fft(10);
    Buffer<float, 2> in(1008);
    Buffer<float, 2> out(1024);
    out.channel(0)[0] = 5;
    EXPECT_THROW(fft.Fwd(in, out), std::invalid_argument);
    EXPECT_EQ(out.channel(0)[0], 5.0F);
}

TEST(FFT, AMovedFromBufferFailsTheSizeTest)
{
    FFT<float> fft(10);
    Buffer<float, 2> in(1024);
    Buffer<float, 2> out(1024);
    const Buffer<float, 2> taken(std::move(in));
    EXPECT_EQ(failureText<std::invalid_argument>([&] { fft.Fwd(in, out); }), forwardText);
    EXPECT_EQ(failureText<std::invalid_argument>([&] { fft.Inv(out, in); }), inverseText);
}

TEST(FFT, AnUninitialisedBufferIsNoticedBeforeALengthThatDisagrees)
{
    Inconsistent fft(4, 0); // every capacity passes the size test
    Buffer<float, 2> in(16);
    Buffer<float, 2> out(16);
    const Buffer<float, 2> taken(std::move(in));
    EXPECT_THROW(fft.Fwd(in, out), UninitializedBuffer);
    EXPECT_THROW(fft.Fwd(out, in), UninitializedBuffer);
    EXPECT_THROW(fft.Inv(in, out), UninitializedBuffer);
    EXPECT_THROW(fft.Inv(out, in), UninitializedBuffer);
}

TEST(FFT, ALengthThatDisagreesWithTheOrderIsASizeError)
{
    Inconsistent fft(5, 16);
    Buffer<float, 2> in(64);
    Buffer<float, 2> out(64);
    EXPECT_EQ(failureStatus([&] { fft.Fwd(in, out); }), ippStsSizeErr);
    EXPECT_EQ(failureStatus([&] { fft.Inv(in, out); }), ippStsSizeErr);
}

TEST(FFT, ASizeOfZeroDoesNotStopATransform)
{
    FFT<float> fft(4);
    Buffer<float, 1> in(16);
    Buffer<float, 1> out(16);
    in.channel(0)[0] = 1;
    in.setSize(0);
    fft.Fwd(in, out);
    EXPECT_EQ(out.channel(0)[15], 1.0F);
}

TEST(FFT, TheSizeOfTheResultIsLeftToTheCaller)
{
    FFT<float> fft(4);
    Buffer<float, 1> in(16);
    Buffer<float, 1> out(16);
    in.setSize(16);
    out.setSize(3);
    fft.Fwd(in, out);
    fft.Inv(in, out);
    EXPECT_EQ(out.size(), 3U);
}

TEST(FFT, RowsBeyondTheLengthKeepWhatTheyHeld)
{
    FFT<float> fft(4);
    Buffer<float, 2> in(32);
    Buffer<float, 2> out(32);
    out.channel(0)[16] = out.channel(1)[31] = 9;
    fft.Fwd(in, out);
    EXPECT_EQ(out.channel(0)[16], 9.0F);
    EXPECT_EQ(out.channel(1)[31], 9.0F);
}

TEST(FFT, EightChannelsOfAPaddedBufferEnterWithTheirHistory)
{
    FFT<float> fft(10);
    PaddedBuffer<8> in(1024, 169);
    Buffer<float, 8> spectrum(1024);
    Buffer<float, 8> out(1024);
    fillWithNoise(in, 2);
    fft.Fwd(in, spectrum);
    fft.Inv(spectrum, out);
    for (std::size_t c = 0; c < 8; ++c)
        for (std::size_t i = 0; i < 1024; ++i)
            EXPECT_NEAR(out.channel(c)[i], in.channel(c)[i], tolerance);
}

TEST(FFT, ChannelsDoNotMeet)
{
    FFT<float> fft(10);
    Buffer<float, 2> in(1024);
    Buffer<float, 2> out(1024);
    in.channel(1)[0] = 1;
    fft.Fwd(in, out);
    for (std::size_t i = 0; i < 1024; ++i)
        EXPECT_EQ(out.channel(0)[i], 0.0F);
    EXPECT_EQ(out.channel(1)[1], 1.0F);
}

TEST(FFT, TheComplexInverseDividesNothing)
{
    FFT<float, Complex> fft(9);
    SpectrumBuffer<1> in(512);
    SpectrumBuffer<1> out(512);
    for (std::size_t i = 0; i < 512; ++i)
        in.channel(0)[i] = {1, -1};
    fft.Inv(in.channel(0), out.channel(0));
    EXPECT_EQ(out.channel(0)[0], Complex(512, -512));
    for (std::size_t i = 1; i < 512; ++i)
        EXPECT_LT(std::abs(out.channel(0)[i]), 512 * tolerance);
}

TEST(FFT, TheComplexInverseTurnsBackwards)
{
    FFT<float, Complex> fft(3);
    SpectrumBuffer<1> in(8);
    SpectrumBuffer<1> out(8);
    in.channel(0)[1] = 1; // exp(+2*pi*i*n/8)
    fft.Inv(in.channel(0), out.channel(0));
    for (std::size_t n = 0; n < 8; ++n) {
        const auto turn = static_cast<float>(2 * std::numbers::pi * static_cast<double>(n) / 8);
        EXPECT_NEAR(out.channel(0)[n].real(), std::cos(turn), tolerance);
        EXPECT_NEAR(out.channel(0)[n].imag(), std::sin(turn), tolerance);
    }
}

TEST(FFT, AnOrderThatTheKernelsRefuseIsAnError)
{
    EXPECT_EQ(failureStatus([] { FFT<float>(30); }), ippStsFftOrderErr);
    EXPECT_EQ(failureStatus([] { FFT<float, Complex>(29); }), ippStsFftOrderErr);
    EXPECT_EQ(failureStatus([] { FFT<float>((std::uint64_t{1} << 32) + 10); }), ippStsFftOrderErr);
}

TEST(FFT, MovingPassesTheTransformOn)
{
    FFT<float> first(4);
    FFT<float> second(std::move(first));
    FFT<float> third(10);
    third = std::move(second);
    Buffer<float, 1> in(16);
    Buffer<float, 1> out(16);
    in.channel(0)[0] = 1;
    third.Fwd(in, out);
    EXPECT_EQ(out.channel(0)[15], 1.0F);
    EXPECT_EQ(third.length(), 16U);
}

TEST(FFT, AMovedFromTransformIsAnError)
{
    FFT<float> fft(4);
    const FFT<float> taken(std::move(fft));
    Buffer<float, 1> in(16);
    Buffer<float, 1> out(16);
    EXPECT_EQ(failureStatus([&] { fft.Fwd(in, out); }), ippStsNullPtrErr);
    FFT<float, Complex> complex(4);
    const FFT<float, Complex> alsoTaken(std::move(complex));
    SpectrumBuffer<1> bins(16);
    EXPECT_EQ(failureStatus([&] { complex.Inv(bins.channel(0), bins.channel(0)); }), ippStsNullPtrErr);
}

TEST(FFT, MovesAndNeverCopies)
{
    static_assert(std::is_nothrow_move_constructible_v<FFT<float>> && std::is_nothrow_move_assignable_v<FFT<float>>);
    static_assert(!std::is_copy_constructible_v<FFT<float>> && !std::is_copy_assignable_v<FFT<float>>);
    static_assert(std::is_nothrow_move_constructible_v<FFT<float, Complex>>);
    static_assert(!std::is_copy_constructible_v<FFT<float, Complex>>);
}

} // namespace
} // namespace quorel
