#include "framework/conf_view.h"

#include <utility>

#include "framework/conf_defer.h"
#include "framework/conf_line.h"
#include "framework/doubts.h"
#include "framework/line_undo.h"
#include "framework/random_hex.h"
#include "framework/rehearsal.h"
#include "framework/request.h"
#include "mgr_err.h"

namespace {

// How the journal is told of a change of the thread's request.
ConfFile::Journal Journalled(const std::string& file, const ConfChange& change) {
  const auto entry = Request::Current() ? Request::Current()->JournalEntry() : nullptr;
  if (!entry) return {};
  const auto note = [entry, file, words = change.Words(), key = RandomHex()](
                        const ConfChange& made, const ConfDocument& document) {
    entry->Write({line_undo::ToStep(made.Trace(document), file, words, key)}, false);
  };
  return {note, entry};
}

void SaveOrDoubt(const std::shared_ptr<ConfFile>& file,
                 const std::shared_ptr<ConfFile::Waiting>& waiting) {
  doubts::NoteInRequest([&] { DeferSaves::SaveOrNote(file, waiting); });
}

// What a column can't hold, of a value that has such; apart from what is done for each value.
[[gnu::cold]] std::string BrokenRule(const std::string& value, char separator) {
  const auto has = [&](char byte) { return value.find(byte) != std::string::npos; };
  if (has('\n') || has('\r')) return "line break not allowed";
  if (has('\0')) return "NUL not allowed";
  if (has(separator)) return std::string("must not contain '") + separator + "'";
  return "must not begin as a comment does";
}

}  // namespace

ConfView::ConfView(std::shared_ptr<ConfFile> file, ConfDataSet& dataset)
    : file_(std::move(file)), dataset_(dataset), syntax_(file_->syntax()) {}

// Under the file's lock.
void ConfView::Settle(Line line) {
  line_ = line;
  name_ = document_->Name(line);
  gone_ = false;
}

// Under the file's lock.
dd::RecordPtr ConfView::Place(Line line) {
  if (line == ConfDocument::kNone) return {};
  Settle(line);
  Part();
  run_ = ConfRun(*document_, line);
  run_version_ = parted_version_;
  return {++serial_};
}

// Under the file's lock.
void ConfView::Part() {
  parted_version_ = file_->Version();
  columns_.assign(Columns(), {});
  const bool there = !gone_ && line_ < document_->End() && !columns_.empty();
  if (!there || !document_->IsRecord(line_, Columns())) return columns_.clear();
  std::string_view raw = document_->Raw(line_);
  if (document_->Unchanged(line_).empty()) {
    copy_ = raw;
    raw = copy_;
  }
  conf_line::CutFirst(raw, syntax_.separator, columns_);
}

// Goes on to the next record when that takes neither the lock nor a look at the file.
bool ConfView::Step() {
  if (gone_ || run_version_ != file_->Version() || looked_.IsOld()) return false;
  columns_.resize(Columns());
  parted_version_ = kNeverParted;
  if (columns_.empty() || !run_.Next(syntax_, columns_)) return false;
  line_ = run_.At();
  name_ = columns_.front();
  parted_version_ = run_version_;
  return true;
}

void ConfView::Follow(const std::shared_ptr<const ConfDocument>& document) {
  if (document_ == document) return;
  if (document_ && line_ != ConfDocument::kNone) FollowNeighbour(*document);
  document_ = document;
}

void ConfView::FollowNeighbour(const ConfDocument& document) {
  const unsigned long columns = Columns();
  if (!gone_) {
    // Of several lines with the name the same one, if it is still there.
    for (const Line line : document.AllNamed(name_)) {
      if (document.Text(line) == document_->Text(line_)) {
        line_ = line;
        return;
      }
    }
    if (const Line line = document.FindRecord(name_, columns); line != ConfDocument::kNone) {
      line_ = line;
      return;
    }
  }
  Line next = document_->NextRecord(gone_ ? line_ : line_ + 1, columns);
  Line there = ConfDocument::kNone;
  while (next != ConfDocument::kNone && there == ConfDocument::kNone) {
    there = document.FindRecord(document_->Name(next), columns);
    next = document_->NextRecord(next + 1, columns);
  }
  gone_ = true;
  line_ = there == ConfDocument::kNone ? document.End() : there;
}

