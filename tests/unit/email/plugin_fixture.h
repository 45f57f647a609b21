#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "email/dovecot_interface.h"
#include "email/passwd_backend.h"
#include "tests/unit/email/recording_host.h"

namespace recording {

using brisqpriv_email_dovecot::DovecotInterface;
using Calls = std::vector<std::string>;

/// A mailbox back-end with its password back-end, both freed at the end.
class BackEnd {
 public:
  explicit BackEnd(DovecotInterface* made = new DovecotInterface) : mailboxes_(made) {}
  ~BackEnd();
  BackEnd(const BackEnd&) = delete;
  BackEnd& operator=(const BackEnd&) = delete;

  DovecotInterface* operator->() const { return mailboxes_.get(); }
  DovecotInterface::DovPwdInterface& passwords() const { return *mailboxes_->PasswordBackEnd(); }

 private:
  std::unique_ptr<DovecotInterface> mailboxes_;
};

/// A test against the recording host. The passwd-file's configuration is registered already, so
/// that opening the file is two calls in every test. At its end everything that was taken must have
/// been given back, and every log line have been guarded by its level.
class PluginTest : public testing::Test {
 public:
  ~PluginTest() override;

 protected:
  PluginTest();

  /// The calls by which the passwd-file "/p" is opened.
  static Calls Opening();
  /// The calls that one hashing makes.
  static Calls Hashing(const std::string& name);
  /// What follows a post: the after-save hook below level 9.
  static Calls Reload() { return {"InternalCall dovecot.reload ''"}; }
  /// The lists one behind the other.
  static Calls Join(const std::vector<Calls>& parts);

  /// Makes a back-end for the passwd-file "/p" and "/d" as doveadm, and forgets the calls.
  std::unique_ptr<BackEnd> NewBackEnd(const std::string& email_auth = "");

  Host& host = Host::Instance();
};

/// Number of the source line that a debug message names, and what is written there and before:
/// true when that is the logging statement for `text`.
bool IsLoggedAt(const std::string& message, const std::string& source, const std::string& text);

}  // namespace recording
