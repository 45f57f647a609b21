#pragma once

#include <memory>
#include <utility>

/// Reference-counted pointer to a dataset; the last copy gives the dataset back to where it came
/// from. Copies may live in different threads, the dataset is for one thread at a time.
template <class T>
class SmartPtr {
 public:
  SmartPtr() = default;
  explicit SmartPtr(std::shared_ptr<T> target) : target_(std::move(target)) {}

  T* get() const noexcept { return target_.get(); }
  T* operator->() const noexcept { return target_.get(); }
  T& operator*() const noexcept { return *target_; }
  explicit operator bool() const noexcept { return static_cast<bool>(target_); }
  const std::shared_ptr<T>& shared() const noexcept { return target_; }

 private:
  std::shared_ptr<T> target_;
};

/// The handle by which a file's records are reached: a dataset of class `T`, alive while a copy of
/// the cursor is.
template <class T>
class Cursor : public SmartPtr<T> {
 public:
  using SmartPtr<T>::SmartPtr;

  /// Takes over a dataset that is known to be a `T`; holds nothing when it is something else.
  template <class Base>
  explicit Cursor(const SmartPtr<Base>& dataset)
      : SmartPtr<T>(std::dynamic_pointer_cast<T>(dataset.shared())) {}
};
