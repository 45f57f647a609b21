// Ends the process while it is being loaded.
#include <cstdlib>

namespace {

struct Aborter {
  Aborter() { std::abort(); }
};

Aborter aborter;

}  // namespace
