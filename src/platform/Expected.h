// A value or the reason there is none, for operations whose caller decides what a refusal
// means (std::expected arrives only with C++23).
#pragma once

#include <cassert>
#include <utility>
#include <variant>

namespace tw {

template <typename T, typename E>
class Expected {
 public:
  Expected(T value) : content_(std::in_place_index<0>, std::move(value)) {}  // NOLINT: implicit by design
  Expected(E error) : content_(std::in_place_index<1>, std::move(error)) {}  // NOLINT: implicit by design

  bool has_value() const { return content_.index() == 0; }
  explicit operator bool() const { return has_value(); }

  T& value() {
    assert(has_value());
    return std::get<0>(content_);
  }
  const T& value() const {
    assert(has_value());
    return std::get<0>(content_);
  }
  T& operator*() { return value(); }
  const T& operator*() const { return value(); }
  T* operator->() { return &value(); }
  const T* operator->() const { return &value(); }

  T value_or(T fallback) const { return has_value() ? std::get<0>(content_) : std::move(fallback); }

  const E& error() const {
    assert(!has_value());
    return std::get<1>(content_);
  }

 private:
  std::variant<T, E> content_;
};

}  // namespace tw
