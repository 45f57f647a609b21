// It loads as a mail back-end does, and its module can't be built.
#include "brisq_api.h"
#include "mgr_err.h"

namespace {

class ThrowingBackend : public brisq_api::Module {
 public:
  ThrowingBackend() : Module("test_backend") {
    throw mgr_err::Error("config", "licence", "has ended");
  }
};

brisq_api::RegisterModule<ThrowingBackend> fabric("email_interface");

}  // namespace
