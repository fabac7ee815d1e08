// SPDX-License-Identifier: MIT
#include "client/hrtf_sources.h"

#include "client/audio_decoder.h"
#include "client/diffuse_field.h"
#include "client/hrtf_file.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iomanip>
#include <iterator>
#include <memory>
#include <mysofa.h>
#include <numbers>
#include <numeric>
#include <optional>
#include <soxr.h>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace quorel {

const char* const readableHrtfFiles = "a SOFA file (AES69, SimpleFreeFieldHRIR), or a WAV file of 14 channels";

namespace {

constexpr std::size_t longestRinging = 64; // frames of silence before and after, where the resampler's filter rings

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

// Why the library cannot load the file, which it tells with one code for several reasons. Attributes stand in the file as text.
std::string loadingReason(const std::string& path, int code)
{
    if (code != MYSOFA_INVALID_FORMAT && code != MYSOFA_UNSUPPORTED_FORMAT)
        return sofaReason(code);
    std::ifstream file(path, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    const auto holds = [&](const char* text) { return bytes.find(text) != std::string::npos; };
    if (!bytes.starts_with("\x89HDF\r\n\x1a\n") || !holds("SOFAConventions"))
        return "it is no SOFA file";
    if (!holds("SimpleFreeFieldHRIR"))
        return "it is of another convention than SimpleFreeFieldHRIR";
    return "it is damaged, or its HDF5 is of a form that libmysofa cannot read: that of the netCDF library is read";
}

float* positionOf(const MYSOFA_HRTF& file, std::size_t m)
{
    return file.SourcePosition.values + 3 * m; // Cartesian, metres
}

double radiusOf(const MYSOFA_HRTF& file, std::size_t m)
{
    const float* p = positionOf(file, m);
    return std::hypot(static_cast<double>(p[0]), static_cast<double>(p[1]), static_cast<double>(p[2]));
}

Direction directionOf(const MYSOFA_HRTF& file, std::size_t m)
{
    const float* p = positionOf(file, m);
    const double radius = radiusOf(file, m);
    return {static_cast<double>(p[0]) / radius, static_cast<double>(p[1]) / radius, static_cast<double>(p[2]) / radius};
}

// Keeps the measurements of the farthest source: those within a tenth of its distance, since hands place sources too.
void keepFarthest(MYSOFA_HRTF& file)
{
    double farthest = 0;
    for (std::size_t m = 0; m < file.M; ++m)
        if (const double radius = radiusOf(file, m); std::isfinite(radius))
            farthest = std::max(farthest, radius);
    std::size_t kept = 0;
    const bool ownDelays = file.DataDelay.values != nullptr && file.DataDelay.elements == 2 * file.M;
    for (std::size_t m = 0; m < file.M; ++m) {
        const double radius = radiusOf(file, m);
        if (!(radius > 0.9 * farthest) || !std::isfinite(radius))
            continue;
        const auto move = [&](float* values, std::size_t count) {
            std::copy_n(values + m * count, count, values + kept * count);
        };
        move(file.SourcePosition.values, 3);
        move(file.DataIR.values, 2 * file.N);
        if (ownDelays)
            move(file.DataDelay.values, 2);
        ++kept;
    }
    file.M = static_cast<unsigned>(kept);
    file.SourcePosition.elements = file.M * 3;
    file.DataIR.elements = file.M * 2 * file.N;
    if (ownDelays)
        file.DataDelay.elements = 2 * file.M;
}

double delayOf(const MYSOFA_HRTF& file, std::size_t m, std::size_t ear)
{
    const float* values = file.DataDelay.values;
    const std::size_t count = file.DataDelay.elements;
    return values == nullptr || count == 0 ? 0 : static_cast<double>(values[(count == 2 ? 0 : 2 * m) + ear]);
}

std::vector<float> tapsOf(const MYSOFA_HRTF& file, std::size_t m, std::size_t ear)
{
    const float* first = file.DataIR.values + (2 * m + ear) * file.N;
    return {first, first + file.N};
}

Direction speakerDirection(std::size_t row)
{
    const double azimuth = speakerAzimuths.at(row) * std::numbers::pi / 180;
    return {std::cos(azimuth), std::sin(azimuth), 0};
}

struct Nearest {
    std::size_t index = 0;
    double angle = 360; // degrees
};

Nearest nearestMeasurement(const MYSOFA_HRTF& file, const Direction& wanted)
{
    Nearest nearest;
    for (std::size_t m = 0; m < file.M; ++m)
        if (const double angle = degreesBetween(wanted, directionOf(file, m)); angle < nearest.angle)
            nearest = {m, angle};
    return nearest;
}

// A microphone's gain falls out of the product over both sides.
void refuseSwappedEars(const std::string& path, const MeasuredSet& set)
{
    const auto energy = [](const std::vector<float>& taps) {
        return std::inner_product(taps.begin(), taps.end(), taps.begin(), 0.0);
    };
    for (const auto& [left, right] : std::array<std::pair<std::size_t, std::size_t>, 3>{{{0, 1}, {6, 7}, {4, 5}}}) {
        const MeasuredPair& onLeft = set.speakers.at(left);
        const MeasuredPair& onRight = set.speakers.at(right);
        if (energy(onLeft.left) * energy(onRight.right) < energy(onLeft.right) * energy(onRight.left))
            fail(path, std::string("its ears are swapped: ") + speakerNames.at(left) + " and " + speakerNames.at(right) +
                           " would be louder at the far ears");
    }
}

// Moves each response's onset to the same early frame, and its time into the file's delays: interpolation then blends
// responses that begin together, and their delays.
void alignOnsets(MYSOFA_HRTF& file)
{
    constexpr std::size_t before = 8;                                            // frames that stay ahead of the onset
    constexpr float onset = 0.1F;                                                // share of the largest value
    auto* delays = static_cast<float*>(std::malloc(2 * file.M * sizeof(float))); // NOLINT: the library frees it
    if (delays == nullptr)
        throw std::bad_alloc();
    for (std::size_t i = 0; i < 2 * file.M; ++i) {
        float* taps = file.DataIR.values + i * file.N;
        float most = 0;
        for (std::size_t k = 0; k < file.N; ++k)
            most = std::max(most, std::abs(taps[k]));
        std::size_t first = 0;
        while (first < file.N && !(std::abs(taps[first]) > onset * most))
            ++first;
        const std::size_t skipped = first == file.N || first < before ? 0 : first - before;
        std::fill(std::copy(taps + skipped, taps + file.N, taps), taps + file.N, 0.0F);
        delays[i] = static_cast<float>(delayOf(file, i / 2, i % 2)) + static_cast<float>(skipped);
    }
    std::free(file.DataDelay.values); // NOLINT: the library allocated it
    file.DataDelay.values = delays;
    file.DataDelay.elements = 2 * file.M;
}

struct FreeLookup {
    void operator()(MYSOFA_LOOKUP* lookup) const noexcept { mysofa_lookup_free(lookup); }
};

struct FreeNeighborhood {
    void operator()(MYSOFA_NEIGHBORHOOD* neighborhood) const noexcept { mysofa_neighborhood_free(neighborhood); }
};

// The pair between measured directions, for each of the rows. Changes the file.
void interpolate(MYSOFA_HRTF& file, const std::vector<std::size_t>& rows, double rate, MeasuredSet& set)
{
    alignOnsets(file);
    const std::unique_ptr<MYSOFA_LOOKUP, FreeLookup> lookup(mysofa_lookup_init(&file));
    if (!lookup)
        throw std::bad_alloc();
    const std::unique_ptr<MYSOFA_NEIGHBORHOOD, FreeNeighborhood> neighborhood(mysofa_neighborhood_init(&file, lookup.get()));
    if (!neighborhood)
        throw std::bad_alloc();
    std::vector<float> pair(2 * file.N);
    for (const std::size_t row : rows) {
        const Direction wanted = speakerDirection(row);
        const std::size_t nearest = nearestMeasurement(file, wanted).index;
        const double radius = radiusOf(file, nearest);
        std::array<float, 3> place = {static_cast<float>(radius * wanted.x), static_cast<float>(radius * wanted.y),
                                      static_cast<float>(radius * wanted.z)};
        const auto m = static_cast<int>(nearest);
        std::array<float, 2> delays{};
        mysofa_interpolate(&file, place.data(), m, mysofa_neighborhood(neighborhood.get(), m), pair.data(), delays.data());
        const auto middle = pair.begin() + static_cast<std::ptrdiff_t>(file.N);
        set.speakers.at(row).left = atEffectRate({pair.begin(), middle}, static_cast<double>(delays[0]), rate);
        set.speakers.at(row).right = atEffectRate({middle, pair.end()}, static_cast<double>(delays[1]), rate);
    }
}

// Responses of one length at the effect's rate. Its filter is designed anew for each call.
std::vector<std::vector<float>> resampledTogether(const std::vector<std::vector<float>>& responses, double rate)
{
    const double ratio = hrtfRate / rate;
    const std::size_t count = responses.size();
    const std::size_t frames = responses.front().size() + 2 * longestRinging;
    std::vector<float> in(frames * count);
    for (std::size_t c = 0; c < count; ++c)
        for (std::size_t i = 0; i < responses[c].size(); ++i)
            in[(i + longestRinging) * count + c] = responses[c][i];
    const auto most = static_cast<std::size_t>(std::ceil(static_cast<double>(frames) * ratio));
    std::vector<float> out(most * count);
    std::size_t done = 0;
    const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_VHQ, 0);
    const soxr_error_t error = soxr_oneshot(rate, hrtfRate, static_cast<unsigned>(count), in.data(), frames, nullptr, out.data(),
                                            most, &done, nullptr, &quality, nullptr);
    if (error != nullptr)
        throw std::runtime_error(std::string("cannot resample: ") + soxr_strerror(error));
    std::vector<std::vector<float>> result(count, std::vector<float>(done));
    for (std::size_t c = 0; c < count; ++c)
        for (std::size_t i = 0; i < done; ++i)
            result[c][i] = out[i * count + c] / static_cast<float>(ratio);
    return result;
}

// The field of all directions but those that hold a value that is no number.
DiffuseField fieldOf(const MYSOFA_HRTF& file, double rate, std::size_t& skipped)
{
    std::vector<std::size_t> good;
    std::vector<Direction> directions;
    for (std::size_t m = 0; m < file.M; ++m) {
        const float* taps = file.DataIR.values + 2 * m * file.N;
        if (std::all_of(taps, taps + 2 * file.N, [](float value) { return std::isfinite(value); })) {
            good.push_back(m);
            directions.push_back(directionOf(file, m));
        }
    }
    skipped = file.M - good.size();
    const auto longest = static_cast<std::size_t>(std::ceil(static_cast<double>(file.N + 2 * longestRinging) * hrtfRate / rate));
    DiffuseField field(directions, longest, rate);
    constexpr std::size_t together = 64; // directions that are resampled at once
    for (std::size_t i = 0; i < good.size(); i += together) {
        std::vector<std::vector<float>> responses;
        for (std::size_t k = i; k < std::min(i + together, good.size()); ++k)
            for (std::size_t ear = 0; ear < 2; ++ear)
                responses.push_back(tapsOf(file, good[k], ear));
        if (rate != hrtfRate)
            responses = resampledTogether(responses, rate);
        for (std::size_t k = 0; k < responses.size(); k += 2)
            field.add(i + k / 2, {responses[k], responses[k + 1]});
    }
    return field;
}

std::string counted(std::size_t directions)
{
    return std::to_string(directions) + (directions == 1 ? " direction" : " directions");
}

} // namespace

