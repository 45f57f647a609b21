#include "email/certificates.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "framework/config_file.h"
#include "framework/request.h"
#include "tests/unit/email_live/live_fixture.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace fs = std::filesystem;

namespace {

/// Snippets in a directory "conf" for files that lie beside it.
class Snippets : public live::LiveTest {
 protected:
  Snippets() {
    mgr_cf::SetPath("dovecot-certconf", conf_);
    mgr_cf::SetPath("dovecot-ssl-certs", dir_ / "links");
    cert_ = dir_.Write("cert.pem", "certificate");
    key_ = dir_.Write("key.pem", "key");
    passwords_ = NewPasswords();
  }

  std::string Snippet(const std::string& cert, const std::string& key) const {
    return "local_name x {\n\tssl_cert = <" + cert + "\n\tssl_key = <" + key + "\n}\n";
  }

  std::vector<std::string> Left() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(conf_))
      names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
  }

  const std::string conf_ = dir_ / "conf";
  std::string cert_, key_;
  std::unique_ptr<live::Passwords> passwords_;
};

class CertsCheck : public Snippets {
 protected:
  CertsCheck() { dir_.MakeFolder("conf"); }

  void Run() const {
    brisq_api::Session session;
    action_.Execute(session);
  }

  std::string Message(const std::string& name) const {
    return "warning email: Remove config " + conf_ + "/" + name +
           " because it includes a cert file that does not exist";
  }

  brisqpriv_email_dovecot::ActionDovecotCertsCheck action_;
};

TEST_F(CertsCheck, RemovesSnippetsOfMissingFilesAndKeepsTheOthers) {
  dir_.Write("conf/both.conf", Snippet(cert_, key_));
  dir_.Write("conf/nocert.conf", Snippet(dir_ / "gone", key_));
  dir_.Write("conf/nokey.conf", Snippet(cert_, dir_ / "gone"));
  dir_.Write("conf/emptycert.conf", Snippet("", key_));
  dir_.Write("conf/foreign.conf", "ssl_cert = <" + dir_.path() + "/gone\n");
  dir_.Write("conf/nocert.conf.bak", Snippet(dir_ / "gone", key_));
  Run();
  EXPECT_THAT(Left(),
              ElementsAre("both.conf", "emptycert.conf", "foreign.conf", "nocert.conf.bak"));
  EXPECT_THAT(Messages(),
              testing::UnorderedElementsAre(Message("nocert.conf"), Message("nokey.conf")));
  EXPECT_EQ(0, reload_.requests);
}

TEST_F(CertsCheck, ADanglingLinkCountsAsMissing) {
  fs::create_symlink(dir_ / "gone", dir_ / "link");
  dir_.Write("conf/x.conf", Snippet(dir_ / "link", key_));
  Run();
  EXPECT_THAT(Left(), IsEmpty());
}

TEST_F(CertsCheck, ALinkToAFileCountsAsThere) {
  fs::create_symlink(cert_, dir_ / "link");
  dir_.Write("conf/x.conf", Snippet(dir_ / "link", key_));
  Run();
  EXPECT_THAT(Left(), ElementsAre("x.conf"));
}

TEST_F(CertsCheck, ThePathIsTheTextBehindTheLastSeparator) {
  const std::string odd = dir_.Write("there = <name", "certificate");
  dir_.Write("conf/x.conf", Snippet(odd, key_));
  Run();
  // The tail "name" is no file in the current directory.
  EXPECT_THAT(Left(), IsEmpty());
}

TEST_F(CertsCheck, AConfThatCannotBeReadEndsTheRun) {
  dir_.MakeFolder("conf/folder.conf");
  EXPECT_THAT(live::ErrorOf([&] { Run(); }), testing::StartsWith("file: "));
  EXPECT_THAT(Left(), ElementsAre("folder.conf"));
}

