#pragma once

#include <string>
#include <string_view>

#include "tests/support/temp_dir.h"

namespace support {

/// A stand-in for doveadm: a script that prints a listing for "pw -l", figures for "quota get -A",
/// does nothing for "reload", and for a hashing notes how it was called and answers as told. It
/// lists CRAM-MD5 and answers
/// "{CRAM-MD5}hash" at first. Keeps its files in `dir`, which must outlive it.
class DoveadmStandIn {
 public:
  explicit DoveadmStandIn(const TempDir& dir);

  const std::string& path() const { return path_; }
  void Lists(std::string_view listing, int status = 0);
  /// @param trouble  what it prints on standard error
  void Answers(std::string_view output, int status = 0, std::string_view trouble = {});
  void Reports(std::string_view figures);

  /// Arguments of the last hashing, each in brackets.
  std::string Arguments() const { return dir_.Read("argv"); }
  /// What the last hashing found on its standard input.
  std::string Input() const { return dir_.Read("input"); }
  /// How often it was called for hashing since the last Answers.
  int Calls() const;

 private:
  const TempDir& dir_;
  std::string path_;
};

}  // namespace support
