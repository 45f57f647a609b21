#include "tests/unit/panel/passwd_file_backend.h"

#include <sstream>

#include "cached_config.h"
#include "conf_dataset.h"
#include "framework/config_file.h"
#include "mgr_cf.h"
#include "panel/email_module.h"
#include "panel/mailboxes.h"
#include "panel/records.h"

namespace panel_test {

namespace {

class Lines : public UnixDataSet {
 public:
  Lines()
      : ConfDataSet(nullptr),
        name(this, "name"),
        passwd(this, "passwd"),
        c3(this, "c3"),
        c4(this, "c4"),
        c5(this, "c5"),
        home(this, "home"),
        c7(this, "c7"),
        c8(this, "c8"),
        rest(this, "rest") {}
  dd::Field name, passwd, c3, c4, c5, home, c7, c8, rest;
};

class File : public MgrCachedConfig<File> {
 public:
  File() {
    RegisterSyntax(UnixConfParams());
    RegisterDataSet<Lines>();
  }
};

Cursor<Lines> Open(const std::string& path) { return File::Get<Lines>(path, true); }

void SetPassword(const std::string& path, const std::string& name, const std::string& password) {
  const auto lines = Open(path);
  lines->Assert(name);
  // A tool that answers something else, and ends well.
  const std::string answer = mgr_cf::GetParam("StandInAnswer");
  lines->passwd.Set(answer.empty() ? "{CLEAR}" + password : answer);
  lines->Post("");
}

void Fill(Lines& lines, const std::shared_ptr<brisq_db::EmailTable>& email) {
  lines.home.Set(email->home);
  lines.rest.Set("quota " + std::string(email->quota));
}

}  // namespace

void FileMail::Create(std::shared_ptr<brisq_db::EmailTable>& email) {
  const auto lines = Open(path_);
  lines->New();
  lines->name.Set(email::GetEmailName(email));
  Fill(*lines, email);
  lines->Post("");
  if (!keeps_passwords_ && !std::string(email->password).empty()) {
    SetPassword(path_, email::GetEmailName(email), email->password);
  }
  RecordingMail::Create(email);
}

void FileMail::Update(std::shared_ptr<brisq_db::EmailTable>& email) {
  const auto lines = Open(path_);
  lines->Assert(email::GetEmailName(email));
  Fill(*lines, email);
  lines->Post("");
  if (!keeps_passwords_ && email->pwupdate) {
    SetPassword(path_, email::GetEmailName(email), email->password);
  }
  RecordingMail::Update(email);
}

void FileMail::Delete(std::shared_ptr<brisq_db::EmailTable>& email) {
  if (!keeps_passwords_) {
    const auto lines = Open(path_);
    if (lines->Find(email::GetEmailName(email))) {
      lines->_Delete(true);
    }
  }
  RecordingMail::Delete(email);
}

void FileMail::At(const std::string& place) {
  if (const auto step = at.find(place); step != at.end()) {
    step->second();
  }
}

void FileMail::Cache() {
  std::string text;
  if (brisq_db::FileIsChanged(path_, text)) {
    Walk();
  } else {
    QuotaOnly();
  }
  RecordingMail::Cache();
}

void FileMail::QuotaOnly() {
  auto email = brisq_panel::Table<brisq_db::EmailTable>();
  auto domain = brisq_panel::Table<brisq_db::EmailDomainTable>();
  for (const auto& [name, used] : figures) {
    if (email::FindByEmailName(name, email, domain)) {
      email->used = used;
      email->Post();
    }
  }
}

void FileMail::Walk() {
  static int tag = 100;
  ++tag;
  auto email = brisq_panel::Table<brisq_db::EmailTable>();
  auto domain = brisq_panel::Table<brisq_db::EmailDomainTable>();
  const auto lines = Open(path_);
  for (lines->First(); !lines->Eof(); lines->Next()) {
    if (!email::FindByEmailName(lines->name.Str(), email, domain)) {
      continue;
    }
    if (std::string(email->home).empty()) {
      email->home = lines->home.Str();
    }
    const auto figure = figures.find(lines->name.Str());
    email->used = figure == figures.end() ? 0 : figure->second;
    email->tag = tag;
    email->Post();
  }
  At("walked");
  email->DbDelete("tag != " + std::to_string(tag) + " AND active = 'on'");
  At("swept");
  if (!caches_passwords || !Singleton<email::box::DelayedStart>::Instance().EmailDelay()) {
    return;
  }
  for (lines->First(); !lines->Eof(); lines->Next()) {
    if (email::FindByEmailName(lines->name.Str(), email, domain) &&
        !std::string(email->password).empty()) {
      SetPassword(path_, lines->name.Str(), email->password);
    }
  }
}

void FilePasswords::Create(const std::string& name, const std::string& password) {
  SetPassword(path_, name, password);
  RecordingPasswords::Create(name, password);
}
void FilePasswords::Update(const std::string& name, const std::string& password) {
  SetPassword(path_, name, password);
  RecordingPasswords::Update(name, password);
}
void FilePasswords::Delete(const std::string& name) {
  const auto lines = Open(path_);
  if (lines->Find(name)) {
    lines->_Delete(true);
  }
  RecordingPasswords::Delete(name);
}

FilePanelTest::FilePanelTest() {
  mgr_cf::SetPath("dovecot-passwd", path_);
  dir_.Write("passwd", "");
  AddBobsDomain();
  Use(false);
}

void FilePanelTest::Use(bool passwords) {
  mail_in_use_ = passwords ? &plain_mail_ : &sealed_mail_;
  email::RegisterPop3(mail_in_use_);
  email::RegisterPwdInterface(passwords ? &file_passwords_ : nullptr);
}

void FilePanelTest::Add(const std::string& local) {
  brisq_panel::AddMailbox({local + "@example.org", "secret"});
}

std::string FilePanelTest::LineOf(const std::string& address) const {
  std::istringstream lines(Lines());
  for (std::string line; std::getline(lines, line);) {
    if (line.substr(0, line.find(':')) == address) {
      return line;
    }
  }
  return "none";
}

void FilePanelTest::RemoveLine(const std::string& address) const {
  std::istringstream lines(Lines());
  std::string kept;
  for (std::string line; std::getline(lines, line);) {
    if (line.substr(0, line.find(':')) != address) {
      kept += line + "\n";
    }
  }
  dir_.Write("passwd", kept);
}

}  // namespace panel_test
