#pragma once

#include <gmock/gmock.h>

#include <map>
#include <string>

#include "tests/unit/brisq/program_fixture.h"

namespace brisq {

/// The built program on an instance whose every state can be compared with another one.
class InstanceTest : public ProgramTest {
 protected:
  /// As Run; fails the test when the exit code is another one.
  Ran Expect(int status, const std::string& words, const std::string& input = "");

  /// Makes a key and a certificate for a domain in `beside_`; "--cert FILE --key FILE" of them.
  std::string MakeCertificate(const std::string& domain);

  /// Everything that a run may change, by path: kind, mode, owner, inode, time and content of
  /// files, links and folders, but for logs and locks, and the database's content.
  std::map<std::string, std::string> Everything() const;
  /// What differs now, in words; empty for nothing.
  std::string ChangedSince(const std::map<std::string, std::string>& before) const;

  std::string Passwd() const { return dir_.Read("passwd"); }
};

}  // namespace brisq
