#include "framework/conf_change.h"

#include <algorithm>

#include "framework/conf_line.h"
#include "framework/conf_merge.h"
#include "mgr_err.h"

namespace {

std::string NameIn(const std::string& text, char separator) {
  return text.substr(0, text.find(separator));
}

}  // namespace

ConfChange::ConfChange(Kind kind, Target target, unsigned long columns)
    : kind_(kind),
      target_(std::move(target)),
      columns_(columns),
      before_(std::move(target_.text)) {}

ConfChange ConfChange::Add(std::string_view name, std::string text) {
  ConfChange change(Kind::kAdd, {}, 0);
  change.after_ = std::move(text);
  if (change.after_.starts_with(name)) {
    change.name_in_text_ = name.size();
  } else {
    change.target_.name = name;
  }
  return change;
}

std::string_view ConfChange::Name() const noexcept {
  return name_in_text_ > 0 ? std::string_view(after_).substr(0, name_in_text_)
                           : std::string_view(target_.name);
}

ConfChange ConfChange::Set(Target target, unsigned long columns, Values values) {
  ConfChange change(Kind::kSet, std::move(target), columns);
  change.values_ = std::move(values);
  return change;
}

ConfChange ConfChange::Remove(Target target, unsigned long columns) {
  return ConfChange(Kind::kRemove, std::move(target), columns);
}

ConfChange ConfChange::Edit(std::string from, std::string to) {
  ConfChange change(Kind::kEdit, {}, 0);
  change.before_ = std::move(from);
  change.after_ = std::move(to);
  return change;
}

ConfChange ConfChange::Reverse() const {
  if (kind_ == Kind::kEdit) return Edit(after_, before_);
  ConfChange change(Kind::kRestore, target_, columns_);
  change.target_.name = Name();
  change.before_ = after_;
  change.after_ = before_;
  change.end_ = end_;
  return change;
}

void ConfChange::Apply(const std::shared_ptr<ConfDocument>& document) {
  ForgetUndo();
  try {
    Make(*document);
  } catch (...) {
    Undo(*document);
    throw;
  }
  target_.document = document;
}

void ConfChange::Make(ConfDocument& document) {
  switch (kind_) {
    case Kind::kAdd:
      return ApplyAdd(document, after_);
    case Kind::kSet:
    case Kind::kRemove:
      return ApplySet(document);
    case Kind::kRestore:
      return ApplyRestore(document);
    case Kind::kEdit:
      return ApplyEdit(document);
  }
}

void ConfChange::ApplyAdd(ConfDocument& document, const std::string& text) {
  if (document.FindNamed(Name()) != ConfDocument::kNone) {
    throw mgr_err::Error("exists", "name", std::string(Name()));
  }
  const Line last = document.Last();
  const std::string end(document.LineEnd());
  const Line line = document.Extend();
  if (last != ConfDocument::kNone && !document.Raw(last).ends_with('\n')) {
    Put(document, last, document.Raw(last), conf_line::EndFor(document.Raw(last), end));
  }
  Put(document, line, text, conf_line::EndFor(text, end));
  target_.line = line;
}

void ConfChange::ApplySet(ConfDocument& document) {
  const Line line = FindTarget(document);
  before_ = document.Text(line);
  target_.line = line;
  if (kind_ == Kind::kRemove) {
    const std::string_view raw = document.Raw(line);
    end_ = raw.substr(raw.size() - conf_line::EndLength(raw));
    after_.clear();
    Put(document, line, {});
    return;
  }
  const char separator = document.Syntax().separator;
  after_ = conf_line::WithColumns(before_, separator, columns_, values_);
  if (after_ == before_) return;
  const std::string name = NameIn(after_, separator);
  if (name != document.Name(line) && document.FindNamed(name) != ConfDocument::kNone) {
    throw mgr_err::Error("exists", "name", name);
  }
  Replace(document, line, after_);
}

mgr_err::Error ConfChange::TooLate() const {
  return mgr_err::Error("later", target_.name, "not undone: changed since");
}

void ConfChange::ApplyRestore(ConfDocument& document) {
  if (before_.empty()) return Revive(document);
  const Line line = FindExact(document);
  if (line == ConfDocument::kNone) throw TooLate();
  const std::string name = NameIn(after_, document.Syntax().separator);
  const bool renames = name != document.Name(line);
  if (renames && document.FindNamed(name) != ConfDocument::kNone) throw TooLate();
  target_.line = line;
  Replace(document, line, after_);
}

