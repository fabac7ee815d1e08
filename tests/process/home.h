// A home of its own for a test program: the objects and kept values that stand in a user's home are then no other program's.
#pragma once

#include <filesystem>

namespace quorel {

class OwnHome {
public:
    // Before the program starts a thread. On Windows such objects belong to the machine, and nothing happens.
    OwnHome();
    ~OwnHome();
    OwnHome(const OwnHome&) = delete;
    OwnHome& operator=(const OwnHome&) = delete;

private:
    std::filesystem::path folder;
};

} // namespace quorel
