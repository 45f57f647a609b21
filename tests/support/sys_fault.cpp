#include "tests/support/sys_fault.h"

#include <utility>

namespace support {

void SysFault::FailCall(std::string call, int error) {
  const std::lock_guard lock(mutex_);
  failing_ = std::move(call);
  error_ = error;
  from_ = 0;
}

void SysFault::FailNumber(std::size_t number, int error, bool onwards) {
  const std::lock_guard lock(mutex_);
  calls_ = 0;
  failed_ = false;
  from_ = number;
  error_ = error;
  onwards_ = onwards;
}

bool SysFault::Refuses(const char* call, std::size_t number) const {
  if (from_ == 0) return failing_ == call;
  return onwards_ ? number >= from_ : number == from_;
}

int SysFault::Before(const char* call) {
  const std::size_t number = ++calls_;
  if (look_) look_(call, number);
  const std::lock_guard lock(mutex_);
  if (error_ == 0 || !Refuses(call, number)) return 0;
  failed_ = true;
  return error_;
}

}  // namespace support
