#include "panel/check_state.h"

#include <sys/stat.h>
#include <unistd.h>

#include <set>

#include "framework/database.h"
#include "framework/seal.h"
#include "mgr_err.h"
#include "mgr_file.h"
#include "panel/instance_places.h"
#include "panel/mend_jobs.h"

namespace brisq_panel {

namespace {

struct stat StateOf(const std::string& path) {
  struct stat state {};
  ::lstat(path.c_str(), &state);
  return state;
}

// The folder alone keeps others out; a file that is open is found out when the folder becomes so.
void CheckPrivate(const std::string& path, Drifts& drifts) {
  const struct stat state = StateOf(path);
  if (!S_ISREG(state.st_mode) && !S_ISDIR(state.st_mode)) {
    return;
  }
  const bool foreign = state.st_uid != ::geteuid();
  if (!foreign && (state.st_mode & (S_IRWXG | S_IRWXO)) == 0) {
    return;
  }
  const mode_t mode = S_ISDIR(state.st_mode) ? 0700 : 0600;
  drifts.Error("STATE-ACCESS", path,
               foreign ? "belongs to uid " + std::to_string(state.st_uid) : "is open to others",
               "chown root " + path + " && chmod go= " + path,
               [=] { new SetAccess(path, mode, ::geteuid()); });
}

// Names of what the instance keeps in its state folder; other things there are somebody else's.
bool IsStateName(const std::string& name) {
  static const std::set<std::string> names = {"journal",
                                              "passwd-file-edit",
                                              "passwd-file-edit.lock",
                                              "passwd-file.refused",
                                              "refresh.lock",
                                              "reload.lock",
                                              "seal.key",
                                              "serve.lock"};
  return names.count(name) != 0 || name.starts_with("seal.key.");
}

void CheckFolders(Drifts& drifts) {
  const InstancePlaces places = PlacesOfInstance();
  for (mgr_file::Dir entries(places.state); !places.state.empty() && entries.Read();) {
    if (IsStateName(entries.name())) {
      CheckPrivate(entries.FullName(), drifts);
    }
  }
  // Its folder may be any, the one of the mail or of the settings too.
  for (const char* end : {"", "-wal", "-shm", "-journal"}) {
    CheckPrivate(places.database + end, drifts);
  }
}

void CheckDatabase(Drifts& drifts) {
  const auto rows = mgr_db::ThreadConnection()->Query("PRAGMA integrity_check", {}, 1);
  const std::string answer = rows.empty() ? "" : rows.front().front();
  if (answer != "ok") {
    drifts.Error("DATABASE-DAMAGED", PlacesOfInstance().database, answer,
                 "put it back from a backup");
  }
}

void CheckKey(Drifts& drifts) {
  std::size_t lost = 0;
  std::string reason;
  for (const auto& row : mgr_db::ThreadConnection()->Query(
           "SELECT password FROM mailboxes WHERE password != ''", {}, 1)) {
    try {
      std::string password = mgr_seal::Open(row.front());
      mgr_seal::Wipe(password);
    } catch (const mgr_err::Error& error) {
      ++lost;
      reason = error.object() + ": " + error.value();
    }
  }
  if (lost > 0) {
    drifts.Error("KEY-LOST", mgr_file::ConcatPath(PlacesOfInstance().state, "seal.key"),
                 "opens not " + std::to_string(lost) + " of the kept passwords; " + reason,
                 "put the key back from a backup, or brisq mailbox passwd for each mailbox");
  }
}

void CheckLogEntry(const std::string& path, mode_t wrong, const std::string& text, Drifts& drifts) {
  const struct stat state = StateOf(path);
  if (S_ISLNK(state.st_mode) || (state.st_mode & wrong) == 0) {
    return;
  }
  const mode_t mode = state.st_mode & 07777 & ~wrong;
  drifts.Warning("LOG-ACCESS", path, text, "take that right away with chmod",
                 [=] { new SetAccess(path, mode); });
}

void CheckLog(Drifts& drifts) {
  const std::string folder = PlacesOfInstance().log;
  if (folder.empty()) {
    return;
  }
  CheckLogEntry(folder, S_IWOTH, "everybody may put files into it", drifts);
  for (mgr_file::Dir entries(folder); entries.Read();) {
    if (entries.name().find(".log") != std::string::npos) {
      CheckLogEntry(entries.FullName(), S_IRWXO, "everybody may read or change it", drifts);
    }
  }
}

}  // namespace

void CheckState(Drifts& drifts) {
  CheckFolders(drifts);
  CheckDatabase(drifts);
  CheckKey(drifts);
  CheckLog(drifts);
}

}  // namespace brisq_panel
