#include "panel/findings.h"

#include "framework/log_escape.h"

namespace brisq_panel {

std::string SeverityWord(Severity severity) {
  return severity == Severity::kWarning ? "warning" : "error";
}

std::string FindingLine(const Finding& finding) {
  std::string line = finding.code + " " + SeverityWord(finding.severity) + " " + finding.object +
                     ": " + finding.text;
  if (!finding.fix.empty()) line += " (fix: " + finding.fix + ")";
  return mgr_log::Escaped(line);
}

}  // namespace brisq_panel
