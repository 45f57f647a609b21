// Saving through libbrisqapi, in process, beside the least that a safe replacement takes.
//
// usage: store_bench replace FILE NAME PAIRS   nanoseconds: one changed line, bare replacement
//        store_bench defer FOLDER CREATES PAIRS  nanoseconds: creates in one scope, one save
//        store_bench threads FILE THREADS POSTS  number of posts, number of saves

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "bench/measure.h"
#include "bench/passwd_file.h"
#include "framework/conf_defer.h"
#include "mgr_file.h"

namespace {

using bench::PasswdConfig;

void WriteAll(int fd, const std::string& content) {
  for (std::size_t at = 0; at < content.size();) {
    const ssize_t written = ::write(fd, content.data() + at, content.size() - at);
    if (written < 0) bench::Fail("write");
    at += static_cast<std::size_t>(written);
  }
}

// Temporary, write, fsync, rename, directory sync.
void ReplaceBare(const std::string& file, const std::string& content) {
  const std::string fresh = file + ".fresh";
  const std::string folder = mgr_file::SplitPath(file).first;
  const int fd = ::open(fresh.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  if (fd < 0) bench::Fail("open");
  WriteAll(fd, content);
  if (::fsync(fd) != 0 || ::close(fd) != 0) bench::Fail("fsync");
  const int directory = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY);
  if (::rename(fresh.c_str(), file.c_str()) != 0) bench::Fail("rename");
  if (::fsync(directory) != 0 || ::close(directory) != 0) bench::Fail("fsync");
}

void SetPassword(bench::Passwd& line, const std::string& name, long round) {
  line.Assert(name);
  char hash[80];
  std::snprintf(hash, sizeof hash, "{CRAM-MD5}%064lx", round);
  line.passwd.Set(hash);
  line.Post("");
}

void Replace(const std::string& file, const std::string& name, long pairs) {
  const std::string content = mgr_file::ReadE(file);
  const std::string bare = file + ".bare";
  ReplaceBare(bare, content);
  const auto line = PasswdConfig::Open(file);
  for (long round = 1; round <= pairs; ++round) {
    const long ours = bench::Nanoseconds([&] { SetPassword(*line, name, round); });
    const long peer = bench::Nanoseconds([&] { ReplaceBare(bare, content); });
    bench::PrintPair(static_cast<double>(ours), static_cast<double>(peer));
  }
}

void CreateAll(bench::Passwd& line, const std::vector<std::string>& names) {
  DeferSaves scope;
  for (const std::string& name : names) bench::AddMailbox(line, name);
  scope.Save();
}

void Defer(const std::string& folder, long creates, long pairs) {
  std::vector<std::string> names;
  for (long number = 0; number < creates; ++number) names.push_back(bench::NameOfLine(number));
  for (long round = 1; round <= pairs; ++round) {
    const auto line = PasswdConfig::Open(folder + "/deferred-" + std::to_string(round));
    const long ours = bench::Nanoseconds([&] { CreateAll(*line, names); });
    const long peer =
        bench::Nanoseconds([&] { SetPassword(*line, bench::NameOfLine(creates / 2), round); });
    bench::PrintPair(static_cast<double>(ours), static_cast<double>(peer));
  }
}

void Threads(const std::string& file, long threads, long posts) {
  const long before = PasswdConfig::Saves();
  std::vector<std::thread> running;
  for (long thread = 0; thread < threads; ++thread) {
    running.emplace_back([=] {
      const auto line = PasswdConfig::Open(file);
      for (long post = 0; post < posts; ++post) {
        bench::AddMailbox(*line, bench::NameOfLine(10'000'000 + thread * posts + post));
      }
    });
  }
  for (std::thread& thread : running) thread.join();
  bench::PrintPair(static_cast<double>(threads * posts),
                   static_cast<double>(PasswdConfig::Saves() - before));
}

}  // namespace

int main(int argc, char** argv) {
  const auto is = [&](const char* verb) { return argc == 5 && std::strcmp(argv[1], verb) == 0; };
  if (is("replace")) {
    Replace(argv[2], argv[3], bench::Number(argv[4]));
  } else if (is("defer")) {
    Defer(argv[2], bench::Number(argv[3]), bench::Number(argv[4]));
  } else if (is("threads")) {
    Threads(argv[2], bench::Number(argv[3]), bench::Number(argv[4]));
  } else {
    std::fputs(
        "usage: store_bench replace FILE NAME PAIRS | defer FOLDER CREATES PAIRS |"
        " threads FILE THREADS POSTS\n",
        stderr);
    return 2;
  }
  return 0;
}
