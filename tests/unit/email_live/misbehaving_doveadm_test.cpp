// What an administrator is told when doveadm does anything but its work, with eight threads at it.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <mutex>
#include <thread>

#include "brisq/exit_codes.h"
#include "framework/config_file.h"
#include "mgr_proc.h"
#include "panel/stored_password.h"
#include "tests/support/stub_program.h"
#include "tests/unit/email_live/live_fixture.h"
#include "tests/unit/email_live/misbehaviours.h"

namespace {

namespace fs = std::filesystem;
using live::DovPasswd;
using live::Misbehaviour;
using live::Passwords;

constexpr int kThreads = 8;
constexpr int kRuns = 20;
constexpr const char* kPassword = "Tr0ub4dor and 3";
// What ends by itself takes milliseconds, and is given time on a loaded machine.
constexpr double kWideLimit = 60;
constexpr double kNarrowLimit = 0.2;
// Beyond the limit, and far from the time that the tools and what they leave behind would take.
constexpr double kSlack = 20;

double SecondsOf(const std::function<void()>& work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

std::string Replaced(std::string text, const std::string& from, const std::string& to) {
  for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size()) {
    text.replace(at, from.size(), to);
  }
  return text;
}

struct Count {
  int runs = 0;
  int wrong = 0;
  double longest = 0;  // seconds

  Count& operator+=(const Count& other) {
    runs += other.runs;
    wrong += other.wrong;
    longest = std::max(longest, other.longest);
    return *this;
  }
};

class MisbehavingDoveadm : public live::LiveTest {
 protected:
  MisbehavingDoveadm() {
    fs::create_symlink("/dev/zero", dir_ / "zero");
    std::string lines;
    for (int number = 0; number < kThreads; ++number) {
      lines += Address(number) + ":{X}old:1:1::/h:::\n";
    }
    WriteFile(lines);
  }

  static std::string Address(int number) { return "u" + std::to_string(number) + "@example.org"; }

  // Seconds that no other program on this machine sleeps for.
  static std::string Rest() { return "97." + std::to_string(::getpid()); }

  // A command is split at blanks.
  std::string PathOf(const Misbehaviour& one) const {
    std::string name = one.name;
    std::replace(name.begin(), name.end(), ' ', '_');
    std::erase(name, '\'');
    return dir_ / name;
  }

  std::string WriteScript(const Misbehaviour& one, const std::string& rest) const {
    const std::string body = Replaced(Replaced(one.body, "REST", rest), "ZERO", dir_ / "zero");
    return support::WriteStub(PathOf(one),
                              "[ \"$2\" = -l ] && { echo 'CRAM-MD5 '; exit 0; }\n" + body);
  }

  // Programs that can't even be started are made by hand.
  void MakeNoPrograms() const {
    const auto make = [this](const char* name, const char* content, mode_t mode) {
      ASSERT_EQ(0, ::chmod(dir_.Write(name, content).c_str(), mode));
    };
    make("not_executable", "#!/bin/sh\n", 0644);
    make("an_empty_file", "", 0755);
    make("without_an_interpreter", "#!/no/such\n", 0755);
    make("open_to_all", "#!/bin/sh\n", 0777);
    dir_.MakeFolder("a_folder");
    fs::create_symlink(dir_ / "a_link_to_itself", dir_ / "a_link_to_itself");
    fs::create_symlink(dir_ / "nothing", dir_ / "a_link_to_nothing");
  }

