// SPDX-License-Identifier: MIT
// Files of measured responses that quorel-control delivers.
#include "tests/tools/control_test.h"

#include <mysofa.h>
#include <sys/stat.h>

namespace quorel {
namespace {

using testing::HasSubstr;

const char* const measured = "/usr/share/libmysofa/MIT_KEMAR_normal_pinna.sofa";

// ---- files of responses ---------------------------------------------------------------------------------------------

class Sofa : public Responses {
protected:
    std::string changed(const std::string& change) const
    {
        const std::string file = path(change + ".sofa");
        const std::string command = std::string("/usr/bin/python3 ") + CHANGED_SOFA + " " + measured + " " + file + " " + change;
        EXPECT_EQ(std::system(command.c_str()), 0);
        return file;
    }

    static std::complex<double> transferAt(const Response& x, double frequency, double rate)
    {
        std::complex<double> sum;
        for (std::size_t i = 0; i < x.size(); ++i)
            sum += std::polar(x[i], -2 * std::numbers::pi * frequency * static_cast<double>(i) / rate);
        return sum;
    }

    static std::size_t mainTap(const Response& x)
    {
        std::size_t most = 0;
        for (std::size_t i = 0; i < x.size(); ++i)
            if (std::abs(x[i]) > std::abs(x[most]))
                most = i;
        return most;
    }

