#include "tests/unit/panel/panel_fixture.h"

#include <filesystem>

#include "framework/config_file.h"
#include "framework/database.h"
#include "framework/request.h"
#include "framework/seal.h"
#include "panel/domains.h"
#include "panel/email_module.h"
#include "panel/owners.h"
#include "panel/records.h"

namespace panel_test {

void Calls::Note(const std::string& call, const std::string& details) {
  made.push_back(details.empty() ? call : call + " " + details);
  if (const auto effect = effects.find(call); effect != effects.end()) {
    effect->second();
  }
  if (call == failing) {
    throw error.type().empty() ? email::Fail("doveadm", "stand-in failed") : error;
  }
}

std::string RecordingMail::Details(const std::shared_ptr<brisq_db::EmailTable>& email) const {
  const auto owner = email::GetEmailOwner(email);
  return email::GetEmailName(email) + " uid=" + owner->uid.AsString() +
         " gid=" + owner->gid.AsString() + " home=" + std::string(email->home) +
         " quota=" + email->quota.AsString() + " password=" + std::string(email->password) +
         (email->pwupdate ? " pwupdate" : "");
}

void RecordingMail::Cache() { calls_.Note("mail.Cache"); }
void RecordingMail::Create(std::shared_ptr<brisq_db::EmailTable>& email) {
  calls_.Note("mail.Create", Details(email));
}
void RecordingMail::Delete(std::shared_ptr<brisq_db::EmailTable>& email) {
  calls_.Note("mail.Delete", email::GetEmailName(email));
}
void RecordingMail::Update(std::shared_ptr<brisq_db::EmailTable>& email) {
  calls_.Note("mail.Update", Details(email));
}
void RecordingMail::SetSSLCertForDomain(const std::string& domain, const std::string& cert,
                                        const std::string& key) {
  calls_.Note("mail.SetSSLCertForDomain", domain + " " + cert + " " + key);
}
void RecordingMail::OnDeleteDomain(std::shared_ptr<brisq_db::EmailDomainTable>& domain) {
  calls_.Note("mail.OnDeleteDomain", domain->name);
}
void RecordingMail::OnUpdateDomain(std::shared_ptr<brisq_db::EmailDomainTable>& domain) {
  calls_.Note("mail.OnUpdateDomain", domain->name);
}
void RecordingMail::ReloadConfig() { calls_.Note("mail.ReloadConfig"); }

void RecordingPasswords::CachePasswords() { calls_.Note("passwords.CachePasswords"); }
void RecordingPasswords::Create(const std::string& name, const std::string& password) {
  calls_.Note("passwords.Create", name + " " + password);
}
void RecordingPasswords::Update(const std::string& name, const std::string& password) {
  calls_.Note("passwords.Update", name + " " + password);
}
void RecordingPasswords::Delete(const std::string& name) { calls_.Note("passwords.Delete", name); }

PanelTest::PanelTest() {
  mgr_cf::Reset();
  brisq_panel::ForgetBackends();
  mgr_db::OpenDatabase(dir_ / "panel.db");
  mgr_seal::SetKeyFile(dir_ / "seal.key");
  brisq_panel::CreatePanelTables();
}

PanelTest::~PanelTest() {
  brisq_panel::ForgetBackends();
  mgr_db::CloseDatabase();
  mgr_seal::SetKeyFile({});
  mgr_cf::Reset();
}

void PanelTest::AddBob() { brisq_panel::AddOwner({"bob", 1001, 1001, Home()}); }

void PanelTest::AddBobsDomain() {
  AddBob();
  brisq_panel::AddDomain("example.org", "bob");
}

std::string PanelTest::DatabaseBytes() const {
  return dir_.Read("panel.db") + dir_.Read("panel.db-wal");
}

std::string PanelTest::Column(const std::string& sql) {
  std::string values;
  for (const auto& row : mgr_db::ThreadConnection()->Query(sql, {}, 1)) {
    values += (values.empty() ? "" : " ") + row.front();
  }
  return values;
}

mgr_err::Error ErrorOf(const std::function<void()>& work) {
  try {
    work();
  } catch (const mgr_err::Error& error) {
    return error;
  }
  return mgr_err::Error("none");
}

std::string TextOf(const std::function<void()>& work) { return ErrorOf(work).what(); }

}  // namespace panel_test
