#include "bench/measure.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>

namespace bench {

void PrintPair(double ours, double peer) {
  std::printf("%.0f %.0f\n", ours, peer);
  std::fflush(stdout);
}

long Number(const char* text) {
  char* end = nullptr;
  const long number = std::strtol(text, &end, 10);
  if (*text != '\0' && *end == '\0') return number;
  std::fprintf(stderr, "no number: %s\n", text);
  std::exit(2);
}

void Fail(const char* call) {
  std::fprintf(stderr, "%s: %s\n", call, std::strerror(errno));
  std::exit(1);
}

long ResidentKilobytes() {
  std::ifstream state("/proc/self/statm");
  long all = 0;
  long resident = 0;
  state >> all >> resident;
  return resident * (::sysconf(_SC_PAGESIZE) / 1024);
}

}  // namespace bench
