#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "framework/conf_change.h"
#include "framework/conf_line.h"
#include "fuzz/require.h"
#include "mgr_err.h"

// After any changes a document is what a fresh parse of its print is, each change has touched its
// own line alone, and taking all of them back leaves the bytes that were there before.
namespace {

using fuzz::Parse;
using fuzz::Require;
using Line = ConfDocument::Line;

constexpr unsigned long kColumns = 3;

// Same records in the same order, each found by its name alike.
void RequireSame(const ConfDocument& document, const ConfDocument& fresh) {
  Line line = document.NextRecord(0, kColumns);
  Line other = fresh.NextRecord(0, kColumns);
  for (; line != ConfDocument::kNone && other != ConfDocument::kNone;
       line = document.NextRecord(line + 1, kColumns),
       other = fresh.NextRecord(other + 1, kColumns)) {
    Require(document.Text(line) == fresh.Text(other));
    const Line found = document.FindRecord(document.Name(line), kColumns);
    Require(document.Text(found) == fresh.Text(fresh.FindRecord(fresh.Name(other), kColumns)));
  }
  Require((line == ConfDocument::kNone) == (other == ConfDocument::kNone));
}

// Raw lines by their numbers.
std::map<Line, std::string> RawLines(const ConfDocument& document) {
  std::map<Line, std::string> lines;
  for (Line line = document.NextLine(0); line != ConfDocument::kNone;
       line = document.NextLine(line + 1)) {
    lines[line] = document.Raw(line);
  }
  return lines;
}

// The record that an instruction's byte chooses; kNone when there is none.
Line RecordAt(const ConfDocument& document, unsigned int byte) {
  if (document.End() == 0) return ConfDocument::kNone;
  const Line from = byte % document.End();
  const Line line = document.NextRecord(from, kColumns);
  return line == ConfDocument::kNone ? document.NextRecord(0, kColumns) : line;
}

class Editor {
 public:
  explicit Editor(std::string_view text)
      : document_(std::make_shared<ConfDocument>(std::make_shared<ConfBytes>(text),
                                                 mgr_token::Params{})) {}

  const ConfDocument& document() const { return *document_; }

  // The lower bits of an instruction say what to do, the others with which line.
  void Do(unsigned int byte) {
    const unsigned int which = byte / 4;
    if (byte % 4 == 0) return Add(std::string(1, static_cast<char>('a' + which % 26)));
    if (byte % 4 == 3) return TakeBackLast();
    const Line line = RecordAt(*document_, which);
    if (line == ConfDocument::kNone) return;
    ConfChange::Target target{std::string(document_->Name(line)),
                              std::string(document_->Text(line)), document_, line};
    if (byte % 4 == 2) return Make(ConfChange::Remove(std::move(target), kColumns), line);
    const unsigned long column = which % kColumns + 1;
    Make(ConfChange::Set(std::move(target), kColumns, {{column, std::string(1 + which % 3, 'v')}}),
         line);
  }

  void TakeBackAll() {
    while (!made_.empty()) TakeBackLast();
  }

 private:
  struct Made {
    ConfChange change;
    std::string before;
  };

  void Add(const std::string& name) {
    const bool taken = document_->FindNamed(name) != ConfDocument::kNone;
    const std::size_t before = made_.size();
    Make(ConfChange::Add(name, name + ":x:"), document_->End());
    Require(taken == (made_.size() == before));
  }

  // `line` is the one that the change may touch; an added one may also give the last its end.
  void Make(ConfChange change, Line line) {
    const std::map<Line, std::string> before = RawLines(*document_);
    const Line end = document_->End();
    const Line last = document_->Last();
    std::string print = document_->Print();
    try {
      change.Apply(document_);
    } catch (const mgr_err::Error& error) {
      Require(error.type() == "exists" && document_->Print() == print);
      return;
    }
    for (const auto& [at, raw] : before) {
      const bool ended = line == end && at == last;
      if (at == line || ended) continue;
      Require(document_->Raw(at) == raw);
    }
    made_.push_back({std::move(change), std::move(print)});
  }

  void TakeBackLast() {
    if (made_.empty()) return;
    made_.back().change.Undo(*document_);
    Require(document_->Print() == made_.back().before);
    made_.pop_back();
  }

  std::shared_ptr<ConfDocument> document_;
  std::vector<Made> made_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  // Up to the first NUL: instructions; behind it: the file.
  const std::size_t end = input.find('\0');
  if (end == std::string_view::npos) return 0;
  const std::string_view text = input.substr(end + 1);
  Editor editor(text);
  for (const char byte : input.substr(0, end)) {
    editor.Do(static_cast<unsigned char>(byte));
    RequireSame(editor.document(), Parse(editor.document().Print()));
  }
  editor.TakeBackAll();
  Require(editor.document().Print() == text);
  return 0;
}
