#include <filesystem>

#include "email.h"
#include "framework/config_file.h"
#include "framework/request.h"
#include "panel/records.h"
#include "tests/unit/panel/panel_fixture.h"

namespace {

namespace fs = std::filesystem;
using email::domain::CleenUpCerts;
using email::domain::CreateSymbLink;

class EmailDomain : public panel_test::PanelTest {
 protected:
  EmailDomain() {
    AddBobsDomain();
    domain_ = brisq_panel::FindDomain("example.org");
    mgr_cf::SetPath("dovecot-ssl-certs", ssl_);
  }
  void PutLinks() {
    fs::create_directories(ssl_);
    fs::create_symlink("/c", ssl_ + "/example.org.crt");
    fs::create_symlink("/k", ssl_ + "/example.org.key");
    fs::create_symlink("/o", ssl_ + "/other.org.crt");
  }
  std::string Links() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(ssl_)) {
      names.push_back(entry.path().filename());
    }
    std::sort(names.begin(), names.end());
    std::string text;
    for (const std::string& name : names) {
      text += (text.empty() ? "" : " ") + name;
    }
    return text;
  }
  void CleanUp(const std::string& event, const std::string& backend = "dovecot") {
    Request request("test");
    CleenUpCerts(domain_, event, backend);
    request.Commit();
  }

  const std::string ssl_ = dir_ / "ssl";
  std::shared_ptr<brisq_db::EmailDomainTable> domain_;
};

TEST_F(EmailDomain, ALinkIsNamedAfterDomainAndSuffix) {
  Request request("test");
  EXPECT_EQ(ssl_ + "/example.org.crt", CreateSymbLink("example.org", ssl_, "/cert.pem", ".crt"));
  EXPECT_EQ(ssl_ + "/192.0.2.1.key", CreateSymbLink("192.0.2.1", ssl_ + "//", "/key.pem", ".key"));
  EXPECT_FALSE(fs::exists(ssl_)) << "nothing happens before the commit";
  request.Commit();
  EXPECT_EQ("/cert.pem", fs::read_symlink(ssl_ + "/example.org.crt"));
  EXPECT_EQ("/key.pem", fs::read_symlink(ssl_ + "/192.0.2.1.key"));
}

TEST_F(EmailDomain, ARequestThatFailsLeavesNoLink) {
  {
    Request request("test");
    CreateSymbLink("example.org", ssl_, "/cert.pem", ".crt");
  }
  EXPECT_FALSE(fs::exists(ssl_));
}

TEST_F(EmailDomain, NamesThatLeadElsewhereAreRefused) {
  struct Case {
    const char* name;
    std::string domain;
    std::string directory;
  };
  const Case cases[] = {{"empty", "", ssl_},
                        {"dot first", ".org", ssl_},
                        {"parent", "..", ssl_},
                        {"slash", "a/b", ssl_},
                        {"way out", "a/../../etc", ssl_},
                        {"NUL", std::string("a\0b", 3), ssl_},
                        {"line break", "a\nb", ssl_},
                        {"no directory", "example.org", ""},
                        {"relative directory", "example.org", "ssl"}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Request request("test");
    EXPECT_EQ("value", panel_test::ErrorOf([&] {
                         CreateSymbLink(c.domain, c.directory, "/cert.pem", ".crt");
                       }).type());
    request.Commit();
    EXPECT_FALSE(fs::exists(ssl_));
  }
}

TEST_F(EmailDomain, OutsideOfARequestNoLinkIsMade) {
  EXPECT_EQ("internal", panel_test::ErrorOf([&] {
                          CreateSymbLink("example.org", ssl_, "/cert.pem", ".crt");
                        }).type());
}

TEST_F(EmailDomain, LinksGoWithTheirDomain) {
  PutLinks();
  domain_->cert = "/cert.pem";
  CleanUp("delete");
  EXPECT_EQ("other.org.crt", Links());
}

TEST_F(EmailDomain, LinksGoWithTheCertificateOfAnUpdatedDomain) {
  PutLinks();
  domain_->cert = "/cert.pem";
  CleanUp("update");
  EXPECT_EQ("example.org.crt example.org.key other.org.crt", Links());
  domain_->cert = "";
  CleanUp("update");
  EXPECT_EQ("other.org.crt", Links());
}

TEST_F(EmailDomain, OtherEventsAndBackendsTouchNothing) {
  PutLinks();
  CleanUp("create");
  CleanUp("");
  CleanUp("delete", "otherserver");
  EXPECT_EQ("example.org.crt example.org.key other.org.crt", Links());
}

TEST_F(EmailDomain, LinksComeBackWhenTheRequestFails) {
  PutLinks();
  {
    Request request("test");
    CleenUpCerts(domain_, "delete", "dovecot");
  }
  EXPECT_EQ("example.org.crt example.org.key other.org.crt", Links());
}

}  // namespace
