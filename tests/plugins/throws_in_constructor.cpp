// Its module can't be built.
#include "brisq_api.h"
#include "mgr_err.h"

namespace {

class ThrowingModule : public brisq_api::Module {
 public:
  ThrowingModule() : Module("test_throws") {
    throw mgr_err::Error("config", "POP3", "not for this plug-in");
  }
};

brisq_api::RegisterModule<ThrowingModule> fabric("test_plugins");

}  // namespace
