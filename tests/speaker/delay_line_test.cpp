// SPDX-License-Identifier: MIT
#include "speaker/delay_line.h"

#include "speaker/fdn_tables.h"
#include "tests/support/failure.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

// Samples are small whole numbers and gains multiples of 1/8, unless a test says otherwise: every sum is exact in floats in
// any order, and all comparisons are exact.

namespace quorel {
namespace {

constexpr std::size_t lines = lineCount;

struct Design {
    DelayLine::Lengths tapLeft{};
    DelayLine::Gains gainLeft{};
    DelayLine::Lengths tapRight{};
    DelayLine::Gains gainRight{};
    DelayLine::Lengths lineLength{};
    std::uint64_t maxBlock = 0;

    DelayLine build() const { return {tapLeft, gainLeft, tapRight, gainRight, lineLength, maxBlock}; }
};

// Lines of 1072, 1350, 1628 ... samples; all taps 10 and 20, all gains 1.
Design roomy(std::uint64_t maxBlock)
{
    Design design;
    for (std::size_t l = 0; l < lines; ++l)
        design.lineLength[l] = 1072 + 278 * l;
    design.tapLeft.fill(10);
    design.gainLeft.fill(1.0F);
    design.tapRight.fill(20);
    design.gainRight.fill(1.0F);
    design.maxBlock = maxBlock;
    return design;
}

constexpr float unheard = std::numeric_limits<float>::quiet_NaN();

// What a DelayLine should give: every sample that each line was ever fed, looked up by its time.
struct Oracle {
    explicit Oracle(const Design& design) : design(design) {}

    Design design;
    std::array<std::vector<double>, lines> fed;

    double at(std::size_t l, std::int64_t t) const { return t < 0 ? 0.0 : fed[l].at(static_cast<std::size_t>(t)); }
    std::int64_t now() const { return static_cast<std::int64_t>(fed[0].size()); }

    // Both for frame i of a block of n frames: of the block to come, and of the block just fed.
    double read(std::size_t l, std::uint64_t i) const { return at(l, now() + signed64(i) - signed64(design.lineLength[l])); }
    double stereo(std::size_t ear, std::uint64_t i, std::uint64_t n) const
    {
        const auto& taps = ear == 0 ? design.tapLeft : design.tapRight;
        const auto& gains = ear == 0 ? design.gainLeft : design.gainRight;
        double sum = 0.0;
        for (std::size_t l = 0; l < lines; ++l)
            sum += static_cast<double>(gains[l]) *
                   at(l, now() - signed64(n) + signed64(i) - signed64(taps[l]) - signed64(design.maxBlock - n));
        return sum;
    }

    static std::int64_t signed64(std::uint64_t n) { return static_cast<std::int64_t>(n); }
};

// A DelayLine that runs beside its oracle.
class Trial {
public:
    explicit Trial(const Design& design) : oracle(design), line(design.build()), lineOut(1200), in(1200), stereoOut(1200) {}

    // Reads and writes a block of n frames, whose samples `next()` gives line by line.
    template <typename Next>
    void block(std::uint64_t n, Next&& next)
    {
        std::fill_n(lineOut.channel(0), lineOut.capacity() * lines, unheard);
        line.read(lineOut, n);
        ASSERT_EQ(lineOut.size(), n);
        for (std::size_t l = 0; l < lines; ++l)
            for (std::uint64_t i = 0; i < n; ++i)
                ASSERT_EQ(static_cast<double>(lineOut.channel(l)[i]), oracle.read(l, i)) << "line " << l << ", frame " << i;

        std::fill_n(in.channel(0), in.capacity() * lines, unheard);
        std::fill_n(stereoOut.channel(0), stereoOut.capacity() * 2, unheard);
        for (std::size_t l = 0; l < lines; ++l)
            for (std::uint64_t i = 0; i < n; ++i) {
                in.channel(l)[i] = next();
                oracle.fed[l].push_back(static_cast<double>(in.channel(l)[i]));
            }
        in.setSize(n);
        line.write(in, stereoOut);
        ASSERT_EQ(stereoOut.size(), n);
        for (std::size_t ear = 0; ear < 2; ++ear)
            for (std::uint64_t i = 0; i < stereoOut.capacity(); ++i)
                ASSERT_EQ(static_cast<double>(stereoOut.channel(ear)[i]), i < n ? oracle.stereo(ear, i, n) : 0.0)
                    << "ear " << ear << ", frame " << i;
    }

