#include "framework/reload_store.h"

#include <memory>

#include "tests/unit/framework/reload_store_contract.h"

namespace {

struct InMemory {
  std::unique_ptr<reloader::ReloadStore> store = std::make_unique<reloader::MemoryReloadStore>();
};

INSTANTIATE_TYPED_TEST_SUITE_P(Memory, ReloadStoreContract, InMemory);

}  // namespace
