#pragma once

#include <string>

#include "Zan/Exception.h"

/// What a call throws as a range exception; empty when it throws nothing.
template <class Call>
std::string refusal(Call call) {
  try {
    call();
  } catch (const Zan::RangeException& e) {
    return e.what();
  }
  return "";
}
