#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>

#include "email/dovecot_interface.h"
#include "mgr_err.h"
#include "tests/support/places.h"
#include "tests/unit/email/plugin_fixture.h"

using recording::BackEnd;
using recording::Calls;
using recording::Outcome;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

namespace {

using Used = std::map<std::string, int>;

const std::string kQuery = "Execute 2 '/d quota get -A 2>&1 | awk '/STORAGE/ {print($1, $5)}''";

class QuotaCache : public recording::PluginTest {
 protected:
  QuotaCache() : back_end_(NewBackEnd()) {}

  Used Query(const Outcome& outcome, Used used = {}) {
    host.tool = [outcome](const std::string&, const std::string&) { return outcome; };
    (*back_end_)->CacheQuota(used);
    return used;
  }

  std::unique_ptr<BackEnd> back_end_;
};

TEST_F(QuotaCache, RunsOnePipelineByTheShell) {
  Query({""});
  EXPECT_THAT(host.Calls(), ElementsAre(kQuery, "Str", "Result", "~Execute"));
  EXPECT_EQ("/d quota get -A 2>&1 | awk '/STORAGE/ {print($1, $5)}'", host.runs.at(0).command);
  EXPECT_EQ("", host.runs[0].input);
}

TEST_F(QuotaCache, RowsBecomeMegabytes) {
  const struct {
    const char* name;
    std::string output;
    Used used;
  } cases[] = {
      {"no users", "", {}},
      {"one", "a@x 1024\n", {{"a@x", 1}}},
      {"no line feed at the end", "a@x 1024", {{"a@x", 1}}},
      {"just below one", "a@x 1023\n", {{"a@x", 0}}},
      {"nothing", "a@x 0\n", {{"a@x", 0}}},
      {"below two", "a@x 2047\n", {{"a@x", 1}}},
      {"negative figures go toward zero", "a@x -1023\nb@x -2047\n", {{"a@x", 0}, {"b@x", -1}}},
      {"several users", "b@x 2048\na@x 1024\n", {{"a@x", 1}, {"b@x", 2}}},
      {"the last row of a user wins", "a@x 1024\na@x 5120\na@x 3072\n", {{"a@x", 3}}},
      {"no number", "a@x -\nb@x error\nc@x \n", {{"a@x", 0}, {"b@x", 0}, {"c@x", 0}}},
      {"more than fits", "a@x 99999999999\n", {{"a@x", INT_MAX / 1024}}},
      {"an empty row in the middle", "a@x 1024\n\nb@x 1024\n", {{"a@x", 1}, {"", 0}, {"b@x", 1}}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(c.used, Query({c.output}));
  }
  EXPECT_THAT(host.Calls("log"), IsEmpty());
}

TEST_F(QuotaCache, NamesThatAreNotReportedKeepTheirValues) {
  EXPECT_EQ((Used{{"a@x", 3}, {"b@x", 8}}), Query({"a@x 3072\n"}, {{"a@x", 7}, {"b@x", 8}}));
}

TEST_F(QuotaCache, AFailedPipelineIsLoggedAndChangesNothing) {
  EXPECT_EQ((Used{{"a@x", 7}}), Query({"a@x 3072\n", 2}, {{"a@x", 7}}));
  EXPECT_THAT(host.Calls("log"), ElementsAre("log 4: Unable to get email quota."));
}

TEST_F(QuotaCache, AFailedPipelineIsNotLoggedBelowLevelFour) {
  host.log_level = 3;
  Query({"", 1});
  EXPECT_THAT(host.Calls("log"), IsEmpty());
}

/// Runs a command line by the real shell, for the real awk.
Outcome RunByShell(const std::string& command, const std::string&) {
  std::FILE* const pipe = popen(command.c_str(), "r");
  Outcome outcome;
  char buffer[4096];
  for (std::size_t got = 0; (got = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) {
    outcome.output.append(buffer, got);
  }
  outcome.status = pclose(pipe);
  return outcome;
}

// The error rows show what awk lets through: the text that it filters by stands in them too.
TEST_F(QuotaCache, RealOutputOfDoveadmIsReadAsItStands) {
  const struct {
    const char* record;
    Used used;
  } cases[] = {
      {"two_words",
       {{"ann@x.org", 0},
        {"bob@x.org", 5},
        {"cy@x.org", 0},
        {"dee@x.org", 0},
        {"doveadm(dee@x.org):", 0}}},
      // The fifth column is the limit when the root's name is one word.
      {"one_word",
       {{"ann@x.org", 10},
        {"bob@x.org", 0},
        {"cy@x.org", 500},
        {"dee@x.org", 0},
        {"doveadm(dee@x.org):", 0}}},
      // The last root of a user wins, and its name is one word here.
      {"several_roots",
       {{"ann@x.org", 10},
        {"bob@x.org", 0},
        {"cy@x.org", 500},
        {"dee@x.org", 0},
        {"doveadm(dee@x.org):", 0}}},
      {"plugin_off", {}},
  };
  const std::string records = support::SourceFolder() + "/tests/unit/email/recorded/";
  const std::string replay = "sh " + records + "replay.sh ";
  for (const auto& c : cases) {
    SCOPED_TRACE(c.record);
    host.paths["dovecot-doveadm"] = replay + records + c.record;
    host.tool = nullptr;
    const BackEnd back_end;
    host.tool = RunByShell;
    Used used;
    back_end->CacheQuota(used);
    EXPECT_EQ(c.used, used);
    EXPECT_THAT(host.Calls("log 4: Unable"), IsEmpty()) << "the pipeline's status is awk's";
  }
}

/// Two mailboxes with lines, one without, and an inactive one without.
class Refresh : public recording::PluginTest {
 protected:
  Refresh() { Fill(); }

  void Fill() {
    host.mailboxes = {{"ann@x.org", {"ann", "x.org", "pa", "/set", 7, 1}},
                      {"bob@x.org", {"bob", "x.org", "pb", "", 7, 1}},
                      {"cy@x.org", {"cy", "x.org", "pc", "", 7, 1}},
                      {"off@x.org", {"off", "x.org", "po", "", 7, 1, false}}};
    host.lines = {{"ann@x.org", "h", "1", "2", "", "/line/ann", "", "", "m"},
                  {"who@x.org", "h", "1", "2", "", "/line/who", "", "", "m"},
                  {"bob@x.org", "h", "1", "2", "", "/line/bob", "", "", "m"}};
  }

  std::unique_ptr<BackEnd> Ready(const std::string& email_auth = "dovecot") {
    auto back_end = NewBackEnd(email_auth);
    host.tool = [](const std::string& command, const std::string&) {
      const bool quota = command.find("quota") != std::string::npos;
      return Outcome{quota ? "zed@x.org 9216\nann@x.org 2048\n" : "h"};
    };
    return back_end;
  }

  std::vector<std::string> Known() const {
    std::vector<std::string> names;
    for (const auto& mailbox : host.mailboxes) names.push_back(mailbox.first);
    return names;
  }

  static Calls Beginning() {
    return Join(
        {{"take email"},
         Opening(),
         {"First", kQuery, "Str", "Result", "~Execute", "take domain", "FileIsChanged /p ''"}});
  }
  static Calls Walk() {
    return {"Random 4",
            "FindByEmailName ann@x.org",
            "assign used 2",
            "assign tag 42",
            "Post email",
            "Next",
            "FindByEmailName who@x.org",
            "Next",
            "FindByEmailName bob@x.org",
            "assign home '/line/bob'",
            "assign used 0",
            "assign tag 42",
            "Post email",
            "Next",
            "DbDelete tag != 42 AND active = 'on'"};
  }
  static Calls Ending() { return {"give back domain", "give back email"}; }
};

TEST_F(Refresh, OfAChangedFileMarksEveryLinesMailboxAndSweepsTheOthers) {
  const auto back_end = Ready();
  (*back_end)->Cache();
  EXPECT_THAT(host.Calls(), ElementsAreArray(Join({Beginning(), Walk(), Ending()})));
  EXPECT_THAT(Known(), ElementsAre("ann@x.org", "bob@x.org", "off@x.org"));
}

TEST_F(Refresh, AHomeThatIsSetIsKeptAndAnEmptyOneIsFilled) {
  const auto back_end = Ready();
  (*back_end)->Cache();
  EXPECT_EQ("/set", host.mailboxes["ann@x.org"].home);
  EXPECT_EQ("/line/bob", host.mailboxes["bob@x.org"].home);
}

TEST_F(Refresh, AMailboxWithoutAFigureHasUsedNothing) {
  const auto back_end = Ready();
  (*back_end)->Cache();
  EXPECT_EQ(2, host.mailboxes["ann@x.org"].used);
  EXPECT_EQ(0, host.mailboxes["bob@x.org"].used) << "an older figure is overwritten";
}

TEST_F(Refresh, ALineThatThePanelDoesNotKnowMakesNoRow) {
  const auto back_end = Ready();
  (*back_end)->Cache();
  EXPECT_EQ(0U, host.mailboxes.count("who@x.org"));
  EXPECT_EQ(3U, host.lines.size()) << "and stays in the file";
}

TEST_F(Refresh, TheTagIsTheRandomBytesInTheMachinesOrder) {
  for (const int tag : {42, -5, 0, 65536, INT_MAX, INT_MIN}) {
    SCOPED_TRACE(tag);
    Fill();
    const auto back_end = Ready();
    host.random.resize(sizeof tag);
    std::memcpy(host.random.data(), &tag, sizeof tag);
    (*back_end)->Cache();
    EXPECT_THAT(host.Calls("DbDelete"),
                ElementsAre("DbDelete tag != " + std::to_string(tag) + " AND active = 'on'"));
    EXPECT_EQ(tag, host.mailboxes["ann@x.org"].tag);
    EXPECT_THAT(Known(), ElementsAre("ann@x.org", "bob@x.org", "off@x.org"));
  }
}

TEST_F(Refresh, ARowThatHoldsTheNewTagByChanceSurvives) {
  const auto back_end = Ready();
  host.mailboxes["cy@x.org"].tag = 42;
  (*back_end)->Cache();
  EXPECT_THAT(Known(), ElementsAre("ann@x.org", "bob@x.org", "cy@x.org", "off@x.org"));
}

TEST_F(Refresh, OfAChangedEmptyFileAsksNoQuotaAndSweepsEveryActiveMailbox) {
  const auto back_end = Ready();
  host.lines.clear();
  (*back_end)->Cache();
  EXPECT_THAT(host.Calls(),
              ElementsAreArray(Join({{"take email"},
                                     Opening(),
                                     {"First", "take domain", "FileIsChanged /p ''", "Random 4",
                                      "DbDelete tag != 42 AND active = 'on'"},
                                     Ending()})));
  EXPECT_THAT(Known(), ElementsAre("off@x.org"));
}

TEST_F(Refresh, OfAnUnchangedEmptyFileDoesNothing) {
  const auto back_end = Ready("");
  host.lines.clear();
  host.file_changed = false;
  (*back_end)->Cache();
  EXPECT_THAT(
      host.Calls(),
      ElementsAreArray(Join(
          {{"take email"}, Opening(), {"First", "take domain", "FileIsChanged /p ''"}, Ending()})));
  EXPECT_EQ(4U, host.mailboxes.size());
}

TEST_F(Refresh, OfAnUnchangedFileChangesFiguresOnlyInTheOrderOfNames) {
  const auto back_end = Ready("");
  host.file_changed = false;
  host.tool = [](const std::string&, const std::string&) {
    return Outcome{"zed@x.org 9216\ncy@x.org 3072\nann@x.org 2048\n"};
  };
  (*back_end)->Cache();
  EXPECT_THAT(host.Calls(),
              ElementsAreArray(Join({Beginning(),
                                     {"FindByEmailName ann@x.org", "assign used 2", "Post email",
                                      "FindByEmailName cy@x.org", "assign used 3", "Post email",
                                      "FindByEmailName zed@x.org"},
                                     Ending()})));
  EXPECT_EQ(2, host.mailboxes["ann@x.org"].used);
  EXPECT_EQ(7, host.mailboxes["bob@x.org"].used) << "no figure, no change";
  EXPECT_EQ("", host.mailboxes["bob@x.org"].home);
  EXPECT_EQ(1, host.mailboxes["ann@x.org"].tag);
  EXPECT_EQ(4U, host.mailboxes.size());
}

TEST_F(Refresh, AFailedQuotaQueryGivesZerosInAWalkAndNothingOtherwise) {
  for (const bool changed : {true, false}) {
    SCOPED_TRACE(changed);
    Fill();
    const auto back_end = Ready();
    host.file_changed = changed;
    host.tool = [](const std::string&, const std::string&) { return Outcome{"x", 1}; };
    (*back_end)->Cache();
    EXPECT_EQ(changed ? 0 : 7, host.mailboxes["ann@x.org"].used);
    EXPECT_THAT(host.Calls("log"), ElementsAre("log 4: Unable to get email quota."));
  }
}

TEST_F(Refresh, QuotaNamesMatchLinesByteForByte) {
  const auto back_end = Ready();
  host.tool = [](const std::string&, const std::string&) { return Outcome{"ANN@x.org 4096\n"}; };
  (*back_end)->Cache();
  EXPECT_EQ(0, host.mailboxes["ann@x.org"].used);
}

TEST_F(Refresh, PushesPasswordsWhenThePanelKeepsThemAndItIsTime) {
  const struct {
    const char* name;
    const char* email_auth;
    bool time;
    Calls asked;
    std::size_t hashed;
  } cases[] = {
      {"kept by the panel", "", true, {"EmailDelay"}, 2},
      {"not time yet", "", false, {"EmailDelay"}, 0},
      {"kept by Dovecot", "dovecot", true, {}, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Fill();
    const auto back_end = Ready(c.email_auth);
    host.may_run_password_work = c.time;
    (*back_end)->Cache();
    EXPECT_EQ(c.asked, host.Calls("EmailDelay"));
    EXPECT_EQ(c.hashed, host.Calls("Execute 3").size());
  }
}

TEST_F(Refresh, PushesPasswordsAfterTheSweep) {
  const auto back_end = Ready("");
  (*back_end)->Cache();
  const Calls calls = host.Calls();
  const Calls before = Join({Beginning(), Walk(), {"EmailDelay"}, Opening()});
  ASSERT_GT(calls.size(), before.size());
  EXPECT_THAT(Calls(calls.begin(), calls.begin() + static_cast<std::ptrdiff_t>(before.size())),
              ElementsAreArray(before));
}

TEST_F(Refresh, AnUnchangedFilePushesNoPasswords) {
  const auto back_end = Ready("");
  host.file_changed = false;
  (*back_end)->Cache();
  EXPECT_THAT(host.Calls("EmailDelay"), IsEmpty());
  EXPECT_THAT(host.Calls("Execute 3"), IsEmpty());
}

// Whatever fails, rows that were posted stay, nothing is swept before the sweep, and the tables and
// the cursor go back.
TEST_F(Refresh, AnExceptionAtEachStepGivesEverythingBack) {
  Calls steps;
  {
    const auto back_end = Ready("");
    (*back_end)->Cache();
    steps = host.Calls();
    std::erase_if(steps, [](const std::string& c) { return c[0] == '~' || c.starts_with("give"); });
  }
  const auto back_end = Ready("");
  const std::ptrdiff_t sweep =
      std::find(steps.begin(), steps.end(), "DbDelete tag != 42 AND active = 'on'") - steps.begin();
  for (std::size_t step = 0; step < steps.size(); ++step) {
    SCOPED_TRACE(steps[step]);
    Fill();
    host.ForgetCalls();
    host.fail_at = static_cast<int>(step);
    EXPECT_THROW((*back_end)->Cache(), mgr_err::Error);
    EXPECT_EQ(0, host.tables_out);
    EXPECT_EQ(0, host.cursors_out);
    const auto done = steps.begin() + static_cast<std::ptrdiff_t>(step);
    const bool posted = std::find(steps.begin(), done, "Post email") != done;
    EXPECT_EQ(posted ? 2 : 7, host.mailboxes["ann@x.org"].used);
    EXPECT_EQ(static_cast<std::ptrdiff_t>(step) <= sweep ? 4U : 3U, host.mailboxes.size());
  }
}

TEST_F(Refresh, AnExceptionInTheQuotaOnlyPassGivesTheTablesBack) {
  const auto back_end = Ready("");
  host.file_changed = false;
  (*back_end)->Cache();
  const std::size_t steps = host.Calls().size() - 3;  // without ~Execute and the two returns
  for (std::size_t step = 0; step < steps; ++step) {
    SCOPED_TRACE(step);
    host.ForgetCalls();
    host.fail_at = static_cast<int>(step);
    EXPECT_THROW((*back_end)->Cache(), mgr_err::Error);
    EXPECT_EQ(0, host.tables_out);
    EXPECT_EQ(0, host.cursors_out);
  }
}

}  // namespace