void ConfChange::Revive(ConfDocument& document) {
  if (document.FindNamed(target_.name) != ConfDocument::kNone) throw TooLate();
  const bool own_place = target_.document.lock().get() == &document;
  if (!own_place || !document.Raw(target_.line).empty()) return ApplyAdd(document, after_);
  Put(document, target_.line, conf_line::WithEnd(after_ + end_, document.LineEnd()));
}

void ConfChange::ApplyEdit(ConfDocument& document) {
  const std::string now = document.Print();
  if (now == before_) return Rewrite(document, after_);
  const auto parse = [&](const std::string& text) {
    return ConfDocument(std::make_shared<ConfBytes>(text), document.Syntax());
  };
  ConfDocument merged = parse(now);
  const ConfDocument from = parse(before_);
  const ConfDocument to = parse(after_);
  if (const std::string names = EditConflicts(merged, from, to); !names.empty()) {
    throw mgr_err::Error("later", names, "changed by somebody else meanwhile");
  }
  MergeEdit(merged, from, to);
  Rewrite(document, merged.Print());
}

void ConfChange::Rewrite(ConfDocument& document, std::string_view text) {
  Line same = document.NextLine(0);
  for (; same != ConfDocument::kNone; same = document.NextLine(same + 1)) {
    const std::string_view raw = document.Raw(same);
    // A last line without an end is the same one only when nothing follows it there either.
    const bool whole = raw.ends_with('\n') || raw.size() == text.size();
    if (!whole || !text.starts_with(raw)) break;
    text.remove_prefix(raw.size());
  }
  for (Line line = same; line != ConfDocument::kNone; line = document.NextLine(line + 1)) {
    Put(document, line, {});
  }
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size() - 1) + 1;
    Put(document, document.Extend(), text.substr(0, end));
    text.remove_prefix(end);
  }
}

ConfChange::Line ConfChange::FindTarget(const ConfDocument& document) const {
  const bool own_place = target_.document.lock().get() == &document;
  if (own_place && target_.line < document.End() && document.Name(target_.line) == target_.name &&
      document.IsRecord(target_.line, columns_)) {
    return target_.line;
  }
  // Of several lines with the name, the one whose text is still that of the line looked at.
  for (const Line line : document.AllNamed(target_.name)) {
    if (document.Text(line) == before_ && document.IsRecord(line, columns_)) return line;
  }
  const Line line = document.FindRecord(target_.name, columns_);
  if (line == ConfDocument::kNone) throw mgr_err::Error("missed", "name", target_.name);
  return line;
}

ConfChange::Line ConfChange::FindExact(const ConfDocument& document) const {
  const auto same_name = document.AllNamed(NameIn(before_, document.Syntax().separator));
  const auto same = std::find_if(same_name.begin(), same_name.end(),
                                 [&](Line line) { return document.Text(line) == before_; });
  return same == same_name.end() ? ConfDocument::kNone : *same;
}

void ConfChange::Put(ConfDocument& document, Line line, std::string_view raw,
                     std::string_view end) {
  if (made_ == ConfDocument::kNone && document.Raw(line).empty()) {
    made_ = line;
  } else {
    undo_.emplace_back(line, std::string(document.Raw(line)));
  }
  document.Put(line, raw, end);
}

void ConfChange::Replace(ConfDocument& document, Line line, const std::string& text) {
  if (text.empty()) return Put(document, line, {});
  const std::string_view raw = document.Raw(line);
  Put(document, line, text, raw.substr(raw.size() - conf_line::EndLength(raw)));
}

void ConfChange::Undo(ConfDocument& document) noexcept {
  for (auto step = undo_.rbegin(); step != undo_.rend(); ++step) {
    document.Put(step->first, step->second);
  }
  if (made_ != ConfDocument::kNone) document.Put(made_, {});
  ForgetUndo();
}

void ConfChange::ForgetUndo() noexcept {
  made_ = ConfDocument::kNone;
  undo_.clear();
}

line_undo::Change ConfChange::Trace(const ConfDocument& document) const {
  const Line before = document.LineBefore(target_.line);
  return {std::string(Name()), before_, after_,
          before == ConfDocument::kNone ? std::string() : std::string(document.Text(before))};
}

std::string ConfChange::Words() const {
  if (kind_ == Kind::kEdit) return "edit of the whole file";
  const std::string line = "line of " + std::string(Name());
  switch (kind_) {
    case Kind::kAdd:
      return line + " added";
    case Kind::kSet:
      return line + " changed";
    case Kind::kRemove:
      return line + " removed";
    case Kind::kRestore:
    case Kind::kEdit:
      break;
  }
  return line + " restored";
}
