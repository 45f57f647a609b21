#include "email/certificates.h"

#include "mgr_err.h"
#include "tests/unit/email/plugin_fixture.h"

using brisqpriv_email_dovecot::ActionDovecotCertsCheck;
using recording::BackEnd;
using recording::Calls;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class Certificate : public recording::PluginTest {
 protected:
  Certificate() : back_end_(NewBackEnd()) {
    host.paths["dovecot-certconf"] = "/conf";
    host.paths["dovecot-ssl-certs"] = "/links";
    host.existing = {"/conf"};
    host.ForgetCalls();
  }

  void Set(const std::string& domain, const std::string& cert = "/c",
           const std::string& key = "/k") {
    (*back_end_)->SetSSLCertForDomain(domain, cert, key);
  }

  /// Content of the snippet that the only file job would write.
  std::string Snippet() {
    const Calls jobs = host.Calls("job CreateFile");
    return jobs.size() == 1 ? jobs[0].substr(jobs[0].find('\n') + 1) : "(no single snippet)";
  }

  /// What the request does when it ends well.
  void Commit() {
    for (mgr_job::Job* job : std::vector<mgr_job::Job*>(host.jobs)) job->Do();
  }

  std::unique_ptr<BackEnd> back_end_;
};

const char* const kNamed =
    "local_name mail.example.org {\n"
    "\tssl_cert = </links/link-of-mail.example.org.crt\n"
    "\tssl_key = </links/link-of-mail.example.org.key\n"
    "}\n";

TEST_F(Certificate, LinksBothFilesThenQueuesTheSnippetAndTheRestart) {
  Set("mail.example.org");
  EXPECT_THAT(
      host.Calls(),
      ElementsAre("GetPath dovecot-certconf", "GetPath dovecot-ssl-certs",
                  "CreateSymbLink mail.example.org /links '/c' .crt", "GetPath dovecot-ssl-certs",
                  "CreateSymbLink mail.example.org /links '/k' .key", "Exists /conf",
                  "ConcatPath /conf mail.example.org.conf",
                  std::string("job CreateFile /conf/mail.example.org.conf 0600 0:0\n") + kNamed,
                  "job CallOnCommit dovecot.reload 'hard=on'"));
}

TEST_F(Certificate, TheKeywordFollowsTheKindOfDomain) {
  const struct {
    const char* domain;
    const char* first_line;
  } cases[] = {
      {"mail.example.org", "local_name mail.example.org {"},
      {"192.0.2.10", "local 192.0.2.10 {"},
      {"2001:db8::1", "local 2001:db8::1 {"},
      // The name stays as it was passed, whatever the test of addresses makes of its copy.
      {"2001:DB8:0:0::1", "local 2001:DB8:0:0::1 {"},
      {"192.0.2.256", "local_name 192.0.2.256 {"},
      {"192.0.2.10.example.org", "local_name 192.0.2.10.example.org {"},
      {"", "local_name  {"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.domain);
    host.ForgetCalls();
    Set(c.domain);
    const std::string snippet = Snippet();
    EXPECT_EQ(c.first_line, snippet.substr(0, snippet.find('\n')));
    EXPECT_THAT(host.Calls("ConcatPath"),
                ElementsAre(std::string("ConcatPath /conf ") + c.domain + ".conf"));
  }
}

TEST_F(Certificate, EveryByteOfASnippetIsAsDovecotReadsIt) {
  Set("mail.example.org");
  EXPECT_EQ(kNamed, Snippet());
}

TEST_F(Certificate, AMissingSnippetDirectoryIsMadeBeforeTheFileJob) {
  host.existing.clear();
  Set("mail.example.org");
  const Calls calls = host.Calls();
  EXPECT_EQ("Exists /conf", calls.at(5));
  EXPECT_EQ("MkDir /conf 0600 0:0", calls.at(6));
  EXPECT_EQ("ConcatPath /conf mail.example.org.conf", calls.at(7));
}

TEST_F(Certificate, AnExistingSnippetDirectoryIsNotTouched) {
  Set("mail.example.org");
  EXPECT_THAT(host.Calls("MkDir"), IsEmpty());
}

TEST_F(Certificate, EmptyPathsArePassedOnAsTheyAre) {
  Set("mail.example.org", "", "");
  EXPECT_THAT(host.Calls("CreateSymbLink"),
              ElementsAre("CreateSymbLink mail.example.org /links '' .crt",
                          "CreateSymbLink mail.example.org /links '' .key"));
  EXPECT_EQ(kNamed, Snippet());
}

