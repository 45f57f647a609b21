#pragma once

#include <exception>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "brisq_export.h"
#include "framework/conf_document.h"
#include "framework/line_undo.h"
#include "mgr_err.h"

/// One change of a line, told by what is meant rather than by bytes: it can be applied to the file
/// as it stands now, taken back, and applied again to what somebody else has made of the file.
class BRISQ_API ConfChange {
 public:
  using Line = ConfDocument::Line;
  using Values = std::map<unsigned long, std::string>;

  /// The line that a change is meant for: its name, and its text and place when it was looked at.
  struct Target {
    std::string name;
    std::string text;
    std::weak_ptr<const ConfDocument> document;
    Line line = ConfDocument::kNone;
  };

  /// A new line at the end; `text` begins with its name.
  static ConfChange Add(std::string_view name, std::string text);
  /// Other values in some of the `columns` columns of a record.
  static ConfChange Set(Target target, unsigned long columns, Values values);
  static ConfChange Remove(Target target, unsigned long columns);
  /// What somebody has made of the file's whole content `from`: it becomes `to` byte for byte when
  /// it is still `from`, and else both edits are merged by line and column.
  ///
  /// Apply throws mgr_err::Error "later" when both have changed the same: object the names of the
  /// lines.
  static ConfChange Edit(std::string from, std::string to);

  /// The change that takes back what this one did, as long as nobody else has touched the line
  /// since. Applied later than that it throws mgr_err::Error "later".
  ConfChange Reverse() const;

  /// Makes the change.
  /// @throws mgr_err::Error "exists", "missed", or as Reverse says, std::bad_alloc: the document is
  /// as it was
  void Apply(const std::shared_ptr<ConfDocument>& document);
  /// Takes back what Apply did, bytes for bytes. Changes that were applied later must have been
  /// taken back before. Memory that runs out here ends the process: a document in which half of a
  /// change is left must never be saved.
  void Undo(ConfDocument& document) noexcept;

  /// True when the last Apply has changed anything.
  bool Effective() const noexcept { return made_ != ConfDocument::kNone || !undo_.empty(); }
  /// The document that the last Apply was made in.
  const std::weak_ptr<const ConfDocument>& Document() const noexcept { return target_.document; }
  /// The line that the last Apply has left; kNone after a removal.
  Line AtLine() const noexcept { return target_.line; }
  /// What the last Apply has done to the line, for the journal.
  line_undo::Change Trace(const ConfDocument& document) const;
  /// The change in words, for messages: "line of NAME added".
  std::string Words() const;

 private:
  enum class Kind { kAdd, kSet, kRemove, kRestore, kEdit };

  ConfChange(Kind kind, Target target, unsigned long columns);
  void Make(ConfDocument& document);
  void ApplyAdd(ConfDocument& document, const std::string& text);
  void ApplySet(ConfDocument& document);
  void ApplyRestore(ConfDocument& document);
  void Revive(ConfDocument& document);
  void ApplyEdit(ConfDocument& document);
  void Rewrite(ConfDocument& document, std::string_view text);
  std::string_view Name() const noexcept;
  mgr_err::Error TooLate() const;
  Line FindTarget(const ConfDocument& document) const;
  Line FindExact(const ConfDocument& document) const;
  void Put(ConfDocument& document, Line line, std::string_view raw, std::string_view end = {});
  void ForgetUndo() noexcept;
  void Replace(ConfDocument& document, Line line, const std::string& text);

  Kind kind_;
  Target target_;
  std::size_t name_in_text_ = 0;  // size of a name that is kept as the beginning of `after_` only
  unsigned long columns_;
  Values values_;
  // Texts of the line: what Apply found and left; empty for no line. Of an edit the whole content.
  std::string before_;
  std::string after_;
  std::string end_;  // end of line that a removed line had
  // The first line that Apply has put where there was none, and what the others held.
  Line made_ = ConfDocument::kNone;
  std::vector<std::pair<Line, std::string>> undo_;
};
