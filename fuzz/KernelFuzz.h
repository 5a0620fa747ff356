#pragma once

#include <cstddef>
#include <cstdint>

/// Reads the bytes as what a kernel says to a mirror: datagrams of events and of answers, with time that
/// passes between them. Nothing may crash or read out of bounds, and when the kernel at last has nothing more,
/// what its records say, and with a kernel that answers it must come to rest. Aborts when it does not.
void kernelFuzz(const std::uint8_t* data, std::size_t size);
