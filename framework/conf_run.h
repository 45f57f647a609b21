#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string_view>

#include "brisq_export.h"
#include "framework/conf_document.h"

/// The records of a stretch of lines that are as they were read. They are walked without a lock:
/// nobody writes into bytes that were read, while the document may be changed meanwhile.
class BRISQ_API ConfRun {
 public:
  using Line = ConfDocument::Line;

  /// No lines.
  ConfRun() = default;
  /// The lines behind `line` up to the first one that was changed or added.
  ConfRun(const ConfDocument& document, Line line);

  /// Goes to the next record and parts it into columns. False when the stretch has no more, which
  /// leaves the columns undefined.
  bool Next(const mgr_token::Params& syntax, std::span<std::string_view> columns) noexcept;
  /// The record that Next has gone to.
  Line At() const noexcept { return at_; }

 private:
  Line at_ = 0;
  Line next_ = 0;
  std::string_view rest_;
};
