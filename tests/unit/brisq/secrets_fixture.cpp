#include "tests/unit/brisq/secrets_fixture.h"

#include <sys/stat.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <sstream>

namespace brisq {

namespace fs = std::filesystem;

namespace {

// Ends of its own for each password: other runs of these tests may go on beside this one.
std::string TenDigits() {
  std::random_device device;
  return std::to_string(1000000000UL + device() % 1000000000UL);
}

constexpr const char* kLong = "cAnArY.9q7Zk2Xw5vR8tY3uB6nM1.longer.than.what.freeing.overwrites.";
constexpr const char* kShort = "cAnA";

// What hexadecimal digits, base64 and reversing make of the beginning of every long one.
constexpr const char* kHex = "63416e4172592e3971375a6b32587735";
constexpr const char* kBase64 = "Y0FuQXJZLjlxN1prMlh3NXZSOHRZM3VCNm5N";
constexpr const char* kBackwards = "1Mn6Bu3Yt8Rv5wX2kZ7q9.YrAnAc";

// Each program that is started, with arguments and environment, and each call that writes.
constexpr const char* kWatch =
    "strace -f -v -y -qq -s 65536 --seccomp-bpf -e signal=none -e trace=execve,execveat,write,"
    "writev,pwrite64,pwritev,pwritev2,sendto,sendmsg,sendmmsg";

std::string Replaced(std::string text, const std::string& what, const std::string& by) {
  const std::size_t at = text.find(what);
  return at == std::string::npos ? text : text.replace(at, what.size(), by);
}

std::vector<std::string> LinesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

// Waits for shell words to succeed, for a minute at most.
bool Comes(const std::string& condition) {
  return std::system(
             ("for i in $(seq 1200); do " + condition + " && exit 0; sleep 0.05; done; exit 1")
                 .c_str()) == 0;
}

}  // namespace

SecretsTest::SecretsTest()
    : canary_(kLong + TenDigits()), forms_{canary_, kHex, kBase64, kBackwards} {}

void SecretsTest::SetUp() {
  InstanceTest::SetUp();
  // A leak checker of the program can't work while another program watches it.
  in_front_ =
      std::string("ASAN_OPTIONS=detect_leaks=0 ") + kWatch + " -o '" + (beside_ / "calls") + "' ";
  fs::remove(beside_ / "doveadm");
  fs::copy_file(support::SourceFolder() + "/tests/unit/brisq/lookout.py", beside_ / "doveadm");
  ASSERT_EQ(0, ::chmod((beside_ / "doveadm").c_str(), 0755));
  beside_.Write("canary", canary_);
  beside_.Write("instance", dir_.path());
  dir_.Write("brisq.toml", Replaced(dir_.Read("brisq.toml"), "[param]\n",
                                    "[param]\nEmailRefreshPeriod = \"0.01\"\n"));
  // Without findings for checks.
  fs::permissions(dir_.path(), fs::perms(0755));
  AddDomain();
}

void SecretsTest::KeepPasswordsSealed() {
  dir_.Write("brisq.toml", Replaced(dir_.Read("brisq.toml"), "EmailAuth = \"dovecot\"\n", ""));
}

void SecretsTest::UseShortPassword() {
  canary_ = kShort + TenDigits();
  forms_[0] = canary_;
  beside_.Write("canary", canary_);
}

Ran SecretsTest::RunWatched(const std::string& words, const std::string& input) {
  Ran ran = Run(words, input);
  fs::remove(beside_ / "in");
  Look(ran.out, "standard output");
  Look(ran.err, "standard error");
  LookInFiles();
  LookAtCalls();
  return ran;
}

void SecretsTest::WaitForServer(int hashed, int reloads, bool keeps_passwords) {
  EXPECT_TRUE(Comes("grep -q serving '" + (beside_ / "err") + "'"));
  if (!keeps_passwords) {
    EXPECT_EQ(0, std::system((Program() + " reload now 2>/dev/null").c_str()));
  }
  const std::string file = beside_ / (keeps_passwords ? "hashed" : "memory");
  const int more = (keeps_passwords ? hashed : reloads) + 1;
  EXPECT_TRUE(Comes("[ $(wc -l <'" + file + "') -ge " + std::to_string(more) + " ]"));
}

int SecretsTest::CountInMemory(const std::string& pid) const {
  EXPECT_EQ(0, std::system(("'" + (beside_ / "doveadm") + "' memory " + pid + " >'" +
                            (beside_ / "count") + "'")
                               .c_str()));
  return std::stoi(beside_.Read("count"));
}

void SecretsTest::RunServer(bool keeps_passwords) {
  const int hashed = static_cast<int>(KeptLines("hashed").size());
  const int reloads = static_cast<int>(KeptLines("memory").size());
  if (keeps_passwords) dir_.Write("passwd", Passwd() + "# by hand\n");
  const std::string watched = in_front_;
  in_front_ += "sh -c 'echo $$ >\"$0\"; exec \"$@\"' '" + (beside_ / "pid") + "' ";
  const std::string line = "(" + Program() + " serve >'" + (beside_ / "out") + "' 2>'" +
                           (beside_ / "err") + "'; echo $? >'" + (beside_ / "ended") + "') &";
  EXPECT_EQ(0, std::system(line.c_str()));
  in_front_ = Replaced(watched, "/calls'", "/other_calls'");
  WaitForServer(hashed, reloads, keeps_passwords);
  const std::string pid = LinesOf(beside_.Read("pid"))[0];
  // What is passed on at this very moment is there for good reason, and gone at the next look.
  int found = 1;
  for (int look = 0; look < 100 && found != 0; ++look) found = CountInMemory(pid);
  EXPECT_EQ(0, found) << "in the server's memory";
  EXPECT_EQ(0, std::system(("kill -TERM " + pid).c_str()));
  EXPECT_TRUE(Comes("[ -s '" + (beside_ / "ended") + "' ]"));
  EXPECT_EQ("0\n", beside_.Read("ended")) << beside_.Read("err");
  in_front_ = watched;
  Look(beside_.Read("err"), "standard error of the server");
  LookInFiles();
  LookAtCalls();
}

bool SecretsTest::Shows(const std::string& text) const {
  for (const std::string& form : forms_) {
    if (text.find(form) != std::string::npos) return true;
  }
  return false;
}

void SecretsTest::Look(const std::string& text, const std::string& place) {
  ++looks_;
  const bool hit = Shows(text);
  hits_ += hit ? 1 : 0;
  EXPECT_FALSE(hit) << place;
}

void SecretsTest::LookInFiles() {
  for (const auto& entry : fs::recursive_directory_iterator(dir_.path())) {
    if (entry.is_regular_file()) Look(support::ReadFile(entry.path()), entry.path());
  }
}

// Only the whole password: other runs of these tests leave theirs in folders of their own.
void SecretsTest::LookInTemporaryFiles() {
  std::error_code gone;
  const auto options = fs::directory_options::skip_permission_denied;
  for (auto at = fs::recursive_directory_iterator(fs::temp_directory_path(), options, gone);
       at != fs::recursive_directory_iterator(); at.increment(gone)) {
    if (at->path() == beside_.path()) at.disable_recursion_pending();
    if (!at->is_regular_file(gone) || at->last_write_time(gone) < kBeginning) continue;
    ++looks_;
    const bool hit = support::ReadFile(at->path()).find(canary_) != std::string::npos;
    hits_ += hit ? 1 : 0;
    EXPECT_FALSE(hit) << at->path();
  }
}

void SecretsTest::CountCall(const std::string& call) {
  const bool starts = call.find(" execve") != std::string::npos;
  started_ += starts ? 1 : 0;
  written_ += starts ? 0 : 1;
  if (!starts && Shows(call)) {
    for (const std::string& pipe : KeptLines("pipes")) {
      if (call.find("<" + pipe + ">, ") == std::string::npos) continue;
      ++passed_on_;
      return;
    }
  }
  Look(call, "a call");
}

void SecretsTest::LookAtCalls() {
  for (const char* name : {"calls", "other_calls"}) {
    for (const std::string& call : KeptLines(name)) CountCall(call);
    fs::remove(beside_ / name);
  }
}

std::string SecretsTest::Kept(const std::string& name) const {
  return fs::exists(beside_ / name) ? beside_.Read(name) : std::string();
}

std::vector<std::string> SecretsTest::KeptLines(const std::string& name) const {
  return LinesOf(Kept(name));
}

}  // namespace brisq
