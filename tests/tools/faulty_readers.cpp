// SPDX-License-Identifier: MIT
// Stands before the libraries that read files, and does to their caller what QUOREL_READER_FAULT says: a crash, a turn without
// end, or one without end of memory; at the opening of a file, or at the second block where QUOREL_READER_BLOCKS is set.
#include <csignal>
#include <cstdlib>
#include <dlfcn.h>
#include <mysofa.h>
#include <sndfile.h>
#include <string_view>
#include <vector>

namespace {

template <typename Function>
Function* own(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

void fail()
{
    const std::string_view fault = std::getenv("QUOREL_READER_FAULT");
    if (fault == "crash")
        std::raise(SIGSEGV);
    for (volatile unsigned turns = 0; fault == "turn";)
        turns = turns + 1;
    for (std::vector<std::vector<char>> all; fault == "memory";)
        all.emplace_back().reserve(std::size_t{16} << 20);
}

} // namespace

SNDFILE* sf_open_fd(int fd, int mode, SF_INFO* info, int close)
{
    if (mode == SFM_READ && std::getenv("QUOREL_READER_BLOCKS") == nullptr)
        fail();
    return own<decltype(sf_open_fd)>("sf_open_fd")(fd, mode, info, close);
}

sf_count_t sf_readf_float(SNDFILE* file, float* to, sf_count_t frames)
{
    static int blocks = 0;
    if (std::getenv("QUOREL_READER_BLOCKS") != nullptr && ++blocks == 2)
        fail();
    return own<decltype(sf_readf_float)>("sf_readf_float")(file, to, frames);
}

MYSOFA_HRTF* mysofa_load(const char* path, int* code)
{
    fail();
    return own<decltype(mysofa_load)>("mysofa_load")(path, code);
}
