#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "brisq_api.h"
#include "email/dovecot_interface.h"
#include "email/passwd_backend.h"
#include "email/passwd_file.h"
#include "mgr_err.h"
#include "tests/support/doveadm_stand_in.h"
#include "tests/support/log_capture.h"
#include "tests/support/temp_dir.h"

/// The plug-in's own classes on the real framework: real files, real children, real logs.
namespace live {

using brisqpriv_email_dovecot::DovecotInterface;
using brisqpriv_email_dovecot::DovPasswd;
using brisqpriv_email_dovecot::DovPasswdConfig;
using Passwords = DovecotInterface::DovPwdInterface;

/// Stands for the host's reload action and counts the requests.
class ReloadAction : public brisq_api::Action {
 public:
  ReloadAction() : Action("dovecot.reload", 0, nullptr) {}
  void Execute(brisq_api::Session& session) const override {
    ++requests;
    if (session.Param("hard") == "on") ++restarts;
  }

  mutable std::atomic<int> requests = 0;
  mutable std::atomic<int> restarts = 0;  ///< those that asked for one
};

class LiveTest : public testing::Test {
 public:
  ~LiveTest() override;

 protected:
  LiveTest();

  std::string File() const { return dir_.Read("dovecot.passwd"); }
  void WriteFile(std::string_view content) { dir_.Write("dovecot.passwd", content); }
  Cursor<DovPasswd> Open() const { return DovPasswdConfig::Get<DovPasswd>(file_, true); }

  /// What the plug-in has logged, without what the framework logs in between.
  std::vector<std::string> Messages() const;

  /// A password back-end for the file and the stand-in, with a scheme that it lists.
  std::unique_ptr<Passwords> NewPasswords();

  support::LogCapture log_;
  support::TempDir dir_;
  std::string file_ = dir_ / "dovecot.passwd";
  support::DoveadmStandIn doveadm_{dir_};
  ReloadAction reload_;
};

/// The error that `work` throws as "TYPE: OBJECT: VALUE"; "nothing" when it throws none.
std::string ErrorOf(const std::function<void()>& work);

}  // namespace live
