#include "framework/forget_behind.h"

#include <fcntl.h>

#include <algorithm>
#include <system_error>
#include <utility>

#include "framework/conf_mapping.h"

namespace {

// By so much old and new content may be shifted against each other; who needs a page that was given
// back too early waits for the disk.
constexpr std::size_t kShift = std::size_t{1} << 20;

}  // namespace

ForgetBehind::ForgetBehind(int file, std::shared_ptr<const ConfBytes> bytes)
    : file_(file), bytes_(std::move(bytes)) {
  try {
    thread_ = std::thread([this] { Follow(); });
  } catch (const std::system_error&) {
    // It only saves time.
  }
}

ForgetBehind::~ForgetBehind() {
  if (written_ != kAll) Written(kStop);
  if (thread_.joinable()) thread_.join();
}

void ForgetBehind::Written(std::size_t bytes) noexcept {
  written_ = bytes;
  written_.notify_one();
}

void ForgetBehind::Follow() noexcept {
  for (std::size_t seen = 0; seen < kStop;) {
    written_.wait(seen);
    seen = written_;
    if (seen != kStop && seen > kShift) Forget(seen == kAll ? kAll : seen - kShift);
  }
}

void ForgetBehind::Forget(std::size_t end) noexcept {
  if (ConfMapping* const mapping = bytes_->mapping()) mapping->Forget(end);
  // For the system 0 stands for all of it.
  ::posix_fadvise(file_, 0, end == kAll ? 0 : static_cast<off_t>(end), POSIX_FADV_DONTNEED);
}
