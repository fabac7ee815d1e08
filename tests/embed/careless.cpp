// SPDX-License-Identifier: MIT
// Code that our own warnings would refuse.
#include <quorel/signal_path.h>

int main(int count, char**)
{
    int unused;
    const float narrowed = 0.1 * count;
    return narrowed > 1000;
}
