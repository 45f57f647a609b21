#pragma once

#include <chrono>
#include <condition_variable>
#include <memory>
#include <string>

#include "brisq_export.h"

namespace mgr_db {

/// A thread's turn to write to a database file, for the object's life. Turns come in the order in
/// which they were asked for.
///
/// The database's own lock goes to whoever asks at the right moment, at intervals that grow to a
/// tenth of a second: among many threads one might never get it, and most time is spent asleep.
/// This one keeps the threads of a process apart; processes are kept apart by the database.
class BRISQ_API WriteTurn {
 public:
  /// Waits for its turn.
  /// @param file  the database, by one spelling of its path
  /// @throws mgr_err::Error "locked" when it has not come within `patience`
  WriteTurn(const std::string& file, std::chrono::milliseconds patience);
  ~WriteTurn();
  WriteTurn(const WriteTurn&) = delete;
  WriteTurn& operator=(const WriteTurn&) = delete;

 private:
  struct Line;
  std::shared_ptr<Line> line_;
  std::condition_variable came_;
};

}  // namespace mgr_db
