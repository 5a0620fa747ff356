#pragma once

#include <cstddef>
#include <type_traits>
#include <utility>

#include "Zan/Exception.h"
#include "Zan/PtrInterface.h"

namespace Zan {

/// A counted reference: copying adds one, destruction drops one, moving costs nothing. May be null.
/// `Ptr<T const>` is the read-only view that inputs are held by.
template <class T>
class Ptr {
 public:
  using element_type = T;

  constexpr Ptr() = default;
  constexpr Ptr(std::nullptr_t) {}  // NOLINT: null is a Ptr
  explicit Ptr(T* object) : object_(object) { take(); }
  Ptr(const Ptr& other) : object_(other.object_) { take(); }
  Ptr(Ptr&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
  Ptr(const Ptr<U>& other) : object_(other.get()) {  // NOLINT: follows pointer conversion
    take();
  }
  template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
  Ptr(Ptr<U>&& other) noexcept : object_(other.release()) {}  // NOLINT: follows pointer conversion
  ~Ptr() {
    if (object_) object_->deleteReference();
  }
  Ptr& operator=(Ptr other) noexcept {
    std::swap(object_, other.object_);
    return *this;
  }

  T* get() const { return object_; }
  T* operator->() const { return object_; }
  T& operator*() const { return *object_; }
  explicit operator bool() const { return object_ != nullptr; }
  /// Gives the reference up without dropping it.
  T* release() { return std::exchange(object_, nullptr); }
  /// Takes over a reference that the caller owns.
  static Ptr adopt(T* object) {
    Ptr p;
    p.object_ = object;
    return p;
  }

  template <class U>
  friend bool operator==(const Ptr& a, const Ptr<U>& b) {
    return a.get() == b.get();
  }
  friend bool operator==(const Ptr& a, std::nullptr_t) { return a.object_ == nullptr; }

 private:
  void take() const {
    if (object_) object_->newReference();
  }

  T* object_ = nullptr;
};

/// A counted reference that is never null: building one from null throws the range exception
/// "null ValidPtr".
template <class T>
class ValidPtr {
 public:
  ValidPtr(Ptr<T> p) : ptr_(std::move(p)) { check(); }  // NOLINT: a check at the border
  explicit ValidPtr(T* object) : ptr_(object) { check(); }

  T* get() const { return ptr().get(); }
  T* operator->() const { return get(); }
  T& operator*() const { return *get(); }
  /// Throws "null ValidPtr" when the reference was moved away.
  const Ptr<T>& ptr() const {
    check();
    return ptr_;
  }
  operator const Ptr<T>&() const { return ptr(); }  // NOLINT: usable wherever a Ptr is

 private:
  void check() const {
    if (!ptr_) throwRangeException("null ValidPtr");
  }

  Ptr<T> ptr_;
};

/// Constructs a counted object and returns the first reference to it.
template <class T, class... Args>
Ptr<T> create(Args&&... args) {
  return Ptr<T>::adopt(new T(std::forward<Args>(args)...));
}

}  // namespace Zan
