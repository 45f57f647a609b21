// Throws while the library is being loaded, with its module registered already.
#include <stdexcept>

#include "brisq_api.h"

namespace {

class UnusedModule : public brisq_api::Module {
 public:
  UnusedModule() : Module("test_unused") {}
};

struct Thrower {
  Thrower() { throw std::runtime_error("no licence"); }
};

brisq_api::RegisterModule<UnusedModule> fabric("test_plugins");
Thrower thrower;

}  // namespace
