#include "brisq/given_password.h"

namespace brisq {

GivenPassword::GivenPassword(const std::function<std::string()>& source) {
  try {
    text_ = source();
  } catch (...) {
    problem_ = std::current_exception();
  }
}

const std::string& GivenPassword::Text() const {
  if (problem_) std::rethrow_exception(problem_);
  return text_;
}

}  // namespace brisq