  // Sets passwords by each tool, twenty times, by all threads at once; what each is told is judged.
  Count Meet(const std::vector<Misbehaviour>& all, double limit) {
    std::vector<std::unique_ptr<Passwords>> tools;
    mgr_cf::SetParam("ExecTimeout", "");
    for (const Misbehaviour& one : all) {
      mgr_cf::SetPath("dovecot-doveadm", one.body ? WriteScript(one, Rest()) : PathOf(one));
      tools.push_back(NewPasswords());
    }
    mgr_cf::SetParam("ExecTimeout", std::to_string(limit).substr(0, 4));
    Count count;
    std::atomic<std::size_t> next = 0;
    std::vector<std::thread> threads;
    for (int number = 0; number < kThreads; ++number) {
      threads.emplace_back([&, number] {
        for (std::size_t at = next++; at < all.size() * kRuns; at = next++) {
          RunOnce(*tools[at % all.size()], Address(number), all[at % all.size()], limit, count);
        }
      });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_FALSE(LogShows(kPassword));
    EXPECT_FALSE(LogShows("}good"));
    log_.Clear();
    return count;
  }

  // Children of this process, dead or alive; one that died late goes when the next one starts.
  int ChildrenLeft() {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    siginfo_t status = {};
    while (::waitid(P_ALL, 0, &status, WEXITED | WNOHANG | WNOWAIT) == 0) {
      if (std::chrono::steady_clock::now() > end) return 1;
      mgr_proc::Execute("true", 3).Result();
    }
    return errno == ECHILD ? 0 : 1;
  }

  // Processes whose command line holds this test's own folder or number.
  int Orphans() const {
    int found = 0;
    for (const fs::directory_entry& entry : fs::directory_iterator("/proc")) {
      std::ifstream file(entry.path() / "cmdline", std::ios::binary);
      const std::string line{std::istreambuf_iterator<char>(file), {}};
      found += line.find(dir_.path()) != std::string::npos || line.find(Rest()) != std::string::npos
                   ? 1
                   : 0;
    }
    return found;
  }

  // Whoever is killed takes a moment to go.
  int OrphansThatStay() const {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    int orphans = Orphans();
    while (orphans > 0 && std::chrono::steady_clock::now() < end) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
      orphans = Orphans();
    }
    return orphans;
  }

