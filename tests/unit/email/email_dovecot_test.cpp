#include "email/email_dovecot.h"

#include "mgr_err.h"
#include "tests/unit/email/plugin_fixture.h"

using recording::Calls;
using recording::DovecotInterface;
using recording::Outcome;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

namespace {

/// Start-up of the module in a host that asks for Dovecot.
class StartUp : public recording::PluginTest {
 public:
  ~StartUp() override {
    Clear();
    recording::Storage::Watch({});
  }

 protected:
  StartUp() {
    recording::Storage::Watch(
        {kModuleSize, sizeof(DovecotInterface), sizeof(DovecotInterface::DovPwdInterface)});
    Prepare();
  }

  void Prepare(const std::string& email_auth = "") {
    host.params = {{"POP3", "dovecot"}, {"EmailAuth", email_auth}};
    host.tool = [](const std::string&, const std::string&) {
      return Outcome{"PLAIN CRAM-MD5 SHA512-CRYPT \n"};
    };
  }

  void Clear() {
    module_.reset();
    delete host.pop3;
    // Found by its storage: a start-up that fails late leaves no other way to it.
    for (void* passwords : Passwords()) {
      delete static_cast<DovecotInterface::DovPwdInterface*>(passwords);
    }
    host.Reset();
  }

  static constexpr std::size_t kModuleSize = sizeof(brisq_api::Module);
  static std::vector<void*> Mailboxes() {
    return recording::Storage::Live(sizeof(DovecotInterface));
  }
  static std::vector<void*> Passwords() {
    return recording::Storage::Live(sizeof(DovecotInterface::DovPwdInterface));
  }

  void Start() { module_.reset(host.constructor()); }

