#include "panel/email_reload.h"

#include <memory>

#include "email.h"
#include "framework/reload_queue.h"
#include "framework/sql_reload_store.h"
#include "mgr_cf.h"

email::EmailReload::~EmailReload() = default;

namespace brisq_panel {
namespace {

constexpr const char* kGroup = "email.reload";
constexpr const char* kConfigTest = "dovecot-configtest";

}  // namespace

ReloadRequests::ReloadRequests(const std::string& state_folder) {
  mgr_cf::SetPathDefault(kConfigTest, "doveconf -nx");
  reloader::Queue& queue = reloader::Queue::OfProcess();
  queue.SetStore(std::make_shared<reloader::SqlReloadStore>());
  queue.SetStateFolder(state_folder);
  queue.SetConfigTest(kGroup, kConfigTest);
}

ReloadRequests::~ReloadRequests() {
  reloader::Queue& queue = reloader::Queue::OfProcess();
  queue.SetStateFolder("");
  queue.SetStore(std::make_shared<reloader::MemoryReloadStore>());
}

}  // namespace brisq_panel
