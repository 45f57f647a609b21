#pragma once

#include <exception>
#include <functional>
#include <string>

namespace brisq {

/// A password that was taken in before it is used: whoever uses it gets to know why there is none.
class GivenPassword {
 public:
  /// @param source  called once, at once; what it throws is kept
  explicit GivenPassword(const std::function<std::string()>& source);

  /// The password; null when its source has thrown.
  const std::string* IfAny() const noexcept { return problem_ ? nullptr : &text_; }
  /// The password; throws what its source has thrown.
  const std::string& Text() const;

 private:
  std::string text_;
  std::exception_ptr problem_;
};

}  // namespace brisq
