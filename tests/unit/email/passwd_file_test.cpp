#include "email/passwd_file.h"

#include <algorithm>
#include <thread>
#include <typeinfo>

#include "mgr_err.h"
#include "tests/unit/email/plugin_fixture.h"

using brisqpriv_email_dovecot::DovPasswd;
using brisqpriv_email_dovecot::DovPasswdConfig;
using recording::Calls;
using recording::Host;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

namespace {

const std::string kConfig = typeid(DovPasswdConfig).name();
const std::string kDataSet = typeid(DovPasswd).name();

class PasswdFile : public recording::PluginTest {};

TEST_F(PasswdFile, DeclaresItsNineFieldsInColumnOrder) {
  host.follow_datasets = true;
  const auto line = DovPasswdConfig::Get<DovPasswd>("/p", true);
  EXPECT_THAT(
      host.Calls(),
      ElementsAreArray(Join({Opening(),
                             {"ConfDataSet without parent", "Field name", "Field passwd",
                              "Field uid checked", "Field gid checked", "Field info", "Field home",
                              "Field shell", "Field flags", "Field maildir"}})));
  const dd::Field* const fields[] = {&line->name,  &line->passwd, &line->uid,
                                     &line->gid,   &line->info,   &line->home,
                                     &line->shell, &line->flags,  &line->maildir};
  unsigned long column = 0;
  for (const dd::Field* field : fields) EXPECT_EQ(++column, field->Column()) << field->Name();
}

TEST_F(PasswdFile, AnExceptionAtEachStepOfItsConstructionLeavesNothing) {
  recording::Storage::Watch({sizeof(DovPasswd)});
  host.follow_datasets = true;
  for (int step = 0; step < 12; ++step) {
    SCOPED_TRACE(step);
    host.ForgetCalls();
    host.fail_at = step;
    EXPECT_THROW(DovPasswdConfig::Get<DovPasswd>("/p", true), mgr_err::Error);
    EXPECT_EQ(0, host.cursors_out);
    EXPECT_THAT(recording::Storage::Live(sizeof(DovPasswd)), IsEmpty());
  }
  host.ForgetCalls();
  host.fail_at = 12;
  EXPECT_NO_THROW(DovPasswdConfig::Get<DovPasswd>("/p", true)) << "there are twelve steps";
  recording::Storage::Watch({});
}

TEST_F(PasswdFile, UidAndGidAreTrimmedAndMustBeNumeric) {
  const struct {
    const char* name;
    const char* value;
    const char* stored;  // null: refused
  } cases[] = {
      {"digits", "1000", "1000"},
      {"blanks around digits", " \t1000\n", "1000"},
      {"zero", "0", "0"},
      {"a letter among digits", "10a0", nullptr},
      {"a blank among digits", "10 00", nullptr},
      {"a sign", "-1", nullptr},
      {"empty", "", nullptr},
      {"blanks only", "  ", nullptr},
  };
  const auto line = DovPasswdConfig::Get<DovPasswd>("/p", true);
  line->New();
  for (const auto& c : cases) {
    for (dd::Field* field : {&line->uid, &line->gid}) {
      SCOPED_TRACE(std::string(c.name) + " as " + field->Name());
      field->Set("7");
      if (c.stored) {
        field->Set(c.value);
        EXPECT_EQ(c.stored, field->Str());
      } else {
        EXPECT_THROW(field->Set(c.value), mgr_err::Error);
        EXPECT_EQ("7", field->Str());
      }
    }
  }
}

TEST_F(PasswdFile, OtherFieldsTakeAnyValueAsItIs) {
  const auto line = DovPasswdConfig::Get<DovPasswd>("/p", true);
  line->New();
  for (dd::Field* field : {&line->name, &line->passwd, &line->info, &line->home, &line->shell,
                           &line->flags, &line->maildir}) {
    field->Set("  any value ");
    EXPECT_EQ("  any value ", field->Str()) << field->Name();
  }
}

TEST_F(PasswdFile, KeepsTheFrameworksRecordSetName) {
  EXPECT_EQ("unknown", (DovPasswdConfig::Get<DovPasswd>("/p", true)->RsName()));
}

TEST_F(PasswdFile, ACursorKeepsItsDatasetAliveAndCopiesShareIt) {
  auto cursor = DovPasswdConfig::Get<DovPasswd>("/p", true);
  auto copy = cursor;
  EXPECT_EQ(cursor.get(), copy.get());
  cursor = {};
  EXPECT_EQ(1, host.cursors_out);
  copy = {};
  EXPECT_EQ(0, host.cursors_out);
}

TEST_F(PasswdFile, TheFlagAndThePathAreHandedOnUnchanged) {
  DovPasswdConfig::Get<DovPasswd>("/another", false);
  EXPECT_THAT(host.Calls(),
              ElementsAre("Config " + kConfig + " /another false", "_Get " + kDataSet));
}

/// After a save, with the reason that the cache gives.
class AfterSave : public PasswdFile {
 protected:
  Calls Saving(int reason) {
    host.save_reason = reason;
    const auto line = DovPasswdConfig::Get<DovPasswd>("/p", true);
    line->New();
    host.ForgetCalls();
    line->Post("");
    return host.Calls();
  }
};

TEST_F(AfterSave, AsksForAReloadAndSaysSoAtLevelNine) {
  host.log_level = 9;
  EXPECT_THAT(Saving(0),
              ElementsAre("Post line ''", "log 9: email_dovecot:64 reload dovecot config",
                          "InternalCall dovecot.reload ''"));
}

TEST_F(AfterSave, BelowLevelNineAsksWithoutSayingSo) {
  for (const int level : {0, 3, 4, 8}) {
    host.log_level = level;
    EXPECT_THAT(Saving(0), ElementsAre("Post line ''", "InternalCall dovecot.reload ''"));
  }
}

TEST_F(AfterSave, WithAnotherReasonDoesNothing) {
  host.log_level = 9;
  for (const int reason : {1, 2, 3, -1}) {
    SCOPED_TRACE(reason);
    EXPECT_THAT(Saving(reason), ElementsAre("Post line ''"));
  }
}

TEST_F(AfterSave, AFailingReloadRequestReachesThePost) {
  const auto line = DovPasswdConfig::Get<DovPasswd>("/p", true);
  line->New();
  host.ForgetCalls();
  host.fail_at = 1;
  EXPECT_THROW(line->Post(""), mgr_err::Error);
}

// The configuration is registered once in a process, so each of these has a process of its own.
class FirstUse : public testing::Test {
 protected:
  FirstUse() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

