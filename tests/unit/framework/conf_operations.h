#pragma once

#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "tests/support/temp_dir.h"

/// Every operation that changes a configuration file, for tests in which each system call may fail
/// and each may be the last.
namespace conf_operations {

/// What a file holds; nothing when there is no file.
using Content = std::optional<std::string>;

/// A file in a fresh folder, with the owner, mode and attributes that a server's has.
class Place {
 public:
  /// @param linked  the path is a symbolic link to a file in another folder
  Place(const Content& before, bool linked);

  const std::string& path() const { return path_; }
  /// The folder in which the file itself lies, and its path there.
  const std::string& folder() const { return real_folder_; }
  const std::string& file() const { return file_; }
  Content Read() const;
  /// Owner and mode are those of the file that was there, or a fresh one's; a link is still one.
  bool IsKept() const;
  /// Paths of everything beside the file but the file itself and its lock.
  std::vector<std::string> Leftovers() const;
  /// True when a file in the folder, the leftovers included, has the text.
  bool Has(const std::string& text) const;

 private:
  support::TempDir directory_;
  bool existed_;
  bool linked_;
  std::string path_;
  std::string real_folder_;
  std::string file_;
};

/// An operation that changes the file.
struct Operation {
  const char* name;
  /// Opens the file; what it returns makes the change.
  std::function<std::function<void()>(const std::string& path)> open;
  Content before;
  std::string after;
  /// What the file may hold when a part of several changes was refused.
  std::vector<std::string> parts = {};
  /// A line that somebody adds by hand in the middle of the change, by renaming a file over ours.
  std::string hand_edit = {};
  bool linked = false;
};

void PrintTo(const Operation& operation, std::ostream* out);

/// All of the engine's.
const std::vector<Operation>& Operations();
/// Controls: the same changes made by code that knows no better.
Operation WritingInPlace();
Operation RenamingWithoutExchange();

/// Makes the operation's edit by hand when the watched call is the first renaming. To be called
/// before each system call.
class HandEdit {
 public:
  HandEdit(const Place& place, const Operation& operation)
      : place_(place), line_(operation.hand_edit) {}
  void Before(std::string_view call);

 private:
  const Place& place_;
  std::string line_;
};

/// What the one who asked for a change was told about it.
enum class Report {
  kMade,
  kMadeInDoubt,  // an error that says that the file was changed
  kNotMade,      // any other error
  kNothing       // the process was killed
};

/// What is wrong with the file after the operation was cut short; empty when nothing is.
std::string FaultOf(const Place& place, const Operation& operation, Report report);

/// Changes the file once more, as the next run does, and tells what that left unhealed.
std::string FaultOfNextRun(const Place& place, const Operation& operation);

}  // namespace conf_operations
