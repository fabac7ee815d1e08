// SPDX-License-Identifier: MIT
#include "tests/model/microphone_follower.h"

#include <algorithm>
#include <cmath>
#include <exception>
#include <optional>

namespace quorel::model {

namespace {

constexpr std::size_t mostBranches = 12;
constexpr std::size_t mostTurned = 2;  // comparisons turned against the model in one block
constexpr double fading = 0.9;         // of errors, per block
constexpr double disagreement = 1e-11; // share of the signal's energy that tells two ways apart
constexpr double sameState = 1e-6;     // relative distance within which two models are one

bool holdTheSame(const std::vector<double>& a, const std::vector<double>& b)
{
    for (std::size_t i = 0; i < a.size(); ++i)
        if (a[i] != b[i] && !(std::fabs(a[i] - b[i]) <= sameState * std::max(std::fabs(a[i]), std::fabs(b[i]))))
            return false;
    return true;
}

} // namespace

MicrophoneFollower::MicrophoneFollower(std::size_t channels, std::size_t maxFrames, std::uint32_t sampleRate,
                                       const MicrophoneWindows& windows, double margin)
    : margin(margin), branches{{MicrophoneModel(channels, maxFrames, sampleRate, windows), 0, 0.0, 0.0, {}}}
{
}

Signal MicrophoneFollower::process(const RecordFields& fields, const float* in, std::size_t n, const float* result,
                                   const float* resultLevels)
{
    std::vector<Branch> grown;
    std::exception_ptr refused;
    for (const Branch& branch : branches) {
        try {
            grow(branch, fields, in, n, {}, grown);
        } catch (const Failure&) {
            refused = std::current_exception();
        }
    }
    if (refused) {
        // A refused block has no output to be weighed by. Every model refuses it alike.
        branches = grown;
        std::rethrow_exception(refused);
    }
    weigh(grown, result, resultLevels);
    branches = grown;
    return branches.front().output;
}

void MicrophoneFollower::grow(const Branch& before, const RecordFields& fields, const float* in, std::size_t n,
                              std::vector<std::size_t> turned, std::vector<Branch>& grown)
{
    Branch branch = before;
    std::size_t met = 0;
    branch.model.referee.margin = margin;
    branch.model.referee.decide = [&](const Decision& decision) {
        const bool turn = std::find(turned.begin(), turned.end(), met) != turned.end();
        ++met;
        if (turn)
            branch.stretch += decision.distance / decision.doubt;
        return decision.holds != turn;
    };

    std::optional<Failure> refused;
    try {
        branch.output = branch.model.process(fields, in, n);
    } catch (const Failure& failure) {
        refused = failure;
    }
    branch.model.referee.decide = nullptr;
    branch.closeOnes += met;
    grown.push_back(branch);
    if (refused)
        throw *refused;

    // The same block again with a further comparison turned, each set of them once.
    if (turned.size() < mostTurned)
        for (std::size_t next = turned.empty() ? 0 : turned.back() + 1; next < met; ++next) {
            std::vector<std::size_t> more = turned;
            more.push_back(next);
            grow(before, fields, in, n, more, grown);
        }
}

void MicrophoneFollower::weigh(std::vector<Branch>& grown, const float* result, const float* resultLevels)
{
    for (Branch& branch : grown) {
        double error = 0.0;
        for (std::size_t i = 0; i < branch.output.size(); ++i) {
            const double difference = branch.output[i] - double{result[i]};
            error += difference * difference;
        }
        branch.error = fading * branch.error + error;
    }
    double energy = 0.0;
    for (const double sample : grown.front().output)
        energy += sample * sample;
    signal = fading * signal + energy;

    // A level that is off counts as much as an output that is: 0.001 dB as the share of the
    // signal that tells two ways apart.
    const auto levelError = [&](const Branch& branch) {
        double worst = 0.0;
        for (std::size_t k = 0; k < 9; ++k)
            worst = std::max(worst, std::fabs(branch.model.levels()[k] - double{resultLevels[k]}));
        return worst;
    };
    const auto weight = [&](const Branch& branch) { return branch.error + disagreement * signal * (levelError(branch) / 1e-3); };

    // Leave out what the path did not do. Of the rest, the fewer and closer the comparisons
    // that a model turned the likelier it is; leave out what has come together with a likelier
    // one, and the least likely.
    double best = weight(grown.front());
    for (const Branch& branch : grown)
        best = std::min(best, weight(branch));
    std::stable_sort(grown.begin(), grown.end(), [](const Branch& a, const Branch& b) { return a.stretch < b.stretch; });
    std::vector<Branch> kept;
    for (const Branch& branch : grown) {
        const bool excluded = weight(branch) > 10.0 * best + disagreement * signal;
        const bool known = std::any_of(kept.begin(), kept.end(), [&](const Branch& other) {
            return holdTheSame(branch.model.trackerState(), other.model.trackerState());
        });
        if (!excluded && !known && kept.size() < mostBranches)
            kept.push_back(branch);
    }
    grown = kept;
}

} // namespace quorel::model
