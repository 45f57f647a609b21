#include "mgr_log.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <string>

#include "framework/log_hub.h"
#include "framework/rehearsal.h"

namespace mgr_log {

namespace {

__attribute__((format(printf, 1, 0))) std::string Formatted(const char* format,
                                                            std::va_list arguments) {
  std::va_list again;
  va_copy(again, arguments);
  const int length = std::vsnprintf(nullptr, 0, format, arguments);
  // A message whose arguments can't be put in (a wide character without a form, for example) is
  // better than none.
  std::string text = format;
  if (length >= 0) {
    text.resize(static_cast<std::size_t>(length));
    std::vsnprintf(text.data(), text.size() + 1, format, again);
  }
  va_end(again);
  return text;
}

}  // namespace

struct Module::State : Channel {
  using Channel::Channel;
};

Module::Module(const char* module, const char* log) : state_(new State(module, log)) {
  Hub::Instance().Add(*state_);
}

Module::~Module() { Hub::Instance().Remove(*state_); }

bool Module::Check(int level) const noexcept {
  return level <= state_->level.load(std::memory_order_relaxed);
}

void Module::Write(int level, const char* format, ...) {
  const int saved_errno = errno;
  std::va_list arguments;
  va_start(arguments, format);
  try {
    // What a dry run says of its steps has not happened.
    const char* const mark = Rehearsal::Current() == nullptr ? "" : "dry run: ";
    Hub::Instance().Write(*state_, level, mark + Formatted(format, arguments));
  } catch (...) {
    // Only memory can be short here, and then there is nothing to say it with.
  }
  va_end(arguments);
  errno = saved_errno;
}

}  // namespace mgr_log