dd::RecordPtr ConfView::First() {
  DeferSaves::Look();
  looked_.Renew();
  const ConfFile::Reading reading = file_->ReadCurrent();
  document_ = reading.document;
  return Place(document_->NextRecord(0, Columns()));
}

dd::RecordPtr ConfView::Next(dd::RecordPtr place) {
  if (!IsAt(place)) return {};
  DeferSaves::Look();
  if (Step()) return {++serial_};
  looked_.Renew();
  const ConfFile::Reading reading = file_->ReadCurrent();
  Follow(reading.document);
  return Place(document_->NextRecord(gone_ ? line_ : line_ + 1, Columns()));
}

dd::RecordPtr ConfView::Find(const std::string& key) {
  DeferSaves::Look();
  const ConfFile::Reading reading = file_->ReadCurrent();
  Follow(reading.document);
  return Place(document_->FindRecord(key, Columns()));
}

const std::vector<std::string_view>& ConfView::Stored(dd::RecordPtr place) {
  static const std::vector<std::string_view> none;
  if (!IsAt(place)) return none;
  if (parted_version_ != file_->Version()) {
    const ConfFile::Reading reading = file_->Read();
    Follow(reading.document);
    Part();
  }
  return columns_;
}

std::string ConfView::Value(dd::RecordPtr place, unsigned long column) {
  const std::vector<std::string_view>& stored = Stored(place);
  return column - 1 < stored.size() ? std::string(stored[column - 1]) : std::string();
}

void ConfView::CheckValue(unsigned long column, const std::string& field,
                          const std::string& value) const {
  if (value.empty()) return;
  // The last column may hold separators.
  const char separator = column < Columns() ? syntax_.separator : '\n';
  const bool comment = column == 1 && syntax_.comment.find(value[0]) != std::string::npos;
  if (comment || conf_line::HasSpecial(value, separator)) {
    throw mgr_err::Error("value", field, BrokenRule(value, separator));
  }
}

void ConfView::BeforeNew() { dataset_.onBeforeNew(); }

void ConfView::AfterNew() { dataset_.onAfterNew(); }

ConfChange::Target ConfView::TargetAt(dd::RecordPtr place) {
  if (!IsAt(place)) throw mgr_err::Error("missed", "name", "no line is current");
  const ConfFile::Reading reading = file_->Read();
  Follow(reading.document);
  if (gone_) return {name_, {}, {}, ConfDocument::kNone};
  return {name_, std::string(document_->Text(line_)), document_, line_};
}

dd::RecordPtr ConfView::Make(ConfChange change, bool durable) {
  const auto look = DeferSaves::IsOpen() ? ConfFile::Look::kLately : ConfFile::Look::kNow;
  ConfFile::Journal journal = Journalled(path(), change);
  const auto waiting = file_->Apply(std::move(change), std::move(journal), look);
  if (Rehearsal* rehearsal = Rehearsal::Current(); rehearsal && waiting->change.Effective()) {
    rehearsal->Note(waiting->change.Words() + " in " + path());
  }
  // Noted before the save, so that a request takes the change back even when its save ends in
  // doubt.
  if (Request* request = Request::Current(); request != nullptr) {
    request->OnRollback(waiting->change.Words(), [file = file_, waiting] {
      if (const auto reverse = file->ApplyReverse(*waiting)) SaveOrDoubt(file, reverse);
    });
  }
  if (durable) SaveOrDoubt(file_, waiting);
  const ConfFile::Reading reading = file_->Read();
  Follow(reading.document);
  if (waiting->change.Document().lock() != document_) return {};
  const Line line = waiting->change.AtLine();
  if (document_->Raw(line).empty()) return {};
  Settle(line);
  // Columns are parted when they are asked for, which is seldom after a change.
  parted_version_ = kNeverParted;
  run_version_ = kNeverParted;
  return {++serial_};
}

ConfSrc* ConfView::Source() {
  const ConfFile::Reading reading = file_->ReadCurrent();
  source_text_ = reading.document->Print();
  source_ = {file_->path(), source_text_};
  return &source_;
}

ConfAllocation* ConfView::Allocation() {
  allocation_.lines.clear();
  dataset_.RawRead(0, Source(), &allocation_);
  return &allocation_;
}
