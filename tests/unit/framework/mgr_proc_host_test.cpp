// Hosts that make it hard: signals, descriptors, threads, memory.

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "framework/descriptor.h"
#include "tests/unit/framework/mgr_proc_fixture.h"

namespace {

constexpr int kThreads = 8;

// A signal's disposition while it lives.
class Disposition {
 public:
  Disposition(int number, void (*handler)(int)) : number_(number) {
    struct sigaction action = {};
    action.sa_handler = handler;
    ::sigaction(number, &action, &old_);
  }
  ~Disposition() { ::sigaction(number_, &old_, nullptr); }
  Disposition(const Disposition&) = delete;
  Disposition& operator=(const Disposition&) = delete;

 private:
  int number_;
  struct sigaction old_ = {};
};

void RunInThreads(const std::function<void(int)>& work) {
  std::vector<std::thread> threads;
  for (int number = 0; number < kThreads; ++number) {
    threads.emplace_back(work, number);
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

TEST_F(MgrProc, HostThatIgnoresItsChildrenNeverSeesSuccess) {
  const std::string quiet = Stub("echo out", "quiet");
  const std::string slow = Stub("sleep 0.05; exit 3", "slow");
  const std::string hung = Stub("exec sleep 60", "hung");
  SetLimit("0.3");
  const Disposition ignored(SIGCHLD, SIG_IGN);
  mgr_proc::Execute first(quiet, 3);
  EXPECT_EQ(125, first.Result());
  EXPECT_EQ("out\nexit status taken by another part of the program", first.Str());
  mgr_proc::Execute second(slow, 3);
  EXPECT_EQ(125, second.Result());
  mgr_proc::Execute third(hung, 3);
  EXPECT_EQ(124, third.Result());
  mgr_proc::Execute fourth("/no/such/program", 3);
  EXPECT_EQ(127, fourth.Result());
}

TEST_F(MgrProc, ThreadThatWaitsForAnyChildNeverTurnsAFailureIntoSuccess) {
  const std::string failing = Stub("exit 3");
  std::atomic<bool> stop = false;
  std::atomic<int> stolen = 0;
  std::thread thief([&] {
    while (!stop) {
      stolen += ::waitpid(-1, nullptr, WNOHANG) > 0 ? 1 : 0;
    }
  });
  int seen_as_stolen = 0;
  for (int count = 0; count < 200; ++count) {
    mgr_proc::Execute run(failing, 3);
    const int result = run.Result();
    EXPECT_TRUE(result == 3 || result == 125) << result;
    seen_as_stolen += result == 125 ? 1 : 0;
  }
  stop = true;
  thief.join();
  EXPECT_EQ(stolen, seen_as_stolen);
}

void CountSignal(int) {}

void CollectAnyChild(int) {
  const int error = errno;
  while (::waitpid(-1, nullptr, WNOHANG) > 0) {
  }
  errno = error;
}

TEST_F(MgrProc, HandlerThatCollectsEveryChildNeverTurnsAFailureIntoSuccess) {
  const std::string failing = Stub("exit 3");
  const Disposition handler(SIGCHLD, &CollectAnyChild);
  for (int count = 0; count < 50; ++count) {
    mgr_proc::Execute run(failing, 3);
    const int result = run.Result();
    EXPECT_TRUE(result == 3 || result == 125) << result;
    EXPECT_NE("", run.Str());
  }
}

TEST_F(MgrProc, SigpipeIsNeverRaisedAndItsDispositionStays) {
  const std::string stub = Stub("exec <&-; sleep 0.05; echo done");
  for (void (*const handler)(int) : {SIG_DFL, SIG_IGN, &CountSignal}) {
    const Disposition chosen(SIGPIPE, handler);
    mgr_proc::Execute run(stub, 3);
    run.In() << std::string(1000000, 'x');
    EXPECT_EQ("done\n", run.Str());
    struct sigaction now = {};
    ::sigaction(SIGPIPE, nullptr, &now);
    EXPECT_EQ(handler, now.sa_handler);
    sigset_t set;
    ::pthread_sigmask(SIG_BLOCK, nullptr, &set);
    EXPECT_EQ(0, sigismember(&set, SIGPIPE));
    ::sigpending(&set);
    EXPECT_EQ(0, sigismember(&set, SIGPIPE));
  }
}

// The value of a "NAME:\tHEX" line of a status file.
unsigned long StatusMask(const std::string& status, const std::string& name) {
  const std::size_t at = status.find(name + ":");
  return at == std::string::npos ? ~0UL
                                 : std::stoul(status.substr(at + name.size() + 1), nullptr, 16);
}

TEST_F(MgrProc, ChildStartsWithDefaultSignalsAndNoneBlocked) {
  const Disposition pipe(SIGPIPE, SIG_IGN);
  const Disposition hangup(SIGHUP, SIG_IGN);
  const Disposition user(SIGUSR1, &CountSignal);
  sigset_t some;
  sigset_t old;
  sigemptyset(&some);
  sigaddset(&some, SIGTERM);
  sigaddset(&some, SIGUSR2);
  ::pthread_sigmask(SIG_BLOCK, &some, &old);
  mgr_proc::Execute run("cat /proc/self/status", 3);
  const std::string seen = run.Str();
  ::pthread_sigmask(SIG_SETMASK, &old, nullptr);
  // The C library keeps two signals to itself, which no program can set.
  const unsigned long internal = 3UL << 31;
  EXPECT_EQ(0UL, StatusMask(seen, "SigBlk"));
  EXPECT_EQ(0UL, StatusMask(seen, "SigIgn") & ~internal);
  EXPECT_EQ(0UL, StatusMask(seen, "SigCgt"));
}

TEST_F(MgrProc, ChildLeadsAGroupOfItsOwn) {
  mgr_proc::Execute run(Stub("[ $(ps -o pgid= -p $$) = $$ ] && echo own"), 3);
  EXPECT_EQ("own\n", run.Str());
}

// The threads start children all the time, so a descriptor of one run that is open for a moment
// would be seen by the children of the others.
TEST_F(MgrProc, ChildrenOfEightThreadsGetThreeDescriptorsAndNoOther) {
  std::vector<Descriptor> host;
  for (int count = 0; count < 20; ++count) {
    host.emplace_back(::open("/dev/null", O_RDONLY));  // NOLINT: without O_CLOEXEC on purpose
  }
  std::atomic<int> wrong = 0;
  const int runs = std::getenv("BRISQ_SOAK") != nullptr ? 1250 : kSanitized ? 50 : 250;
  RunInThreads([&](int) {
    for (int count = 0; count < runs; ++count) {
      mgr_proc::Execute run("for f in /proc/$$/fd/*; do [ -e $f ] && printf '%s ' ${f##*/}; done",
                            2);
      wrong += run.Str() == "0 1 2 " ? 0 : 1;
    }
  });
  EXPECT_EQ(0, wrong);
}

TEST_F(MgrProc, EightThreadsGetEachTheirOwnAnswers) {
  std::atomic<int> wrong = 0;
  const int runs = kSanitized ? 20 : 60;
  RunInThreads([&](int number) {
    for (int count = 0; count < runs; ++count) {
      const std::string text(static_cast<std::size_t>(1 + count * 4001),
                             static_cast<char>('a' + number));
      mgr_proc::Execute run("cat", 3);
      run.In() << text;
      wrong += run.Result() == 0 && run.Str() == text ? 0 : 1;
    }
  });
  EXPECT_EQ(0, wrong);
}

TEST_F(MgrProc, SignalsThatInterruptEveryCallChangeNothing) {
  const std::string stub = Stub("cat; head -c 1000000 /dev/zero >&2");
  const Disposition alarm(SIGALRM, &CountSignal);
  const itimerval often = {{0, 500}, {0, 500}};
  ASSERT_EQ(0, ::setitimer(ITIMER_REAL, &often, nullptr));
  const std::string text(250000, 'x');
  for (int count = 0; count < 20; ++count) {
    mgr_proc::Execute run(stub, 3);
    run.In() << text;
    EXPECT_EQ(0, run.Result());
    EXPECT_TRUE(text == run.Str());
  }
  const itimerval never = {};
  ::setitimer(ITIMER_REAL, &never, nullptr);
}

TEST_F(MgrProc, HostWithoutFreeDescriptorsGets127AtEveryStep) {
  rlimit old = {};
  ASSERT_EQ(0, ::getrlimit(RLIMIT_NOFILE, &old));
  const auto most = static_cast<rlim_t>(OpenDescriptors()) + 12;
  for (const std::size_t size : {std::size_t{1}, std::size_t{100000}}) {
    const std::string input(size, 'x');
    int failed = 0;
    for (rlim_t limit = 3; limit <= most; ++limit) {
      SCOPED_TRACE("limit " + std::to_string(limit) + ", input " + std::to_string(size));
      const rlimit tight = {limit, old.rlim_max};
      ASSERT_EQ(0, ::setrlimit(RLIMIT_NOFILE, &tight));
      mgr_proc::Execute run("cat", 3);
      run.In() << input;
      const int result = run.Result();
      const std::string text = run.Str();
      ASSERT_EQ(0, ::setrlimit(RLIMIT_NOFILE, &old));
      failed += result == 0 ? 0 : 1;
      EXPECT_EQ(result == 0 ? 0 : 127, result);
      EXPECT_TRUE(result == 0 ? text == input : text.find("Too many open files") < 100) << text;
    }
    EXPECT_GT(failed, 0);
    EXPECT_LT(failed, static_cast<int>(most - 3));
  }
}

// In a process of its own, since a test program needs its standard descriptors.
TEST_F(MgrProc, HostWithoutStandardDescriptorsIsServed) {
  const pid_t host = ::fork();
  if (host == 0) {
    for (const int fd : {0, 1, 2}) {
      ::close(fd);
    }
    mgr_proc::Execute run("cat", 3);
    run.In() << "hello";
    const bool good = run.Result() == 0 && run.Str() == "hello";
    ::_exit(good ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(host, ::waitpid(host, &status, 0));
  EXPECT_EQ(0, status);
}

// The host is stopped while its child writes more than one read takes, and ends.
TEST_F(MgrProc, LastWordsOfAChildThatEndedUnwatchedAreNotCut) {
  const std::string stub = directory_.Write("large",
                                            "#!/usr/bin/python3 -IS\n"
                                            "import fcntl, os, signal\n"
                                            "fcntl.fcntl(1, 1031, 1 << 20)\n"  // F_SETPIPE_SZ
                                            "os.kill(os.getppid(), signal.SIGSTOP)\n"
                                            "os.write(1, b'x' * 250000)\n");
  ASSERT_EQ(0, ::chmod(stub.c_str(), 0755));
  const pid_t host = ::fork();
  if (host == 0) {
    mgr_proc::Execute run(stub, 3);
    ::_exit(run.Str().size() == 250000 ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(host, ::waitpid(host, &status, WUNTRACED));
  ASSERT_TRUE(WIFSTOPPED(status));
  const std::string number = std::to_string(host);
  std::string child;
  std::ifstream("/proc/" + number + "/task/" + number + "/children") >> child;
  while (IsAlive(child)) {
    std::this_thread::yield();
  }
  ASSERT_EQ(0, ::kill(host, SIGCONT));
  ASSERT_EQ(host, ::waitpid(host, &status, 0));
  EXPECT_EQ(0, status);
}

// A text that stands nowhere in this program.
constexpr std::size_t kSecretSize = 20;
char SecretByte(std::size_t at) { return static_cast<char>('a' + (at * 7 + 3) % 26); }

bool IsSecret(const volatile char* at) {
  std::size_t same = 0;
  while (same < kSecretSize && at[same] == SecretByte(same)) {
    ++same;
  }
  return same == kSecretSize;
}

// Counts it in this process's own memory, without copying any.
int SecretsInMemory() {
  int found = 0;
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) {
    std::uintptr_t from = 0;
    std::uintptr_t to = 0;
    char dash = 0;
    std::string rights;
    std::istringstream(line) >> std::hex >> from >> dash >> to >> rights;
    if (rights.substr(0, 2) != "rw") {
      continue;
    }
    for (std::uintptr_t at = from; at + kSecretSize <= to; ++at) {
      found += IsSecret(reinterpret_cast<const volatile char*>(at)) ? 1 : 0;
    }
  }
  return found;
}

TEST_F(MgrProc, InputIsGoneFromMemoryWhenTheChildHasIt) {
  if (kSanitized) {
    GTEST_SKIP() << "a sanitizer keeps freed memory and maps more than can be searched";
  }
  for (const int copies : {1, 10, 200, 9000}) {
    SCOPED_TRACE(copies);
    mgr_proc::Execute run("wc -c", 3);
    for (int copy = 0; copy < copies; ++copy) {
      for (std::size_t at = 0; at < kSecretSize; ++at) {
        run.In() << SecretByte(at);
      }
    }
    EXPECT_EQ(copies, SecretsInMemory());
    EXPECT_EQ(std::to_string(copies * static_cast<int>(kSecretSize)) + "\n", run.Str());
    EXPECT_EQ(0, SecretsInMemory());
  }
}

TEST_F(MgrProc, InputIsGoneFromMemoryWhileTheChildStillWorks) {
  if (kSanitized) {
    GTEST_SKIP() << "a sanitizer keeps freed memory and maps more than can be searched";
  }
  const std::string fifo = directory_ / "fifo";
  ASSERT_EQ(0, ::mkfifo(fifo.c_str(), 0600));
  mgr_proc::Execute run(Stub("echo up > " + fifo + "; read -r line < " + fifo + "; cat"), 3);
  for (std::size_t at = 0; at < kSecretSize; ++at) {
    run.In() << SecretByte(at);
  }
  int in_memory = -1;
  std::thread watcher([&] {
    std::string word;
    std::ifstream(fifo) >> word;
    in_memory = SecretsInMemory();
    std::ofstream(fifo) << "go on\n";
  });
  EXPECT_EQ(0, run.Result());
  watcher.join();
  EXPECT_EQ(0, in_memory);
  EXPECT_EQ(kSecretSize, run.Str().size());
}

long PeakKilobytes() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.rfind("VmHWM:", 0) == 0) {
      return std::stol(line.substr(6));
    }
  }
  return 0;
}

TEST_F(MgrProc, FloodCostsNoMoreMemoryThanItsLimit) {
  if (kSanitized) {
    GTEST_SKIP() << "a sanitizer's own memory hides the figure";
  }
  const struct {
    const char* name;
    const char* body;
    int mode;
    int result;
    long most;  // kilobytes
  } floods[] = {
      {"answer", "head -c 100000000 /dev/zero | tr '\\0' x", 3, 124, 4096},
      {"errors", "head -c 100000000 /dev/zero >&2; exit 1", 3, 1, 4096},
      {"both", "head -c 100000000 /dev/zero >&2 & head -c 100000000 /dev/zero; wait", 3, 124, 4096},
      {"output", "head -c 500000000 /dev/zero; head -c 500000000 /dev/zero >&2", 2, 0, 72 * 1024},
  };
  for (const auto& flood : floods) {
    SCOPED_TRACE(flood.name);
    const std::string stub = Stub(flood.body);
    mgr_proc::Execute("true", flood.mode).Str();
    std::ofstream("/proc/self/clear_refs") << 5;
    const long before = PeakKilobytes();
    mgr_proc::Execute run(stub, flood.mode);
    EXPECT_EQ(flood.result, run.Result());
    if (flood.mode == 3) {
      EXPECT_LT(run.Str().size(), 2200U);
    }
    EXPECT_LT(PeakKilobytes() - before, flood.most);
  }
}

}  // namespace
