#include "panel/tls.h"

#include <sys/stat.h>

#include <filesystem>

#include "brisq_api.h"
#include "framework/config_file.h"
#include "panel/domain_changes.h"
#include "panel/domains.h"
#include "panel/email_module.h"
#include "tests/unit/panel/certificate_files.h"
#include "tests/unit/panel/panel_fixture.h"

namespace {

namespace fs = std::filesystem;
using brisq_panel::SetCertificate;
using panel_test::CertificateFiles;
using panel_test::ErrorOf;
using panel_test::MakeCertificate;
using panel_test::TextOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr long kDay = 86400;

// An action that a back-end would bring.
class RecordingAction : public brisq_api::Action {
 public:
  RecordingAction(const std::string& name, panel_test::Calls& calls)
      : Action(name, 0, nullptr), calls_(calls) {}
  void Execute(brisq_api::Session& session) const override {
    calls_.Note(name(), session.Param("hard"));
  }

 private:
  panel_test::Calls& calls_;
};

class Tls : public panel_test::PanelTest {
 protected:
  Tls() {
    AddBobsDomain();
    email::RegisterPop3(&mail_);
    mgr_cf::SetPath("dovecot-ssl-certs", dir_.MakeFolder("ssl"));
    mgr_cf::SetPath("dovecot-certconf", dir_.MakeFolder("conf"));
  }
  CertificateFiles Make(const std::string& name, long end = 90 * kDay) {
    return MakeCertificate(dir_, name, "DNS:example.org", -60, end);
  }
  std::vector<std::string> Set(const CertificateFiles& files, bool force = false) {
    return SetCertificate("example.org", files.cert, files.key, force);
  }
  // Links and snippet, as a back-end makes them.
  void Install(const CertificateFiles& files) {
    fs::create_symlink(files.cert, dir_ / "ssl/example.org.crt");
    fs::create_symlink(files.key, dir_ / "ssl/example.org.key");
    dir_.Write("conf/example.org.conf", "local_name example.org {\n\tssl_cert = <" +
                                            (dir_ / "ssl/example.org.crt") + "\n\tssl_key = <" +
                                            (dir_ / "ssl/example.org.key") + "\n}\n");
  }
};

TEST_F(Tls, AGoodCertificateIsSetInRowAndBackend) {
  const auto files = Make("good");
  EXPECT_THAT(SetCertificate("EXAMPLE.org", files.cert, files.key, false), IsEmpty());
  EXPECT_THAT(calls_.made,
              ElementsAre("mail.SetSSLCertForDomain example.org " + files.cert + " " + files.key));
  const auto domain = brisq_panel::ShowDomain("example.org");
  EXPECT_EQ(files.cert, domain.cert);
  EXPECT_EQ(files.key, domain.key);
}

TEST_F(Tls, AFileThatIsReachedThroughThePlaceOfItsOwnLinkIsRefused) {
  const auto files = Make("good");
  Install(files);
  fs::create_symlink(dir_ / "ssl", dir_ / "way");
  fs::create_symlink("ssl/example.org.crt", dir_ / "round.crt");
  const struct {
    const char* name;
    std::string cert;
    std::string key;
    std::string object;
  } cases[] = {
      {"the place", dir_ / "ssl/example.org.crt", files.key, "certificate"},
      {"key's place", files.cert, dir_ / "ssl/example.org.key", "key"},
      {"each other's", dir_ / "ssl/example.org.key", files.key, "certificate"},
      {"other way", dir_ / "way/../ssl/./example.org.crt", files.key, "certificate"},
      {"link there", dir_ / "round.crt", files.key, "certificate"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const auto error = ErrorOf([&] { SetCertificate("example.org", c.cert, c.key, false); });
    EXPECT_EQ("value", error.type());
    EXPECT_EQ(c.object, error.object());
    EXPECT_THAT(error.value(), HasSubstr("where the link to it belongs"));
  }
  EXPECT_THAT(calls_.made, IsEmpty());
  EXPECT_THAT(Set(files), IsEmpty());  // through no link
}

TEST_F(Tls, NothingBrokenReachesTheBackend) {
  const auto good = Make("good");
  const auto other = Make("other");
  const auto expired = MakeCertificate(dir_, "expired", "DNS:example.org", -9 * kDay, -kDay);
  const auto early = MakeCertificate(dir_, "early", "DNS:example.org", kDay, 9 * kDay);
  const auto foreign = MakeCertificate(dir_, "foreign", "DNS:example.net");
  struct Case {
    const char* name;
    std::string cert, key;
    const char* text;
  };
  const Case cases[] = {
      {"certificate missing", dir_ / "missing", good.key, "value: certificate: "},
      {"key missing", good.cert, dir_ / "missing", "value: key: "},
      {"key of another", good.cert, other.key, "value: key: does not belong to the certificate"},
      {"the files changed round", good.key, good.cert, "holds no PEM certificate"},
      {"expired", expired.cert, expired.key, "value: certificate: has expired on "},
      {"not valid yet", early.cert, early.key, "value: certificate: is valid from "},
      {"for somebody else", foreign.cert, foreign.key,
       "value: certificate: does not cover example.org; --force"},
      {"relative path", "good.crt", good.key, "value: certificate: must be an absolute path"},
      {"empty path", good.cert, "", "value: key: must not be empty"},
      {"line break", good.cert + "\n", good.key, "value: certificate: line break not allowed"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_THAT(TextOf([&] { Set({c.cert, c.key}); }), HasSubstr(c.text));
    EXPECT_THAT(calls_.made, IsEmpty());
    EXPECT_EQ("", brisq_panel::ShowDomain("example.org").cert);
  }
}

TEST_F(Tls, ForceMakesAWarningOfANameThatIsNotCovered) {
  const auto foreign = MakeCertificate(dir_, "foreign", "DNS:example.net");
  EXPECT_THAT(Set(foreign, true), ElementsAre("the certificate does not cover example.org"));
  EXPECT_EQ(1u, calls_.made.size());
  const auto expired = MakeCertificate(dir_, "expired", "DNS:example.org", -9 * kDay, -kDay);
  EXPECT_EQ("value", ErrorOf([&] { Set(expired, true); }).type()) << "but not of anything else";
}

TEST_F(Tls, AKeyThatOthersCanReadIsWarnedOf) {
  const auto files = Make("good");
  ASSERT_EQ(0, ::chmod(files.key.c_str(), 0644));
  EXPECT_THAT(Set(files), ElementsAre(HasSubstr("is open to other users")));
}

TEST_F(Tls, AFailingBackendLeavesTheRow) {
  calls_.failing = "mail.SetSSLCertForDomain";
  EXPECT_EQ("email", ErrorOf([&] { Set(Make("good")); }).type());
  EXPECT_EQ("", brisq_panel::ShowDomain("example.org").cert);
}

TEST_F(Tls, WhatIsMissingIsSaid) {
  const auto files = Make("good");
  EXPECT_EQ("missed: domain: none.org",
            TextOf([&] { SetCertificate("none.org", files.cert, files.key, false); }));
  EXPECT_EQ("missed: certificate: example.org",
            TextOf([] { brisq_panel::UnsetCertificate("example.org"); }));
  mgr_cf::SetPath("dovecot-certconf", "");
  EXPECT_EQ("config", ErrorOf([&] { Set(files); }).type());
  brisq_panel::ForgetBackends();
  EXPECT_EQ("plugin", ErrorOf([&] { Set(files); }).type());
  EXPECT_EQ("plugin", ErrorOf([] { brisq_panel::UnsetCertificate("example.org"); }).type());
}

// A server that came up between would find a snippet that names missing files, and stay down.
TEST_F(Tls, AnUnsetCertificateIsPrunedBeforeTheRestart) {
  const RecordingAction check("dovecot.certs.check", calls_);
  const RecordingAction reload("dovecot.reload", calls_);
  Set(Make("good"));
  calls_.made.clear();
  brisq_panel::UnsetCertificate("example.org");
  EXPECT_THAT(calls_.made, ElementsAre("mail.OnUpdateDomain example.org", "dovecot.certs.check",
                                       "dovecot.reload on"));
  EXPECT_EQ("", brisq_panel::ShowDomain("example.org").cert);
  EXPECT_EQ("", brisq_panel::ShowDomain("example.org").key);
}

TEST_F(Tls, ADeletedDomainsSnippetIsPrunedToo) {
  const RecordingAction check("dovecot.certs.check", calls_);
  Set(Make("good"));
  brisq_panel::AddDomain("plain.org", "bob");
  calls_.made.clear();
  brisq_panel::DeleteDomain("plain.org");
  brisq_panel::DeleteDomain("example.org");
  EXPECT_THAT(calls_.made, ElementsAre("mail.OnDeleteDomain plain.org",
                                       "mail.OnDeleteDomain example.org", "dovecot.certs.check"));
}

TEST_F(Tls, AFailedUnsetLeavesTheCertificate) {
  const auto files = Make("good");
  Set(files);
  calls_.failing = "mail.OnUpdateDomain";
  EXPECT_EQ("email", ErrorOf([] { brisq_panel::UnsetCertificate("example.org"); }).type());
  EXPECT_EQ(files.cert, brisq_panel::ShowDomain("example.org").cert);
}

TEST_F(Tls, AListedCertificateIsDescribed) {
  EXPECT_THAT(brisq_panel::ListCertificates(), IsEmpty());
  const auto files = Make("good", 30 * kDay + 3600);
  Set(files);
  Install(files);
  const auto certificates = brisq_panel::ListCertificates();
  ASSERT_EQ(1u, certificates.size());
  const auto& info = certificates[0];
  EXPECT_EQ("example.org", info.domain);
  EXPECT_EQ(files.cert, info.cert);
  EXPECT_EQ(files.key, info.key);
  EXPECT_THAT(info.names, ElementsAre("example.org"));
  EXPECT_EQ(30, info.days_left);
  EXPECT_EQ(20u, info.expires.size());
  EXPECT_TRUE(info.key_matches);
  EXPECT_THAT(info.findings, IsEmpty());
}

TEST_F(Tls, WhatHasGoneWrongSinceIsFound) {
  const auto files = Make("good");
  Set(files);
  Install(files);
  const auto findings = [] { return brisq_panel::ListCertificates().at(0).findings; };
  struct Case {
    const char* name;
    std::function<void()> spoil;
    const char* finding;
  };
  const auto expired = MakeCertificate(dir_, "expired", "DNS:example.org", -9 * kDay, -kDay);
  const auto foreign = MakeCertificate(dir_, "foreign", "DNS:example.net");
  const auto put = [&](const CertificateFiles& from) {
    fs::copy_file(from.cert, files.cert, fs::copy_options::overwrite_existing);
    fs::copy_file(from.key, files.key, fs::copy_options::overwrite_existing);
  };
  const CertificateFiles kept = {dir_ / "kept.crt", dir_ / "kept.key"};
  fs::copy_file(files.cert, kept.cert);
  fs::copy_file(files.key, kept.key);
  const Case cases[] = {
      {"expired", [&] { put(expired); }, "has expired"},
      {"for somebody else", [&] { put(foreign); }, "does not cover example.org"},
      {"another key",
       [&] {
         put({kept.cert, foreign.key});
       },
       "the key does not belong to the certificate"},
      {"key open to others", [&] { ::chmod(files.key.c_str(), 0644); },
       "the key file is open to other users"},
      {"certificate gone", [&] { fs::remove(files.cert); }, "certificate: "},
      {"key gone", [&] { fs::remove(files.key); }, "key: "},
      {"link gone", [&] { fs::remove(dir_ / "ssl/example.org.crt"); }, "is no link"},
      {"snippet gone", [&] { fs::remove(dir_ / "conf/example.org.conf"); }, "is missing"},
      {"paths not set", [&] { mgr_cf::SetPath("dovecot-certconf", ""); }, "dovecot-certconf"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    put(kept);
    ASSERT_EQ(0, ::chmod(files.key.c_str(), 0600));
    EXPECT_THAT(findings(), IsEmpty());
    c.spoil();
    EXPECT_THAT(findings(), testing::Contains(HasSubstr(c.finding)));
    mgr_cf::SetPath("dovecot-certconf", dir_ / "conf");
    fs::remove(dir_ / "ssl/example.org.crt");
    fs::remove(dir_ / "ssl/example.org.key");
    Install(files);
  }
}

TEST_F(Tls, PrunedSnippetsAreNamedWithTheReason) {
  const auto files = Make("good");
  Install(files);
  dir_.Write("conf/gone.org.conf",
             "local_name gone.org {\n\tssl_cert = </no/gone.crt\n"
             "\tssl_key = </no/gone.key\n}\n");
  dir_.Write("conf/notes.txt", "");
  const RecordingAction check("dovecot.certs.check", calls_);
  calls_.effects["dovecot.certs.check"] = [&] { fs::remove(dir_ / "conf/gone.org.conf"); };
  const auto pruned = brisq_panel::PruneSnippets();
  ASSERT_EQ(1u, pruned.size());
  EXPECT_EQ(dir_ / "conf/gone.org.conf", pruned[0].file);
  EXPECT_EQ("/no/gone.crt is missing", pruned[0].reason);
}

TEST_F(Tls, WithoutTheActionNothingIsPruned) {
  EXPECT_EQ("missed", ErrorOf([] { brisq_panel::PruneSnippets(); }).type());
  mgr_cf::SetPath("dovecot-certconf", "");
  EXPECT_EQ("config", ErrorOf([] { brisq_panel::PruneSnippets(); }).type());
}

TEST_F(Tls, OneCertificateIsWarnedOf21And7And1DaysBeforeItsEndAndAfterIt) {
  Set(Make("stages", 30 * kDay));
  const std::time_t end = std::time(nullptr) + 30 * kDay;
  struct Case {
    const char* name;
    long left;
    const char* warning;  // empty for none
  };
  const Case cases[] = {
      {"22 days", 22 * kDay, ""},
      {"a little more than 21 days", 21 * kDay + 300, ""},
      {"21 days", 21 * kDay - 300, "expires on "},
      {"20 days", 20 * kDay, ""},
      {"a little more than 7 days", 7 * kDay + 300, ""},
      {"7 days", 7 * kDay - 300, "expires on "},
      {"a little more than a day", kDay + 300, ""},
      {"a day", kDay - 300, "expires on "},
      {"minutes", 300, ""},
      {"past", -300, "has expired on "},
      {"long past", -40 * kDay, ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const auto warnings = brisq_panel::ExpiryWarnings(end - c.left);
    if (*c.warning == '\0') {
      EXPECT_THAT(warnings, IsEmpty());
    } else {
      EXPECT_THAT(warnings, ElementsAre(HasSubstr(c.warning)));
    }
  }
}

TEST_F(Tls, EachStageOfExpiryIsToldOnce) {
  const auto warnings = [this](long end) {
    static int number = 0;
    const auto files = Make("c" + std::to_string(++number), end);
    Set(files);
    const auto first = brisq_panel::ExpiryWarnings();
    EXPECT_THAT(brisq_panel::ExpiryWarnings(), IsEmpty()) << "told already";
    return first;
  };
  EXPECT_THAT(warnings(22 * kDay), IsEmpty());
  for (const long days : {20L, 6L}) {
    EXPECT_THAT(warnings(days * kDay),
                ElementsAre(HasSubstr("The certificate of example.org expires on ")));
  }
  EXPECT_THAT(warnings(3600), ElementsAre(HasSubstr("expires on ")));
  const auto files = Make("last");
  Set(files);
  const auto expired = MakeCertificate(dir_, "expired", "DNS:example.org", -9 * kDay, -kDay);
  fs::copy_file(expired.cert, files.cert, fs::copy_options::overwrite_existing);
  EXPECT_THAT(brisq_panel::ExpiryWarnings(), ElementsAre(HasSubstr("has expired on ")));
  EXPECT_THAT(brisq_panel::ExpiryWarnings(), IsEmpty());
}

}  // namespace
