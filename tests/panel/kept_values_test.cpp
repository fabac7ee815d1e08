// SPDX-License-Identifier: MIT
#include "panel/kept_values.h"

#include "platform/programs/process.h"
#include "tests/panel/own_folders.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

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

TEST_F(KeptValues, AreRefusedWhereAFileTakesTheirFoldersPlace)
{
    const std::filesystem::path folder = platform::userFolder();
    std::filesystem::remove_all(folder);
    std::filesystem::create_directories(folder.parent_path());
    std::ofstream(folder) << "a file";
    try {
        saveKeptValues(some);
        ADD_FAILURE() << "saved";
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(std::string(error.what()).rfind("cannot make the folder " + folder.string() + ": ", 0), 0U) << error.what();
    }
    EXPECT_TRUE(std::filesystem::is_regular_file(folder));
    std::filesystem::remove(folder);
}

} // namespace
} // namespace quorel
