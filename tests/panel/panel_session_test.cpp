// SPDX-License-Identifier: MIT
#include "panel/panel_session.h"

#include "panel/kept_values.h"
#include "tests/panel/own_folders.h"
#include "tests/panel/running_effect.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <stdexcept>

namespace quorel {
namespace {

using News = PanelSession::News;
const SettingsField& reverb = *settingsField("Reverb");

class PanelSessionTest : public RunningEffect {
protected:
    ~PanelSessionTest() override
    {
        session.reset();
        saveKeptValues({});
    }

    void open()
    {
        session = std::make_unique<PanelSession>([this](News news) { ++announced.at(static_cast<std::size_t>(news)); });
        ASSERT_TRUE(becomes([this] { return session->model().usable(); }));
    }

    // Whether it comes to that while every announcement is followed.
    bool becomes(const std::function<bool()>& reached)
    {
        return eventually([&] {
            for (const News news : {News::effect, News::live, News::import})
                if (announced.at(static_cast<std::size_t>(news)).exchange(0) > 0)
                    session->take(news);
            return reached();
        });
    }

    std::array<std::atomic<int>, 3> announced{};
    std::unique_ptr<PanelSession> session;
};

// A window that is busy finds one announcement in its queue, however many looks there have been; the next comes after its taking.
TEST_F(PanelSessionTest, AnnouncesNewsOnceUntilTheyAreTaken)
{
    open();
    auto& looks = announced.at(0);
    ASSERT_TRUE(eventually([&] { return looks == 1; }));
    std::this_thread::sleep_for(5 * EffectLink::interval);
    EXPECT_EQ(looks, 1);
    session->take(News::effect);
    EXPECT_TRUE(eventually([&] { return looks == 2; }));
}

TEST_F(PanelSessionTest, OnlyLevelsAreNoNewsForTheRest)
{
    open();
    ASSERT_TRUE(eventually([&] { return announced.at(0) > 0; }));
    session->take(News::effect);
    block.levels.fill(-7);
    ASSERT_TRUE(eventually([&] {
        announced.at(0) = 0;
        EXPECT_FALSE(session->take(News::effect));
        return session->model().seen().levels.at(3) == -7;
    }));
    ControlClient().update([](SettingsRecord& record) { record.Reverb = 9; });
    EXPECT_TRUE(eventually([&] { return session->take(News::effect); }));
}

TEST_F(PanelSessionTest, AnEditArrivesAndARefusedOneIsTheMessage)
{
    open();
    session->attempt([](PanelModel& model) { model.edit(reverb, 120); });
    EXPECT_EQ(session->message(), "");
    EXPECT_TRUE(eventually([&] { return settings().Reverb == 120; }));
    session->attempt([](PanelModel& model) { model.edit(reverb, 999); });
    EXPECT_NE(session->message(), "");
    session->attempt([](PanelModel&) {});
    EXPECT_EQ(session->message(), "");
}

TEST_F(PanelSessionTest, ABypassIsKeptUntilItIsPutBack)
{
    open();
    session->attempt([](PanelModel& model) { model.edit(reverb, 120); });
    ASSERT_TRUE(becomes([&] { return settings().Reverb == 120 && session->model().settled(); }));
    session->bypass(true);
    EXPECT_TRUE(session->bypassed());
    EXPECT_EQ(loadKeptValues().size(), 1U);
    ASSERT_TRUE(becomes([&] { return settings().Reverb == 0; }));
    open(); // a panel that ended leaves it to the next
    EXPECT_TRUE(session->bypassed());
    session->bypass(false);
    EXPECT_TRUE(becomes([&] { return settings().Reverb == 120 && loadKeptValues().empty(); }));
}

TEST_F(PanelSessionTest, KnowsTheBuiltInResponsesAndNoneOfAnotherProgram)
{
    open();
    ASSERT_TRUE(session->responses().has_value());
    EXPECT_EQ(*session->responses(), builtInTaps());
    ControlClient().update([](SettingsRecord& record) { record.hrtfId = 0x180; });
    EXPECT_TRUE(becomes([&] { return !session->responses(); }));
}

TEST_F(PanelSessionTest, LevelsAreMeasuredWhileTheyAreShown)
{
    open();
    session->watch(true, true);
    EXPECT_TRUE(eventually([&] { return settings().levelsEnabled == 1; }));
    session->watch(false, true);
    EXPECT_TRUE(eventually([&] { return settings().levelsEnabled == 0; }));
}

TEST_F(PanelSessionTest, LevelsAreDueTenTimesASecond)
{
    open();
    const auto start = std::chrono::steady_clock::now();
    int pictures = 0;
    double told = 0;
    while (pictures < 3)
        if (const auto seconds = session->levelsDue()) {
            ++pictures;
            told += *seconds;
        }
    EXPECT_GE(std::chrono::steady_clock::now() - start, 2 * std::chrono::milliseconds(90)); // the first may be due at once
    EXPECT_GE(told, 3 * 0.09);
}

TEST_F(PanelSessionTest, TheBandsAreThoseOfTheStreamsRate)
{
    open();
    EXPECT_EQ(session->levelRate(), 48000U);
    block.activeFramesPerSecond = 16000;
    EXPECT_TRUE(becomes([&] { return session->levelRate() == 16000; }));
}

} // namespace
} // namespace quorel
