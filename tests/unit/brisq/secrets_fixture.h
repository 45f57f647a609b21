#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "tests/unit/brisq/instance_fixture.h"

namespace brisq {

/// The program under watch: it is given a password that is known by sight, and whatever it, the
/// programs that it starts, its files and its memory show of that password is counted.
class SecretsTest : public InstanceTest {
 protected:
  SecretsTest();
  void SetUp() override;

  /// The panel keeps the passwords from now on, sealed, instead of the server's hashes alone.
  void KeepPasswordsSealed();
  /// The same instance as if its program had been built to leave freed memory as it is.
  void RunUnwiped() { program_ = support::BuildFolder() + "/tests/bin/brisq_unwiped"; }

  /// Another password, known by sight as well, that is too short for a block of memory of its own.
  void UseShortPassword();

  /// Runs a command under watch and looks at what it leaves.
  Ran RunWatched(const std::string& words, const std::string& input = "");
  /// Runs the server until it has passed on the passwords that the panel keeps, or has reloaded
  /// the mail server when it keeps none.
  void RunServer(bool keeps_passwords);

  /// Counts what `text` shows of the password, plain or transformed; each is a failure.
  void Look(const std::string& text, const std::string& place);
  /// The same for each file of the instance.
  void LookInFiles();
  /// The same for what was written to the system's folder for temporary files since the beginning.
  void LookInTemporaryFiles();
  /// The same for all programs that were started since the last look and what they have written,
  /// to the password's way to the hashing tool no more than counting in `passed_on_`.
  void LookAtCalls();

  /// What the stand-in for doveadm has kept under one name; empty when it has kept nothing.
  std::string Kept(const std::string& name) const;
  /// The same as lines.
  std::vector<std::string> KeptLines(const std::string& name) const;

  std::string canary_;
  int looks_ = 0;
  int hits_ = 0;
  int started_ = 0;    ///< programs that were started
  int written_ = 0;    ///< calls that wrote something
  int passed_on_ = 0;  ///< of these, those that gave the password to the hashing tool, or back

 private:
  static inline const auto kBeginning = std::filesystem::file_time_type::clock::now();

  bool Shows(const std::string& text) const;
  void CountCall(const std::string& call);
  void WaitForServer(int hashed, int reloads, bool keeps_passwords);
  int CountInMemory(const std::string& pid) const;

  std::vector<std::string> forms_;  ///< what the password may look like
};

}  // namespace brisq
