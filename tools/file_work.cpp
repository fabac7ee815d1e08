// SPDX-License-Identifier: MIT
#include "tools/file_work.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <exception>
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <mutex>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <thread>

namespace quorel {

namespace {

namespace fs = std::filesystem;

constexpr const char* stream = "-"; // standard input or output

std::string endingOf(const fs::path& path)
{
    const std::string extension = path.extension().string();
    return extension.empty() ? extension : extension.substr(1);
}

Container containerFor(const FileOptions& options, const std::string& output)
{
    if (!options.format.empty())
        return *containerNamed(options.format);
    if (output == stream)
        return Container::wav;
    std::error_code missing;
    const fs::file_status there = fs::status(output, missing);
    if (fs::exists(there) && !fs::is_regular_file(there))
        throw std::runtime_error("cannot write " + output + ": not a regular file");
    const auto container = containerNamed(endingOf(output));
    if (!container)
        throw std::runtime_error("cannot write " + output + ": its name tells no kind of file, which are " + containerNames +
                                 "; --format names one");
    return *container;
}

SampleFormat sampleFormatFor(const FileOptions& options, Container container)
{
    if (options.sampleFormat.empty())
        return container == Container::flac ? SampleFormat::pcm24 : SampleFormat::float32;
    const SampleFormat format = formatNamed(options.sampleFormat);
    if (container == Container::flac && format == SampleFormat::float32)
        throw std::runtime_error("FLAC holds integers alone: --sample-format takes pcm24 or pcm16");
    return format;
}

std::uint64_t weightOf(const std::string& input)
{
    std::error_code unknown;
    const auto bytes = fs::file_size(input, unknown);
    return unknown || bytes == 0 ? 1 : bytes;
}

// The tasks of a run with a folder for the outputs. An input that is a folder stands for the audio files in it and below.
std::vector<FileTask> tasksInto(const FileOptions& options)
{
    const fs::path folder = options.outputFolder;
    std::vector<FileTask> tasks;
    std::set<std::string> taken;
    const std::string ending = options.format.empty() ? "wav" : options.format;
    const auto add = [&](const fs::path& input, const fs::path& place) {
        fs::path output = folder / place;
        output.replace_extension(ending);
        if (!taken.insert(output.lexically_normal().string()).second)
            throw std::runtime_error("two of the inputs would become " + output.string());
        FileTask task;
        task.input = input.string();
        task.output = output.string();
        task.container = containerFor(options, task.output);
        task.weight = weightOf(task.input);
        task.alone = false;
        tasks.push_back(task);
    };
    for (const std::string& name : options.names) {
        if (name == stream)
            throw std::runtime_error("standard input has no name for a file in a folder: it goes to an OUTPUT");
        if (!fs::is_directory(name)) {
            add(name, fs::path(name).filename());
            continue;
        }
        std::vector<fs::path> found;
        for (auto entry = fs::recursive_directory_iterator(name); entry != fs::recursive_directory_iterator(); ++entry) {
            std::error_code missing; // there may be no folder for the outputs yet
            if (entry->is_directory() && fs::equivalent(entry->path(), folder, missing))
                entry.disable_recursion_pending();
            else if (entry->is_regular_file() && containerNamed(endingOf(entry->path())))
                found.push_back(entry->path());
        }
        std::sort(found.begin(), found.end());
        for (const fs::path& input : found)
            add(input, input.lexically_relative(name));
        if (found.empty())
            throw std::runtime_error("there is no audio file in the folder " + name);
    }
    return tasks;
}

std::vector<FileTask> tasksOf(const FileOptions& options)
{
    if (options.names.empty())
        throw std::runtime_error("INPUT is required");
    if (!options.outputFolder.empty())
        return tasksInto(options);
    if (options.names.size() < 2)
        throw std::runtime_error("OUTPUT is required, or --output-dir");
    if (options.names.size() > 2)
        throw std::runtime_error("only one INPUT has an OUTPUT, so " + options.names[2] +
                                 " has no place; --output-dir takes several inputs");
    FileTask task;
    task.input = options.names[0];
    task.output = options.names[1];
    task.container = containerFor(options, task.output);
    return {task};
}

// Whether the output was made after the input was last changed.
bool isUpToDate(const FileTask& task)
{
    std::error_code missing;
    const auto output = fs::last_write_time(task.output, missing);
    const auto input = missing ? output : fs::last_write_time(task.input, missing);
    return !missing && output > input;
}

nlohmann::ordered_json jsonOf(const FileTask& task, const FileReport& report)
{
    nlohmann::ordered_json json;
    json["input"] = task.input;
    json["output"] = task.output;
    json["state"] = !report.error.empty() ? "failed" : report.skipped ? "up to date" : "done";
    if (!report.error.empty())
        json["error"] = report.error;
    if (report.skipped || !report.error.empty())
        return json;
    json["inputRate"] = report.inputRate;
    json["rate"] = report.rate;
    json["channels"] = report.channels;
    json["frames"] = report.frames;
    json["replacedSamples"] = report.replaced;
    json["clippedSamples"] = report.clipped;
    if (report.clipped > 0) {
        json["firstClippedFrame"] = report.firstClippedFrame;
        json["firstClippedChannel"] = report.firstClippedChannel + 1;
    }
    json["peakDb"] = std::isfinite(report.peakDb) ? nlohmann::ordered_json(report.peakDb) : nlohmann::ordered_json();
    json["gainDb"] = report.gainDb;
    json["truncated"] = report.truncated;
    json["seconds"] = report.seconds;
    json["notices"] = report.notices;
    return json;
}

std::string soundAndSpeed(const FileReport& report)
{
    const double sound = static_cast<double>(report.frames) / report.rate;
    std::ostringstream text;
    text << std::fixed << std::setprecision(2) << sound << " s of sound in " << std::setprecision(3) << report.seconds
         << " s: " << std::setprecision(0) << sound / report.seconds << " times real time";
    return text.str();
}

// What the user is told of one file.
class Teller {
public:
    Teller(const CommandLine& tool, const FileOptions& options, std::size_t files, Progress& progress)
        : tool(tool), options(options), files(files), progress(progress)
    {
    }

