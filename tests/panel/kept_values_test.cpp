// SPDX-License-Identifier: MIT
#include "panel/kept_values.h"

#include "platform/programs/process.h"
#include "tests/panel/own_folders.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace quorel {
namespace {

const Values some = {{settingsField("Reverb"), 120}, {settingsField("EQBand9"), -127}, {settingsField("Settings"), 1}};

class KeptValues : public testing::Test {
protected:
    ~KeptValues() override { saveKeptValues({}); }
};

TEST_F(KeptValues, ComeBackAsTheyWere)
{
    saveKeptValues(some);
    EXPECT_EQ(loadKeptValues(), some);
}

TEST_F(KeptValues, AreNoneWithoutAFileAndAfterTheEnd)
{
    EXPECT_TRUE(loadKeptValues().empty());
    saveKeptValues(some);
    saveKeptValues({});
    EXPECT_TRUE(loadKeptValues().empty());
}

TEST_F(KeptValues, LeaveOutLinesThatAreNoSettingInItsRange)
{
    saveKeptValues(some);
    std::ofstream(std::filesystem::path(platform::userFolder()) / "bypassed")
        << "Reverb=300\nEQBand1=-12\nlevelsEnabled=1\nnonsense\n=\nReverb=\nmicEq=2x\nMicNR=1\n";
    EXPECT_EQ(loadKeptValues(), (Values{{settingsField("EQBand1"), -12}, {settingsField("MicNR"), 1}}));
}

} // namespace
} // namespace quorel