TEST_F(Certificate, ASecondCallInOneTransactionReplacesTheContentAndAsksForItsOwnRestart) {
  Set("mail.example.org");
  host.paths["dovecot-ssl-certs"] = "/others";
  Set("mail.example.org");
  EXPECT_EQ(4U, host.jobs.size());
  host.ForgetCalls();
  Commit();
  EXPECT_NE(std::string::npos, host.files["/conf/mail.example.org.conf"].find("/others/link"));
  EXPECT_THAT(host.Calls(), ElementsAre("InternalCall dovecot.reload 'hard=on'",
                                        "InternalCall dovecot.reload 'hard=on'"));
}

TEST_F(Certificate, WithoutACommitNothingIsWrittenAndNoRestartCalled) {
  host.existing.clear();
  Set("mail.example.org");
  EXPECT_THAT(host.files, IsEmpty());
  EXPECT_THAT(host.Calls("InternalCall"), IsEmpty());
  EXPECT_THAT(host.Calls("MkDir"), ElementsAre("MkDir /conf 0600 0:0")) << "it stays";
}

TEST_F(Certificate, AnExceptionAtEachStepPassesOn) {
  host.existing.clear();
  Set("mail.example.org");
  const Calls steps = host.Calls();
  for (std::size_t step = 0; step < steps.size(); ++step) {
    SCOPED_TRACE(steps[step]);
    for (mgr_job::Job* job : std::vector<mgr_job::Job*>(host.jobs)) delete job;
    host.ForgetCalls();
    host.fail_at = static_cast<int>(step);
    EXPECT_THROW(Set("mail.example.org"), mgr_err::Error);
    EXPECT_EQ(Calls(steps.begin(), steps.begin() + static_cast<std::ptrdiff_t>(step) + 1),
              host.Calls());
    EXPECT_EQ(step + 1 == steps.size() ? 1U : 0U, host.jobs.size());
  }
}

TEST_F(Certificate, CleanUpIsHandedToTheHostAndNothingElseDone) {
  auto domain = std::make_shared<brisq_db::EmailDomainTable>();
  domain->name.SetStored("x.org");
  (*back_end_)->OnUpdateDomain(domain);
  (*back_end_)->OnDeleteDomain(domain);
  EXPECT_THAT(host.Calls(), ElementsAre("CleenUpCerts x.org update dovecot",
                                        "CleenUpCerts x.org delete dovecot"));
}

/// The action over the directory "/conf".
class CertsCheck : public recording::PluginTest {
 protected:
  CertsCheck() {
    host.paths["dovecot-certconf"] = "/conf";
    host.existing = {"/there.crt", "/there.key"};
  }

  void Add(const std::string& name, const std::string& content) {
    host.entries.push_back(name);
    host.files["/conf/" + name] = content;
  }
  void AddSnippet(const std::string& name, const std::string& cert, const std::string& key) {
    Add(name, "local_name x {\n\tssl_cert = <" + cert + "\n\tssl_key = <" + key + "\n}\n");
  }

  void Run() {
    host.ForgetCalls();
    brisq_api::Session session;
    action_.Execute(session);
    EXPECT_EQ("", session.Answer());
  }

  Calls Removed() { return host.Calls("RemoveFile"); }

  static std::string Message(const std::string& path) {
    return "log 4: Remove config " + path + " because it includes a cert file that does not exist";
  }

  ActionDovecotCertsCheck action_;
};

TEST_F(CertsCheck, IsForTheAdministratorAlone) {
  EXPECT_EQ("dovecot.certs.check", action_.name());
  EXPECT_EQ(0xE0000000U, action_.access());
}

TEST_F(CertsCheck, AnEmptyDirectoryIsReadToItsEnd) {
  Run();
  EXPECT_THAT(host.Calls(), ElementsAre("GetPath dovecot-certconf", "Dir /conf", "Read", "~Dir"));
}

TEST_F(CertsCheck, OtherExtensionsAreIgnored) {
  for (const char* name : {"x.conf.bak", "x.bak", "conf", "x.CONF", "x.conf~", "README"}) {
    AddSnippet(name, "/gone", "/gone");
  }
  Run();
  EXPECT_THAT(host.Calls("ReadE"), IsEmpty());
  EXPECT_THAT(Removed(), IsEmpty());
}

TEST_F(CertsCheck, ChecksEachSnippetsTwoFilesAndRemovesOneThatDangles) {
  AddSnippet("a.conf", "/there.crt", "/there.key");
  AddSnippet("b.conf", "/gone.crt", "/there.key");
  AddSnippet("c.conf", "/there.crt", "/gone.key");
  Run();
  EXPECT_THAT(host.Calls(),
              ElementsAre("GetPath dovecot-certconf", "Dir /conf",  //
                          "Read", "ReadE /conf/a.conf", "Info /there.crt 2", "Info /there.key 2",
                          "Read", "ReadE /conf/b.conf", "Info /gone.crt 2",    //
                          Message("/conf/b.conf"), "RemoveFile /conf/b.conf",  //
                          "Read", "ReadE /conf/c.conf", "Info /there.crt 2", "Info /gone.key 2",
                          Message("/conf/c.conf"), "RemoveFile /conf/c.conf",  //
                          "Read", "~Dir"));
}

