#include "tests/unit/email_plugin/virtual_tables.h"

#include <gmock/gmock.h>

#include <stdexcept>

#include "tests/support/places.h"

using plugin::Slots;
using testing::ElementsAre;
using testing::ElementsAreArray;

namespace {

std::vector<Slots> Tables(const std::string& mangled_class) {
  return plugin::VirtualTables(support::BuildFolder() + "/lib/brisq/email_dovecot.so",
                               "_ZTVN23brisqpriv_email_dovecot" + mangled_class + "E");
}

TEST(VirtualTables, MailboxBackEnd) {
  EXPECT_THAT(Tables("16DovecotInterface"),
              ElementsAre(ElementsAre(
                  "DovecotInterface::Cache()",
                  "DovecotInterface::Create(std::shared_ptr<brisq_db::EmailTable>&)",
                  "DovecotInterface::Delete(std::shared_ptr<brisq_db::EmailTable>&)",
                  "DovecotInterface::Update(std::shared_ptr<brisq_db::EmailTable>&)",
                  "DovecotInterface::SetSSLCertForDomain(std::string const&, std::string const&, "
                  "std::string const&)",
                  "DovecotInterface::OnDeleteDomain(std::shared_ptr<brisq_db::EmailDomainTable>&)",
                  "DovecotInterface::OnUpdateDomain(std::shared_ptr<brisq_db::EmailDomainTable>&)",
                  "DovecotInterface::ReloadConfig()", "DovecotInterface: complete destructor",
                  "DovecotInterface: deleting destructor")));
}

TEST(VirtualTables, PasswordBackEnd) {
  const std::string self = "DovecotInterface::DovPwdInterface";
  EXPECT_THAT(Tables("16DovecotInterface15DovPwdInterface"),
              ElementsAre(ElementsAre(self + ": complete destructor",
                                      self + ": deleting destructor", self + "::CachePasswords()",
                                      self + "::Create(std::string const&, std::string const&)",
                                      self + "::Update(std::string const&, std::string const&)",
                                      self + "::Delete(std::string const&)")));
}

TEST(VirtualTables, CertificateCheckAction) {
  const std::string base = "brisq_api::Action::";
  EXPECT_THAT(
      Tables("23ActionDovecotCertsCheck"),
      ElementsAre(ElementsAre("ActionDovecotCertsCheck: complete destructor",
                              "ActionDovecotCertsCheck: deleting destructor", base + "type() const",
                              base + "IsModify(brisq_api::Session const&) const",
                              base + "IsInMenu(brisq_api::Session const&) const",
                              base + "FlowId(brisq_api::Session const&) const",
                              base + "set_flow_flags(brisq_api::Session&) const",
                              base + "Authorize(brisq_api::Session const&) const",
                              base + "AuthorizeBySession(brisq_api::Session const&) const",
                              base + "Validate(brisq_api::Session&) const",
                              "ActionDovecotCertsCheck::Execute(brisq_api::Session&) const",
                              base + "CheckAccess(brisq_api::Session const&) const")));
}

TEST(VirtualTables, PasswdFileConfiguration) {
  EXPECT_THAT(Tables("15DovPasswdConfig"),
              ElementsAre(ElementsAre(
                  "DovPasswdConfig: complete destructor", "DovPasswdConfig: deleting destructor",
                  "DovPasswdConfig::AfterSave(ConfRef&, ConfCache::SaveReason&)")));
}

const char* const kColumns =
    "std::list<std::pair<unsigned long, std::string>, "
    "std::allocator<std::pair<unsigned long, std::string> > >&";

Slots HeadTable() {
  return {"DovPasswd: complete destructor",
          "DovPasswd: deleting destructor",
          "HeadDataSet::Drop()",
          "HeadDataSet::Base()",
          "UnixDataSet::Parse(Cf)",
          std::string("UnixDataSet::NewRecord(") + kColumns + ")",
          "UnixDataSet::DummyString() const"};
}

Slots ConfTable() {
  const std::string text = "std::string const&";
  return {"DovPasswd: complete destructor",
          "DovPasswd: deleting destructor",
          "ConfDataSet::getCache(int)",
          "ConfDataSet::getAlloc()",
          "ConfDataSet::getParams()",
          "ConfDataSet::getConfig()",
          "ConfDataSet::RawRead(int, ConfSrc*, ConfAllocation*)",
          "ConfDataSet::Modify()",
          "ConfDataSet::GetCache()",
          "ConfDataSet::onBeforeNew()",
          "ConfDataSet::onBeforePost()",
          "ConfDataSet::onBeforeDelete()",
          "ConfDataSet::onAfterNew()",
          "ConfDataSet::onAfterPost()",
          "ConfDataSet::onAfterDelete()",
          "HeadDataSet::Base()",
          "ConfDataSet::Post(" + text + ")",
          "ConfDataSet::Delete()",
          "UnixDataSet::Parse(Cf)",
          "ConfDataSet::FieldValue(" + text + ", " + text + ")",
          "ConfDataSet::FieldPrefix(" + text + ")",
          "ConfDataSet::FieldSuffix(" + text + ")",
          "ConfDataSet::NewField(" + text + ", " + text + ")",
          std::string("UnixDataSet::NewRecord(") + kColumns + ")",
          "ConfDataSet::NewRecordTemplate()",
          "ConfDataSet::Erase(unsigned long)"};
}

Slots RecordTable() {
  const std::string text = "std::string const&";
  return {"DovPasswd: complete destructor",
          "DovPasswd: deleting destructor",
          "UnixDataSet::DummyString() const",
          "ConfDataSet::GetCache()",
          "dd::Record::AddField(" + text + ", dd::Field*)",
          "dd::Record::RsName() const",
          "dd::Record::KeyVal(dd::RecordPtr) const",
          "dd::Record::Find(" + text + ")",
          "dd::Record::New()",
          "ConfDataSet::Delete()",
          "ConfDataSet::Post(" + text + ")",
          "dd::Record::GetField(unsigned long) const",
          "dd::Record::SetField(unsigned long, " + text + ")",
          "ConfDataSet::Erase(unsigned long)"};
}

TEST(VirtualTables, PasswdFileDataset) {
  EXPECT_THAT(Tables("9DovPasswd"),
              ElementsAre(ElementsAreArray(HeadTable()), ElementsAreArray(ConfTable()),
                          ElementsAreArray(RecordTable())));
}

TEST(VirtualTables, AClassThatIsNotThereIsRefused) {
  EXPECT_THROW(Tables("7Nothing"), std::runtime_error);
}

}  // namespace
