// SPDX-License-Identifier: MIT
#include "tools/hrtf_option.h"

#include <map>

namespace quorel {

void addEqualize(CLI::App& tool, Equalize& equalize)
{
    const std::map<std::string, Equalize> names = {{"diffuse", Equalize::byDiffuseField}, {"none", Equalize::none}};
    tool.add_option("--equalize", equalize,
                    "What is done to a SOFA file's responses: diffuse takes out the\n"
                    "mean of all directions, none takes them as measured")
        ->transform(CLI::CheckedTransformer(names).description(""))
        ->type_name("NAME")
        ->default_str("diffuse");
}

void HrtfOption::add(CLI::App& tool)
{
    tool.add_option("--hrtf", file, "Head-related responses in place of the built-in ones:\n" + std::string(readableHrtfFiles))
        ->type_name("FILE");
    addEqualize(tool, equalize);
}

void HrtfOption::load(const CLI::App& tool)
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
