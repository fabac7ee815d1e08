// SPDX-License-Identifier: MIT
#include "panel/response_import.h"

#include "client/hrtf_delivery.h"
#include "client/hrtf_file.h"
#include "speaker/speaker_tables.h"

#include <cmath>
#include <exception>
#include <iomanip>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace quorel {

namespace {

// Throws unless a set of all eight speakers is for the stream that runs, or nobody knows which one does.
void checkStream(const ControlClient& client, std::optional<std::uint32_t> told)
{
    const StreamFit fit = speakersStream(client, told).fit;
    if (fit != StreamFit::fits && fit != StreamFit::unknown)
        throw std::runtime_error("Not delivered: a set is for a stream of all eight speakers (7.1) at 48000 Hz, and none runs.");
}

} // namespace

ResponseImport::~ResponseImport()
{
    ending = true;
    if (thread.joinable())
        thread.join();
}

bool ResponseImport::start(const std::string& path, std::optional<std::uint32_t> told)
{
    if (working.exchange(true))
        return false;
    if (thread.joinable())
        thread.join(); // it has ended
    thread = std::thread([this, path, told] { run(path, told); });
    return true;
}

ImportReport ResponseImport::report() const
{
    const std::scoped_lock lock(mutex);
    return last;
}

void ResponseImport::run(const std::string& path, std::optional<std::uint32_t> told)
{
    ImportReport report;
    try {
        report = path.empty() ? restore(told) : import(path, told);
    } catch (const std::exception& error) {
        report.text = error.what();
        report.path = path;
    }
    {
        const std::scoped_lock lock(mutex);
        last = std::move(report);
    }
    working = false;
    news();
}

// The file is read before anything is asked of the effect: what is wrong with it is told even where no stream runs.
ImportReport ResponseImport::import(const std::string& path, std::optional<std::uint32_t> told) const
{
    ImportReport report;
    report.path = path;
    const ImportedSet imported = importHrtf(path, Equalize::byDiffuseField, 0, [this] {
        if (ending)
            throw std::runtime_error("the panel ends");
    });
    std::ostringstream text;
    for (const std::string& note : imported.notes)
        text << note << '\n';
    text << std::fixed << std::setprecision(2) << "Scaled by " << std::showpos << imported.set.gainDb << std::noshowpos
         << " dB. Cut of the energy: at most " << 100 * imported.set.worstCut << " %, at " << imported.set.worstName << ".\n";
    report.set = imported.set;

    try {
        ControlClient client;
        checkStream(client, told);
        report.identity = deliverSet(client, imported.set, everySpeaker);
        report.delivered = true;
        text << "Delivered to the effect.\n";
        if (!told && microphoneLockedLast(client))
            text << "A microphone's stream began last: a speakers' stream of fewer than eight channels would refuse every "
                    "block.\n";
        rememberFile(report.identity, path);
    } catch (const std::exception& error) {
        text << error.what() << '\n';
    }
    report.text = text.str();
    return report;
}

ImportReport ResponseImport::restore(std::optional<std::uint32_t> told)
{
    ImportReport report;
    ControlClient client;
    const auto cleared = clearSet(client, 0, told);
    report.text = cleared ? "The built-in responses are in force." : "No delivered set is in force.";
    if (cleared)
        for (const std::uint32_t channels : cleared->others)
            report.text += "\nA set for " + std::to_string(channels) +
                           " channels was delivered as well: while a stream of so many " +
                           "refuses every block, restore the built-in responses once more.";
    return report;
}

} // namespace quorel
