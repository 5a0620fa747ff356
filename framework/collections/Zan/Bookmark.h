#pragma once

#include "Zan/Types.h"

namespace Zan {

/// An intrusive list of the iterators that stand in one collection, so that a removal can move them out of
/// the way. One pointer large; usually empty.
template <class Iterator>
class BookmarkList {
 public:
  class Link {
   public:
    Link(const Link&) = delete;
    Link& operator=(const Link&) = delete;

   protected:
    Link() = default;
    ~Link() = default;

   private:
    friend class BookmarkList;
    Iterator* nextMark_ = nullptr;
    Iterator** place_ = nullptr;
  };

// g++ 12 takes an iterator on the stack for one that outlives its function; each one removes itself.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdangling-pointer"
#endif
  void add(Iterator* iterator) {
    iterator->nextMark_ = first_;
    iterator->place_ = &first_;
    if (first_) first_->place_ = &iterator->nextMark_;
    first_ = iterator;
  }
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif
  static void remove(Iterator* iterator) {
    *iterator->place_ = iterator->nextMark_;
    if (iterator->nextMark_) iterator->nextMark_->place_ = iterator->place_;
  }
  template <class F>
  void forEach(F f) const {
    for (Iterator* i = first_; i; i = i->nextMark_) f(*i);
  }

 private:
  Iterator* first_ = nullptr;
};

}  // namespace Zan
