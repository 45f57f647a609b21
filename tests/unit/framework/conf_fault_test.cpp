#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "framework/conf_defer.h"
#include "tests/support/log_capture.h"
#include "tests/support/sys_fault.h"
#include "tests/unit/framework/conf_fixture.h"

/// The engine as a whole when every system call may fail and every moment may be the last.
namespace {

using conf_fixture::AddUser;
using conf_fixture::ErrorOf;
using conf_fixture::Line;
using conf_fixture::Names;
using conf_fixture::SetPassword;
using conf_fixture::Users;
using conf_fixture::UsersConfig;

const std::string kBefore = "# head\n" + Line("a", "old") + "\r\n" + Line("b", "old");

/// An operation that changes the file, and what the file then holds.
struct Operation {
  const char* name;
  std::function<void(const Cursor<Users>&)> act;
  std::string after;
  std::string half = kBefore;  // what it may hold when only a part was refused
};

void PrintTo(const Operation& operation, std::ostream* out) { *out << operation.name; }

const std::vector<Operation>& Operations() {
  static const std::string kNew =
      "n::1000:1000::/home/n:::maildir:~/.maildir userdb_quota_rule=*:bytes=0M\n";
  static const std::vector<Operation> operations = {
      {"add", [](const auto& users) { AddUser(users, "n"); }, kBefore + "\n" + kNew},
      {"change", [](const auto& users) { SetPassword(users, "a", "new"); },
       "# head\n" + Line("a", "new") + "\r\n" + Line("b", "old")},
      {"remove", [](const auto& users) { users->Assert("b"), users->_Delete(true); },
       "# head\n" + Line("a", "old") + "\r\n"},
      {"deferred",
       [](const auto& users) {
         DeferSaves scope;
         SetPassword(users, "a", "new");
         AddUser(users, "n");
         scope.Save();
       },
       "# head\n" + Line("a", "new") + "\r\n" + Line("b", "old") + "\n" + kNew,
       "# head\n" + Line("a", "new") + "\r\n" + Line("b", "old")},
  };
  return operations;
}

/// A file in a fresh folder, with the owner, mode and attributes that a server's has.
class Place {
 public:
  Place() {
    folder_.Write("users", kBefore);
    EXPECT_EQ(::chown(path.c_str(), 0, 2345), 0);
    EXPECT_EQ(::chmod(path.c_str(), 0640), 0);
  }
  /// Everything in the folder but the file and its lock.
  std::vector<std::string> Leftovers() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder_.path())) {
      const std::string name = entry.path().filename();
      if (name != "users" && name != ".users.brisq-lock") names.push_back(name);
    }
    return names;
  }
  std::string Content() const { return support::ReadFile(path); }
  bool KeepsOwnerAndMode() const {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 && info.st_gid == 2345 &&
           (info.st_mode & 07777) == 0640;
  }

 private:
  support::TempDir folder_;

 public:
  const std::string path = folder_ / "users";
};

constexpr int kErrors[] = {EACCES, EBADF,  EDQUOT, EINTR,  EINVAL,
                           EIO,    EMFILE, ENOMEM, ENOSPC, EROFS};

class ConfFaultTest : public ::testing::TestWithParam<Operation> {
 protected:
  ConfFaultTest() { SetConfWaitLimit(std::chrono::milliseconds(1)); }
  ~ConfFaultTest() override { SetConfWaitLimit(std::chrono::seconds(10)); }
};

/// One operation with one failing call. False when the call's number was never reached.
bool TryFailure(const Operation& operation, std::size_t number, int error, bool onwards) {
  const Place place;
  std::string told;
  {
    // Opened before the fault is set: what is tried is the change.
    const auto users = UsersConfig::Open(place.path);
    support::SysFault fault;
    fault.FailNumber(number, error, onwards);
    told = ErrorOf([&] { operation.act(users); });
    if (!fault.Failed()) return false;
  }
  const std::string content = place.Content();
  const bool done = told.empty() || told.find("was changed") != std::string::npos;
  EXPECT_TRUE(done ? content == operation.after : content == kBefore || content == operation.half)
      << "told: " << told << "\nfound: " << content;
  EXPECT_TRUE(place.KeepsOwnerAndMode());
  const auto users = UsersConfig::Open(place.path);
  EXPECT_EQ(users->Find("n"), content.find("\nn:") != std::string::npos)
      << "the document is not what the disk says";
  // The next save works and clears up.
  SetPassword(users, "a", "next");
  EXPECT_EQ(place.Leftovers(), std::vector<std::string>{});
  return true;
}

TEST_P(ConfFaultTest, AnErrorAtAnyCallDamagesNothingAndIsNeverTakenForSuccess) {
  support::LogCapture log;
  std::size_t points = 0;
  for (const int error : kErrors) {
    for (const bool onwards : {false, true}) {
      for (std::size_t number = 1;; ++number) {
        SCOPED_TRACE(std::string(GetParam().name) + ": call " + std::to_string(number) + " gives " +
                     std::to_string(error) + (onwards ? " from then on" : ""));
        if (!TryFailure(GetParam(), number, error, onwards)) break;
        ++points;
        if (HasFailure()) return;
      }
    }
  }
  std::printf("%s: calls made to fail: %zu\n", GetParam().name, points);
  // A deferred change whose failure nobody asked for is logged.
  log.Clear();
  EXPECT_GE(points, 10U * 2U * 20U);
}

