#pragma once

#include <string>
#include <vector>

#include "brisq_export.h"
#include "framework/journal_record.h"

/// What has been done since a killed request was first found: a step of it that could not be taken
/// back then must not be taken back any more when a later job has touched the same thing, which may
/// look by now as the step has left it.
class BRISQ_API LaterJobs {
 public:
  /// The jobs with higher numbers that were done. Works on the calling thread's connection.
  /// @throws mgr_err::Error "db", "locked"
  explicit LaterJobs(int job);

  /// The first of them that has touched what the step has changed: an object with the name of its
  /// line, or one whose name or whose path is a part of its path. 0 for none.
  int Touching(const journal::Step& step) const;

 private:
  struct Object {
    int job = 0;
    std::string name;
    std::vector<std::string> paths;
  };

  std::vector<Object> objects_;
};
