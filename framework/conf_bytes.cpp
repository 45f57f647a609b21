#include "framework/conf_bytes.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

constexpr std::size_t kLargePage = std::size_t{2} << 20;

char* Allocate(std::size_t& capacity) {
  if (capacity < 2 * kLargePage) return static_cast<char*>(std::malloc(capacity));
  capacity = (capacity + kLargePage - 1) / kLargePage * kLargePage;
  void* block = std::aligned_alloc(kLargePage, capacity);
  // A kernel that gives no large pages gives small ones.
  if (block != nullptr) ::madvise(block, capacity, MADV_HUGEPAGE);
  return static_cast<char*>(block);
}

}  // namespace

void ConfBytes::Release::operator()(char* data) const noexcept { std::free(data); }

ConfBytes::ConfBytes(std::string_view content) {
  Reserve(content.size());
  std::copy(content.begin(), content.end(), End());
  Add(content.size());
}

void ConfBytes::Reserve(std::size_t capacity) {
  if (capacity <= capacity_) return;
  std::unique_ptr<char[], Release> block(Allocate(capacity));
  if (!block) throw std::bad_alloc();
  if (size_ > 0) std::memcpy(block.get(), data_.get(), size_);
  data_ = std::move(block);
  capacity_ = capacity;
}
