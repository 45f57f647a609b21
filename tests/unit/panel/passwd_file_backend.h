#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "tests/unit/panel/panel_fixture.h"

namespace panel_test {

/// Back-ends that keep a file of lines "NAME:PASSWORD:::::::REST" under the path key
/// "dovecot-passwd", as a mail server's would: enough of one for the panel to work with. Passwords
/// stand in it as "{CLEAR}" + password.
class FileMail : public RecordingMail {
 public:
  FileMail(Calls& calls, std::string path, bool keeps_passwords)
      : RecordingMail(calls), path_(std::move(path)), keeps_passwords_(keeps_passwords) {}

  void Cache() override;
  void Create(std::shared_ptr<brisq_db::EmailTable>& email) override;
  void Delete(std::shared_ptr<brisq_db::EmailTable>& email) override;
  void Update(std::shared_ptr<brisq_db::EmailTable>& email) override;

  /// Used megabytes that a refresh is told, by name.
  std::map<std::string, int> figures;
  /// Run at the named places of a refresh: "walked" (before the sweep), "swept" (after it).
  std::map<std::string, std::function<void()>> at;
  /// Whether a refresh ends in password work, which puts the panel's passwords back.
  bool caches_passwords = false;

 private:
  void Walk();
  void QuotaOnly();
  void At(const std::string& place);

  std::string path_;
  bool keeps_passwords_;
};

class FilePasswords : public RecordingPasswords {
 public:
  FilePasswords(Calls& calls, std::string path)
      : RecordingPasswords(calls), path_(std::move(path)) {}
  void Create(const std::string& name, const std::string& password) override;
  void Update(const std::string& name, const std::string& password) override;
  void Delete(const std::string& name) override;

 private:
  std::string path_;
};

/// A panel whose mailboxes lie in such a file.
class FilePanelTest : public PanelTest {
 protected:
  FilePanelTest();

  /// Registers the back-ends: with `passwords`, one that keeps the passwords too.
  void Use(bool passwords);
  /// Adds a mailbox of example.org with the password "secret".
  void Add(const std::string& local);
  std::string Lines() const { return dir_.Read("passwd"); }
  std::string LineOf(const std::string& address) const;
  void RemoveLine(const std::string& address) const;

  const std::string path_ = dir_ / "passwd";
  FileMail sealed_mail_{calls_, path_, false};
  FileMail plain_mail_{calls_, path_, true};
  FilePasswords file_passwords_{calls_, path_};
  FileMail* mail_in_use_ = &sealed_mail_;
};

}  // namespace panel_test
