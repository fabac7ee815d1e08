// SPDX-License-Identifier: MIT
#include "speaker/equalizer.h"
#include "speaker/equalizer_tables.h"
#include "stages/crossfader.h"

#include "tests/speaker/cases.h"

#include <numbers>
#include <type_traits>
#include <utility>
#include <vector>

// The linker puts the counting cosine in place of the library's.
namespace {
int cosines = 0;
}
extern "C" float __real_cosf(float x);
extern "C" float __wrap_cosf(float x);
float __wrap_cosf(float x)
{
    ++cosines;
    return __real_cosf(x);
}

namespace quorel {
namespace {

static_assert(std::is_nothrow_move_constructible_v<Crossfader<2>> && !std::is_copy_constructible_v<Crossfader<2>>);

float risingAt(std::uint64_t i, std::uint64_t length)
{
    return 1.0F - (std::cos(static_cast<float>(i) * 3.1415927F / static_cast<float>(length)) + 1.0F) * 0.5F;
}

float fallingAt(std::uint64_t i, std::uint64_t length)
{
    return 1.0F - risingAt(i, length);
}

// Both ramps of a block of `length` frames, as a fade from and to a constant 1 shows them.
template <std::size_t C>
std::pair<Buffer<float, C>, Buffer<float, C>> ramps(Crossfader<C>& fade, std::uint64_t length)
{
    Buffer<float, C> silence(length);
    Buffer<float, C> one(length);
    fillWith(silence, length, 0.0F);
    fillWith(one, length, 1.0F);
    std::pair<Buffer<float, C>, Buffer<float, C>> shown{Buffer<float, C>(length), Buffer<float, C>(length)};
    fade.blend(silence, one, shown.first);
    fade.blend(one, silence, shown.second);
    return shown;
}

// Multiplies by a factor that design() sets, and notes what was asked of it in which order.
template <std::size_t C>
struct Scale {
    float factor = 1.0F;
    std::string calls{};

    void design(float value)
    {
        factor = value;
        calls += "design ";
    }

