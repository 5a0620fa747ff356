#pragma once

#include <unordered_map>
#include <vector>

#include "Zan/Types.h"

namespace host::kernel {

/// Values that many records share, each held once and counted. Number 0 is the default value and is always
/// there; the others live as long as somebody holds them.
template <class T, class Hash>
class Interned {
 public:
  /// The number of this value; the caller holds it until `drop`. Copies the value only when it is new.
  U32 hold(const T& value) {
    if (value == none_) return 0;
    const auto [it, isNew] = numbers_.try_emplace(value, 0);
    if (isNew) it->second = placeFor(&it->first);
    ++entries_[it->second - 1].holders;
    return it->second;
  }
  /// Once more one that is held.
  void holdAgain(U32 number) {
    if (number != 0) ++entries_[number - 1].holders;
  }
  void drop(U32 number) {
    if (number == 0 || --entries_[number - 1].holders > 0) return;
    numbers_.erase(numbers_.find(*entries_[number - 1].value));
    free_.push_back(number);
  }
  const T& operator[](U32 number) const { return number == 0 ? none_ : *entries_[number - 1].value; }

 private:
  struct Entry {
    const T* value;
    U32 holders;
  };

  U32 placeFor(const T* value) {
    if (free_.empty()) {
      entries_.push_back({value, 0});
      return static_cast<U32>(entries_.size());
    }
    const U32 number = free_.back();
    free_.pop_back();
    entries_[number - 1] = {value, 0};
    return number;
  }

  T none_{};
  std::unordered_map<T, U32, Hash> numbers_;
  std::vector<Entry> entries_;
  std::vector<U32> free_;
};

}  // namespace host::kernel
