#include "framework/conf_run.h"

#include <algorithm>

#include "framework/conf_line.h"

ConfRun::ConfRun(const ConfDocument& document, Line line)
    : at_(line), next_(line + document.Raw(line).size()), rest_(document.Unchanged(line)) {
  // Empty when the line itself was changed.
  rest_.remove_prefix(std::min<std::size_t>(next_ - line, rest_.size()));
}

bool ConfRun::Next(const mgr_token::Params& syntax, std::span<std::string_view> columns) noexcept {
  while (!rest_.empty()) {
    const conf_line::Cut cut = conf_line::CutFirst(rest_, syntax.separator, columns);
    const bool comment = syntax.comment.find(rest_.front()) != std::string::npos;
    rest_.remove_prefix(cut.length);
    at_ = next_;
    next_ += cut.length;
    if (cut.columns == columns.size() && !columns.front().empty() && !comment) return true;
  }
  return false;
}
