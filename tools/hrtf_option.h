// SPDX-License-Identifier: MIT
// How a file of responses is taken, on a command line.
#pragma once

#include "client/hrtf_file.h"

#include <CLI/CLI.hpp>

#include <map>
#include <string>

namespace quorel {

inline void addEqualize(CLI::App& tool, Equalize& equalize)
{
    const std::map<std::string, Equalize> names = {{"diffuse", Equalize::byDiffuseField}, {"none", Equalize::none}};
    tool.add_option("--equalize", equalize,
                    "What is done to a SOFA file's responses: diffuse takes out the mean of\n"
                    "all directions, none takes them as measured")
        ->transform(CLI::CheckedTransformer(names).description(""))
        ->type_name("NAME")
        ->default_str("diffuse");
}

} // namespace quorel
