#pragma once

#include <cstddef>
#include <cstdint>

/// Reads the bytes as what a kernel says to a mirror: datagrams of events and of answers, with time that
/// passes between them. Nothing may crash or read out of bounds, and once the kernel says that it has
/// nothing, the mirror must come to rest with nothing. Aborts when it does not.
void kernelFuzz(const std::uint8_t* data, std::size_t size);
