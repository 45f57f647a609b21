#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "email.h"
#include "tests/support/log_capture.h"
#include "tests/support/temp_dir.h"

namespace panel_test {

/// What back-ends were called for, in order, and where they are to fail.
struct Calls {
  std::vector<std::string> made;
  /// The call that throws an error of type "email", once it has been noted; empty for none.
  std::string failing;
  /// Error to throw there instead; type empty for the usual one.
  mgr_err::Error error{""};
  /// Run by every call of this name before it fails.
  std::map<std::string, std::function<void()>> effects;

  void Note(const std::string& call, const std::string& details = {});
};

/// A mail back-end that writes down its calls with what it read from the records.
class RecordingMail : public email::Pop3Interface {
 public:
  explicit RecordingMail(Calls& calls) : calls_(calls) {}
  void Cache() override;
  void Create(std::shared_ptr<brisq_db::EmailTable>& email) override;
  void Delete(std::shared_ptr<brisq_db::EmailTable>& email) override;
  void Update(std::shared_ptr<brisq_db::EmailTable>& email) override;
  void SetSSLCertForDomain(const std::string& domain, const std::string& cert,
                           const std::string& key) override;
  void OnDeleteDomain(std::shared_ptr<brisq_db::EmailDomainTable>& domain) override;
  void OnUpdateDomain(std::shared_ptr<brisq_db::EmailDomainTable>& domain) override;
  void ReloadConfig() override;

 private:
  std::string Details(const std::shared_ptr<brisq_db::EmailTable>& email) const;

  Calls& calls_;
};

/// A password back-end that writes down its calls.
class RecordingPasswords : public email::PasswdInterface {
 public:
  explicit RecordingPasswords(Calls& calls) : calls_(calls) {}
  void CachePasswords() override;
  void Create(const std::string& name, const std::string& password) override;
  void Update(const std::string& name, const std::string& password) override;
  void Delete(const std::string& name) override;

 private:
  Calls& calls_;
};

/// A panel with a database of its own, without plug-ins; back-ends when a test registers them.
class PanelTest : public testing::Test {
 protected:
  PanelTest();
  ~PanelTest() override;

  /// Adds the owner "bob" (uid and gid 1001) with the home Home().
  void AddBob();
  /// Adds bob and his domain example.org.
  void AddBobsDomain();
  std::string Home() const { return dir_ / "home/bob"; }

  /// Everything that lies in the database's files.
  std::string DatabaseBytes() const;
  /// Values of the first column, joined by blanks.
  static std::string Column(const std::string& sql);

  support::LogCapture log_;
  support::TempDir dir_;
  Calls calls_;
  RecordingMail mail_{calls_};
  RecordingPasswords passwords_{calls_};
};

/// The error that `work` throws; one of type "none" when it throws nothing.
mgr_err::Error ErrorOf(const std::function<void()>& work);
/// what() of it.
std::string TextOf(const std::function<void()>& work);

}  // namespace panel_test
