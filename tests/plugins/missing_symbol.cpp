// Calls a function that nobody offers.
#include "brisq_api.h"

namespace brisq_api {

BRISQ_API void FunctionOfANewerHost();

}  // namespace brisq_api

namespace {

class NewerModule : public brisq_api::Module {
 public:
  NewerModule() : Module("test_newer") { brisq_api::FunctionOfANewerHost(); }
};

brisq_api::RegisterModule<NewerModule> fabric("test_plugins");

}  // namespace
