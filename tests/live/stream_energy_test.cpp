// SPDX-License-Identifier: MIT
// What a live stream of the microphone tells of the energy that went in and came out.
#include "tests/live/steered.h"

namespace quorel {
namespace {

class StreamEnergy : public Steered {
protected:
    void run(EffectStream& stream, const Rows& in)
    {
        Rows out(1, in.rows[0].size());
        for (std::size_t done = 0; done < in.rows[0].size(); done += 240)
            stream.process(in.in(done).data(), out.out(done).data(), 240);
    }
};

// Without any effect the path copies: 4800 samples of 1/4 have an energy of 300, exactly, in and out.
TEST_F(StreamEnergy, IsTheSumOfTheSquaresInAndOut)
{
    const auto stream = streamOf(microphone, {240, 0});
    run(*stream, Rows(1, 4800, 0.25F));
    EXPECT_EQ(status.inEnergy, 300);
    EXPECT_EQ(status.outEnergy, 300);
    run(*stream, Rows(1, 4800, 0.5F));
    EXPECT_EQ(status.inEnergy, 1500);
    EXPECT_EQ(status.outEnergy, 1500);
}

// A level below the gate's threshold goes in whole and comes out as nearly nothing.
TEST_F(StreamEnergy, OfAClosedGateIsWhatWentInAlone)
{
    set([](SettingsRecord& record) { record.noiseGate = 1; }); // opens at the loudest
    const auto stream = streamOf(microphone, {240, 0});
    run(*stream, Rows(1, 48000, 0.0005F));
    const double before = status.outEnergy;
    run(*stream, Rows(1, 48000, 0.0005F));
    EXPECT_NEAR(status.inEnergy, 96000 * 0.0005 * 0.0005, 1e-6);
    EXPECT_LT(status.outEnergy - before, 48000 * 0.0005 * 0.0005 / 100);
}

TEST_F(StreamEnergy, OfSpeakersIsNotTold)
{
    const auto stream = streamOf(speaker, {480, 0});
    const Rows in(8, 480, 0.25F);
    Rows out(2, 480);
    stream->process(in.in().data(), out.out().data(), 480);
    EXPECT_EQ(status.inEnergy, 0);
}

} // namespace
} // namespace quorel
