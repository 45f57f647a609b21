#include "framework/secret_buffer.h"

#include <algorithm>
#include <cstring>

namespace mgr_proc {

namespace {

constexpr std::size_t kFirstCapacity = 1024;

// Byte by byte: std::memcpy leaves the text in vector registers, which the dynamic linker saves to
// the stack when it looks up the next function.
void CopySecret(char* to, const char* from, std::size_t size) {
  volatile char* const target = to;
  for (std::size_t at = 0; at < size; ++at) {
    target[at] = from[at];
  }
}

}  // namespace

SecretBuffer::~SecretBuffer() { Wipe(); }

void SecretBuffer::Wipe() noexcept {
  if (bytes_) {
    ::explicit_bzero(bytes_.get(), capacity_);
  }
  bytes_.reset();
  size_ = 0;
  capacity_ = 0;
}

SecretBuffer::int_type SecretBuffer::overflow(int_type next) {
  if (traits_type::eq_int_type(next, traits_type::eof())) {
    return traits_type::not_eof(next);
  }
  const char byte = traits_type::to_char_type(next);
  return xsputn(&byte, 1) == 1 ? next : traits_type::eof();
}

std::streamsize SecretBuffer::xsputn(const char* text, std::streamsize size) {
  if (closed_ || size <= 0) {
    return 0;
  }
  const auto count = static_cast<std::size_t>(size);
  Grow(size_ + count);
  CopySecret(bytes_.get() + size_, text, count);
  size_ += count;
  return size;
}

void SecretBuffer::Grow(std::size_t needed) {
  if (needed <= capacity_) {
    return;
  }
  const std::size_t capacity = std::max({needed, 2 * capacity_, kFirstCapacity});
  auto bigger = std::make_unique<char[]>(capacity);
  if (bytes_) {
    CopySecret(bigger.get(), bytes_.get(), size_);
    ::explicit_bzero(bytes_.get(), capacity_);
  }
  bytes_ = std::move(bigger);
  capacity_ = capacity;
}

}  // namespace mgr_proc