Recording readRecording(const std::string& path, std::size_t frames)
{
    // No pipe: readHrtfFile takes regular files alone.
    AudioDecoder reader(std::make_unique<platform::InputFile>(path, [] {}), false);
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
    return resampledTogether({taps}, rate).front();
}

MeasuredSet readSofa(const std::string& path, Equalize equalize)
{
    if (!std::ifstream(path))
        fail(path, std::strerror(errno));
    int code = MYSOFA_OK;
    const Sofa file(mysofa_load(path.c_str(), &code));
    if (!file)
        fail(path, loadingReason(path, code));
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
    if (taps < shortestResponse)
        fail(path, tooShort(taps));
    if (taps > longestResponse)
        fail(path, "its responses are longer than " + std::to_string(longestResponse) + " frames");
    const auto rate = static_cast<double>(file->DataSamplingRate.values[0]);
    if (!(rate >= 8000 && rate <= 768000))
        fail(path, "its sample rate is none from 8000 to 768000 Hz");
    mysofa_tocartesian(file.get());
    keepFarthest(*file);

    MeasuredSet set;
    std::vector<std::size_t> between; // measured directions
    std::ostringstream notes;
    notes << std::fixed << counted(file->M) << " at " << std::setprecision(0) << rate << " Hz; taken " << std::setprecision(1)
          << "(degrees from the speaker):";
    const char* separator = " ";
    for (std::size_t row = 0; row < speakerTable.size(); ++row) {
        if (row == woofer)
            continue;
        const auto [m, angle] = nearestMeasurement(*file, speakerDirection(row));
        constexpr double same = 0.01; // degrees: single precision
        if (angle > farthestDirection + same) {
            std::ostringstream text;
            text << "it has no measurement within " << farthestDirection << " degrees of " << speakerNames.at(row)
                 << ", at azimuth " << speakerAzimuths.at(row);
            fail(path, text.str());
        }
        notes << separator << speakerNames.at(row) << ' ' << angle;
        separator = ", ";
        if (angle > nearDirection + same) {
            notes << " (interpolated)";
            between.push_back(row);
        }

        for (std::size_t ear = 0; ear < 2; ++ear) {
            const double delay = delayOf(*file, m, ear);
            if (!(delay >= 0 && delay <= static_cast<double>(longestResponse)))
                fail(path, std::string("the delay of ") + speakerNames.at(row) + " is no number of frames");
            (ear == 0 ? set.speakers.at(row).left : set.speakers.at(row).right) =
                atEffectRate(tapsOf(*file, m, ear), delay, rate);
        }
    }
    std::size_t skipped = 0;
    std::optional<DiffuseField> field;
    if (equalize == Equalize::byDiffuseField)
        field = fieldOf(*file, rate, skipped);
    if (!between.empty())
        interpolate(*file, between, rate, set);
    refuseSwappedEars(path, set);

    if (field) {
        const FittedSet measured = fitFile(path, set, 0); // a room is told by its measured responses
        const auto range = field->filterRange();
        notes << "\nequalised by the mean of all directions, " << (field->earsApart() ? "each ear by its own" : "both ears alike")
              << ", from " << std::showpos << range.least << " to " << range.most << std::noshowpos << " dB; as measured at most "
              << 100 * measured.worstCut << " % would be cut, at " << measured.worstName;
        if (skipped > 0)
            notes << "\nleft out, as they hold a value that is no number: " << counted(skipped);
        field->equalize(set);
    }
    set.origin = notes.str();
    return set;
}

} // namespace quorel
