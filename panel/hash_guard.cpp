#include "panel/hash_guard.h"

#include "framework/conf_defer.h"
#include "mgr_cf.h"
#include "panel/email_module.h"
#include "panel/password_line.h"
#include "panel/stored_password.h"

namespace brisq_panel {

HashGuard::HashGuard() {
  if (PasswordBackend() == nullptr) {
    EachHash(
        [this](const std::string& name, const std::string& hash) { hashes_.emplace(name, hash); });
  }
}

std::string HashGuard::PutBack() const {
  if (hashes_.empty()) {
    return {};
  }
  const std::string scheme = mgr_cf::GetParam("DovecotPwScheme");
  std::string first;
  std::unordered_map<std::string, std::string> ruined;
  EachHash([&](const std::string& name, const std::string& hash) {
    const auto old = hashes_.find(name);
    if (old == hashes_.end() || old->second == hash) {
      return;
    }
    const std::string problem = FormProblem(hash, scheme);
    if (!problem.empty()) {
      ruined.insert(*old);
      first = first.empty() ? problem : first;
    }
  });
  DeferSaves lines;
  for (const auto& [name, hash] : ruined) {
    StoreHash(name, hash);
  }
  lines.Save();
  return first;
}

}  // namespace brisq_panel
