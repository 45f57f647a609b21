#include "panel/findings.h"

#include <gtest/gtest.h>

namespace {

using brisq_panel::Finding;
using brisq_panel::FindingLine;
using brisq_panel::Severity;

TEST(Findings, AFindingIsOneLineWithItsWayOut) {
  const struct {
    const char* name;
    Finding finding;
    const char* line;
  } cases[] = {
      {"an error with a fix",
       {"PASSWD-DUPLICATE", Severity::kError, "/etc/users, line 9", "line 3 counts", "remove it"},
       "PASSWD-DUPLICATE error /etc/users, line 9: line 3 counts (fix: remove it)"},
      {"a warning",
       {"PASSWD-MODE", Severity::kWarning, "/etc/users", "readable by everybody", "chmod 0640"},
       "PASSWD-MODE warning /etc/users: readable by everybody (fix: chmod 0640)"},
      {"a warning without a fix",
       {"CERT-SOON", Severity::kWarning, "example.org", "its certificate ends in 20 days", ""},
       "CERT-SOON warning example.org: its certificate ends in 20 days"},
      {"a line break and an escape sequence in a name from a file",
       {"X", Severity::kError, "a\nX error b", "\x1b[2J", "c\rd"},
       R"(X error a\nX error b: \x1b[2J (fix: c\rd))"},
      {"bytes that are no UTF-8",
       {"X", Severity::kError, "\xff", "odd", ""},
       R"(X error \xff: odd)"},
  };
  for (const auto& item : cases) {
    SCOPED_TRACE(item.name);
    EXPECT_EQ(item.line, FindingLine(item.finding));
  }
}

TEST(Findings, AFindingOfUnstatedSeverityIsAnError) {
  EXPECT_EQ("error", SeverityWord(Finding{}.severity));
}

}  // namespace
