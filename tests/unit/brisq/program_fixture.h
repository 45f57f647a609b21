#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <string>

#include "tests/support/doveadm_stand_in.h"
#include "tests/support/places.h"
#include "tests/support/temp_dir.h"

namespace brisq {

/// How the program ended.
struct Ran {
  int status = -1;
  std::string out;
  std::string err;
};

/// The built program on an instance of its own, with a stand-in for doveadm.
class ProgramTest : public testing::Test {
 protected:
  void SetUp() override {
    doveadm_.Lists("CRAM-MD5 CLEARTEXT \n");
    dir_.Write("brisq.toml",
               "[panel]\ndatabase = \"state/panel.db\"\nstate = \"state\"\n"
               "[log]\ndirectory = \"log\"\n"
               "[param]\nPOP3 = \"dovecot\"\nEmailAuth = \"dovecot\"\n"
               "DovecotPwScheme = \"CRAM-MD5\"\n"
               "[path]\ndovecot-passwd = \"" +
                   (dir_ / "passwd") +
                   "\"\n"
                   "dovecot-doveadm = \"" +
                   doveadm_.path() +
                   "\"\n"
                   "dovecot-restart = \"true\"\ndovecot-configtest = \"\"\n"
                   "dovecot-certconf = \"" +
                   (dir_ / "certs") +
                   "\"\n"
                   "dovecot-ssl-certs = \"" +
                   (dir_ / "ssl") + "\"\n");
  }

  /// The program with its configuration, for the shell.
  std::string Program() const {
    return in_front_ + program_ + " --config '" + (dir_ / "brisq.toml") + "'";
  }

  /// @param words  for the shell, which splits them
  Ran Run(const std::string& words, const std::string& input = "") {
    beside_.Write("in", input);
    const std::string line = Program() + " " + words + " <'" + (beside_ / "in") + "' >'" +
                             (beside_ / "out") + "' 2>'" + (beside_ / "err") + "'";
    const int status = std::system(line.c_str());
    return {StatusOf(status), beside_.Read("out"), beside_.Read("err")};
  }

  /// As the shell has it: 128 and the signal's number for what a signal has ended.
  static int StatusOf(int status) {
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
  }

  void AddDomain() {
    const Ran owner = Run("owner add demo --uid 5000 --gid 5000 --home '" + (dir_ / "home") + "'");
    ASSERT_EQ(0, owner.status) << owner.err;
    ASSERT_EQ(0, Run("domain add example.org --owner demo").status);
  }

  void AddMailbox(const std::string& address) {
    const Ran ran = Run("mailbox add " + address + " --password-stdin --quota 2G", "secret\n");
    ASSERT_EQ(0, ran.status) << ran.err;
  }

  std::string in_front_;  ///< words in front of the program that start it, with a blank behind them
  std::string program_ = support::BuildFolder() + "/bin/brisq";
  support::TempDir beside_;  ///< what the tests need and the program does not
  support::TempDir dir_;
  support::DoveadmStandIn doveadm_{beside_};
};

}  // namespace brisq
