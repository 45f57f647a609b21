#include "tests/soak/hand_editor.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <thread>

namespace soak {
namespace {

constexpr std::size_t kMostLive = 20;
constexpr auto kPause = std::chrono::milliseconds(2);

// Whether the file that was opened had lost its name before.
bool IsRemoved(int fd) {
  struct stat info {};
  Require(::fstat(fd, &info) == 0, "fstat");
  return info.st_nlink == 0;
}

int Open(const std::string& path, int flags) {
  const int fd = ::open(path.c_str(), flags | O_CLOEXEC, 0640);
  Require(fd >= 0, "open");
  return fd;
}

}  // namespace

void HandEditor::Run() {
  while (board_.shared().edits < board_.edits()) {
    if (board_.EditIsDue()) {
      Edit(board_.shared().edits);
      ++board_.shared().edits;
    } else {
      std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
  }
  board_.shared().edits_end = true;
  for (const std::string& name : live_) ledger_.Final(name, "by-hand");
}

void HandEditor::Edit(long number) {
  const std::string name = kHand + std::to_string(number);
  switch (static_cast<Style>(number % kStyles)) {
    case Style::kAppend:
      return Append(name, false);
    case Style::kSlowAppend:
      return Append(name, true);
    case Style::kInPlace:
      return InPlace(name);
    case Style::kSedI:
      return Rename(name, false);
    case Style::kMv:
      return Rename(name, true);
  }
}

// `echo LINE >> FILE`, and a program that does so without writing the line in one go.
void HandEditor::Append(const std::string& name, bool slowly) {
  const int fd = Open(board_.path(), O_WRONLY | O_APPEND);
  if (IsRemoved(fd)) ledger_.OpenedRemoved(name);
  const std::string line = LineOf(name, "by-hand");
  const std::size_t half = slowly ? line.size() / 2 : line.size();
  WriteRaw(fd, std::string_view(line).substr(0, half));
  if (slowly) {
    std::this_thread::sleep_for(kPause);
    WriteRaw(fd, std::string_view(line).substr(half));
  }
  ::close(fd);
  live_.push_back(name);
}

// An editor that keeps the file open: reads, cuts it to nothing and writes it anew.
void HandEditor::InPlace(const std::string& name) {
  const int fd = Open(board_.path(), O_RDWR);
  if (IsRemoved(fd)) ledger_.OpenedRemoved(name);
  const std::string text = Edited(ReadRaw(fd), name);
  ++board_.shared().rewriting;
  Require(::ftruncate(fd, 0) == 0, "ftruncate");
  WriteRaw(fd, std::string_view(text).substr(0, text.size() / 3));
  std::this_thread::sleep_for(kPause);
  WriteRaw(fd, std::string_view(text).substr(text.size() / 3));
  ++board_.shared().rewriting;
  ::close(fd);
  Adopt(name);
}

void HandEditor::Rename(const std::string& name, bool looks_before) {
  while (!TryRename(name, looks_before)) {
  }
  Adopt(name);
}

// `sed -i`, and `mv` of a prepared file by somebody who looks once more before. The renaming is an
// exchange, which is the same to everybody else and shows what it has replaced.
bool HandEditor::TryRename(const std::string& name, bool looks_before) {
  const std::string temporary = board_.path() + (looks_before ? ".mine" : ".sedA1b2C3");
  const std::string read = ReadRaw(board_.path());
  const std::string text = Edited(read, name);
  const int fd = Open(temporary, O_WRONLY | O_CREAT | O_TRUNC);
  WriteRaw(fd, text);
  ::close(fd);
  if (looks_before && ReadRaw(board_.path()) != read) return false;
  Require(::renameat2(AT_FDCWD, temporary.c_str(), AT_FDCWD, board_.path().c_str(),
                      RENAME_EXCHANGE) == 0,
          "renameat2");
  NotePutBack(read, ReadRaw(temporary), text);
  ::unlink(temporary.c_str());
  return true;
}

// The text with the edit's line, and without those lines of former edits that are old by now.
std::string HandEditor::Edited(const std::string& text, const std::string& name) {
  std::string edited = text + (text.ends_with('\n') ? "" : "\n") + LineOf(name, "by-hand");
  removing_.clear();
  for (const std::string& old : live_) {
    const std::size_t at = edited.find("\n" + old + ":");
    if (live_.size() - removing_.size() <= kMostLive) break;
    if (at == std::string::npos) continue;
    edited.erase(at + 1, edited.find('\n', at + 1) - at);
    removing_.push_back(old);
  }
  return edited;
}

// The edit is made: what it removed must not come back.
void HandEditor::Adopt(const std::string& name) {
  for (const std::string& old : removing_) {
    live_.erase(std::find(live_.begin(), live_.end(), old));
    ledger_.Final(old, kAbsent);
  }
  live_.push_back(name);
}

void HandEditor::NotePutBack(const std::string& read, const std::string& out,
                             const std::string& written) {
  if (out == read) return;
  const Passwords before = Parse(read);
  const Passwords replaced = Parse(out);
  const Passwords now = Parse(written);
  Passwords names = before;
  names.insert(replaced.begin(), replaced.end());
  for (const auto& [name, value] : names) {
    const std::string& newer = ValueOf(replaced, name);
    if (newer != ValueOf(before, name)) ledger_.PutBack(name, newer, ValueOf(now, name));
  }
}

}  // namespace soak
