// SPDX-License-Identifier: MIT
#include "core/status.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string_view>

namespace quorel {
namespace {

struct Named {
    std::int32_t number;
    const char* name;
};

// Written down once more, so that each name is compared with what it is to be.
// clang-format off
constexpr Named names[] = {
    {-9999, "ippStsCpuNotSupportedErr"}, {-9998, "ippStsInplaceModeNotSupportedErr"}, {-234, "ippStsIIRIIRLengthErr"},
    {-233, "ippStsWarpTransformTypeErr"}, {-232, "ippStsExceededSizeErr"}, {-231, "ippStsWarpDirectionErr"},
    {-230, "ippStsFilterTypeErr"}, {-229, "ippStsNormErr"}, {-228, "ippStsAlgTypeErr"}, {-227, "ippStsMisalignedOffsetErr"},
    {-225, "ippStsBorderErr"}, {-224, "ippStsDitherTypeErr"}, {-216, "ippStsUnknownStatusCodeErr"},
    {-214, "ippStsLzoBrokenStreamErr"}, {-213, "ippStsRoundModeNotSupportedErr"}, {-212, "ippStsDecimateFractionErr"},
    {-211, "ippStsWeightErr"}, {-210, "ippStsQualityIndexErr"}, {-209, "ippStsIIRPassbandRippleErr"},
    {-208, "ippStsFilterFrequencyErr"}, {-206, "ippStsIIRGenOrderErr"}, {-205, "ippStsConvergeErr"},
    {-204, "ippStsSizeMatchMatrixErr"}, {-203, "ippStsCountMatrixErr"}, {-202, "ippStsRoiShiftMatrixErr"},
    {-200, "ippStsSrcDataErr"}, {-195, "ippStsSingularErr"}, {-194, "ippStsSparseErr"}, {-190, "ippStsRegExpOptionsErr"},
    {-189, "ippStsRegExpErr"}, {-188, "ippStsRegExpMatchLimitErr"}, {-187, "ippStsRegExpQuantifierErr"},
    {-186, "ippStsRegExpGroupingErr"}, {-185, "ippStsRegExpBackRefErr"}, {-184, "ippStsRegExpChClassErr"},
    {-183, "ippStsRegExpMetaChErr"}, {-182, "ippStsStrideMatrixErr"}, {-125, "ippStsNoiseRangeErr"},
    {-108, "ippStsNotEvenStepErr"}, {-107, "ippStsHistoNofLevelsErr"}, {-106, "ippStsLUTNofLevelsErr"},
    {-60, "ippStsChannelOrderErr"}, {-59, "ippStsDataTypeErr"}, {-58, "ippStsQuadErr"}, {-57, "ippStsRectErr"},
    {-56, "ippStsCoeffErr"}, {-55, "ippStsNoiseValErr"}, {-54, "ippStsDitherLevelsErr"}, {-53, "ippStsNumChannelsErr"},
    {-52, "ippStsCOIErr"}, {-51, "ippStsDivisorErr"}, {-50, "ippStsAlphaTypeErr"}, {-49, "ippStsGammaRangeErr"},
    {-47, "ippStsChannelErr"}, {-46, "ippStsToneMagnErr"}, {-45, "ippStsToneFreqErr"}, {-44, "ippStsTonePhaseErr"},
    {-43, "ippStsTrnglMagnErr"}, {-42, "ippStsTrnglFreqErr"}, {-41, "ippStsTrnglPhaseErr"}, {-40, "ippStsTrnglAsymErr"},
    {-39, "ippStsHugeWinErr"}, {-38, "ippStsJaehneErr"}, {-37, "ippStsStrideErr"}, {-36, "ippStsEpsValErr"},
    {-35, "ippStsWtOffsetErr"}, {-34, "ippStsAnchorErr"}, {-33, "ippStsMaskSizeErr"}, {-32, "ippStsShiftErr"},
    {-31, "ippStsSampleFactorErr"}, {-30, "ippStsSamplePhaseErr"}, {-29, "ippStsFIRMRFactorErr"},
    {-28, "ippStsFIRMRPhaseErr"}, {-27, "ippStsRelFreqErr"}, {-26, "ippStsFIRLenErr"}, {-25, "ippStsIIROrderErr"},
    {-24, "ippStsResizeFactorErr"}, {-23, "ippStsInterpolationErr"}, {-22, "ippStsMirrorFlipErr"},
    {-21, "ippStsMoment00ZeroErr"}, {-20, "ippStsThreshNegLevelErr"}, {-19, "ippStsThresholdErr"}, {-18, "ippStsFftFlagErr"},
    {-17, "ippStsFftOrderErr"}, {-16, "ippStsStepErr"}, {-15, "ippStsLengthErr"}, {-14, "ippStsNotSupportedModeErr"},
    {-13, "ippStsContextMatchErr"}, {-12, "ippStsScaleRangeErr"}, {-11, "ippStsOutOfRangeErr"}, {-10, "ippStsDivByZeroErr"},
    {-9, "ippStsMemAllocErr"}, {-8, "ippStsNullPtrErr"}, {-7, "ippStsRangeErr"}, {-6, "ippStsSizeErr"},
    {-5, "ippStsBadArgErr"}, {-4, "ippStsNoMemErr"}, {-2, "ippStsErr"}, {0, "ippStsNoErr"}, {1, "ippStsNoOperation"},
    {2, "ippStsDivByZero"}, {3, "ippStsSqrtNegArg"}, {4, "ippStsInvZero"}, {5, "ippStsEvenMedianMaskSize"},
    {7, "ippStsLnZeroArg"}, {8, "ippStsLnNegArg"}, {9, "ippStsNanArg"}, {12, "ippStsOverflow"}, {17, "ippStsUnderflow"},
    {18, "ippStsSingularity"}, {19, "ippStsDomain"}, {20, "ippStsNonIntelCpu"}, {21, "ippStsCpuMismatch"},
    {26, "ippStsOvermuchStrings"}, {27, "ippStsOverlongString"}, {28, "ippStsAffineQuadChanged"},
    {29, "ippStsWrongIntersectROI"}, {30, "ippStsWrongIntersectQuad"}, {32, "ippStsSrcSizeLessExpected"},
    {33, "ippStsDstSizeLessExpected"}, {35, "ippStsDoubleSize"}, {36, "ippStsNotSupportedCpu"},
    {37, "ippStsUnknownCacheSize"}, {38, "ippStsSymKernelExpected"}, {39, "ippStsEvenMedianWeight"},
    {40, "ippStsWrongIntersectVOI"}, {43, "ippStsWaterfall"}, {46, "ippStsNoAntialiasing"}, {47, "ippStsRepetitiveSrcData"},
    {48, "ippStsSizeWrn"}, {49, "ippStsFeatureNotSupported"}, {50, "ippStsUnknownFeature"},
    {51, "ippStsFeaturesCombination"}, {52, "ippStsAccurateModeNotSupported"},
};
// clang-format on

TEST(Status, AnErrorNamesItsStatus)
{
    EXPECT_STREQ(ipps::Error(Status{-6}).what(), "ippStsSizeErr");
}

TEST(Status, AStatusInAGapOfTheTableIsUnknown)
{
    EXPECT_STREQ(ipps::Error(Status{-3}).what(), "Unknown IPP Error!");
}

TEST(Status, CopyingAnErrorKeepsItsStatus)
{
    const ipps::Error error(ippStsSparseErr);
    const ipps::Error copy = error;
    EXPECT_EQ(copy.status, -194);
    EXPECT_STREQ(copy.what(), "ippStsSparseErr");
}

TEST(Status, TheTableHas134RowsInRisingOrder)
{
    constexpr std::int32_t numbers[] = {
#define QUOREL_STATUS(number, name) number,
#include "core/status_names.inc"
#undef QUOREL_STATUS
    };
    EXPECT_EQ(std::size(numbers), 134U);
    EXPECT_TRUE(std::is_sorted(std::begin(numbers), std::end(numbers), std::less_equal<>()));
}

TEST(Status, EveryNumberOutsideTheTableIsUnknown)
{
    int known = 0;
    for (std::int32_t number = -10100; number <= 200; ++number)
        known += std::string_view(statusText(Status{number})) != "Unknown IPP Error!";
    EXPECT_EQ(known, 134);
}

TEST(Status, EveryNumberHasItsName)
{
    EXPECT_EQ(std::size(names), 134U);
    for (const auto& [number, name] : names)
        EXPECT_STREQ(statusText(Status{number}), name) << number;
}

TEST(Status, CheckThrowsWarningsAsItThrowsErrors)
{
    EXPECT_NO_THROW(check(ippStsNoErr));
    EXPECT_THROW(check(ippStsDivByZero), ipps::Error);
    EXPECT_THROW(check(ippStsSizeErr), ipps::Error);
}

} // namespace
} // namespace quorel
