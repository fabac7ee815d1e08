// SPDX-License-Identifier: MIT
#include "core/buffer.h"

int main() {}
