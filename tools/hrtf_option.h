// SPDX-License-Identifier: MIT
// A file of responses on a command line.
#pragma once

#include "client/hrtf_file.h"
#include "core/settings_record.h"
#include "tools/tool.h"

#include <optional>

namespace quorel {

// The option --equalize.
void addEqualize(const CommandLine& tool, Equalize& equalize);

// The option --hrtf, for a tool that renders.
class HrtfOption {
public:
    void add(const CommandLine& tool);

    // Imports the file, if one was named, and tells the user of it. To be called once, after the options have been read.
    void load(const CommandLine& tool);

    // Gives a path's record the set for the speakers of the mask; the spectra have to live until the path has run a block.
    [[nodiscard]] std::vector<float> give(SettingsRecord& record, std::uint32_t channelMask) const;

private:
    std::string file;
    Equalize equalize = Equalize::byDiffuseField;
    std::optional<FittedSet> set;
};

} // namespace quorel