    Oracle oracle;
    DelayLine line;
    Buffer<float, lines> lineOut, in;
    Buffer<float, 2> stereoOut;
};

// Taps and gains of all kinds: the newest sample, the oldest, and what lies between.
Design mixed(std::mt19937& random, std::uint64_t maxBlock)
{
    std::uniform_int_distribution<int> eighth(-8, 8);
    Design design;
    design.maxBlock = maxBlock;
    for (std::size_t l = 0; l < lines; ++l) {
        design.lineLength[l] = maxBlock + 37 * l * l;
        std::uniform_int_distribution<std::uint64_t> tap(0, design.lineLength[l]);
        design.tapLeft[l] = l == 3 ? 0 : tap(random);
        design.tapRight[l] = l == 5 ? design.lineLength[l] : tap(random);
        design.gainLeft[l] = static_cast<float>(eighth(random)) / 8;
        design.gainRight[l] = static_cast<float>(eighth(random)) / 8;
    }
    return design;
}

TEST(DelayLine, EveryLineAndTapHasItsDelayInBlocksOfAnyLength)
{
    constexpr unsigned seed = 271;
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    std::uniform_int_distribution<int> whole(-100, 100);
    for (const std::uint64_t maxBlock : {1U, 2U, 17U, 160U, 480U, 1000U}) {
        SCOPED_TRACE("maxBlock " + std::to_string(maxBlock));
        Trial trial(mixed(random, maxBlock));
        std::uniform_int_distribution<std::uint64_t> length(1, maxBlock);
        for (int block = 0; block < 120; ++block) {
            trial.block(block % 3 == 0 ? maxBlock : length(random), [&] { return static_cast<float>(whole(random)); });
            if (HasFatalFailure())
                return;
        }
    }
}

// The frames at which an impulse of 1.0, fed to one line at frame 0, comes out, in blocks of n frames.
struct Response {
    std::vector<std::size_t> read, left, right;
};

Response respond(const Design& design, std::size_t fedLine, std::uint64_t n, int blocks)
{
    DelayLine line = design.build();
    Buffer<float, lines> lineOut(n), in(n);
    Buffer<float, 2> stereoOut(n);
    Response response;
    in.setSize(n);
    for (std::uint64_t start = 0; blocks-- > 0; start += n) {
        in.clear();
        if (start == 0)
            in.channel(fedLine)[0] = 1.0F;
        line.read(lineOut, n);
        line.write(in, stereoOut);
        for (std::size_t i = 0; i < n; ++i) {
            for (std::size_t l = 0; l < lines; ++l)
                if (lineOut.channel(l)[i] != 0.0F) {
                    EXPECT_EQ(l, fedLine);
                    response.read.push_back(start + i);
                }
            if (stereoOut.channel(0)[i] != 0.0F)
                response.left.push_back(start + i);
            if (stereoOut.channel(1)[i] != 0.0F)
                response.right.push_back(start + i);
        }
    }
    return response;
}

TEST(DelayLine, InBlocksOfFullLengthTapsHaveTheirNominalDelay)
{
    Design design = roomy(480);
    design.tapRight[7] = 1;
    for (std::size_t l = 0; l < lines; ++l) {
        const Response response = respond(design, l, 480, 10);
        EXPECT_EQ(response.read, std::vector<std::size_t>({design.lineLength[l]}));
        EXPECT_EQ(response.left, std::vector<std::size_t>({10}));
        EXPECT_EQ(response.right, std::vector<std::size_t>({l == 7 ? 1U : 20U}));
    }
}

// A tap has its nominal delay in blocks of maxBlock frames alone, and is maxBlock - n samples later in shorter ones.
TEST(DelayLine, InShorterBlocksTapsAreLaterAndReadsAreExact)
{
    const Design design = roomy(480);
    const Response response = respond(design, 0, 240, 10);
    EXPECT_EQ(response.read, std::vector<std::size_t>({1072}));
    EXPECT_EQ(response.left, std::vector<std::size_t>({250}));
    EXPECT_EQ(response.right, std::vector<std::size_t>({260}));
}

TEST(DelayLine, SumsTheLinesInIndexOrder)
{
    // 2^24 + 1 rounds to 2^24 in a float: in index order the 1 of line 1 is lost, and any order that brings the two large
    // ones together first keeps it.
    Design design = roomy(16);
    design.tapLeft.fill(0);
    design.tapRight.fill(0);
    Trial trial(design);
    trial.in.clear();
    trial.in.channel(0)[0] = 0x1p24F;
    trial.in.channel(1)[0] = 1.0F;
    trial.in.channel(11)[0] = -0x1p24F;
    trial.in.setSize(16);
    trial.line.write(trial.in, trial.stereoOut);
    EXPECT_EQ(trial.stereoOut.channel(0)[0], 0.0F);
    EXPECT_EQ(trial.stereoOut.channel(1)[0], 0.0F);
}

TEST(DelayLine, ReadsZerosBeforeAnyWriteAndSetsTheSize)
{
    const DelayLine line = roomy(480).build();
    Buffer<float, lines> out(480);
    std::fill_n(out.channel(0), out.capacity() * lines, unheard);
    line.read(out, 479);
    EXPECT_EQ(out.size(), 479U);
    for (std::size_t l = 0; l < lines; ++l) {
        EXPECT_TRUE(std::all_of(out.channel(l), out.channel(l) + 479, [](float x) { return x == 0.0F; })) << l;
        EXPECT_TRUE(std::isnan(out.channel(l)[479])) << l;
    }
}

TEST(DelayLine, ReadingTwiceGivesTheSame)
{
    Trial trial(roomy(480));
    int count = 0;
    for (int block = 0; block < 4; ++block)
        trial.block(480, [&] { return static_cast<float>(++count % 1000); });
    Buffer<float, lines> again(480);
    trial.line.read(trial.lineOut, 480);
    trial.line.read(again, 480);
    for (std::size_t l = 0; l < lines; ++l)
        EXPECT_TRUE(std::equal(again.channel(l), again.channel(l) + 480, trial.lineOut.channel(l))) << l;
    EXPECT_NE(again.channel(0)[0], 0.0F);
}

// ---------------------------------------------------------------------------

const std::string tooShort = "DelayLine: Length of delayLineBuffer is too short";

TEST(DelayLine, NoLineMayBeShorterThanTheLargestBlock)
{
    EXPECT_NO_THROW(roomy(1072).build());
    EXPECT_EQ(failureText<std::invalid_argument>([] { roomy(1073).build(); }), tooShort);
    for (std::size_t l = 0; l < lines; ++l) {
        Design design = roomy(480);
        design.lineLength[l] = 480;
        EXPECT_NO_THROW(design.build()) << l;
        design.lineLength[l] = 479;
        EXPECT_EQ(failureText<std::invalid_argument>([&] { design.build(); }), tooShort) << l;
    }
}

TEST(DelayLine, NoLineMayBeShorterThanItsLeftTap)
{
    for (std::size_t l = 0; l < lines; ++l) {
        Design design = roomy(480);
        design.tapLeft[l] = design.lineLength[l];
        EXPECT_NO_THROW(design.build()) << l;
        ++design.tapLeft[l];
        EXPECT_EQ(failureText<std::invalid_argument>([&] { design.build(); }), tooShort) << l;
    }
}

TEST(DelayLine, NoLineMayBeShorterThanItsRightTap)
{
    for (std::size_t l = 0; l < lines; ++l) {
        Design design = roomy(480);
        design.tapRight[l] = design.lineLength[l];
        EXPECT_NO_THROW(design.build()) << l;
        ++design.tapRight[l];
        EXPECT_EQ(failureText<std::invalid_argument>([&] { design.build(); }), tooShort) << l;
    }
}

TEST(DelayLine, ChecksEveryLineBeforeItAllocatesAny)
{
    Design design = roomy(480);
    design.lineLength[0] = std::uint64_t{1} << 62; // more than any memory
    design.tapLeft[11] = design.lineLength[11] + 1;
    EXPECT_EQ(failureText<std::invalid_argument>([&] { design.build(); }), tooShort);
}

TEST(DelayLine, ALineBeyondAllMemoryCannotBeBuilt)
{
    for (const std::uint64_t length : {std::uint64_t{1} << 62, std::uint64_t{1} << 63, ~std::uint64_t{0} - 1000}) {
        Design design = roomy(480);
        design.lineLength[0] = length;
        EXPECT_THROW(design.build(), std::bad_alloc) << length;
    }
}

// Runs some blocks, lets `attempt` fail, and runs some more: nothing may have changed in between.
template <typename Attempt>
void expectUnchanged(std::uint64_t maxBlock, Attempt&& attempt)
{
    Trial trial(roomy(maxBlock));
    int count = 0;
    const auto next = [&] { return static_cast<float>(++count % 1000); };
    for (int block = 0; block < 5; ++block)
        trial.block(maxBlock - 1, next);
    std::fill_n(trial.stereoOut.channel(0), trial.stereoOut.capacity() * 2, 5.0F);
    attempt(trial);
    EXPECT_EQ(trial.stereoOut.channel(0)[0], 5.0F); // not cleared
    EXPECT_EQ(trial.stereoOut.size(), maxBlock - 1);
    for (int block = 0; block < 5; ++block)
        trial.block(maxBlock, next);
}

TEST(DelayLine, ReadRefusesMoreFramesThanTheOutputHolds)
{
    expectUnchanged(480, [](Trial& trial) {
        Buffer<float, lines> small(400);
        small.setSize(3);
        const std::string text = "DelayLine: out buffer too small";
        EXPECT_EQ(failureText<std::invalid_argument>([&] { trial.line.read(small, 401); }), text);
        EXPECT_EQ(failureText<std::invalid_argument>([&] { trial.line.read(small, 481); }), text); // the first test to fail
        EXPECT_EQ(small.size(), 3U);
    });
}

TEST(DelayLine, ReadRefusesMoreFramesThanTheLargestBlock)
{
    expectUnchanged(470, [](Trial& trial) {
        Buffer<float, lines> out(470); // rounded up to 480
        EXPECT_EQ(failureText<std::invalid_argument>([&] { trial.line.read(out, 471); }), "DelayLine: internal buffer too small");
        EXPECT_EQ(out.size(), 0U);
    });
}

TEST(DelayLine, ReadOfNothingFailsInTheKernel)
{
    expectUnchanged(480, [](Trial& trial) {
        EXPECT_EQ(failureText<ipps::Error>([&] { trial.line.read(trial.lineOut, 0); }), "ippStsSizeErr");
    });
}

TEST(DelayLine, WriteRefusesMoreFramesThanTheStereoOutputHolds)
{
    expectUnchanged(480, [](Trial& trial) {
        Buffer<float, 2> small(400);
        std::fill_n(small.channel(0), 800, 5.0F);
        small.setSize(3);
        for (const std::uint64_t n : {401U, 481U}) { // the second would fail the next test as well
            trial.in.setSize(n);
            EXPECT_EQ(failureText<std::invalid_argument>([&] { trial.line.write(trial.in, small); }),
                      "DelayLine: stereoOut buffer too small");
        }
        EXPECT_EQ(small.size(), 3U);
        EXPECT_EQ(small.channel(0)[0], 5.0F);
    });
}

TEST(DelayLine, WriteRefusesMoreFramesThanTheLargestBlock)
{
    expectUnchanged(470, [](Trial& trial) {
        trial.in.setSize(471);
        EXPECT_EQ(failureText<std::invalid_argument>([&] { trial.line.write(trial.in, trial.stereoOut); }),
                  "DelayLine: internal buffer too small");
    });
}

TEST(DelayLine, WriteRefusesAnEmptyBlock)
{
    expectUnchanged(480, [](Trial& trial) {
        trial.in.setSize(0);
        EXPECT_EQ(failureText<std::invalid_argument>([&] { trial.line.write(trial.in, trial.stereoOut); }),
                  "DelayLine: in buffer empty");
    });
}

TEST(DelayLine, MovesWithItsStateAndNeverCopies)
{
    static_assert(std::is_nothrow_move_constructible_v<DelayLine> && std::is_nothrow_move_assignable_v<DelayLine>);
    static_assert(!std::is_copy_constructible_v<DelayLine> && !std::is_copy_assignable_v<DelayLine>);

    Trial trial(roomy(480));
    int count = 0;
    const auto next = [&] { return static_cast<float>(++count % 1000); };
    for (int block = 0; block < 5; ++block)
        trial.block(300, next);
    DelayLine first = std::move(trial.line);
    const std::string text = "Buffer not initialized";
    EXPECT_EQ(failureText<UninitializedBuffer>([&] { trial.line.read(trial.lineOut, 16); }), text);
    EXPECT_EQ(failureText<UninitializedBuffer>([&] { trial.line.write(trial.in, trial.stereoOut); }), text);
    trial.line = std::move(first);
    for (int block = 0; block < 5; ++block)
        trial.block(300, next);
}

TEST(DelayLine, IsMadeOfTheTabledLinesForBlocksUpToTheShortest)
{
    const auto build = [](std::uint64_t maxBlock) {
        return DelayLine(fdnColumn(&FdnLineRow::tapLeft), fdnColumn(&FdnLineRow::gainLeft), fdnColumn(&FdnLineRow::tapRight),
                         fdnColumn(&FdnLineRow::gainRight), fdnColumn(&FdnLineRow::length), maxBlock);
    };
    EXPECT_NO_THROW(build(480));
    EXPECT_NO_THROW(build(1072));
    EXPECT_THROW(build(1073), std::invalid_argument);
}

} // namespace
} // namespace quorel
