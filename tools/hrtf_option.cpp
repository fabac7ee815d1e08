// SPDX-License-Identifier: MIT
#include "tools/hrtf_option.h"

namespace quorel {

void addEqualize(const CommandLine& tool, Equalize& equalize)
{
    const auto number = [](Equalize way) { return static_cast<int>(way); };
    tool.addWord(
            "--equalize", {{"diffuse", number(Equalize::byDiffuseField)}, {"none", number(Equalize::none)}},
            [&equalize](int given) { equalize = static_cast<Equalize>(given); },
            "What is done to a SOFA file's responses: diffuse takes out the\n"
            "mean of all directions, none takes them as measured")
        .typeName("NAME")
        .defaultText("diffuse");
}

void HrtfOption::add(const CommandLine& tool)
{
    tool.add("--hrtf", file, "Head-related responses in place of the built-in ones:\n" + std::string(readableHrtfFiles))
        .typeName("FILE");
    addEqualize(tool, equalize);
}

void HrtfOption::load(const CommandLine& tool)
{
    if (file.empty())
        return;
    const ImportedSet imported = importHrtf(file, equalize, 0, stopIfInterrupted);
    for (const std::string& note : imported.notes)
        notice(tool, note);
    set = imported.set;
}

std::vector<float> HrtfOption::give(SettingsRecord& record, std::uint32_t channelMask) const
{
    if (!set)
        return {};
    std::vector<float> spectra = packSet(*set, channelMask);
    record.hrtfId = 1; // any but 0, which is that of the built-in set
    record.hrtfLength = spectrumFloats;
    record.hrtfChannels = static_cast<std::uint32_t>(rowsOf(channelMask).size());
    record.hrtfData = spectra.data();
    return spectra;
}

} // namespace quorel
