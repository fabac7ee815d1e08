// SPDX-License-Identifier: MIT
#include "tests/model/agreement.h"

#include <gtest/gtest.h>

#include <limits>

namespace quorel::model {
namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();

TEST(Agreement, IsTheRatioOfSignalToErrorInDecibels)
{
    // 0.5 against 0.505 is an error of one part in 100: 40 dB. Frames of eight slots, two in use.
    Agreement agreement(4);
    std::vector<float> result(8 * 8, 77.0f);
    for (std::size_t i = 0; i < 8; ++i)
        result[8 * i] = result[8 * i + 1] = 0.505f;
    agreement.add(Signal(16, 0.5), result.data(), 2, 8);
    EXPECT_NEAR(agreement.decibels(), 40.0, 1e-5); // 0.505f is off by 1e-8 of it
    EXPECT_NEAR(agreement.worstWindowDb(), 40.0, 1e-5);
    EXPECT_NEAR(agreement.largestError(), 0.005, 1e-7);
}

TEST(Agreement, FindsTheWorstWindowButNotAmongTheQuietOnes)
{
    Agreement agreement(10);
    Signal reference(30, 0.5);
    Signal result = reference;
    result[14] += 0.05; // one frame in ten off by a tenth: 30 dB
    for (std::size_t i = 20; i < 30; ++i) {
        reference[i] = 1e-5; // below the quietest that counts
        result[i] = 2e-5;
    }
    agreement.add(Signal(reference.begin(), reference.begin() + 7), Signal(result.begin(), result.begin() + 7), 1);
    agreement.add(Signal(reference.begin() + 7, reference.end()), Signal(result.begin() + 7, result.end()), 1);
    EXPECT_NEAR(agreement.worstWindowDb(), 30.0, 1e-9);
    EXPECT_EQ(agreement.worstWindowStart(), 10u);
    EXPECT_NEAR(agreement.decibels(), 33.0103, 1e-3); // the same error in twice the signal
}

TEST(Agreement, EqualSignalsAgreeWithoutLimit)
{
    Agreement agreement(5);
    agreement.add(Signal(10, 0.25), Signal(10, 0.25), 1);
    EXPECT_EQ(agreement.decibels(), infinity);
    EXPECT_EQ(agreement.worstWindowDb(), infinity);
}

TEST(Agreement, FailsClosed)
{
    EXPECT_EQ(Agreement(5).decibels(), -infinity);
    EXPECT_EQ(Agreement(5).worstWindowDb(), -infinity);

    Agreement silent(5);
    silent.add(Signal(10, 0.0), Signal(10, 0.0), 1);
    EXPECT_EQ(silent.decibels(), -infinity);

    for (const double wrong : {std::numeric_limits<double>::quiet_NaN(), infinity}) {
        for (const bool inReference : {false, true}) {
            Agreement agreement(5);
            Signal reference(10, 0.25);
            Signal result = reference;
            (inReference ? reference : result)[3] = wrong;
            agreement.add(reference, result, 1);
            EXPECT_EQ(agreement.decibels(), -infinity);
            EXPECT_EQ(agreement.worstWindowDb(), -infinity);
            EXPECT_EQ(agreement.largestError(), infinity);
        }
    }
}

} // namespace
} // namespace quorel::model
