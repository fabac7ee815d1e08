// SPDX-License-Identifier: MIT
// quorel-render as its user meets it: started as a process, on files that are made here.
#pragma once

#include "tests/tools/tool_test.h"

namespace quorel {

class QuorelRender : public ToolTest {
protected:
    QuorelRender() : ToolTest(QUOREL_RENDER, "quorel-render") {}

    // Runs the tool on `input` and returns what it wrote, which it must do without a word.
    Sound render(const std::string& input, const std::vector<std::string>& options = {}, const std::string& told = "")
    {
        return treat(input, options, told);
    }
};

} // namespace quorel
