#include "panel/short_lines.h"

#include <memory>

#include "conf_dataset.h"
#include "framework/conf_line.h"
#include "mgr_cf.h"
#include "mgr_err.h"
#include "panel/password_line.h"

namespace brisq_panel {

namespace {

using Line = ConfDocument::Line;

constexpr unsigned long kColumns = 9;

ShortLine Describe(const std::string& path, const ConfDocument& document, Line line,
                   std::size_t number) {
  const std::string_view name = document.Name(line);
  return {std::string(name), path + ", line " + std::to_string(number),
          ShortLineProblem(name, document.Text(line))};
}

bool StandsForItsName(const ConfDocument& document, Line line) {
  const std::string_view name = document.Name(line);
  return !name.empty() && !document.IsRecord(line, kColumns) &&
         document.FindRecord(name, kColumns) == ConfDocument::kNone;
}

}  // namespace

std::string ShortLineProblem(std::string_view name, std::string_view text) {
  return std::string(name) + " has " + std::to_string(conf_line::CountColumns(text, ':')) +
         " of 9 columns: no mailbox for brisq, but a user for Dovecot";
}

std::vector<ShortLine> ShortLines(const std::string& path, const ConfDocument& document) {
  std::vector<ShortLine> lines;
  std::size_t number = 0;
  for (Line line = document.NextLine(0); line != ConfDocument::kNone;
       line = document.NextLine(line + 1)) {
    ++number;
    if (StandsForItsName(document, line)) {
      lines.push_back(Describe(path, document, line, number));
    }
  }
  return lines;
}

std::optional<ShortLine> FindShortLine(const std::string& path, const ConfDocument& document,
                                       const std::string& name) {
  const Line wanted = document.FindNamed(name);
  if (wanted == ConfDocument::kNone || !StandsForItsName(document, wanted)) {
    return std::nullopt;
  }
  std::size_t number = 1;
  for (Line line = document.NextLine(0); line != wanted; line = document.NextLine(line + 1)) {
    ++number;
  }
  return Describe(path, document, wanted, number);
}

void RefuseShortLine(const std::string& address) {
  const std::string path = mgr_cf::GetPath("dovecot-passwd");
  if (path.empty()) {
    return;
  }
  const ConfDocument document(std::make_shared<ConfBytes>(PasswdFileText(path)), *UnixConfParams());
  if (const auto line = FindShortLine(path, document, address)) {
    throw mgr_err::Error("file", line->place,
                         line->problem + "; " + kShortLineFix + ", then brisq sync");
  }
}

}  // namespace brisq_panel
