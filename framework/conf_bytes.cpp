#include "framework/conf_bytes.h"

#include <algorithm>
#include <utility>

#include "framework/conf_mapping.h"

ConfBytes::ConfBytes() = default;
ConfBytes::~ConfBytes() = default;

ConfBytes::ConfBytes(std::unique_ptr<char[]> content, std::size_t size) noexcept
    : begin_(content.get()), size_(size), given_(std::move(content)) {}

ConfBytes::ConfBytes(std::unique_ptr<ConfMapping> mapping)
    : begin_(mapping->View().data()), size_(mapping->View().size()), mapping_(std::move(mapping)) {}

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
  begin_ = Begin();
}
