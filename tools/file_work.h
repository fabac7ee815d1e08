// SPDX-License-Identifier: MIT
// What the tools that turn audio files into audio files have in common: the options for files, the way from inputs to outputs,
// several files at a time, and what the user is told.
#pragma once

#include "tools/input.h"
#include "tools/output.h"
#include "tools/progress.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace quorel {

struct FileOptions {
    std::vector<std::string> names; // INPUT OUTPUT, or inputs alone with a folder for the outputs
    std::string outputFolder;
    std::string format;       // of the output; empty: by its name
    std::string sampleFormat; // empty: as the output's format has it
    std::string dither = "tpdf";
    double gain = 0;       // dB
    std::string normalise; // dB of full scale; empty: not at all
    std::string report;    // empty or json
    unsigned jobs = 1;
    bool again = false;
    bool noResample = false;
    bool allowTruncated = false;
    bool verbose = false;
};

// One file's way.
struct FileTask {
    std::string input;
    std::string output;
    Container container = Container::wav;
    std::uint64_t weight = 1; // of the progress
    bool alone = true;        // no other file is worked on, and standard error is its own
};

// What became of a file.
struct FileReport {
    std::vector<std::string> notices;
    std::string error; // empty: none
    bool skipped = false;
    std::uint32_t inputRate = 0; // frames per second
    std::uint32_t rate = 0;
    int channels = 0;
    std::uint64_t frames = 0;
    double seconds = 0; // that it took
    std::uint64_t replaced = 0;
    std::uint64_t clipped = 0;
    std::uint64_t firstClippedFrame = 0;
    std::uint64_t firstClippedChannel = 0;
    double peakDb = 0; // of full scale
    double gainDb = 0;
    bool truncated = false;
};

// Turns a file into another; throws what failed.
using FileTreatment = std::function<void(const FileTask& task, FileReport& report, FileProgress& progress)>;

// Adds the options. names: what the inputs and outputs may be, for the help.
void declareFiles(const CommandLine& tool, FileOptions& options);

// Treats every file and returns the exit code: 2 if one failed, else 1 if samples were replaced, else 0.
int treatFiles(const CommandLine& tool, const FileOptions& options, const FileTreatment& treat);

// How the output's samples are stored.
AudioWriter::Layout layoutFor(const FileOptions& options, const FileTask& task, int channels, std::uint32_t rate,
                              std::uint32_t mask);

Output::Level levelFor(const FileOptions& options);

// Puts what the input and the output know of themselves into the report.
void reportSound(FileReport& report, const FileTask& task, const Input& input, const Output& output);

} // namespace quorel
