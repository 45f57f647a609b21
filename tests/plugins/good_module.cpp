// A plug-in as it should be.
#include "brisq_api.h"

namespace {

class GoodModule : public brisq_api::Module {
 public:
  GoodModule() : Module("test_good") {}
};

brisq_api::RegisterModule<GoodModule> fabric("test_plugins");

}  // namespace