/// One operation in a child that is killed at a call. False when the call's number was never
/// reached.
bool TryKill(const Operation& operation, std::size_t number) {
  const Place place;
  const pid_t child = ::fork();
  if (child == 0) {
    const auto users = UsersConfig::Open(place.path);
    support::SysFault fault;
    fault.OnCall([&](std::string_view, std::size_t call) {
      if (call == number) ::raise(SIGKILL);
    });
    operation.act(users);
    ::_exit(0);
  }
  int status = 0;
  EXPECT_EQ(::waitpid(child, &status, 0), child);
  const std::string content = place.Content();
  EXPECT_TRUE(content == kBefore || content == operation.after) << content;
  EXPECT_TRUE(place.KeepsOwnerAndMode());
  EXPECT_LE(place.Leftovers().size(), 1U);
  for (const std::string& name : place.Leftovers()) {
    struct stat info {};
    EXPECT_EQ(::stat((place.path.substr(0, place.path.rfind('/') + 1) + name).c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0007U, 0U);
  }
  SetPassword(UsersConfig::Open(place.path), "a", "next");
  EXPECT_EQ(place.Leftovers(), std::vector<std::string>{});
  return WIFSIGNALED(status);
}

TEST_P(ConfFaultTest, AProcessKilledAtAnyCallLeavesTheOldFileOrTheNewOne) {
  std::size_t points = 0;
  for (std::size_t number = 1; TryKill(GetParam(), number); ++number) {
    ++points;
    ASSERT_FALSE(HasFailure()) << GetParam().name << ": killed at call " << number;
  }
  std::printf("%s: calls at which a process was killed: %zu\n", GetParam().name, points);
  EXPECT_GE(points, 20U);
}

TEST_P(ConfFaultTest, ShortWritesAreGoneOnWith) {
  const Place place;
  const auto users = UsersConfig::Open(place.path);
  support::SysFault fault;
  fault.CutWrites(3);
  GetParam().act(users);
  EXPECT_EQ(place.Content(), GetParam().after);
}

INSTANTIATE_TEST_SUITE_P(Operations, ConfFaultTest, ::testing::ValuesIn(Operations()),
                         [](const auto& operation) { return std::string(operation.param.name); });

// Who reads beside a writer sees whole files only.
TEST(ConfFaults, ReadersBesideAWriterNeverSeeATornFile) {
  constexpr int kReads = 50'000;
  const Place place;
  const pid_t writer = ::fork();
  if (writer == 0) {
    const auto users = UsersConfig::Open(place.path);
    for (int round = 0;; ++round)
      SetPassword(users, "a", std::string(static_cast<std::size_t>(1 + round % 50), 'x'));
  }
  const std::string head = "# head\na:";
  const std::string tail = ":1000:1000::/home/b:::maildir:~/.maildir userdb_quota_rule=*:bytes=0M";
  int torn = 0;
  std::set<std::string> seen;
  for (int read = 0; read < kReads; ++read) {
    const std::string content = support::ReadFile(place.path);
    if (!content.starts_with(head) || !content.ends_with(tail)) ++torn;
    seen.insert(content);
  }
  ::kill(writer, SIGKILL);
  ::waitpid(writer, nullptr, 0);
  std::printf("reads: %d, torn: %d, different contents: %zu\n", kReads, torn, seen.size());
  EXPECT_EQ(torn, 0);
  EXPECT_GE(seen.size(), 10U) << "there was nothing to tear";
}

// Any byte in any field ends in a refusal or in one line with that value.
TEST(ConfFaults, NoByteInAnyFieldMakesALineOrMovesAColumn) {
  const Place place;
  const auto users = UsersConfig::Open(place.path);
  // Three that were there and the new one.
  constexpr int kLines = 4;
  int tried = 0;
  DeferSaves scope;
  for (unsigned long column = 1; column <= 9; ++column) {
    for (int byte = 0; byte < 256; ++byte) {
      for (const int where : {0, 1, 2}) {
        SCOPED_TRACE("column " + std::to_string(column) + " byte " + std::to_string(byte));
        std::string value = "xy";
        value.insert(static_cast<std::size_t>(where), 1, static_cast<char>(byte));
        users->New();
        std::string name = "n";
        ++tried;
        const std::string refused = ErrorOf([&] {
          users->name.Set(name);
          users->Fields()[column - 1]->Set(value);
          users->Post("");
        });
        if (column == 1) name = value;
        const bool there = users->Find(name);
        ASSERT_EQ(there, refused.empty());
        if (!there) continue;
        for (const dd::Field* field : users->Fields()) {
          const std::string want = field->Column() == column ? value
                                   : field->Column() == 1    ? name
                                                             : "";
          ASSERT_EQ(field->Str(), want);
        }
        const std::string_view content = users->getConfig()->bytes;
        ASSERT_EQ(std::count(content.begin(), content.end(), '\n'), kLines);
        users->_Delete(true);
      }
    }
  }
  std::printf("values tried: %d\n", tried);
  EXPECT_EQ(tried, 9 * 256 * 3);
}

}  // namespace
