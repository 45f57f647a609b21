#pragma once

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "brisq_export.h"

class ConfConfiguration;
class ConfFile;
class ConfScratch;

/// A dry run: while it lives, what its thread does is done for itself alone and taken back at the
/// end.
///
/// Requests run as ever and their results can be read as ever, but
/// - the database's changes are one transaction that is rolled back at the end (the write lock is
///   held from the first change on);
/// - configuration files are changed in memory, in copies of the thread's own;
/// - jobs are asked whether they could be done (mgr_job::Job::Rehearse) and are not done;
/// - directories and files of mgr_file are neither made nor removed at once;
/// - calls and commands for after the commit, reloads and restarts do not happen.
///
/// So nobody else sees any of it at any moment. What would have happened is noted in words.
///
/// Belongs to the thread that made it, and ends before the database is closed. Child processes run
/// all the same: what only looks or hashes is wanted.
class BRISQ_API Rehearsal {
 public:
  /// @throws mgr_err::Error "internal" when the thread has one already, or a request goes on
  Rehearsal();
  ~Rehearsal();
  Rehearsal(const Rehearsal&) = delete;
  Rehearsal& operator=(const Rehearsal&) = delete;

  /// The one of this thread; null outside of a dry run.
  static Rehearsal* Current() noexcept;

  /// Notes what would happen; a text that was noted before or is empty is left out.
  void Note(const std::string& effect);
  /// In the order in which they were noted.
  const std::vector<std::string>& effects() const noexcept { return effects_; }

  /// Notes a call for the end, made in reverse order; errors are logged.
  void OnEnd(std::function<void()> call);

  /// The thread's own copy of a configuration file.
  std::shared_ptr<ConfFile> File(const std::string& path,
                                 const std::shared_ptr<const ConfConfiguration>& configuration);

  /// Directories that would have been made by now, and paths that would be gone.
  void AddDirectory(const std::string& path);
  bool HasDirectory(const std::string& path) const { return directories_.count(path) != 0; }
  void AddRemoved(const std::string& path);
  bool HasRemoved(const std::string& path) const { return removed_.count(path) != 0; }

 private:
  std::vector<std::string> effects_;
  std::set<std::string> noted_;
  std::vector<std::function<void()>> at_end_;
  std::shared_ptr<ConfScratch> scratch_;
  std::map<std::pair<std::string, std::string>, std::shared_ptr<ConfFile>> files_;
  std::set<std::string> directories_;
  std::set<std::string> removed_;
};
