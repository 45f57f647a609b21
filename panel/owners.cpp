#include "panel/owners.h"

#include <sys/stat.h>

#include <cerrno>

#include "framework/file_error.h"
#include "framework/safe_way.h"
#include "panel/address_list.h"
#include "panel/home_job.h"
#include "panel/job_log.h"
#include "panel/names.h"
#include "panel/records.h"
#include "panel/run_request.h"
#include "panel/text_rules.h"

namespace brisq_panel {

namespace {

OwnerInfo Info(const brisq_db::User& user) {
  return {std::string(user.name), static_cast<int>(user.uid), static_cast<int>(user.gid),
          user.home};
}

OwnerInfo Checked(const OwnerInfo& owner) {
  OwnerInfo checked = owner;
  checked.name = CheckOwnerName(owner.name);
  InNameOf("owner", checked.name, [&] {
    checked.uid = CheckId("uid", owner.uid);
    checked.gid = CheckId("gid", owner.gid);
    checked.home = CheckHome(owner.home);
  });
  return checked;
}

void InsertRow(const OwnerInfo& owner) {
  const auto user = Table<brisq_db::User>();
  if (user->DbFind({{"name", owner.name}})) {
    throw mgr_err::Error("exists", "owner", owner.name);
  }
  user->New();
  user->name = owner.name;
  user->uid = owner.uid;
  user->gid = owner.gid;
  user->home = owner.home;
  user->Post();
}

// Queues the making of a missing home. What the user should know of the home when all is done.
std::vector<std::string> ProvideHome(const OwnerInfo& owner) {
  struct stat state {};
  const auto uid = static_cast<uid_t>(owner.uid);
  if (::stat(owner.home.c_str(), &state) != 0) {
    if (errno != ENOENT) {
      throw mgr_file::FileError(owner.home, "stat");
    }
    new MakeHome(owner.home, uid, static_cast<gid_t>(owner.gid));
    return {"home directory " + owner.home + " made"};
  }
  if (!S_ISDIR(state.st_mode)) {
    throw mgr_err::Error("file", owner.home, "is no directory");
  }
  // Root's home is safe: what a mailbox needs below it is made for the owner.
  if (state.st_uid != uid && state.st_uid != 0) {
    return {"home directory " + owner.home + " belongs to uid " + std::to_string(state.st_uid) +
            ": no mailbox can be made in it"};
  }
  try {
    safe_way::Open(owner.home, uid);
  } catch (const mgr_err::Error& error) {
    return {error.object() + " is " + error.value() + ": no mailbox can be made in " + owner.home};
  }
  return {};
}

}  // namespace

AddedOwner AddOwner(const OwnerInfo& given) {
  const OwnerInfo owner = Checked(given);
  std::vector<std::string> of_home;
  auto notes = RunRequest("owner add", [&](Request&) {
    JobLog::Watch(kOwner, owner.name);
    InsertRow(owner);
    of_home = ProvideHome(owner);
  });
  notes.insert(notes.end(), of_home.begin(), of_home.end());
  return {owner, notes};
}

std::vector<OwnerInfo> ListOwners() {
  std::vector<OwnerInfo> owners;
  const auto user = Table<brisq_db::User>();
  for (user->DbSelect({}, "name"); !user->Eof(); user->Next()) {
    owners.push_back(Info(*user));
  }
  return owners;
}

OwnerInfo ShowOwner(const std::string& name) { return Info(*FindOwner(CheckOwnerName(name))); }

}  // namespace brisq_panel
