// SPDX-License-Identifier: MIT
// Makes the allocations of a program fail that is only started: a library that stands ahead of the others. They count from the
// program's `main` on, and the environment tells which:
//
//   QUOREL_FAILING_ALLOCATION=7        the seventh
//   QUOREL_FAILING_ALLOCATION=7+       the seventh and all behind it
//   QUOREL_COUNTED=own                 counts those of C++ alone
//   QUOREL_ALLOCATIONS=FILE            how many there were until its end
#include "tests/support/failing_memory.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <unistd.h>

namespace {

using Main = int (*)(int, char**, char**);
Main programMain = nullptr;
pid_t process = 0;

void tell()
{
    const long all = quorel::allocationsSince();
    quorel::failAllocation(0, false, quorel::Counted::all);
    const char* place = std::getenv("QUOREL_ALLOCATIONS");
    if (place == nullptr || getpid() != process)
        return;
    if (std::FILE* file = std::fopen(place, "w"); file != nullptr) {
        std::fprintf(file, "%ld\n", all);
        std::fclose(file);
    }
}

int countingMain(int argc, char** argv, char** environment)
{
    process = getpid();
    std::atexit(tell);
    const char* wish = std::getenv("QUOREL_FAILING_ALLOCATION");
    const long first = wish != nullptr ? std::strtol(wish, nullptr, 10) : 0;
    const bool onward = wish != nullptr && std::strchr(wish, '+') != nullptr;
    const auto counted = std::getenv("QUOREL_COUNTED") != nullptr ? quorel::Counted::own : quorel::Counted::all;
    quorel::failAllocation(first, onward, counted);
    return programMain(argc, argv, environment);
}

} // namespace

extern "C" int __libc_start_main(Main main, int argc, char** argv, Main init, void (*fini)(), void (*linkerFini)(), void* stack)
{
    programMain = main;
    const auto own = reinterpret_cast<decltype(&__libc_start_main)>(dlsym(RTLD_NEXT, "__libc_start_main"));
    return own(countingMain, argc, argv, init, fini, linkerFini, stack);
}
