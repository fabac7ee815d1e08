#include "tests/process/home.h"

#include <cstdlib>
#include <stdexcept>
#include <string>

namespace quorel {

OwnHome::OwnHome()
{
    auto pattern = (std::filesystem::temp_directory_path() / "quorel_home_XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr || setenv("HOME", pattern.c_str(), 1) != 0)
        throw std::runtime_error("No home of its own");
    folder = pattern;
}

OwnHome::~OwnHome()
{
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
}

} // namespace quorel
