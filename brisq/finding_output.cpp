#include "brisq/finding_output.h"

#include "brisq/exit_codes.h"
#include "brisq/output.h"

namespace brisq {

Record RecordOf(const brisq_panel::Finding& finding) {
  return {{"code", finding.code},
          {"severity", brisq_panel::SeverityWord(finding.severity)},
          {"object", finding.object},
          {"text", finding.text},
          {"fix", finding.fix}};
}

void ShowFindings(Call& call, const std::vector<brisq_panel::Finding>& findings) {
  for (const brisq_panel::Finding& finding : findings) {
    call.output.Bare(brisq_panel::FindingLine(finding), RecordOf(finding));
  }
  if (!findings.empty()) call.exit_code = kExitFindings;
}

}  // namespace brisq
