// SPDX-License-Identifier: MIT
#include "client/hrtf_sources.h"

#include "client/audio_file.h"
#include "client/hrtf_file.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <fstream>
#include <iomanip>
#include <memory>
#include <mysofa.h>
#include <numbers>
#include <soxr.h>
#include <sstream>
#include <stdexcept>

namespace quorel {

const char* const readableHrtfFiles = "a SOFA file (AES69, SimpleFreeFieldHRIR), or a WAV file of 14 channels";

namespace {

[[noreturn]] void fail(const std::string& path, const std::string& reason)
{
    throw std::runtime_error("cannot read " + path + ": " + reason);
}

struct FreeSofa {
    void operator()(MYSOFA_HRTF* file) const noexcept { mysofa_free(file); }
};
using Sofa = std::unique_ptr<MYSOFA_HRTF, FreeSofa>;

const char* sofaReason(int code)
{
    switch (code) {
    case MYSOFA_READ_ERROR:
        return "it breaks off";
    case MYSOFA_INVALID_ATTRIBUTES:
        return "it is no SOFA file of the convention SimpleFreeFieldHRIR with FIR data";
    case MYSOFA_INVALID_DIMENSIONS:
    case MYSOFA_INVALID_DIMENSION_LIST:
        return "its dimensions are not those of two ears and one source";
    case MYSOFA_ONLY_THE_SAME_SAMPLING_RATE_SUPPORTED:
        return "its measurements have different sample rates";
    case MYSOFA_INVALID_RECEIVER_POSITIONS:
    case MYSOFA_RECEIVERS_WITH_RCI_SUPPORTED:
    case MYSOFA_RECEIVERS_WITH_CARTESIAN_SUPPORTED:
        return "its receivers are not a left and a right ear";
    case MYSOFA_NO_MEMORY:
        return "there is too little memory";
    case MYSOFA_INVALID_FORMAT:
        return "it is no SOFA file";
    default:
        return "it is no SOFA file of the convention SimpleFreeFieldHRIR that can be read";
    }
}

struct Direction {
    double x, y, z; // unit vector: to the front, to the left, up
};

double degreesBetween(const Direction& a, const Direction& b)
{
    const double cosine = a.x * b.x + a.y * b.y + a.z * b.z;
    return std::acos(std::clamp(cosine, -1.0, 1.0)) * 180 / std::numbers::pi;
}

// The measurement whose direction is nearest to the speaker's; among equals the farthest source.
std::size_t nearestMeasurement(const MYSOFA_HRTF& file, const Direction& wanted, double& angle)
{
    std::size_t found = 0;
    double foundRadius = 0;
    angle = 360;
    for (std::size_t m = 0; m < file.M; ++m) {
        const float* p = file.SourcePosition.values + 3 * m; // Cartesian, metres
        const double x = static_cast<double>(p[0]);
        const double y = static_cast<double>(p[1]);
        const double z = static_cast<double>(p[2]);
        const double radius = std::sqrt(x * x + y * y + z * z);
        if (!(radius > 0) || !std::isfinite(radius))
            continue;
        const double between = degreesBetween(wanted, {x / radius, y / radius, z / radius});
        constexpr double same = 0.01; // degrees
        if (between < angle - same || (between < angle + same && radius > foundRadius)) {
            found = m;
            foundRadius = radius;
            angle = between;
        }
    }
    return found;
}

} // namespace

Recording readRecording(const std::string& path, std::size_t frames)
{
    AudioReader reader(path, [] {}); // no pipe: readHrtfFile takes regular files alone
    Recording recording;
    recording.channels = static_cast<std::size_t>(reader.channels());
    recording.rate = reader.rate();
    recording.samples.resize(frames * recording.channels);
    recording.frames = static_cast<std::size_t>(reader.read(recording.samples.data(), frames));
    recording.samples.resize(recording.frames * recording.channels);
    return recording;
}

std::vector<float> resampled(const std::vector<float>& taps, double rate)
{
    constexpr std::size_t ringing = 64; // frames of silence before and after, where the filter rings
    const double ratio = hrtfRate / rate;
    std::vector<float> in(taps.size() + 2 * ringing);
    std::copy(taps.begin(), taps.end(), in.begin() + ringing);
    std::vector<float> out(static_cast<std::size_t>(std::ceil(static_cast<double>(in.size()) * ratio)));
    std::size_t done = 0;
    const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_VHQ, 0);
    const soxr_error_t error =
        soxr_oneshot(rate, hrtfRate, 1, in.data(), in.size(), nullptr, out.data(), out.size(), &done, nullptr, &quality, nullptr);
    if (error != nullptr)
        throw std::runtime_error(std::string("cannot resample: ") + soxr_strerror(error));
    out.resize(done);
    for (float& value : out)
        value /= static_cast<float>(ratio);
    return out;
}

