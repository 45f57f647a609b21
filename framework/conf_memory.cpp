#include "framework/conf_memory.h"

#include <sys/mman.h>

#include <cstdint>
#include <cstdlib>
#include <new>

namespace {

constexpr std::size_t kLargePage = std::size_t{2} << 20;

void* Map(std::size_t bytes) {
  constexpr int kProtection = PROT_READ | PROT_WRITE;
  void* block = ::mmap(nullptr, bytes, kProtection, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (block == MAP_FAILED) throw std::bad_alloc();
  // A kernel that gives no large pages gives small ones.
  ::madvise(block, bytes, MADV_HUGEPAGE);
  return block;
}

}  // namespace

void ConfMemory::Release::operator()(void* block) const noexcept {
  if (mapped) {
    ::munmap(block, bytes);
  } else {
    std::free(block);
  }
}

ConfMemory::ConfMemory(std::size_t bytes) {
  if (bytes == 0) return;
  // Up to a large page may be wasted; touching as many small ones takes three times as long.
  const bool large = bytes >= kLargePage / 2;
  if (large) bytes = (bytes + kLargePage - 1) / kLargePage * kLargePage;
  void* block = large ? Map(bytes) : std::calloc(bytes, 1);
  if (block == nullptr) throw std::bad_alloc();
  block_ = std::unique_ptr<void, Release>(block, Release{bytes, large});
}

void WantLargePages(void* block, std::size_t bytes) noexcept {
  const auto begin = reinterpret_cast<std::uintptr_t>(block);
  const std::uintptr_t first = (begin + kLargePage - 1) / kLargePage * kLargePage;
  const std::uintptr_t last = (begin + bytes) / kLargePage * kLargePage;
  if (first < last) ::madvise(reinterpret_cast<void*>(first), last - first, MADV_HUGEPAGE);
}
