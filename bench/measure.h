#pragma once

#include <chrono>

namespace bench {

/// Nanoseconds that a call takes.
template <class Work>
long Nanoseconds(const Work& work) {
  const auto begin = std::chrono::steady_clock::now();
  work();
  return std::chrono::nanoseconds(std::chrono::steady_clock::now() - begin).count();
}

/// Prints one measurement and its peer, in the same unit, as a line that bench/run reads.
void PrintPair(double ours, double peer);

/// A number that an argument gives.
/// Ends the program when it is none.
long Number(const char* text);

/// Ends the program with a message that names the call and errno.
[[noreturn]] void Fail(const char* call);

/// Kilobytes of memory that the process holds at this moment, pages of files included.
long ResidentKilobytes();

}  // namespace bench
