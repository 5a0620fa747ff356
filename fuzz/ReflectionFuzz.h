#pragma once

#include <cstddef>
#include <cstdint>

/// Reads the bytes as a sequence of reflective operations on a running engine and does them. What is not
/// allowed must throw what reflection throws; nothing may crash, leak, or change through a const handle.
/// Aborts when it does.
void reflectionFuzz(const std::uint8_t* data, std::size_t size);