  /// Ends the child: with 0 when what it found is what it expected.
  [[noreturn]] static void End(const Calls& expected, const Calls& found) {
    if (expected == found) std::_Exit(0);
    for (const std::string& call : found) std::fprintf(stderr, "found: %s\n", call.c_str());
    std::_Exit(1);
  }

  static Calls Registration() {
    return {"UnixConfParams",
            "ConfCache 20",
            "UnixConfParams",  // the stand-in's own comparison
            "Register " + kConfig + " unix",
            "_AfterSave " + kConfig,
            "Add " + kConfig + " " + kDataSet + " " + kDataSet};
  }
  static Calls Opening() { return {"Config " + kConfig + " /p true", "_Get " + kDataSet}; }
  static Calls Join(Calls first, const Calls& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
  }
};

TEST_F(FirstUse, RegistersSyntaxHookAndDatasetInOrder) {
  EXPECT_EXIT(
      {
        Host::Instance().Reset();
        DovPasswdConfig::Get<DovPasswd>("/p", true);
        End(Join(Registration(), Opening()), Host::Instance().Calls());
      },
      testing::ExitedWithCode(0), "");
}

TEST_F(FirstUse, ASecondCallWithAnotherPathUsesTheSameRegistrations) {
  EXPECT_EXIT(
      {
        DovPasswdConfig::Get<DovPasswd>("/p", true);
        Host::Instance().ForgetCalls();
        DovPasswdConfig::Get<DovPasswd>("/q", true);
        End({"Config " + kConfig + " /q true", "_Get " + kDataSet}, Host::Instance().Calls());
      },
      testing::ExitedWithCode(0), "");
}

TEST_F(FirstUse, TwoThreadsAtOnceRegisterOnceAndBothGetCursors) {
  EXPECT_EXIT(
      {
        Host::Instance().Reset();
        std::atomic<int> arrived = 0;
        std::atomic<int> cursors = 0;
        const auto open = [&] {
          ++arrived;
          while (arrived < 2) std::this_thread::yield();
          if (DovPasswdConfig::Get<DovPasswd>("/p", true)) ++cursors;
        };
        std::thread other(open);
        open();
        other.join();
        Calls calls = Host::Instance().Calls();
        std::erase_if(calls, [](const std::string& call) {
          return call.starts_with("Config") || call.starts_with("_Get");
        });
        calls.push_back("cursors " + std::to_string(cursors));
        End(Join(Registration(), {"cursors 2"}), calls);
      },
      testing::ExitedWithCode(0), "");
}

// The first attempt fails at each step of the initialisation; the second does all of it again.
TEST_F(FirstUse, AfterAFailureTheNextCallTriesTheWholeInitialisationAgain) {
  for (std::size_t step = 0; step < 6; ++step) {
    SCOPED_TRACE(Registration()[step]);
    EXPECT_EXIT(
        {
          Host::Instance().Reset();
          Host::Instance().fail_at = static_cast<int>(step);
          bool failed = false;
          try {
            DovPasswdConfig::Get<DovPasswd>("/p", true);
          } catch (const mgr_err::Error& error) {
            failed = error.type() == "planned";
          }
          Host::Instance().ForgetCalls();
          Host::Instance().fail_at = -1;
          // The init lock is free again, or this would hang.
          DovPasswdConfig::Get<DovPasswd>("/p", true);
          Calls expected = Join(Registration(), Opening());
          // The cache itself is made once: it is there when only a later step failed.
          if (step > 1) expected.erase(expected.begin() + 1);
          Calls found = Host::Instance().Calls();
          if (!failed) found.push_back("the first attempt did not fail");
          End(expected, found);
        },
        testing::ExitedWithCode(0), "");
  }
}

}  // namespace