TEST_F(CertsCheck, KeepsAndRemovesByWhatTheTwoLinesSay) {
  const struct {
    const char* name;
    std::string content;
    bool removed;
  } cases[] = {
      {"both there", "x {\n\tssl_cert = </there.crt\n\tssl_key = </there.key\n}\n", false},
      {"certificate gone", "x {\n\tssl_cert = </gone\n\tssl_key = </there.key\n}\n", true},
      {"key gone", "x {\n\tssl_cert = </there.crt\n\tssl_key = </gone\n}\n", true},
      {"empty certificate path, key there", "x {\n\tssl_cert = <\n\tssl_key = </there.key\n}\n",
       false},
      {"empty certificate path, key gone", "x {\n\tssl_cert = <\n\tssl_key = </gone\n}\n", true},
      {"both paths empty", "x {\n\tssl_cert = <\n\tssl_key = <\n}\n", false},
      {"neither prefix", "x {\nssl_cert = </gone\nssl_key = </gone\n}\n", false},
      {"blanks instead of a tab", "x {\n  ssl_cert = </gone\n  ssl_key = </gone\n}\n", false},
      {"lines swapped", "x {\n\tssl_key = </gone\n\tssl_cert = </gone\n}\n", false},
      {"certificate on the first line", "\tssl_cert = </gone\nx {\n}\n", false},
      {"a line too many in front", "#\nx {\n\tssl_cert = </gone\n\tssl_key = </gone\n}\n", false},
      {"the third line is read as the key only", "#\nx {\n\tssl_key = </gone\n}\n", true},
      {"only the text after the last separator counts",
       "x {\n\tssl_cert = </a = </there.crt\n\tssl_key = </there.key\n}\n", false},
      {"and when that tail is gone the snippet goes",
       "x {\n\tssl_cert = </there.crt = </gone\n\tssl_key = </there.key\n}\n", true},
      {"an empty file", "", false},
      {"one line without an end", "x {", false},
      {"no final line feed", "x {\n\tssl_cert = </there.crt\n\tssl_key = </gone", true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    host.entries.clear();
    Add("x.conf", c.content);
    Run();
    EXPECT_EQ(c.removed ? Calls{"RemoveFile /conf/x.conf"} : Calls{}, Removed());
    EXPECT_EQ(c.removed ? Calls{Message("/conf/x.conf")} : Calls{}, host.Calls("log"));
  }
}

TEST_F(CertsCheck, AnEmptyPathIsNeverLookedUp) {
  Add("x.conf", "x {\n\tssl_cert = <\n\tssl_key = <\n}\n");
  Run();
  EXPECT_THAT(host.Calls("Info"), IsEmpty());
}

TEST_F(CertsCheck, BelowLevelFourRemovesWithoutSayingSo) {
  host.log_level = 3;
  AddSnippet("b.conf", "/gone", "/gone");
  Run();
  EXPECT_THAT(host.Calls("log"), IsEmpty());
  EXPECT_EQ(1U, Removed().size());
}

TEST_F(CertsCheck, AsksForNoReload) {
  AddSnippet("b.conf", "/gone", "/gone");
  Run();
  EXPECT_THAT(host.Calls("InternalCall"), IsEmpty());
  EXPECT_THAT(host.Calls("ExecuteLater"), IsEmpty());
  EXPECT_THAT(host.jobs, IsEmpty());
}

TEST_F(CertsCheck, AnUnreadableSnippetEndsTheRunAndTheRestWaits) {
  AddSnippet("a.conf", "/gone", "/gone");
  host.entries.push_back("b.conf");
  AddSnippet("c.conf", "/gone", "/gone");
  EXPECT_THROW(Run(), mgr_err::Error);
  EXPECT_THAT(Removed(), ElementsAre("RemoveFile /conf/a.conf"));
  EXPECT_EQ("~Dir", host.Calls().back()) << "the directory is closed";
}

TEST_F(CertsCheck, AFailedRemovalDoesNotStopTheRun) {
  AddSnippet("a.conf", "/gone", "/gone");
  AddSnippet("b.conf", "/gone", "/gone");
  host.removals_fail = true;
  Run();
  EXPECT_EQ(2U, Removed().size());
  EXPECT_EQ(2U, host.files.size());
}

}  // namespace
