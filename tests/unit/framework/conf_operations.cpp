#include "tests/unit/framework/conf_operations.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>

#include "framework/conf_defer.h"
#include "framework/descriptor.h"
#include "framework/sys.h"
#include "tests/unit/framework/conf_fixture.h"

namespace conf_operations {
namespace {

using conf_fixture::AddUser;
using conf_fixture::Line;
using conf_fixture::SetPassword;
using conf_fixture::Users;
using conf_fixture::UsersConfig;
using Act = std::function<void(const Cursor<Users>&)>;

constexpr gid_t kGroup = 2345;

const std::string kBefore = "# head\n" + Line("a", "old") + "\r\n" + Line("b", "old");
const std::string kChanged = "# head\n" + Line("a", "new") + "\r\n" + Line("b", "old");
const std::string kNew =
    "n::1000:1000::/home/n:::maildir:~/.maildir userdb_quota_rule=*:bytes=0M\n";
const std::string kByHand = Line("hand", "by hand") + "\n";

auto ByEngine(Act act) {
  return [act = std::move(act)](const std::string& path) {
    const auto users = UsersConfig::Open(path);
    return std::function<void()>([act, users] { act(users); });
  };
}

void ChangeAndAdd(const Cursor<Users>& users) {
  DeferSaves scope;
  SetPassword(users, "a", "new");
  AddUser(users, "n");
  scope.Save();
}

// A walk over all lines that changes two fields of each.
void ChangeAll(const Cursor<Users>& users) {
  DeferSaves scope;
  for (users->First(); !users->Eof(); users->Next()) {
    users->passwd.Set("all");
    users->info.Set("-");
    users->Post("");
  }
  scope.Save();
}

std::string ChangedBy(const std::string& line) {
  std::string changed = line;
  changed.replace(changed.find(":old:"), 5, ":all:");
  return changed.replace(changed.find("::/home"), 2, ":-:");
}

std::vector<Operation> MakeOperations() {
  const auto change = [](const auto& users) { SetPassword(users, "a", "new"); };
  const std::string line_a = Line("a", "old") + "\r\n";
  const std::string all_a = "# head\n" + ChangedBy(line_a);
  // The last call may be the one that looks for a further line, when all changes are made.
  const std::string all_b = all_a + ChangedBy(Line("b", "old"));
  return {
      {"append", ByEngine([](const auto& users) { AddUser(users, "n"); }), kBefore,
       kBefore + "\n" + kNew},
      {"change", ByEngine(change), kBefore, kChanged},
      {"remove", ByEngine([](const auto& users) { users->Assert("b"), users->_Delete(true); }),
       kBefore, "# head\n" + line_a},
      {"deferred", ByEngine(ChangeAndAdd), kBefore, kChanged + "\n" + kNew, {kChanged}},
      {"several",
       ByEngine(ChangeAll),
       kBefore,
       all_b,
       {all_a + Line("b", "old"), all_b, "# head\n" + line_a + ChangedBy(Line("b", "old"))}},
      {"create", ByEngine([](const auto& users) { AddUser(users, "n"); }), {}, kNew},
      {"merge", ByEngine(change), kBefore, kChanged + "\n" + kByHand, {}, kByHand},
      {"linked", ByEngine(change), kBefore, kChanged, {}, {}, true},
  };
}

void WriteSome(int fd, std::string text) {
  const struct iovec piece { text.data(), text.size() };
  if (sys::WriteV(fd, &piece, 1) < 0) sys::Fail("write", "users");
}

void WriteAs(const std::string& path, const std::string& text) {
  const Descriptor file(sys::Open(AT_FDCWD, path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0640));
  if (!file) sys::Fail("open", path);
  WriteSome(file.get(), text.substr(0, text.size() / 2));
  WriteSome(file.get(), text.substr(text.size() / 2));
  if (sys::FSync(file.get()) != 0) sys::Fail("fsync", path);
}

std::vector<Content> Allowed(const Place& place, const Operation& operation, Report report) {
  std::vector<Content> allowed;
  if (report != Report::kNotMade) allowed.emplace_back(operation.after);
  if (report == Report::kNotMade || report == Report::kNothing) {
    allowed.push_back(operation.before);
    allowed.insert(allowed.end(), operation.parts.begin(), operation.parts.end());
    allowed.emplace_back(operation.before.value_or("") + "\n" + operation.hand_edit);
  }
  // An edit by hand that our change has pushed out stays beside the file for the next run.
  const bool in_doubt = report == Report::kMadeInDoubt || report == Report::kNothing;
  if (in_doubt && !operation.hand_edit.empty() && place.Has(operation.hand_edit)) {
    allowed.emplace_back(kChanged);
  }
  return allowed;
}

bool IsLock(const std::string& name) { return name.ends_with(".brisq-lock"); }

}  // namespace

Place::Place(const Content& before, bool linked)
    : existed_(before.has_value()), linked_(linked), path_(directory_ / "users") {
  real_folder_ = linked ? directory_.MakeFolder("real") : directory_.path();
  file_ = real_folder_ + "/users";
  if (linked && ::symlink("real/users", path_.c_str()) != 0) ADD_FAILURE() << "no link";
  if (!before) return;
  directory_.Write(linked ? "real/users" : "users", *before);
  EXPECT_EQ(::chown(file_.c_str(), 0, kGroup), 0);
  EXPECT_EQ(::chmod(file_.c_str(), 0640), 0);
}

Content Place::Read() const {
  if (!std::filesystem::exists(path_)) return {};
  return support::ReadFile(path_);
}

bool Place::IsKept() const {
  struct stat info {};
  if (linked_ && (::lstat(path_.c_str(), &info) != 0 || !S_ISLNK(info.st_mode))) return false;
  if (::stat(path_.c_str(), &info) != 0) return !existed_;
  const bool kept = info.st_gid == kGroup && (info.st_mode & 07777) == 0640;
  return existed_ ? kept : (info.st_mode & 0007) == 0;
}

std::vector<std::string> Place::Leftovers() const {
  std::vector<std::string> paths;
  for (const auto& entry : std::filesystem::directory_iterator(real_folder_)) {
    const std::string name = entry.path().filename();
    if (name != "users" && !IsLock(name)) paths.push_back(entry.path());
  }
  return paths;
}

bool Place::Has(const std::string& text) const {
  const auto has = [&](const std::string& path) {
    return support::ReadFile(path).find(text) != std::string::npos;
  };
  const std::vector<std::string> leftovers = Leftovers();
  return has(file_) || std::any_of(leftovers.begin(), leftovers.end(), has);
}

void PrintTo(const Operation& operation, std::ostream* out) { *out << operation.name; }

const std::vector<Operation>& Operations() {
  static const std::vector<Operation> operations = MakeOperations();
  return operations;
}

Operation WritingInPlace() {
  return {"in place",
          [](const std::string& path) {
            return std::function<void()>([path] { WriteAs(path, kChanged); });
          },
          kBefore, kChanged};
}

Operation RenamingWithoutExchange() {
  return {"rename",
          [](const std::string& path) {
            return std::function<void()>([path] {
              const std::string temporary = path + ".tmp";
              WriteAs(temporary, kChanged);
              if (sys::Rename(AT_FDCWD, temporary.c_str(), path.c_str(), 0) != 0) {
                sys::Fail("rename", path);
              }
            });
          },
          kBefore,
          kChanged + "\n" + kByHand,
          {},
          kByHand};
}

void HandEdit::Before(std::string_view call) {
  if (line_.empty() || call != "rename") return;
  // Not beside the file, where it would look like a leftover.
  const support::TempDir folder;
  const std::string mine = folder.Write("mine", *place_.Read() + "\n" + line_);
  line_.clear();
  EXPECT_EQ(::chown(mine.c_str(), 0, kGroup), 0);
  EXPECT_EQ(::chmod(mine.c_str(), 0640), 0);
  EXPECT_EQ(std::rename(mine.c_str(), place_.file().c_str()), 0);
}

std::string FaultOf(const Place& place, const Operation& operation, Report report) {
  const Content content = place.Read();
  const std::vector<Content> allowed = Allowed(place, operation, report);
  if (std::find(allowed.begin(), allowed.end(), content) == allowed.end()) {
    return "the file holds " + content.value_or("nothing, for there is none");
  }
  return place.IsKept() ? "" : "owner, mode or link are not what they were";
}

std::string FaultOfNextRun(const Place& place, const Operation& operation) {
  const bool had_edit = !operation.hand_edit.empty() && place.Has(operation.hand_edit);
  AddUser(UsersConfig::Open(place.path()), "next");
  if (place.Read().value_or("").find("\nnext:") == std::string::npos &&
      !place.Read().value_or("").starts_with("next:")) {
    return "the next change is not in the file";
  }
  if (had_edit && !place.Has(operation.hand_edit)) return "the next run lost an edit by hand";
  for (const std::string& path : place.Leftovers()) {
    if (path.find(".edited-") == std::string::npos) return "left behind: " + path;
  }
  return "";
}

}  // namespace conf_operations
