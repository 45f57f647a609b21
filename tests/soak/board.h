#pragma once

#include <sys/types.h>

#include <atomic>
#include <functional>
#include <string>
#include <vector>

#include "tests/soak/passwd_text.h"

namespace soak {

/// Memory that the processes of one run share.
struct Shared {
  std::atomic<long> updates = 0;  // acknowledged
  std::atomic<long> refused = 0;  // ended by an error
  std::atomic<long> edits = 0;    // made by hand
  std::atomic<bool> edits_end = false;
  std::atomic<long> rewriting = 0;  // odd while the editor has the file in pieces
};

/// One run: its file, its figures, and what its processes know.
class Board {
 public:
  Board(std::string path, long updates, long edits);
  ~Board();
  Board(const Board&) = delete;
  Board& operator=(const Board&) = delete;

  const std::string& path() const { return path_; }
  long updates() const { return updates_; }
  long edits() const { return edits_; }
  Shared& shared() const { return *shared_; }

  /// The file as it lies on the disk at one moment at which the editor does not have it in pieces.
  Passwords Look() const;
  /// Neither side runs away from the other: false when the writers, the editor, have to wait.
  bool UpdateIsDue() const;
  bool EditIsDue() const;

 private:
  std::string path_;
  long updates_;
  long edits_;
  Shared* shared_;
};

/// Child processes that end with their parent.
class Children {
 public:
  /// Runs `work` in a child; what it throws is printed and fails the child.
  void Start(const std::function<void()>& work);
  /// Waits for all; how many have failed.
  int Wait();

 private:
  std::vector<pid_t> children_;
};

}  // namespace soak
