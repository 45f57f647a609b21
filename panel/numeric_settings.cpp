#include "panel/numeric_settings.h"

#include <cmath>
#include <optional>
#include <string>

#include "framework/number.h"
#include "mgr_err.h"

namespace brisq_panel {

namespace {

struct NumericSetting {
  const char* name;
  double least;
  bool least_is_allowed;
  double most;
  const char* rule;
  bool whole = false;
};

constexpr double kYearInSeconds = 366.0 * 24 * 3600;
constexpr double kYearInMinutes = 366.0 * 24 * 60;

constexpr const char* kPeriodRule = "must be a number of minutes, 0 for never, at most a year";
constexpr const char* kDelayRule = "must be a number of seconds, 0 for none, at most a year";

constexpr NumericSetting kSettings[] = {
    {"ExecTimeout", 0, false, kYearInSeconds,
     "must be a number of seconds above 0, at most a year"},
    {"EmailReloadDelay", 0, true, 86400, "must be a number of seconds from 0 to 86400"},
    {"EmailPasswordDelay", 0, true, kYearInSeconds, kDelayRule},
    {"EmailSweepLimit", 0, true, 100, "must be a number of percent from 0 to 100"},
    {"EmailRefreshPeriod", 0, true, kYearInMinutes, kPeriodRule},
    {"EmailExpiryPeriod", 0, true, kYearInMinutes, kPeriodRule},
    {"DovecotCheckPeriod", 0, true, kYearInMinutes, kPeriodRule},
    {"JobHistoryDays", 0, true, 36500, "must be a whole number of days, 0 for ever, at most 36500",
     true},
};

bool IsRight(const NumericSetting& setting, const std::string& text) {
  const std::optional<double> number = ReadNumber(text);
  return number && *number <= setting.most && (!setting.whole || *number == std::floor(*number)) &&
         (*number > setting.least || (*number == setting.least && setting.least_is_allowed));
}

}  // namespace

void CheckNumericSettings(const mgr_cf::Settings& settings) {
  for (const NumericSetting& setting : kSettings) {
    const auto given = settings.params.find(setting.name);
    if (given == settings.params.end() || IsRight(setting, given->second)) {
      continue;
    }
    const auto place = settings.param_places.find(setting.name);
    throw mgr_err::Error("config",
                         place == settings.param_places.end() ? settings.file : place->second,
                         std::string("\"") + setting.name + "\" " + setting.rule);
  }
}

}  // namespace brisq_panel
