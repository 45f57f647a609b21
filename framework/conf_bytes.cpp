#include "framework/conf_bytes.h"

#include <algorithm>
#include <utility>

ConfBytes::ConfBytes(std::string_view content) {
  Reserve(content.size());
  std::copy(content.begin(), content.end(), End());
  Add(content.size());
}

void ConfBytes::Reserve(std::size_t capacity) {
  if (capacity <= memory_.size()) return;
  ConfMemory larger(capacity);
  std::copy_n(Begin(), size_, static_cast<char*>(larger.data()));
  memory_ = std::move(larger);
}