    void process(const Buffer<float, C>& in, Buffer<float, C>& out)
    {
        for (std::size_t c = 0; c < C; ++c)
            for (std::uint64_t i = 0; i < in.size(); ++i)
                out.channel(c)[i] = factor * in.channel(c)[i];
        out.setSize(in.size());
        calls += "process ";
    }
};

Equalizer flatEqualizer()
{
    Equalizer equalizer(equalizerInteraction(), equalizerCentres, equalizerQ, equalizerSampleRate, equalizerShelfFactor);
    equalizer.design({});
    return equalizer;
}

// --- The ramps -------------------------------------------------------------------------------------------------------

TEST(Crossfader, TheRampsFollowTheFormulaBitByBit)
{
    Crossfader<2> fade(1073);
    std::vector<std::uint64_t> lengths = {128, 240, 441, 480, 847, 848, 1072, 1073};
    for (std::uint64_t length = 1; length < 68; ++length)
        lengths.push_back(length);
    for (const std::uint64_t length : lengths) {
        const auto [rising, falling] = ramps(fade, length);
        for (std::size_t c = 0; c < 2; ++c)
            for (std::uint64_t i = 0; i < length; ++i) {
                ASSERT_EQ(bits(rising.channel(c)[i]), bits(risingAt(i, length))) << i << " of " << length;
                ASSERT_EQ(bits(falling.channel(c)[i]), bits(fallingAt(i, length))) << i << " of " << length;
            }
    }
}

// The angle, below pi, carries the error of pi itself (2.8e-8 of it) and two roundings of 2^-24: 4.6e-7. The cosine adds
// 1.2e-7 and the sum of up to 2 another 1.2e-7; half of all that and the last rounding stay below 4e-7.
TEST(Crossfader, TheRampIsARaisedCosineFromZeroToOneStepShortOfOne)
{
    Crossfader<1> fade(480);
    for (const std::uint64_t length : {1U, 2U, 7U, 480U}) {
        const auto [rising, falling] = ramps(fade, length);
        EXPECT_EQ(rising.channel(0)[0], 0.0F);
        EXPECT_EQ(falling.channel(0)[0], 1.0F);
        for (std::uint64_t i = 0; i < length; ++i) {
            const double angle = std::numbers::pi * static_cast<double>(i) / static_cast<double>(length);
            EXPECT_NEAR(rising.channel(0)[i], (1.0 - std::cos(angle)) / 2.0, 4e-7);
            EXPECT_LT(rising.channel(0)[i], 1.0F);
        }
    }
}

TEST(Crossfader, TheRampsArePreparedForTheLongestBlockFromTheStart)
{
    Crossfader<2> fade(480);
    Buffer<float, 2> a(480);
    fillWith(a, 480, 1.0F);
    cosines = 0;
    fade.blend(a, a, a);
    EXPECT_EQ(cosines, 0);
}

TEST(Crossfader, TheRampsAreRebuiltOnlyForANewBlockLengthWithAFadeDue)
{
    Crossfader<2> fade(480);
    PendingValue<float> target;
    Scale<2> scale;
    float gain = 1.0F;
    Buffer<float, 2> signal(480);
    Buffer<float, 2> result(480);
    const auto cosinesOf = [&](std::uint64_t n, auto act) {
        fillWith(signal, n, 1.0F);
        fillWith(result, n, 1.0F);
        cosines = 0;
        act();
        return cosines;
    };
    const auto blend = [&] { fade.blend(signal, result, result); };
    const auto blendGain = [&] { fade.blendGain(signal, result, gain, target); };
    const auto blendEqualizer = [&] { fade.blendEqualizer(signal, result, scale, target); };

    EXPECT_EQ(cosinesOf(480, blend), 0);
    EXPECT_EQ(cosinesOf(240, [] {}), 0) << "a block without a crossfade";
    EXPECT_EQ(cosinesOf(480, blendGain), 0);
    EXPECT_EQ(cosinesOf(240, blendGain), 240);
    EXPECT_EQ(cosinesOf(240, blend), 0);
    EXPECT_EQ(cosinesOf(240, blendEqualizer), 0);
    EXPECT_EQ(cosinesOf(100, blendEqualizer), 100);
    EXPECT_EQ(cosinesOf(100, blendGain), 0);
    EXPECT_EQ(cosinesOf(480, blend), 480);
}

TEST(Crossfader, RampsOfNoLengthAreNoneAndTheNextBlockMakesItsOwn)
{
    Crossfader<2> fade(480);
    cosines = 0;
    fade.prepare(0);
    EXPECT_EQ(cosines, 0);
    const auto [rising, falling] = ramps(fade, 480);
    EXPECT_EQ(cosines, 480);
    EXPECT_EQ(bits(rising.channel(0)[100]), bits(risingAt(100, 480)));
}

// --- Contract --------------------------------------------------------------------------------------------------------

TEST(Crossfader, ABlockLongerThanTheRampsIsRefusedAndNothingChanges)
{
    Crossfader<2> fade(470); // rounded up to 480
    Buffer<float, 2> block(496);
    fillWith(block, 481, 1.0F);
    EXPECT_EQ((failureText<std::invalid_argument>([&] { fade.blend(block, block, block); })),
              "Crossfader: block longer than the ramps");
    EXPECT_EQ((failureText<std::invalid_argument>([&] { fade.prepare(481); })), "Crossfader: block longer than the ramps");
    PendingValue<float> target{0.5F, true};
    float gain = 1.0F;
    EXPECT_EQ((failureText<std::invalid_argument>([&] { fade.blendGain(block, block, gain, target); })),
              "Crossfader: block longer than the ramps");
    Scale<2> scale{1.0F};
    EXPECT_EQ((failureText<std::invalid_argument>([&] { fade.blendEqualizer(block, block, scale, target); })),
              "Crossfader: block longer than the ramps");
    EXPECT_EQ(scale.calls, "") << "an equaliser that had run would have moved on";
    EXPECT_TRUE(target.changed);
    EXPECT_EQ(gain, 1.0F);
    EXPECT_EQ(block.channel(0)[480], 1.0F);
    fillWith(block, 480, 1.0F);
    EXPECT_NO_THROW(fade.blend(block, block, block));
}

TEST(Crossfader, AnEmptyBlockIsRefusedByTheKernels)
{
    Crossfader<2> fade(480);
    PendingValue<float> target;
    float gain = 1.0F;
    const Buffer<float, 2> empty(16);
    Buffer<float, 2> result(16);
    EXPECT_EQ((failureText<ipps::Error>([&] { fade.blend(empty, empty, result); })), "ippStsSizeErr");
    EXPECT_EQ((failureText<ipps::Error>([&] { fade.blendGain(empty, result, gain, target); })), "ippStsSizeErr");
    EXPECT_TRUE(target.changed);
}

TEST(Crossfader, SignalsOfDifferentLengthAreRefused)
{
    Crossfader<2> fade(480);
    Buffer<float, 2> longer(480);
    Buffer<float, 2> shorter(480);
    Buffer<float, 2> result(480);
    fillWith(longer, 480, 1.0F);
    fillWith(shorter, 479, 1.0F);
    EXPECT_EQ((failureText<std::invalid_argument>([&] { fade.blend(longer, shorter, result); })),
              "BufferArithmetic: Buffer size does not match: Mul");
    EXPECT_EQ((failureText<std::invalid_argument>([&] { fade.blend(longer, shorter, shorter); })),
              "BufferArithmetic: Buffer size does not match: Mul *=");
}

TEST(Crossfader, AResultThatIsTooSmallIsRefused)
{
    Crossfader<2> fade(480);
    PendingValue<float> target;
    float gain = 1.0F;
    Buffer<float, 2> signal(480);
    Buffer<float, 2> result(464);
    fillWith(signal, 480, 1.0F);
    EXPECT_EQ((failureText<std::invalid_argument>([&] { fade.blend(signal, signal, result); })),
              "BufferArithmetic: Buffer size does not match: Mul");
    EXPECT_EQ((failureText<std::invalid_argument>([&] { fade.blendGain(signal, result, gain, target); })),
              "BufferArithmetic: Buffer size does not match: Mul");
}

TEST(Crossfader, ABufferWithoutStorageIsRefused)
{
    Crossfader<2> fade(16);
    Buffer<float, 2> moved(16);
    Buffer<float, 2> signal(std::move(moved));
    fillWith(signal, 16, 1.0F);
    moved.setSize(16);
    EXPECT_EQ((failureText<UninitializedBuffer>([&] { fade.blend(moved, signal, signal); })), "Buffer not initialized");

    Crossfader<2> taken(std::move(fade));
    EXPECT_NO_THROW(taken.blend(signal, signal, signal));
    EXPECT_THROW(fade.prepare(16), std::invalid_argument); // NOLINT(bugprone-use-after-move)
    EXPECT_THROW(fade.prepare(0), UninitializedBuffer);
}

// --- Truth -----------------------------------------------------------------------------------------------------------

TEST(Crossfader, ABlendIsTheSumOfBothSignalsUnderTheirRampsBitByBit)
{
    forChannelCounts([]<std::size_t C>() {
        Noise noise(1);
        Crossfader<C> fade(480);
        for (const std::uint64_t n : {1U, 31U, 480U}) {
            Buffer<float, C> from(480);
            Buffer<float, C> to(480);
            Buffer<float, C> result(480);
            noise.fill(from, n);
            noise.fill(to, n);
            fade.blend(from, to, result);
            ASSERT_EQ(result.size(), n);
            for (std::size_t c = 0; c < C; ++c)
                for (std::uint64_t i = 0; i < n; ++i) {
                    const float expected = to.channel(c)[i] * risingAt(i, n) + from.channel(c)[i] * fallingAt(i, n);
                    ASSERT_EQ(bits(result.channel(c)[i]), bits(expected));
                }
        }
    });
}

TEST(Crossfader, TheResultOfABlendMayBeEitherSignal)
{
    Noise noise(2);
    Crossfader<2> fade(480);
    Buffer<float, 2> from(480);
    Buffer<float, 2> to(480);
    Buffer<float, 2> result(480);
    noise.fill(from, 480);
    noise.fill(to, 480);
    const auto copyOf = [](const Buffer<float, 2>& buffer) {
        Buffer<float, 2> copy(SameCapacity{}, buffer);
        for (std::size_t c = 0; c < 2; ++c)
            std::copy_n(buffer.channel(c), buffer.size(), copy.channel(c));
        copy.setSize(buffer.size());
        return copy;
    };
    fade.blend(from, to, result);
    Buffer<float, 2> overTo = copyOf(to);
    fade.blend(from, overTo, overTo);
    EXPECT_TRUE(sameBits(overTo, result));
    Buffer<float, 2> overFrom = copyOf(from);
    fade.blend(overFrom, to, overFrom);
    EXPECT_TRUE(sameBits(overFrom, result));
}

TEST(Crossfader, AFadeBetweenEqualSignalsLeavesThemAsTheyAre)
{
    Crossfader<2> fade(480);
    Buffer<float, 2> signal(480);
    fillWith(signal, 480, 0.75F);
    fade.blend(signal, signal, signal);
    for (std::uint64_t i = 0; i < 480; ++i) // the two shares and the sum are each rounded once, by 2^-25 at most
        EXPECT_NEAR(signal.channel(0)[i], 0.75, 9e-8);
}

TEST(Crossfader, AGainFadesFromTheOneInForceToTheRequestedOneBitByBit)
{
    forChannelCounts([]<std::size_t C>() {
        Noise noise(3);
        Crossfader<C> fade(480);
        Buffer<float, C> signal(480);
        noise.fill(signal, 480);
        Buffer<float, C> result(480);
        float gain = 0.3F;
        PendingValue<float> target{0.7F, true};
        fade.blendGain(signal, result, gain, target);
        EXPECT_EQ(gain, 0.7F);
        EXPECT_FALSE(target.changed);
        EXPECT_EQ(target.value, 0.7F);
        for (std::size_t c = 0; c < C; ++c)
            for (std::uint64_t i = 0; i < 480; ++i) {
                const float x = signal.channel(c)[i];
                const float expected = x * 0.7F * risingAt(i, 480) + x * 0.3F * fallingAt(i, 480);
                ASSERT_EQ(bits(result.channel(c)[i]), bits(expected));
            }

        gain = 0.3F;
        target.changed = true;
        fade.blendGain(signal, signal, gain, target);
        EXPECT_TRUE(sameBits(signal, result)) << "in place";
        EXPECT_EQ(gain, 0.7F);
    });
}

TEST(Crossfader, AGainFadesOutToSilenceAndInFromIt)
{
    Crossfader<2> fade(480);
    Buffer<float, 2> signal(480);
    fillWith(signal, 480, 1.0F);
    float gain = 2.0F;
    PendingValue<float> target; // zero
    fade.blendGain(signal, signal, gain, target);
    EXPECT_EQ(gain, 0.0F);
    for (std::uint64_t i = 0; i < 480; ++i)
        ASSERT_EQ(bits(signal.channel(1)[i]), bits(2.0F * fallingAt(i, 480)));

    fillWith(signal, 480, 1.0F);
    target.request(2.0F);
    fade.blendGain(signal, signal, gain, target);
    for (std::uint64_t i = 0; i < 480; ++i)
        ASSERT_EQ(bits(signal.channel(1)[i]), bits(2.0F * risingAt(i, 480)));
}

TEST(Crossfader, TheEqualizerRunsAsItStandsThenIsDesignedThenRunsAgain)
{
    forChannelCounts([]<std::size_t C>() {
        Noise noise(4);
        Crossfader<C> fade(480);
        Buffer<float, C> signal(480);
        noise.fill(signal, 480);
        Buffer<float, C> result(480);
        Scale<C> scale{0.3F};
        PendingValue<float> target{0.7F, true};
        fade.blendEqualizer(signal, result, scale, target);
        EXPECT_EQ(scale.calls, "process design process ");
        EXPECT_FALSE(target.changed);
        for (std::size_t c = 0; c < C; ++c)
            for (std::uint64_t i = 0; i < 480; ++i) {
                const float x = signal.channel(c)[i];
                const float expected = 0.7F * x * risingAt(i, 480) + 0.3F * x * fallingAt(i, 480);
                ASSERT_EQ(bits(result.channel(c)[i]), bits(expected));
            }
    });
}

TEST(Crossfader, TheRequestIsHonouredEvenWhenItsDesignFails)
{
    struct Refusing : Scale<2> {
        void design(float) { throw std::invalid_argument("refused"); }
    } equalizer;
    Crossfader<2> fade(480);
    Buffer<float, 2> signal(480);
    Buffer<float, 2> result(480);
    fillWith(signal, 480, 1.0F);
    PendingValue<float> target;
    EXPECT_EQ((failureText<std::invalid_argument>([&] { fade.blendEqualizer(signal, result, equalizer, target); })), "refused");
    EXPECT_FALSE(target.changed);
}

TEST(Crossfader, TheNewCurveOfTheNineBandEqualizerStartsFromSilence)
{
    constexpr Equalizer::Gains wanted = {6.0, -3.0, 2.0, 0.0, -6.0, 4.0, 1.0, -2.0, 5.0};
    auto before = flatEqualizer();
    auto faded = flatEqualizer();
    auto fresh = flatEqualizer();
    fresh.design(wanted);

    Noise noise(5);
    Crossfader<2> fade(480);
    Buffer<float, 2> signal(480);
    Buffer<float, 2> result(480);
    Buffer<float, 2> old(480);
    Buffer<float, 2> expected(480);
    noise.fill(signal, 480);
    faded.process(signal, result);
    before.process(signal, old);

    PendingValue<Equalizer::Gains> target{wanted, true};
    noise.fill(signal, 480);
    fade.blendEqualizer(signal, result, faded, target);
    before.process(signal, old);
    fresh.process(signal, expected);
    for (std::size_t c = 0; c < 2; ++c)
        for (std::uint64_t i = 0; i < 480; ++i) {
            float& y = expected.channel(c)[i];
            y = y * risingAt(i, 480) + old.channel(c)[i] * fallingAt(i, 480);
        }
    EXPECT_TRUE(sameBits(result, expected));

    noise.fill(signal, 480);
    faded.process(signal, result);
    fresh.process(signal, expected);
    EXPECT_TRUE(sameBits(result, expected)) << "the block after the fade";
}

} // namespace
} // namespace quorel
