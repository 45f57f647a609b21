#include "panel/numeric_settings.h"

#include <gtest/gtest.h>

#include "mgr_err.h"

namespace {

std::string ErrorOf(const std::string& name, const std::string& value, bool from_file = true) {
  mgr_cf::Settings settings;
  settings.file = "/etc/b.toml";
  settings.params[name] = value;
  if (from_file) {
    settings.param_places[name] = "/etc/b.toml:7";
  }
  try {
    brisq_panel::CheckNumericSettings(settings);
    return "";
  } catch (const mgr_err::Error& error) {
    return error.what();
  }
}

TEST(NumericSettings, NumbersInTheirRangeAreTaken) {
  const struct {
    const char* name;
    const char* value;
  } cases[] = {
      {"ExecTimeout", "0.1"},
      {"ExecTimeout", "60"},
      {"EmailReloadDelay", "0"},
      {"EmailReloadDelay", "2.5"},
      {"EmailReloadDelay", "86400"},
      {"EmailPasswordDelay", "0"},
      {"EmailPasswordDelay", "900"},
      {"EmailSweepLimit", "0"},
      {"EmailSweepLimit", "100"},
      {"EmailRefreshPeriod", "0"},
      {"EmailRefreshPeriod", "15"},
      {"EmailExpiryPeriod", "0.5"},
      {"DovecotCheckPeriod", "0"},
      {"DovecotCheckPeriod", "5"},
      {"JobHistoryDays", "0"},
      {"JobHistoryDays", "36500"},
      {"Unknown", "abc"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.name) + " = " + c.value);
    EXPECT_EQ("", ErrorOf(c.name, c.value));
  }
}

TEST(NumericSettings, WhatIsNoNumberOrOutOfRangeIsRefusedByNamePlaceAndRule) {
  const struct {
    const char* name;
    const char* rule;
    std::vector<std::string> values;
  } cases[] = {
      {"ExecTimeout", "must be a number of seconds above 0, at most a year", {"0", "31622401"}},
      {"EmailReloadDelay", "must be a number of seconds from 0 to 86400", {"86401"}},
      {"EmailPasswordDelay",
       "must be a number of seconds, 0 for none, at most a year",
       {"31622401"}},
      {"EmailSweepLimit", "must be a number of percent from 0 to 100", {"101", "30%"}},
      {"EmailRefreshPeriod",
       "must be a number of minutes, 0 for never, at most a year",
       {"527041"}},
      {"EmailExpiryPeriod", "must be a number of minutes, 0 for never, at most a year", {"527041"}},
      {"DovecotCheckPeriod",
       "must be a number of minutes, 0 for never, at most a year",
       {"527041"}},
      {"JobHistoryDays",
       "must be a whole number of days, 0 for ever, at most 36500",
       {"7.5", "36501", "150000"}},
  };
  for (const auto& c : cases) {
    std::vector<std::string> values = c.values;
    for (const char* value : {"", "abc", "-1", "5 min", " 5", "inf", "nan", "0x5"}) {
      values.push_back(value);
    }
    for (const std::string& value : values) {
      SCOPED_TRACE(std::string(c.name) + " = " + value);
      EXPECT_EQ(std::string("config: /etc/b.toml:7: \"") + c.name + "\" " + c.rule,
                ErrorOf(c.name, value));
    }
  }
}

TEST(NumericSettings, WithoutAPlaceTheFileIsNamed) {
  EXPECT_EQ("config: /etc/b.toml: \"EmailSweepLimit\" must be a number of percent from 0 to 100",
            ErrorOf("EmailSweepLimit", "x", false));
}

TEST(NumericSettings, WhatIsNotSetIsRight) {
  EXPECT_NO_THROW(brisq_panel::CheckNumericSettings({}));
}

}  // namespace
