#include "panel/lost_file.h"

#include <filesystem>
#include <string>
#include <system_error>

#include "framework/conf_stamp.h"
#include "framework/database.h"
#include "mgr_cf.h"
#include "mgr_err.h"
#include "panel/password_line.h"

namespace brisq_panel {

namespace {

std::string CountActive(int except) {
  return mgr_db::ThreadConnection()
      ->Query("SELECT COUNT(*) FROM mailboxes WHERE active = 'on' AND id != :v1",
              {std::to_string(except)}, 1)
      .front()
      .front();
}

void Refuse(const std::string& path, const std::string& state, const std::string& active,
            const std::string& other_way) {
  if (active == "0") {
    return;
  }
  throw mgr_err::Error("limit", path,
                       state + ", but should hold the lines of active mailboxes: " + active +
                           "; \"brisq sync\" writes their lines anew" + other_way);
}

// False for a link into nowhere, of which the save itself says more.
bool CanBeMade(const std::filesystem::path& path) {
  std::error_code none;
  return !std::filesystem::is_symlink(path, none) ||
         std::filesystem::exists(
             (path.parent_path() / std::filesystem::read_symlink(path, none)).parent_path(), none);
}

}  // namespace

void RefuseFirstLine(int mailbox) {
  const std::string path = mgr_cf::GetPath("dovecot-passwd");
  if (HasAnyLine() || !CanBeMade(path)) {
    return;
  }
  const bool exists = StampAt(path).exists;
  Refuse(path, exists ? "holds no mailbox" : "does not exist", CountActive(mailbox),
         exists ? ", \"brisq refresh\" archives these mailboxes" : "");
}

void RefuseMissingFile() {
  const std::string path = mgr_cf::GetPath("dovecot-passwd");
  if (!path.empty() && !StampAt(path).exists) {
    Refuse(path, "does not exist", CountActive(0), "");
  }
}

}  // namespace brisq_panel
