// What is freed is overwritten first, in the whole program with its libraries and plug-ins. A
// password passes through strings of many hands, of which none but the first and the last could
// wipe its own.

#include <malloc.h>
#include <string.h>

#include <cstdlib>
#include <new>

namespace {

// A password has 4 KiB at most (password_input.cpp) and no text around it fills a larger block than
// this; the tables and bytes of big documents do, and are not worth the time.
constexpr std::size_t kLargestWiped = std::size_t{64} << 10;

}  // namespace

void* operator new(std::size_t size) {
  while (true) {
    if (void* memory = std::malloc(size == 0 ? 1 : size)) return memory;
    const std::new_handler handler = std::get_new_handler();
    if (handler == nullptr) throw std::bad_alloc();
    handler();
  }
}

void operator delete(void* memory) noexcept {
  if (memory == nullptr) return;
  const std::size_t size = malloc_usable_size(memory);
  if (size <= kLargestWiped) explicit_bzero(memory, size);
  std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept { operator delete(memory); }
