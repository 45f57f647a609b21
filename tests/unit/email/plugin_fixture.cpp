#include "tests/unit/email/plugin_fixture.h"

#include <fstream>
#include <typeinfo>

#include "email/passwd_file.h"
#include "tests/support/places.h"

using brisqpriv_email_dovecot::DovPasswd;
using brisqpriv_email_dovecot::DovPasswdConfig;

namespace recording {

BackEnd::~BackEnd() { delete mailboxes_->PasswordBackEnd(); }

PluginTest::PluginTest() {
  host.Reset();
  DovPasswdConfig::Get<DovPasswd>("/p", true);
  host.ForgetCalls();
}

PluginTest::~PluginTest() {
  EXPECT_THAT(host.Calls("UNGUARDED"), testing::IsEmpty());
  EXPECT_EQ(0, host.tables_out) << "table objects that were not given back";
  EXPECT_EQ(0, host.cursors_out) << "cursors that were not released";
  host.Reset();
}

Calls PluginTest::Opening() {
  return {std::string("Config ") + typeid(DovPasswdConfig).name() + " /p true",
          std::string("_Get ") + typeid(DovPasswd).name()};
}

Calls PluginTest::Hashing(const std::string& name) {
  return {"Execute 3 '/d pw -s CRAM-MD5 -u " + name + "'", "In", "Result", "Str", "~Execute"};
}

Calls PluginTest::Join(const std::vector<Calls>& parts) {
  Calls joined;
  for (const Calls& part : parts) joined.insert(joined.end(), part.begin(), part.end());
  return joined;
}

std::unique_ptr<BackEnd> PluginTest::NewBackEnd(const std::string& email_auth) {
  host.paths = {{"dovecot-passwd", "/p"}, {"dovecot-doveadm", "/d"}};
  host.params["EmailAuth"] = email_auth;
  host.tool = [](const std::string&, const std::string&) { return Outcome{"PLAIN CRAM-MD5 \n"}; };
  auto made = std::make_unique<BackEnd>();
  host.runs.clear();
  host.ForgetCalls();
  return made;
}

bool IsLoggedAt(const std::string& message, const std::string& source, const std::string& text) {
  const std::string prefix = "log 9: email_dovecot:";
  if (!message.starts_with(prefix)) return false;
  const int wanted = std::stoi(message.substr(prefix.size()));
  std::ifstream file(support::SourceFolder() + "/email/" + source);
  std::string before;
  std::string line;
  for (int number = 0; number < wanted && std::getline(file, line); ++number) {
    // The statement is at most three lines long.
    if (number + 3 <= wanted) before.clear();
    before += line;
  }
  return before.find(text) != std::string::npos;
}

}  // namespace recording