  static std::size_t Descriptors() {
    const fs::directory_iterator entries("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(entries, {}));
  }

  bool LogShows(const std::string& text) const {
    const auto lines = log_.AllLines();
    return std::any_of(lines.begin(), lines.end(), [&](const support::LogLine& line) {
      return line.text.find(text) != std::string::npos;
    });
  }

 private:
  // As the panel judges what a back-end has stored. Read by the cursor that was posted by: other
  // threads are changing the file.
  void SetPassword(Passwords& passwords, const std::string& address) const {
    passwords.Update(address, kPassword);
    const Cursor<DovPasswd> line = Open();
    line->Assert(address);
    const std::string problem = brisq_panel::HashProblem(line->passwd.Str(), kPassword, "CRAM-MD5");
    if (!problem.empty()) throw email::Fail("doveadm", problem);
  }

  // The line on the administrator's terminal; empty when there was nothing to say.
  std::string LineOf(Passwords& passwords, const std::string& address) const {
    try {
      SetPassword(passwords, address);
      return {};
    } catch (const mgr_err::Error& error) {
      const std::string unfit = brisq_panel::UnfitAnswer(error);
      return brisq::ErrorLine(unfit.empty() ? error : email::Fail("doveadm", unfit));
    }
  }

  void RunOnce(Passwords& passwords, const std::string& address, const Misbehaviour& one,
               double limit, Count& count) {
    std::string line;
    const double seconds = SecondsOf([&] { line = LineOf(passwords, address); });
    const bool right = one.IsTold(line, PathOf(one)) && seconds < limit + kSlack;
    const std::lock_guard<std::mutex> hold(mutex_);
    ++count.runs;
    count.longest = std::max(count.longest, seconds);
    count.wrong += right ? 0 : 1;
    EXPECT_TRUE(right) << one.name << ", " << seconds << " s: " << line.substr(0, 300);
  }

  std::mutex mutex_;
};

TEST_F(MisbehavingDoveadm, IsToldOfInOneLineInTimeAndLeavesNobodyBehind) {
  MakeNoPrograms();
  Meet({{"works", "echo '{CRAM-MD5}good'", ""}}, kWideLimit);  // opens the log and the file
  const std::size_t descriptors = Descriptors();
  Count ending = Meet(live::ThatFail(), kWideLimit);
  ending += Meet(live::ThatAnswer(), kWideLimit);
  ending += Meet(live::ThatCannotStart(), kWideLimit);
  const Count hanging = Meet(live::ThatHang(), kNarrowLimit);
  const std::size_t behaviours = live::ThatFail().size() + live::ThatAnswer().size() +
                                 live::ThatCannotStart().size() + live::ThatHang().size();
  const int runs = ending.runs + hanging.runs;
  const int wrong = ending.wrong + hanging.wrong;
  const int children = ChildrenLeft();
  const int orphans = OrphansThatStay();
  std::printf(
      "behaviours: %zu, runs: %d, wrong: %d, longest without a limit %.2f s, past one of "
      "%.1f s: %.2f s; children left: %d, orphans: %d, descriptors: %zu before, %zu after\n",
      behaviours, runs, wrong, ending.longest, kNarrowLimit, hanging.longest - kNarrowLimit,
      children, orphans, descriptors, Descriptors());
  EXPECT_GE(behaviours, 40U);
  EXPECT_EQ(static_cast<int>(behaviours) * kRuns, runs);
  EXPECT_EQ(0, wrong);
  EXPECT_EQ(0, children);
  EXPECT_EQ(0, orphans);
  EXPECT_EQ(descriptors, Descriptors());
}

// What is written when nobody thinks of tools that fail: it is believed when it ends with 0.
std::string HashNaively(const std::string& program) {
  constexpr std::size_t kEnough = 1000000;
  std::FILE* pipe = ::popen(("'" + program + "' pw 2>/dev/null </dev/null").c_str(), "re");
  std::string output;
  char chunk[4096];
  while (const std::size_t got = std::fread(chunk, 1, sizeof chunk, pipe)) {
    output.append(chunk, output.size() < kEnough ? got : 0);
  }
  return ::pclose(pipe) == 0 ? output : "failed";
}

TEST_F(MisbehavingDoveadm, DeceivesOrHoldsUpNaiveCode) {
  const std::string rest = "0.2";
  int deceived = 0;
  int held_up = 0;
  const auto meet = [&](const Misbehaviour& one) {
    std::string output;
    const std::string program = WriteScript(one, rest);
    const double seconds = SecondsOf([&] { output = HashNaively(program); });
    deceived += !one.told.empty() && output != "failed" ? 1 : 0;
    held_up += seconds >= 0.2 ? 1 : 0;
  };
  for (const Misbehaviour& one : live::ThatFail()) meet(one);
  for (const Misbehaviour& one : live::ThatAnswer()) meet(one);
  for (const Misbehaviour& one : live::ThatHang()) meet(one);
  std::printf("naive code: believed %d, held up by %d\n", deceived, held_up);
  EXPECT_GE(deceived, 10);
  EXPECT_GE(held_up, 8);
  EXPECT_EQ(0, OrphansThatStay());
}

// The count of those left behind counts somebody.
TEST_F(MisbehavingDoveadm, IsSeenWhenItStays) {
  const std::string program =
      support::WriteStub(dir_ / "stays", "sleep " + Rest() + " & echo $!; exit 0");
  std::FILE* pipe = ::popen((program + " </dev/null").c_str(), "re");
  int left_behind = -1;
  ASSERT_EQ(1, std::fscanf(pipe, "%d", &left_behind));
  while (Orphans() == 0) std::this_thread::yield();
  EXPECT_EQ(0, ::kill(left_behind, SIGKILL));
  EXPECT_EQ(0, ::pclose(pipe));
  EXPECT_EQ(0, OrphansThatStay());
}

}  // namespace