MeasuredSet readSofa(const std::string& path)
{
    if (!std::ifstream(path))
        fail(path, std::strerror(errno));
    int code = MYSOFA_OK;
    const Sofa file(mysofa_load(path.c_str(), &code));
    if (!file)
        fail(path, sofaReason(code));
    code = mysofa_check(file.get());
    if (code != MYSOFA_OK)
        fail(path, sofaReason(code));

    // The library trusts the file's lengths to agree.
    const std::size_t taps = file->N;
    const std::size_t count = file->M;
    const std::size_t delays = file->DataDelay.elements;
    if (count == 0 || taps == 0 || file->DataIR.values == nullptr || file->DataIR.elements != count * 2 * taps ||
        file->SourcePosition.values == nullptr || file->SourcePosition.elements != count * 3 ||
        file->DataSamplingRate.values == nullptr || file->DataSamplingRate.elements < 1 ||
        (file->DataDelay.values != nullptr && delays != 0 && delays != 2 && delays != 2 * count))
        fail(path, "its arrays do not fit together");
    if (taps > longestResponse)
        fail(path, "its responses are longer than " + std::to_string(longestResponse) + " frames");
    const auto rate = static_cast<double>(file->DataSamplingRate.values[0]);
    if (!(rate >= 8000 && rate <= 768000))
        fail(path, "its sample rate is none from 8000 to 768000 Hz");
    mysofa_tocartesian(file.get());

    MeasuredSet set;
    std::ostringstream places;
    places << std::fixed << std::setprecision(1) << count << " directions at " << std::setprecision(0) << rate << " Hz; taken "
           << std::setprecision(1) << "(degrees from the speaker):";
    const char* separator = " ";
    for (std::size_t row = 0; row < speakerTable.size(); ++row) {
        if (row == woofer)
            continue;
        const double azimuth = speakerAzimuths.at(row) * std::numbers::pi / 180;
        double angle = 0;
        const std::size_t m = nearestMeasurement(*file, {std::cos(azimuth), std::sin(azimuth), 0}, angle);
        if (angle > farthestDirection) {
            std::ostringstream text;
            text << "it has no measurement within " << farthestDirection << " degrees of " << speakerNames.at(row)
                 << ", at azimuth " << speakerAzimuths.at(row);
            fail(path, text.str());
        }
        places << separator << speakerNames.at(row) << ' ' << angle;
        separator = ", ";

        for (std::size_t ear = 0; ear < 2; ++ear) {
            const float* first = file->DataIR.values + (2 * m + ear) * taps;
            const float* values = file->DataDelay.values;
            const double delay =
                values == nullptr || delays == 0 ? 0 : static_cast<double>(values[(delays == 2 ? 0 : 2 * m) + ear]);
            if (!(delay >= 0 && delay <= static_cast<double>(longestResponse)))
                fail(path, std::string("the delay of ") + speakerNames.at(row) + " is no number of frames");
            (ear == 0 ? set.speakers.at(row).left : set.speakers.at(row).right) =
                atEffectRate({first, first + taps}, delay, rate);
        }
    }
    set.origin = places.str();
    return set;
}

} // namespace quorel
