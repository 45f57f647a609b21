// Replaces the program's allocation functions to follow single objects; see recording::Storage.
#include <algorithm>
#include <array>
#include <cstdlib>
#include <mutex>
#include <new>

#include "tests/unit/email/recording_host.h"

namespace {

struct Block {
  void* at;
  std::size_t size;
  bool freed;
};

// Plain arrays: nothing here may allocate.
std::mutex mutex;
std::array<std::size_t, 4> watched{};
std::array<Block, 1024> blocks{};
std::size_t count = 0;

bool IsWatched(std::size_t size) {
  return size != 0 && std::find(watched.begin(), watched.end(), size) != watched.end();
}

void Enter(void* at, std::size_t size) {
  const std::lock_guard guard(mutex);
  if (IsWatched(size) && count < blocks.size()) blocks.at(count++) = {at, size, false};
}

void Leave(void* at) {
  const std::lock_guard guard(mutex);
  for (std::size_t i = 0; i < count; ++i) blocks.at(i).freed |= blocks.at(i).at == at;
}

}  // namespace

void* operator new(std::size_t size) {
  void* const at = std::malloc(size == 0 ? 1 : size);
  if (at == nullptr) throw std::bad_alloc();
  Enter(at, size);
  return at;
}

void operator delete(void* at) noexcept {
  if (at == nullptr) return;
  Leave(at);
  std::free(at);
}

void operator delete(void* at, std::size_t) noexcept { operator delete(at); }

namespace recording {

std::vector<void*> Storage::Live(std::size_t size) {
  std::vector<void*> live;
  live.reserve(blocks.size());  // not while the lock is held
  const std::lock_guard guard(mutex);
  for (std::size_t i = 0; i < count; ++i) {
    if (blocks.at(i).size == size && !blocks.at(i).freed) live.push_back(blocks.at(i).at);
  }
  return live;
}

bool Storage::WasFreed(const void* at) {
  const std::lock_guard guard(mutex);
  return std::any_of(blocks.begin(), blocks.begin() + static_cast<std::ptrdiff_t>(count),
                     [at](const Block& block) { return block.at == at && block.freed; });
}

void Storage::Watch(std::initializer_list<std::size_t> sizes) {
  const std::lock_guard guard(mutex);
  count = 0;
  watched.fill(0);
  std::copy(sizes.begin(), sizes.end(), watched.begin());
}

}  // namespace recording
