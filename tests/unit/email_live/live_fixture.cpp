#include "tests/unit/email_live/live_fixture.h"

#include "framework/config_file.h"

namespace live {

LiveTest::LiveTest() {
  mgr_cf::SetPath("dovecot-passwd", file_);
  mgr_cf::SetPath("dovecot-doveadm", doveadm_.path());
}

LiveTest::~LiveTest() { mgr_cf::Reset(); }

std::vector<std::string> LiveTest::Messages() const {
  std::vector<std::string> messages;
  for (const support::LogLine& line : log_.Lines("dormel")) {
    if (line.module == "email") messages.push_back(line.Short());
  }
  return messages;
}

std::unique_ptr<Passwords> LiveTest::NewPasswords() {
  mgr_cf::SetParam("DovecotPwScheme", "CRAM-MD5");
  auto passwords = std::make_unique<Passwords>();
  log_.Clear();
  return passwords;
}

std::string ErrorOf(const std::function<void()>& work) {
  try {
    work();
    return "nothing";
  } catch (const mgr_err::Error& error) {
    return error.what();
  }
}

}  // namespace live
