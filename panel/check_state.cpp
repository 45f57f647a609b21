#include "panel/check_state.h"

#include <unistd.h>

#include <algorithm>
#include <set>

#include "framework/database.h"
#include "framework/seal.h"
#include "mgr_err.h"
#include "mgr_file.h"
#include "panel/instance_places.h"
#include "panel/mend_jobs.h"
#include "panel/sealed_texts.h"
#include "panel/shell_word.h"
#include "panel/state_at.h"

namespace brisq_panel {

namespace {

struct stat StateOf(const std::string& path) {
  constexpr struct stat kNothing {};
  return StateAt(path, Links::kStay).value_or(kNothing);
}

bool IsOpenToOthers(const struct stat& state) { return (state.st_mode & (S_IRWXG | S_IRWXO)) != 0; }

// The folder alone keeps others out; a file that is open is found out when the folder becomes so.
void CheckPrivate(const std::string& path, Drifts& drifts) {
  const struct stat state = StateOf(path);
  if (!S_ISREG(state.st_mode) && !S_ISDIR(state.st_mode)) {
    return;
  }
  const bool foreign = state.st_uid != ::geteuid();
  if (!foreign && !IsOpenToOthers(state)) {
    return;
  }
  const mode_t mode = S_ISDIR(state.st_mode) ? 0700 : 0600;
  drifts.Error("STATE-ACCESS", path,
               foreign ? "belongs to uid " + std::to_string(state.st_uid) : "is open to others",
               "chown root " + ShellWord(path) + " && chmod go= " + ShellWord(path),
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

// Why a sealed text can't be opened; empty when it can.
std::string WhyShut(const SealedText& sealed) {
  try {
    std::string text = mgr_seal::Open(sealed.text);
    mgr_seal::Wipe(text);
    return {};
  } catch (const mgr_err::Error& error) {
    return error.object() + ": " + error.value();
  }
}

void CheckKey(Drifts& drifts) {
  const std::string key = mgr_file::ConcatPath(PlacesOfInstance().state, "seal.key");
  if (IsOpenToOthers(StateOf(key))) {
    return;  // it is not used before that has been ended
  }
  std::string reason;
  const auto is_lost = [&](const SealedText& sealed) {
    const std::string why = WhyShut(sealed);
    reason = why.empty() ? reason : why;
    return !why.empty();
  };
  const auto passwords = SealedPasswords();
  const auto count = std::count_if(passwords.begin(), passwords.end(), is_lost);
  std::string lost = count == 0 ? "" : std::to_string(count) + " of the kept passwords";
  for (const SealedText& sealed : LatestSealedTexts()) {
    if (is_lost(sealed)) {
      lost += (lost.empty() ? "" : ", ") + sealed.where;
    }
  }
  if (!lost.empty()) {
    drifts.Error("KEY-LOST", key, "does not open " + lost + "; " + reason,
                 "put the key back from a backup; without one give up what it sealed: (umask 077; "
                 "head -c 32 /dev/urandom >" +
                     ShellWord(key) +
                     "), then a new password for each mailbox whose password the panel kept");
  }
}

void CheckLogEntry(const std::string& path, mode_t wrong, const std::string& text, Drifts& drifts) {
  const struct stat state = StateOf(path);
  if (S_ISLNK(state.st_mode) || (state.st_mode & wrong) == 0) {
    return;
  }
  drifts.Warning("LOG-ACCESS", path, text,
                 (wrong == S_IWOTH ? "chmod o-w " : "chmod o= ") + ShellWord(path),
                 [=] { new SetAccess(path, StateOf(path).st_mode & 07777 & ~wrong); });
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
