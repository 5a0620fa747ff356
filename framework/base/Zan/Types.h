#pragma once

#include <cstdint>

// The integer names that the records and operations are written in.
using U8 = std::uint8_t;
using U16 = std::uint16_t;
using U32 = std::uint32_t;
using U64 = std::uint64_t;
using S32 = std::int32_t;
using S64 = std::int64_t;

namespace Zan {

/// Identifies an attribute within its type. Identifiers below 128 belong to the framework.
using AttributeId = U32;
/// The first identifier that a record gives to an attribute of its own.
inline constexpr AttributeId firstOwnAttribute = 130;

}  // namespace Zan