    // As measured.
    std::vector<Ears> heardOf(SignalPath& path, const std::string& file)
    {
        done({"hrtf", "load", file, "--equalize", "none"});
        follow(*path->settings());
        std::vector<Ears> heardPairs;
        for (std::size_t row = 0; row < 8; ++row)
            heardPairs.push_back(heard(path, row));
        return heardPairs;
    }
};

// Against the file's own measurements at the eight places, as transfer functions: one gain and one delay, found at the front
// centre's left ear, lead from all of the measured ones to those that are heard. What is left is what the tool says that it cut.
TEST_F(Sofa, TheMeasuredDirectionsAreHeard)
{
    SignalPath path = path7();
    const auto heardPairs = heardOf(path, measured);

    int code = 0;
    MYSOFA_HRTF* file = mysofa_load(measured, &code);
    ASSERT_NE(file, nullptr);
    const auto measurement = [&](double azimuth, std::size_t ear) {
        for (std::size_t m = 0; m < file->M; ++m)
            if (std::abs(static_cast<double>(file->SourcePosition.values[3 * m]) - azimuth) < 0.1 &&
                file->SourcePosition.values[3 * m + 1] == 0.0F) {
                const float* taps = file->DataIR.values + (2 * m + ear) * file->N;
                return Response(taps, taps + file->N);
            }
        ADD_FAILURE() << azimuth;
        return Response();
    };
    using Transfer = std::vector<std::complex<double>>; // every 100 Hz
    const auto transfer = [](const Response& x, double rate) {
        Transfer values;
        for (int k = 1; k <= 200; ++k)
            values.push_back(transferAt(x, 100 * k, rate));
        return values;
    };
    // What is left of `to` behind `gain` times `from`, `delay` seconds late, as a share of the power.
    const auto residue = [](const Transfer& from, const Transfer& to, double gain, double delay) {
        double left = 0;
        double all = 0;
        for (std::size_t k = 0; k < from.size(); ++k) {
            const auto turn = std::polar(gain, -2 * std::numbers::pi * 100 * static_cast<double>(k + 1) * delay);
            left += std::norm(to[k] - turn * from[k]);
            all += std::norm(turn * from[k]);
        }
        return left / all;
    };

    const Transfer from = transfer(measurement(0, 0), 44100);
    const Transfer to = transfer(heardPairs[2][0], 48000);
    double gain = 0;
    double delay = 0;
    for (int step = -2000; step <= 2000; ++step) { // of a fiftieth of a frame
        const double tried = step / 50.0 / 48000;
        double product = 0;
        double power = 0;
        for (std::size_t k = 0; k < from.size(); ++k) {
            const auto turn = std::polar(1.0, -2 * std::numbers::pi * 100 * static_cast<double>(k + 1) * tried);
            product += std::real(to[k] * std::conj(turn * from[k]));
            power += std::norm(from[k]);
        }
        if (product / power > gain) {
            gain = product / power;
            delay = tried;
        }
    }
    constexpr std::array<double, 8> azimuths = {30, 330, 0, 0, 145, 215, 105, 255};
    for (std::size_t row = 0; row < 8; ++row)
        for (std::size_t ear = 0; ear < 2 && row != woofer; ++ear) {
            const bool nearEar = row == 2 || (row % 2 == 0) == (ear == 0);
            EXPECT_LT(
                residue(transfer(measurement(azimuths[row], ear), 44100), transfer(heardPairs[row][ear], 48000), gain, delay),
                nearEar ? 0.01 : 0.05) // as told: 0.7 % at most at a near ear, 4.7 % at most at a far one
                << row << ' ' << ear;
        }
    mysofa_free(file);

    // This head is the same on both sides.
    for (const auto& [left, right] : {std::pair{0, 1}, {4, 5}, {6, 7}})
        for (std::size_t i = 0; i < 177; ++i) {
            ASSERT_NEAR(heardPairs[left][0][i], heardPairs[right][1][i], 2e-6);
            ASSERT_NEAR(heardPairs[left][1][i], heardPairs[right][0][i], 2e-6);
        }
}

TEST_F(Sofa, PositionsMayBeCartesian)
{
    done({"hrtf", "load", measured, "--equalize", "none"});
    const std::vector<float> spherical(share(), share() + 16 * 1024);
    done({"hrtf", "load", changed("cartesian"), "--equalize", "none"});
    EXPECT_EQ(std::memcmp(share(), spherical.data(), hrtfShareBytes), 0);
}

TEST_F(Sofa, ADelayOfTheFileIsKeptToTheNearestFrame)
{
    SignalPath path = path7();
    const auto plain = heardOf(path, measured);
    const auto late = heardOf(path, changed("delay"));
    // 20 frames at 44100 Hz are 21.8 at 48000.
    for (const std::size_t row : {0, 1, 2, 4, 5, 6, 7})
        EXPECT_EQ(mainTap(late[row][1]) - mainTap(late[row][0]) + mainTap(plain[row][0]) - mainTap(plain[row][1]), 22U) << row;
}

TEST_F(Sofa, ASetAtTheEffectsRateIsTakenTapByTap)
{
    SignalPath path = path7();
    const auto heardPairs = heardOf(path, changed("rate"));
    int code = 0;
    MYSOFA_HRTF* file = mysofa_load(changed("rate").c_str(), &code);
    ASSERT_NE(file, nullptr);
    // The ratios of the taps at the front centre's left ear, from its main one on, are the file's.
    for (std::size_t m = 0; m < file->M; ++m) {
        if (file->SourcePosition.values[3 * m] != 0.0F || file->SourcePosition.values[3 * m + 1] != 0.0F)
            continue;
        const Response taps(file->DataIR.values + 2 * m * file->N, file->DataIR.values + (2 * m + 1) * file->N);
        const Response& x = heardPairs[2][0];
        for (std::size_t i = 0; i < 100; ++i)
            ASSERT_NEAR(x[mainTap(x) + i] / x[mainTap(x)], taps[mainTap(taps) + i] / taps[mainTap(taps)], 2e-5) << i;
    }
    mysofa_free(file);
}

TEST_F(Sofa, TheUserIsToldWhatWasTakenAndCut)
{
    const Outcome outcome = run({"hrtf", "load", measured, "--equalize", "none"});
    EXPECT_EQ(outcome.code, 0);
    EXPECT_THAT(outcome.err,
                HasSubstr("710 directions at 44100 Hz; taken (degrees from the speaker): front left 0.0, front right "
                          "0.0, front centre 0.0, back left 0.0, back right 0.0, side left 0.0, side right 0.0\n"));
    EXPECT_THAT(outcome.err, HasSubstr("delivered for 8 channels at -2."));
    EXPECT_THAT(outcome.err, HasSubstr(" dB; cut of the energy: at most 4."));
    EXPECT_THAT(outcome.err, HasSubstr("colour against the built-in set, in dB from 63 Hz to 16 kHz: -20.9 -16.3 -11.1 "));
}

// The set itself is tested with what imports it.
TEST_F(Sofa, AMeasurementIsEqualizedUnlessItIsToBeAsMeasured)
{
    const Outcome outcome = run({"hrtf", "load", measured});
    EXPECT_EQ(outcome.code, 0);
    EXPECT_THAT(outcome.err, HasSubstr("equalised by the mean of all directions, each ear by its own"));
    EXPECT_THAT(outcome.err, HasSubstr("; as measured at most 4.7 % would be cut, at side left, right ear\n"));
    EXPECT_THAT(outcome.err, HasSubstr("colour against the built-in set, in dB from 63 Hz to 16 kHz: +0."));
    const std::vector<float> equalized(share(), share() + 16 * 1024);
    done({"hrtf", "load", measured, "--equalize", "diffuse"});
    EXPECT_EQ(std::memcmp(share(), equalized.data(), hrtfShareBytes), 0);
    expectUntouched({"hrtf", "load", measured, "--equalize", "some"}, "--equalize");
}

TEST_F(Sofa, ABadFileIsRefusedAndNothingIsTouched)
{
    for (const auto& [change, reason] : {std::pair{"nan", "the response of side left, right ear holds a value that is no number"},
                                         {"front", "it has no measurement within 15 degrees of back left, at azimuth 145"},
                                         {"nowhere", "it has no measurement within 15 degrees of front left, at azimuth 30"},
                                         {"early", "the delay of front left is no number of frames"},
                                         {"slow", "its sample rate is none from 8000 to 768000 Hz"},
                                         {"convention", "it is of another convention than SimpleFreeFieldHRIR"}})
        expectUntouched({"hrtf", "load", changed(change)}, reason);

    expectUntouched({"hrtf", "load", path("none.sofa")}, "none.sofa: No such file or directory");
    const std::string whole = contents(measured);
    for (const std::size_t bytes : {0, 1, 100, 5000, 100000, 300000, 1000000}) {
        std::ofstream(path("part.sofa"), std::ios::binary) << whole.substr(0, bytes);
        expectUntouched({"hrtf", "load", path("part.sofa")}, "cannot read " + path("part.sofa") + ": it ");
    }
}

TEST_F(Sofa, WhatIsNoRegularFileOrTooLargeIsRefusedAtOnce)
{
    for (const char* ending : {"sofa", "wav"}) {
        const std::string pipe = path(std::string("pipe.") + ending);
        ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
        expectUntouched({"hrtf", "load", pipe}, "cannot read " + pipe + ": not a regular file");
        const std::string huge = path(std::string("huge.") + ending);
        std::ofstream(huge).flush();
        fs::resize_file(huge, (std::uintmax_t{256} << 20) + 1); // of no blocks
        expectUntouched({"hrtf", "load", huge}, "cannot read " + huge + ": it has more than 256 MiB");
    }
    expectUntouched({"hrtf", "load", folder.string()}, "not a regular file");
}

// At the rate that it names these responses would fill more than a gigabyte each.
TEST_F(Sofa, AFileThatAsksForTooMuchIsRefused)
{
    const std::string file = wav("slow.wav", 14, interleaved(someSet(100, 10, 8000)), 1);
    expectUntouched({"hrtf", "load", file}, "cannot read " + file + ": ");
}

// At 96 kHz each response is the transform's noise away from the same at 48 kHz, and twice as long.
TEST_F(Sofa, AnAudioFileAtAnotherRateIsResampled)
{
    // Responses that have no sound above 16 kHz: a pulse of the form of a Gaussian, 1.3 kHz wide, at 3 kHz.
    const auto at = [](double rate) {
        const auto frames = static_cast<std::size_t>(0.006 * rate);
        std::vector<Ears> set(8);
        for (std::size_t row = 0; row < 8; ++row)
            for (std::size_t ear = 0; ear < 2; ++ear)
                for (std::size_t i = 0; i < frames; ++i) {
                    const bool far = row != 2 && (row % 2 == 0) == (ear == 1);
                    const double t = static_cast<double>(i) / rate - (far ? 0.0015 : 0.001);
                    const double pulse = std::exp(-std::pow(t / 0.00025, 2)) * std::cos(2 * std::numbers::pi * 3000 * t);
                    set[row][ear].push_back(pulse * (far ? 0.4 : 1));
                }
        return set;
    };
    SignalPath path = path7();
    const auto plain = heardOf(path, wav("plain.wav", 14, interleaved(at(48000))));
    for (const std::uint32_t rate : {44100U, 96000U}) {
        const auto other = heardOf(path, wav("other.wav", 14, interleaved(at(rate)), rate));
        for (std::size_t row = 0; row < 8; ++row)
            for (std::size_t ear = 0; ear < 2 && row != woofer; ++ear) {
                // The first frame may have been chosen one frame apart; levels and the times between the ears are the same.
                for (const double frequency : {1500.0, 3000.0, 4500.0}) {
                    const auto ratio = transferAt(other[row][ear], frequency, 48000) / transferAt(other[2][0], frequency, 48000);
                    const auto expected =
                        transferAt(plain[row][ear], frequency, 48000) / transferAt(plain[2][0], frequency, 48000);
                    EXPECT_LT(std::abs(ratio - expected), 1e-3) << rate << ' ' << row << ' ' << ear << ' ' << frequency;
                }
                EXPECT_NEAR(energy(other[row][ear]), energy(plain[row][ear]), 1e-3 * energy(plain[row][ear]));
            }
    }
}

} // namespace
} // namespace quorel