    void tell(const FileTask& task, const FileReport& report)
    {
        const std::lock_guard hold(mutex);
        const bool several = !task.alone;
        const bool failed = !report.error.empty();
        std::vector<std::string> lines = failed ? std::vector{report.error} : report.notices;
        if (!failed && !report.skipped && task.alone && (options.verbose || platform::onTerminal()))
            lines.push_back(soundAndSpeed(report));
        if (several && !failed && !platform::onTerminal())
            lines.push_back(task.input + ": " +
                            (report.skipped ? task.output + " is up to date" : task.output + ", " + soundAndSpeed(report)));
        if (!lines.empty())
            progress.endLine();
        for (const std::string& line : lines)
            notice(tool, line);
        if (!options.report.empty())
            (task.output == stream ? std::cerr : std::cout)
                << jsonOf(task, report).dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + '\n'
                << std::flush;

        failures += failed;
        skipped += report.skipped;
        replaced = replaced || report.replaced > 0;
    }

    int end(bool several)
    {
        progress.endLine();
        if (several)
            notice(tool, std::to_string(files) + (files == 1 ? " file: " : " files: ") +
                             std::to_string(files - failures - skipped) + " done, " + std::to_string(skipped) + " up to date, " +
                             std::to_string(failures) + " failed");
        return failures > 0 ? 2 : replaced ? 1 : 0;
    }

private:
    const CommandLine& tool;
    const FileOptions& options;
    std::size_t files;
    Progress& progress;
    std::mutex mutex;
    std::size_t failures = 0;
    std::size_t skipped = 0;
    bool replaced = false;
};

FileReport treatOne(const FileTask& task, const FileOptions& options, const FileTreatment& treat, Progress& all)
{
    FileReport report;
    FileProgress progress(all, task.weight);
    try {
        report.skipped = !task.alone && !options.again && isUpToDate(task);
        if (!report.skipped) {
            if (!task.alone)
                fs::create_directories(fs::path(task.output).parent_path());
            const auto start = std::chrono::steady_clock::now();
            treat(task, report, progress);
            report.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        }
    } catch (const Truncated& error) {
        report.error = std::string(error.what()) + "; --allow-truncated takes what is there";
    } catch (const std::bad_alloc&) {
        report.error = noMemory;
    } catch (const std::exception& error) {
        report.error = error.what();
    }
    if (!task.alone) // else it may have shown something of its own
        progress.at(1);
    return report;
}

} // namespace

void declareFiles(const CommandLine& tool, FileOptions& options)
{
    tool.add("INPUT", options.names,
             "INPUT OUTPUT: an audio file (WAV, RF64, W64, FLAC, AIFF or CAF; - is standard input) and the file that it "
             "becomes, of the kind that its name ends in (- is standard output); one of that name is replaced. With "
             "--output-dir: inputs alone, of which a folder stands for the audio files in it and below")
        .typeName("");
    tool.add("--output-dir", options.outputFolder,
             "Folder for the outputs of all inputs, each under its input's name; made if it is not there. An output that "
             "is newer than its input stays as it is. One that fails does not keep the others from being done")
        .typeName("FOLDER");
    addNumber(tool, "--jobs", options.jobs, 1, 256, "With --output-dir: files that are worked on at the same time");
    tool.addFlag("--again", options.again, "With --output-dir: make outputs anew that are newer than their inputs, too");
    tool.add("--format", options.format, "Kind of the output, whatever its name ends in: wav, flac, w64, rf64, aiff or caf")
        .oneOf(std::vector<std::string>{"wav", "flac", "w64", "rf64", "aiff", "caf"}, true)
        .typeName("NAME")
        .defaultText("by name");
    tool.add("--sample-format", options.sampleFormat,
             "Samples of the output: float (32 bits) keeps what is beyond full scale, the integers pcm24 and pcm16 clip it")
        .oneOf(std::vector<std::string>{"float", "pcm24", "pcm16"})
        .typeName("NAME")
        .defaultText("float, for FLAC pcm24");
    tool.add("--dither", options.dither, "Of integer samples: tpdf, noise of one step that is the same at every run, or none")
        .oneOf(std::vector<std::string>{"tpdf", "none"})
        .typeName("NAME")
        .showDefault();
    const Option gain = addNumber(tool, "--gain", options.gain, -100, 100, "dB on the output").defaultText("0");
    tool.addFlag("--normalize{-1}", options.normalise,
                 "Bring the largest sample of the output to -1 dB of full scale; --normalize=-3 to another level")
        .check(numberBetween<double>(-100, 0))
        .excludes(gain);
    tool.addFlag("--no-resample", options.noResample, "Leave the rate of the input as it is");
    tool.addFlag("--allow-truncated", options.allowTruncated, "Take what is there of an input that breaks off, and tell it");
    tool.add("--report", options.report,
             "json: what became of each file, as one line of JSON on standard output (with OUTPUT - on standard error)")
        .oneOf(std::vector<std::string>{"json"})
        .typeName("NAME");
    tool.addFlag("--verbose", options.verbose, "Tell the speed even if standard error is no terminal");
}

int treatFiles(const CommandLine& tool, const FileOptions& options, const FileTreatment& treat)
{
    const std::vector<FileTask> tasks = tasksOf(options);
    sampleFormatFor(options, tasks.front().container); // tells before the first file what goes for all
    std::uint64_t total = 0;
    for (const FileTask& task : tasks)
        total += task.weight;
    Progress progress(total, platform::onTerminal());
    Teller teller(tool, options, tasks.size(), progress);
    std::atomic<std::size_t> next = 0;
    std::exception_ptr interrupt;
    std::mutex mutex;
    const auto work = [&] {
        try {
            for (std::size_t i = next++; i < tasks.size(); i = next++) {
                stopIfInterrupted();
                teller.tell(tasks[i], treatOne(tasks[i], options, treat, progress));
            }
        } catch (...) {
            const std::lock_guard hold(mutex);
            interrupt = std::current_exception();
        }
    };
    std::vector<std::thread> others;
    try {
        for (std::size_t i = 1; i < std::min<std::size_t>(options.jobs, tasks.size()); ++i)
            others.emplace_back(work);
    } catch (const std::exception&) {
        // No room for another thread: those that there are do the work.
    }
    work();
    for (std::thread& other : others)
        other.join();
    if (interrupt)
        std::rethrow_exception(interrupt);
    return teller.end(!tasks.front().alone);
}

AudioWriter::Layout layoutFor(const FileOptions& options, const FileTask& task, int channels, std::uint32_t rate,
                              std::uint32_t mask)
{
    return {channels, rate, mask, sampleFormatFor(options, task.container), task.container, options.dither == "tpdf"};
}

Output::Level levelFor(const FileOptions& options)
{
    return {options.gain, options.normalise.empty() ? std::nullopt : numberFrom(options.normalise)};
}

void reportSound(FileReport& report, const FileTask& task, const Input& input, const Output& output)
{
    report.inputRate = input.ownRate();
    report.rate = input.rate();
    report.truncated = !input.truncation().empty();
    report.gainDb = output.gainDb();
    report.peakDb = 20 * std::log10(static_cast<double>(output.peak()));
    if (report.truncated)
        report.notices.push_back(input.truncation());
    const SampleBorder& border = input.replacements();
    report.replaced = border.replaced();
    if (report.replaced > 0)
        report.notices.push_back(std::to_string(report.replaced) + (report.replaced == 1 ? " sample of " : " samples of ") +
                                 task.input +
                                 " that no effect can take (not finite, or beyond 2^20) became 0, the first in frame " +
                                 std::to_string(border.firstFrame()) + ", channel " + std::to_string(border.firstChannel() + 1));
    report.clipped = output.clipped();
    if (report.clipped > 0) {
        report.firstClippedFrame = output.firstClippedFrame();
        report.firstClippedChannel = output.firstClippedChannel();
        std::ostringstream text;
        text << report.clipped << (report.clipped == 1 ? " sample of " : " samples of ") << task.output
             << " clipped, the first in frame " << report.firstClippedFrame << ", channel " << report.firstClippedChannel + 1
             << "; the peak is at " << std::showpos << std::fixed << std::setprecision(2) << report.peakDb
             << " dB; --normalize, --gain or --sample-format float keep it whole";
        report.notices.push_back(text.str());
    }
}

} // namespace quorel