  std::unique_ptr<brisq_api::Module> module_;
};

const Calls kUntilModuleInterface = {
    "Module email_pop3",
    "GetParam POP3",
    "SetPathDefault dovecot-passwd=/etc/dovecot/dovecot.passwd",
    "SetPathDefault dovecot-doveadm=/usr/bin/doveadm",
    "SetPathDefault dovecot-restart=service dovecot restart",
    "AddParam DovecotPwScheme=",
    "GetPath dovecot-passwd",
    "GetPath dovecot-doveadm",
    "GetParam EmailAuth",
    "GetPath dovecot-passwd",
    "GetPath dovecot-doveadm",
    "GetParam DovecotPwScheme",
    "Execute 2 '/usr/bin/doveadm pw -l'",
    "Str",
    "Result",
    "~Execute",
    "log 4: Specified DovecotPwScheme  isn't supported by dovecot.",
    "ModuleInterface mail dovecot",
};

const Calls kActions = {
    "GetPath dovecot-doveadm",
    "GetPath dovecot-restart",
    "Action dovecot.reload 0x00000000 without parent",
    "Reloader 'email.reload' 'dovecot.reload' 'EmailReloadDelay' '/usr/bin/doveadm reload' "
    "'service dovecot restart'",
    "Action dovecot.certs.check 0xE0000000 without parent",
    "AddParam DovecotCheckPeriod=5",
    "RegisterAction dovecot.certs.check '' DovecotCheckPeriod",
};

const Calls kRegistered = {"RegisterPop3", "GetParam EmailAuth", "RegisterPwdInterface"};
const Calls kUnregistered = {"RegisterPop3", "GetParam EmailAuth"};

TEST_F(StartUp, LoadingMakesTheLogChannelAndThenRegistersTheFactory) {
  EXPECT_THAT(host.CallsAtLoad(),
              ElementsAre("log channel email dormel", "Register email_interface"));
}

TEST_F(StartUp, WiresEverythingInOrderWhenDovecotKeepsThePasswords) {
  host.params["EmailAuth"] = "dovecot";
  Start();
  EXPECT_THAT(host.Calls(), ElementsAreArray(Join({kUntilModuleInterface, kRegistered, kActions})));
  EXPECT_NE(nullptr, host.pop3);
  EXPECT_EQ(static_cast<DovecotInterface*>(host.pop3)->PasswordBackEnd(), host.passwords);
}

TEST_F(StartUp, LeavesThePasswordBackEndUnregisteredWhenDovecotDoesNotKeepThePasswords) {
  for (const char* email_auth : {"", "panel", "Dovecot", "dovecot "}) {
    SCOPED_TRACE(email_auth);
    Prepare(email_auth);
    Start();
    EXPECT_THAT(host.Calls(),
                ElementsAreArray(Join({kUntilModuleInterface, kUnregistered, kActions})));
    EXPECT_EQ(nullptr, host.passwords);
    EXPECT_NE(nullptr, static_cast<DovecotInterface*>(host.pop3)->PasswordBackEnd());
    Clear();
  }
}

TEST_F(StartUp, AnUnregisteredPasswordBackEndHasItsScheme) {
  Start();
  host.ForgetCalls();
  static_cast<DovecotInterface*>(host.pop3)->PasswordBackEnd()->CryptPw("a@b", "secret");
  EXPECT_EQ("Execute 3 '/usr/bin/doveadm pw -s CRAM-MD5 -u a@b'", host.Calls().front());
}

TEST_F(StartUp, StaysInertUnlessTheParameterIsExactlyDovecot) {
  for (const char* pop3 : {"", "Dovecot", "dovecot ", " dovecot", "dovecot2", "courier"}) {
    SCOPED_TRACE(pop3);
    host.ForgetCalls();
    host.params["POP3"] = pop3;
    Start();
    EXPECT_THAT(host.Calls("Module"), ElementsAre("Module email_pop3"));
    EXPECT_THAT(host.Calls("~Module"), IsEmpty()) << "the module stays registered";
    EXPECT_EQ("GetParam POP3", host.Calls().back());
    EXPECT_EQ(2U, host.Calls().size());
    EXPECT_THAT(host.paths, IsEmpty());
    EXPECT_THAT(host.actions, IsEmpty());
    module_.reset();
  }
}

TEST_F(StartUp, StaysInertWhenTheParameterIsUnset) {
  host.params.clear();
  Start();
  EXPECT_THAT(host.Calls(), ElementsAre("Module email_pop3", "GetParam POP3"));
  EXPECT_EQ(0U, host.paths.count("dovecot-passwd"));
}

TEST_F(StartUp, TheModuleUndoesNothingWhenItIsDestroyed) {
  Start();
  host.ForgetCalls();
  module_.reset();
  EXPECT_THAT(host.Calls(), ElementsAre("~Module email_pop3"));
  EXPECT_EQ(2U, host.actions.size());
  EXPECT_EQ(1U, Mailboxes().size());
}

TEST_F(StartUp, TheCheckPeriodIsFiveWhenTheConfigurationHasNone) {
  Start();
  EXPECT_EQ("5", host.params["DovecotCheckPeriod"]);
}

TEST_F(StartUp, TheReloadCommandIsBuiltFromAnEmptyPathToo) {
  host.paths["dovecot-doveadm"] = "";
  Start();
  EXPECT_THAT(host.Calls("Reloader"),
              ElementsAre("Reloader 'email.reload' 'dovecot.reload' 'EmailReloadDelay' ' reload' "
                          "'service dovecot restart'"));
}

TEST_F(StartUp, AFailingDoveadmDoesNotStopIt) {
  host.tool = [](const std::string&, const std::string&) { return Outcome{"broken", 89}; };
  Start();
  EXPECT_EQ(kActions.back(), host.Calls().back());
}

/// What the start-up leaves alive when it fails at one of its calls.
struct Remains {
  const char* name;
  const char* first;  ///< first call of this stretch of the sequence
  std::size_t mailboxes, passwords;
  Calls destroyed;
};

// In the order of the sequence; each row counts until the next one's first call.
const std::vector<Remains> kRemains = {
    {"the base", "Module email_pop3", 0, 0, {}},
    {"before the back-ends", "GetParam POP3", 0, 0, {"~Module email_pop3"}},
    {"in the mailbox back-end",
     "GetPath dovecot-passwd",
     0,
     0,
     {"~Pop3Interface", "~Module email_pop3"}},
    {"in the password back-end",
     "GetPath dovecot-passwd",
     0,
     0,
     {"~PasswdInterface", "~Pop3Interface", "~Module email_pop3"}},
    {"the mailbox back-end's last act",
     "ModuleInterface mail dovecot",
     0,
     1,
     {"~Pop3Interface", "~Module email_pop3"}},
    {"with both back-ends", "RegisterPop3", 1, 1, {"~Module email_pop3"}},
};

Calls Destroyed(const Calls& calls) {
  Calls destroyed;
  for (const std::string& call : calls) {
    if (call.starts_with("~") && call != "~Execute") destroyed.push_back(call);
  }
  return destroyed;
}

/// The calls of a start-up that can fail, in their order.
Calls FallibleSteps() {
  Calls steps = kUntilModuleInterface;
  steps.insert(steps.end(), kRegistered.begin(), kRegistered.end());
  steps.insert(steps.end(), kActions.begin(), kActions.end());
  std::erase_if(steps, [](const std::string& c) { return c[0] == '~' || c.starts_with("log"); });
  return steps;
}

// One start-up for each step; the row of kRemains moves on with the steps.
class StartUpFailingAt : public StartUp, public testing::WithParamInterface<int> {
 protected:
  static const Remains& Expected(const Calls& steps, int failing) {
    std::size_t row = 0;
    for (int step = 0; step <= failing; ++step) {
      const bool more = row + 1 < kRemains.size();
      if (more && steps.at(static_cast<std::size_t>(step)) == kRemains[row + 1].first) ++row;
    }
    return kRemains[row];
  }
};

TEST_P(StartUpFailingAt, AnyStepFreesWhatItMustAndKeepsWhatIsRegistered) {
  const Calls steps = FallibleSteps();
  host.params["EmailAuth"] = "dovecot";
  host.fail_at = GetParam();
  const Remains& expected = Expected(steps, GetParam());
  SCOPED_TRACE(std::string(expected.name) + ": " + steps.at(static_cast<std::size_t>(GetParam())));
  try {
    Start();
    FAIL() << "started";
  } catch (const mgr_err::Error& error) {
    EXPECT_EQ(steps.at(static_cast<std::size_t>(GetParam())), error.value());
  }
  EXPECT_EQ(expected.destroyed, Destroyed(host.Calls()));
  EXPECT_TRUE(recording::Storage::WasFreed(host.module)) << "the factory frees the module";
  EXPECT_EQ(expected.mailboxes, Mailboxes().size());
  EXPECT_EQ(expected.passwords, Passwords().size());
  Calls done = host.Calls();
  std::erase_if(done, [](const std::string& c) { return c[0] == '~' || c.starts_with("log"); });
  EXPECT_THAT(done, ElementsAreArray(steps.begin(), steps.begin() + GetParam() + 1));
}

INSTANTIATE_TEST_SUITE_P(Steps, StartUpFailingAt,
                         testing::Range(0, static_cast<int>(FallibleSteps().size())));

TEST_F(StartUp, ActionsMadeBeforeAFailureStay) {
  host.params["EmailAuth"] = "dovecot";
  host.fail_at = static_cast<int>(FallibleSteps().size()) - 1;
  EXPECT_THROW(Start(), mgr_err::Error);
  ASSERT_EQ(2U, host.actions.size());
  EXPECT_EQ("dovecot.reload", host.actions[0]->name());
  EXPECT_EQ("dovecot.certs.check", host.actions[1]->name());
  EXPECT_EQ(0xE0000000U, host.actions[1]->access());
}

TEST_F(StartUp, DebugMessagesNameTheFrontDoor) {
  EXPECT_EQ("email_dovecot", brisqpriv_email_dovecot::DebugSource());
}

}  // namespace
