#include "framework/conf_texts.h"

#include <string.h>

#include <algorithm>

namespace {

// Blocks grow with what is kept, so that one text takes no more than it needs; from this size on
// the allocator would ask the system for each.
constexpr std::size_t kLargest = std::size_t{64} << 10;

}  // namespace

void ConfTexts::Reserve(std::size_t size) {
  if (size <= room_) return;
  blocks_.push_back(std::make_unique_for_overwrite<char[]>(size));
  free_ = blocks_.back().get();
  room_ = size;
}

std::string_view ConfTexts::Keep(std::string_view text, std::string_view end) {
  const std::size_t size = text.size() + end.size();
  if (size == 0) return {};
  if (size > room_) Reserve(std::max(size, std::min(size_, kLargest)));
  const std::string_view kept(free_, size);
  free_ = std::copy(text.begin(), text.end(), free_);
  free_ = std::copy(end.begin(), end.end(), free_);
  room_ -= size;
  size_ += size;
  return kept;
}

void ConfTexts::Overwrite(std::string_view text) noexcept {
  // Kept texts lie in blocks that are ours to write into.
  if (!text.empty()) ::explicit_bzero(const_cast<char*>(text.data()), text.size());
}