TEST_F(CertsCheck, AMissingDirectoryHasNothingToCheck) {
  fs::remove(conf_);
  Run();
  EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(CertsCheck, AnEmptyDirectoryIsLeftAsItIs) {
  Run();
  EXPECT_THAT(Left(), IsEmpty());
}

/// Certificates set inside a request.
class Certificate : public Snippets {
 public:
  ~Certificate() override { delete mailboxes_.PasswordBackEnd(); }

 protected:
  Certificate() { mgr_cf::SetParam("EmailAuth", "dovecot"); }

  std::string Expected(const std::string& domain, const std::string& keyword) const {
    return keyword + " " + domain + " {\n\tssl_cert = <" + (dir_ / "links/") + domain +
           ".crt\n\tssl_key = <" + (dir_ / "links/") + domain + ".key\n}\n";
  }

  static mode_t Mode(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(0, ::stat(path.c_str(), &status)) << path;
    EXPECT_EQ(0U, status.st_uid);
    EXPECT_EQ(0U, status.st_gid);
    return status.st_mode & 07777;
  }

  live::DovecotInterface mailboxes_;
};

TEST_F(Certificate, AfterTheCommitSnippetAndLinksAreThereAndARestartIsAskedFor) {
  for (const char* domain : {"mail.x.org", "192.0.2.10", "2001:db8::1"}) {
    SCOPED_TRACE(domain);
    Request request("tls set");
    mailboxes_.SetSSLCertForDomain(domain, cert_, key_);
    EXPECT_FALSE(fs::exists(conf_ + "/" + domain + ".conf")) << "not before the commit";
    request.Commit();
    const std::string snippet = std::string("conf/") + domain + ".conf";
    EXPECT_EQ(Expected(domain, domain[0] == 'm' ? "local_name" : "local"), dir_.Read(snippet));
    EXPECT_EQ(0600U, Mode(dir_ / snippet));
    EXPECT_EQ("certificate", dir_.Read(std::string("links/") + domain + ".crt"));
    EXPECT_EQ("key", dir_.Read(std::string("links/") + domain + ".key"));
  }
  EXPECT_EQ(3, reload_.requests);
  EXPECT_EQ(3, reload_.restarts);
  EXPECT_EQ(0600U, Mode(conf_));
}

TEST_F(Certificate, ARollbackLeavesNothingButTheDirectory) {
  {
    Request request("tls set");
    mailboxes_.SetSSLCertForDomain("mail.x.org", cert_, key_);
  }
  EXPECT_THAT(Left(), IsEmpty());
  EXPECT_EQ(0600U, Mode(conf_));
  EXPECT_FALSE(fs::is_symlink(dir_ / "links/mail.x.org.crt"));
  EXPECT_EQ(0, reload_.requests);
}

TEST_F(Certificate, ARollbackKeepsTheSnippetThatWasThere) {
  dir_.Write("conf/mail.x.org.conf", "old");
  {
    Request request("tls set");
    mailboxes_.SetSSLCertForDomain("mail.x.org", cert_, key_);
  }
  EXPECT_EQ("old", dir_.Read("conf/mail.x.org.conf"));
}

TEST_F(Certificate, TwoCallsInOneTransactionLeaveTheSecondContentAndTwoRestarts) {
  Request request("tls set");
  mailboxes_.SetSSLCertForDomain("mail.x.org", cert_, key_);
  mgr_cf::SetPath("dovecot-ssl-certs", dir_ / "others");
  mailboxes_.SetSSLCertForDomain("mail.x.org", cert_, key_);
  request.Commit();
  EXPECT_THAT(dir_.Read("conf/mail.x.org.conf"), testing::HasSubstr("/others/mail.x.org.crt"));
  EXPECT_EQ(2, reload_.restarts);
}

TEST_F(Certificate, AnExistingDirectoryKeepsItsMode) {
  dir_.MakeFolder("conf");
  fs::permissions(conf_, fs::perms(0751));
  Request request("tls set");
  mailboxes_.SetSSLCertForDomain("mail.x.org", cert_, key_);
  request.Commit();
  EXPECT_EQ(0751U, Mode(conf_));
}

TEST_F(Certificate, ADomainThatLinksRefuseLeavesNothing) {
  {
    Request request("tls set");
    EXPECT_THAT(live::ErrorOf([&] { mailboxes_.SetSSLCertForDomain("a/b", cert_, key_); }),
                testing::StartsWith("value: "));
  }
  EXPECT_FALSE(fs::exists(conf_));
  EXPECT_EQ(0, reload_.requests);
}

}  // namespace
