#pragma once

#include <cstddef>
#include <cstdint>

/// Reads the bytes as what three clients send to a service, in pieces, with time that passes and replies that
/// are taken or not. Nothing may crash, every byte that a client is sent must belong to a reply, the queues
/// stay within their limits, and clients that half ask or do not read are gone in the end. Aborts when not.
void controlFuzz(const std::uint8_t* data, std::size_t size);
