#include "panel/usage.h"

#include <fnmatch.h>

#include <algorithm>

#include "framework/utc.h"
#include "mgr_err.h"
#include "panel/mailboxes.h"
#include "panel/names.h"
#include "panel/panel_state.h"
#include "panel/text_rules.h"

namespace brisq_panel {

namespace {

constexpr std::size_t kLongestPattern = 512;

bool IsPattern(const std::string& text) { return text.find_first_of("*?") != std::string::npos; }

std::string CheckPattern(const std::string& text) {
  RefuseControl("pattern", text);
  RefuseAnyOf("pattern", text, "[]\\");
  RefuseLonger("pattern", text, kLongestPattern);
  std::string lowered = text;
  std::transform(lowered.begin(), lowered.end(), lowered.begin(), ToLower);
  return lowered;
}

std::vector<MailboxInfo> Matching(const std::string& text) {
  if (!text.empty() && !IsPattern(text)) {
    return {ShowMailbox(text)};
  }
  const std::string pattern = CheckPattern(text);
  std::vector<MailboxInfo> mailboxes = ListMailboxes();
  std::erase_if(mailboxes, [&](const MailboxInfo& mailbox) {
    return !text.empty() && ::fnmatch(pattern.c_str(), mailbox.address.c_str(), 0) != 0;
  });
  return mailboxes;
}

}  // namespace

Usage ShowUsage(const std::string& pattern) {
  Usage usage;
  for (const MailboxInfo& mailbox : Matching(pattern)) {
    usage.rows.push_back({mailbox.address, mailbox.used_mb, mailbox.quota_mb});
  }
  usage.as_of = KeptValue(kFiguresAsOf);
  usage.quota_problem = KeptValue(kQuotaProblem);
  if (!usage.as_of.empty()) {
    usage.age_seconds = std::max(0L, static_cast<long>(std::time(nullptr) - UtcTime(usage.as_of)));
  }
  return usage;
}

}  // namespace brisq_panel
