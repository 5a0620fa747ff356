#pragma once

#include "Zan/TypeTable.h"

namespace glue {

/// The exported factories.
std::span<const Zan::FactoryRow> factories();

}  // namespace glue
