// SPDX-License-Identifier: MIT
// The buffers by name, for what takes plain rows as well and hands buffers on: who uses it with rows needs no buffer.
#pragma once

#include <cstddef>

namespace quorel {

template <typename T, std::size_t C>
class Buffer;

template <std::size_t C>
class PaddedBuffer;

} // namespace quorel
