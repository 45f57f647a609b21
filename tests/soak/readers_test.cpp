#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <set>
#include <string>
#include <utility>

#include "tests/soak/board.h"
#include "tests/soak/figures.h"
#include "tests/soak/store.h"
#include "tests/soak/writer.h"
#include "tests/support/temp_dir.h"

/// Who reads beside a writer sees a file that was written as a whole.
namespace {

using soak::Print;

constexpr long kUsers = 40;

std::string UserName(long user) { return "user" + std::to_string(user) + "@example.org"; }

// The n-th change gives one user a password that tells n and has another length than the one
// before.
long UserOf(long change) { return change % kUsers; }
std::string PasswordOf(long change) {
  return std::to_string(change) + "-" + std::string(static_cast<std::size_t>(change) % 97, 'x');
}

// The file after `change` changes.
std::string ContentAfter(long change) {
  std::string text = "# mailboxes\n";
  for (long user = 0; user < kUsers; ++user) {
    const long last = change - (change - user + kUsers) % kUsers;
    text += soak::LineOf(UserName(user), last <= 0 ? "none" : PasswordOf(last));
  }
  return text;
}

// The change that was made last, as far as the content tells; -1 when a password tells nothing.
long LastChangeIn(const std::string& content) {
  long last = 0;
  for (const auto& [name, password] : soak::Parse(content)) {
    if (password == "none") continue;
    last = std::max(last, std::strtol(password.c_str(), nullptr, 10));
  }
  return last;
}

struct Seen {
  long reads = 0;
  long torn = 0;
  std::set<long> changes;
};

// Reads until as many reads are done and as many different contents were seen whole.
Seen ReadBeside(const soak::MakeStore& make, long reads, std::size_t contents) {
  const support::TempDir folder;
  const std::string path = folder.Write("users", ContentAfter(0));
  const soak::Board board(path, reads, 1);
  soak::Children children;
  children.Start([&] {
    const auto store = make(path);
    for (long change = 1; board.shared().edits < 1; ++change)
      store->Set(UserName(UserOf(change)), PasswordOf(change));
  });
  Seen seen;
  std::string before;
  while (seen.reads < reads || seen.changes.size() < contents) {
    std::string content = soak::ReadRaw(path);
    ++seen.reads;
    if (content == before) continue;
    const long change = LastChangeIn(content);
    if (content == ContentAfter(change)) {
      seen.changes.insert(change);
      before = std::move(content);
    } else {
      ++seen.torn;
    }
  }
  board.shared().edits = 1;
  EXPECT_EQ(children.Wait(), 0);
  return seen;
}

void PrintAll(const Seen& seen) {
  Print("reads", seen.reads);
  Print("reads that were torn", seen.torn);
  Print("different contents", static_cast<long>(seen.changes.size()));
}

TEST(Readers, NeverSeeATornFileBesideAWriter) {
  const long reads = soak::Scaled(1'000'000, 100'000);
  const Seen seen = ReadBeside(soak::MakeEngineStore, reads, static_cast<std::size_t>(reads / 100));
  PrintAll(seen);
  EXPECT_GE(seen.reads, reads);
  EXPECT_EQ(seen.torn, 0);
}

// The control: the same reading finds what writing in place tears.
TEST(Readers, SeeATornFileBesideAWriterInPlace) {
  const Seen seen = ReadBeside(soak::MakeInPlaceStore, 1000, 2);
  PrintAll(seen);
  EXPECT_GT(seen.torn, 0);
}

}  // namespace
