#include "framework/conf_document.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

#include "framework/conf_line.h"
#include "framework/conf_memory.h"
#include "framework/in_two.h"
#include "mgr_err.h"

namespace {

constexpr std::size_t kMostLines = 4'000'000'000;
// From this size on a second thread pays.
constexpr std::size_t kInHalves = std::size_t{8} << 20;

// Number of lines to expect, judged by samples at both ends and in the middle of the file. A guess
// too low costs time, one too high costs memory.
std::size_t GuessLines(std::string_view bytes) {
  constexpr std::size_t kSample = std::size_t{64} << 10;
  std::size_t lines = 0;
  const auto count = [&](std::size_t at) {
    const std::string_view sample = bytes.substr(at, kSample);
    lines += static_cast<std::size_t>(std::count(sample.begin(), sample.end(), '\n'));
  };
  count(0);
  if (bytes.size() <= 3 * kSample) {
    for (std::size_t at = kSample; at < bytes.size(); at += kSample) count(at);
    return lines + 1;
  }
  count(bytes.size() / 2);
  count(bytes.size() - kSample);
  return (lines + 1) * (bytes.size() / (3 * kSample) + 1) * 65 / 64;
}

const char* FindByte(const char* from, const char* end, char byte) {
  const void* found = std::memchr(from, byte, static_cast<std::size_t>(end - from));
  return found == nullptr ? end : static_cast<const char*>(found);
}

}  // namespace

// Lines whose hash is known and whose entry in the index is still to be made, so that the index's
// memory is on its way when it is needed.
class ConfDocument::Ahead {
 public:
  bool Full() const noexcept { return last_ - first_ == kEntries; }
  bool Empty() const noexcept { return last_ == first_; }
  void Push(const Named& named) noexcept { ring_[last_++ % kEntries] = named; }
  Named Pop() noexcept { return ring_[first_++ % kEntries]; }

 private:
  static constexpr std::size_t kEntries = 16;
  std::array<Named, kEntries> ring_{};
  std::size_t first_ = 0;
  std::size_t last_ = 0;
};

ConfDocument::ConfDocument(std::shared_ptr<const ConfBytes> bytes, mgr_token::Params params)
    : params_(std::move(params)), bytes_(std::move(bytes)), index_(GuessLines(bytes_->View())) {
  FindLines();
}

void ConfDocument::FindLines() {
  const std::string_view bytes = bytes_->View();
  if (bytes.empty()) return;
  const std::size_t expected = GuessLines(bytes);
  begins_.reserve(expected);
  WantLargePages(begins_.data(), expected * sizeof(std::uint64_t));
  std::size_t half = bytes.size();
  if (bytes.size() >= kInHalves) half = std::min(bytes.find('\n', half / 2), half - 1) + 1;
  // The index can't be filled by two, but finding and hashing the names takes most of the time.
  std::vector<Seen> upper;
  const auto find_upper = [&] {
    upper.reserve(expected / 2);
    Scan(half, bytes.size(), [&](const Seen& seen) { upper.push_back(seen); });
  };
  Ahead ahead;
  const auto enter = [&](const Seen& seen) { EnterAhead(seen, ahead); };
  if (half < bytes.size()) {
    InTwo([&] { Scan(0, half, enter); }, find_upper);
  } else {
    Scan(0, half, enter);
  }
  for (const Seen& seen : upper) enter(seen);
  while (!ahead.Empty()) Enter(ahead.Pop());
  if (begins_.size() > kMostLines) throw mgr_err::Error("limit", "lines", "too many in one file");
}

template <class Take>
void ConfDocument::Scan(std::size_t begin, std::size_t end, const Take& take) const {
  const char* const first = bytes_->View().data();
  const char* const last = first + end;
  for (const char* at = first + begin; at < last;) {
    const char* const next = std::min(FindByte(at, last, '\n') + 1, last);
    const std::string_view name = NameOf({at, static_cast<std::size_t>(next - at)});
    take(Seen{static_cast<std::uint64_t>(at - first), name.empty() ? 0 : ConfIndex::Hash(name),
              !name.empty()});
    at = next;
  }
}

void ConfDocument::EnterAhead(const Seen& seen, Ahead& ahead) {
  begins_.push_back(seen.begin);
  if (!seen.named) return;
  if (ahead.Full()) Enter(ahead.Pop());
  ahead.Push({Lines() - 1, seen.hash});
  index_.Prefetch(seen.hash);
}

void ConfDocument::Enter(const Named& named) {
  const std::string_view name = Name(named.line);
  const Line first =
      index_.FindOrInsert(named.hash, named.line, [&](Line other) { return Name(other) == name; });
  if (first != kNone) EnterSameName(first, named);
}

void ConfDocument::EnterSameName(Line first, const Named& named) {
  std::vector<Line>& rest = same_name_[first];
  if (named.line > first) {
    rest.insert(std::upper_bound(rest.begin(), rest.end(), named.line), named.line);
    return;
  }
  rest.insert(rest.begin(), first);
  auto node = same_name_.extract(first);
  node.key() = named.line;
  same_name_.insert(std::move(node));
  index_.Replace(named.hash, first, named.line);
}

void ConfDocument::Leave(Line line) {
  const std::string_view name = Name(line);
  if (name.empty()) return;
  const std::uint32_t hash = ConfIndex::Hash(name);
  const Line first = index_.Find(hash, [&](Line other) { return Name(other) == name; });
  auto node = same_name_.extract(first);
  if (node.empty()) {
    index_.Erase(hash, line);
    return;
  }
  std::vector<Line>& rest = node.mapped();
  if (line == first) {
    node.key() = rest.front();
    index_.Replace(hash, first, rest.front());
    rest.erase(rest.begin());
  } else {
    rest.erase(std::lower_bound(rest.begin(), rest.end(), line));
  }
  if (!rest.empty()) same_name_.insert(std::move(node));
}

std::uint64_t ConfDocument::Begin(Line line) const noexcept {
  const std::uint64_t entry = begins_[line];
  return (entry & kEdited) == 0 ? entry : edits_[entry & ~kEdited].begin;
}

std::uint64_t ConfDocument::End(Line line) const noexcept {
  return line + 1 < Lines() ? Begin(line + 1) : bytes_->size();
}

std::string_view ConfDocument::Raw(Line line) const noexcept {
  const std::uint64_t entry = begins_[line];
  if ((entry & kEdited) != 0) return edits_[entry & ~kEdited].raw;
  return bytes_->View().substr(entry, End(line) - entry);
}

std::string_view ConfDocument::Text(Line line) const noexcept {
  std::string_view text = Raw(line);
  text.remove_suffix(conf_line::EndLength(text));
  return text;
}

std::string_view ConfDocument::NameOf(std::string_view raw) const noexcept {
  if (raw.empty() || raw.front() == params_.separator) return {};
  if (params_.comment.find(raw.front()) != std::string::npos) return {};
  const char* const end = raw.data() + raw.size();
  const char* const separator = FindByte(raw.data(), end, params_.separator);
  if (separator == end) raw.remove_suffix(conf_line::EndLength(raw));
  return raw.substr(0, static_cast<std::size_t>(separator - raw.data()));
}

std::string_view ConfDocument::Name(Line line) const noexcept { return NameOf(Raw(line)); }

bool ConfDocument::IsRecord(Line line, unsigned long columns) const noexcept {
  return !Name(line).empty() && conf_line::HasColumns(Raw(line), params_.separator, columns);
}

ConfDocument::Line ConfDocument::NextRecord(Line line, unsigned long columns) const noexcept {
  while (line < Lines() && !IsRecord(line, columns)) ++line;
  return line < Lines() ? line : kNone;
}

ConfDocument::Line ConfDocument::FindNamed(std::string_view name) const {
  if (name.empty()) return kNone;
  return index_.Find(ConfIndex::Hash(name), [&](Line line) { return Name(line) == name; });
}

ConfDocument::Line ConfDocument::FindRecord(std::string_view name, unsigned long columns) const {
  const Line first = FindNamed(name);
  if (first == kNone || IsRecord(first, columns)) return first;
  const auto rest = same_name_.find(first);
  if (rest == same_name_.end()) return kNone;
  const auto record = std::find_if(rest->second.begin(), rest->second.end(),
                                   [&](Line line) { return IsRecord(line, columns); });
  return record == rest->second.end() ? kNone : *record;
}

std::vector<ConfDocument::Line> ConfDocument::AllNamed(std::string_view name) const {
  const Line first = FindNamed(name);
  if (first == kNone) return {};
  std::vector<Line> all{first};
  if (const auto rest = same_name_.find(first); rest != same_name_.end()) {
    all.insert(all.end(), rest->second.begin(), rest->second.end());
  }
  return all;
}

ConfDocument::Edit& ConfDocument::EditOf(Line line) {
  if ((begins_[line] & kEdited) == 0) {
    edits_.push_back({begins_[line], line, std::string(Raw(line))});
    edited_bytes_ += edits_.back().raw.size();
    begins_[line] = kEdited | (edits_.size() - 1);
  }
  return edits_[begins_[line] & ~kEdited];
}

void ConfDocument::Put(Line line, std::string raw) {
  Leave(line);
  Edit& edit = EditOf(line);
  edited_bytes_ += raw.size() - edit.raw.size();
  edit.raw = std::move(raw);
  if (const std::string_view name = Name(line); !name.empty()) {
    Enter({line, ConfIndex::Hash(name)});
  }
}

ConfDocument::Line ConfDocument::Extend() {
  if (begins_.size() >= kMostLines) throw mgr_err::Error("limit", "lines", "too many in one file");
  edits_.push_back({bytes_->size(), Lines(), {}});
  begins_.push_back(kEdited | (edits_.size() - 1));
  return Lines() - 1;
}

ConfDocument::Line ConfDocument::Last() const noexcept {
  Line line = Lines();
  while (line > 0 && Raw(line - 1).empty()) --line;
  return line > 0 ? line - 1 : kNone;
}

std::string_view ConfDocument::LineEnd() const noexcept {
  for (Line line = 0; line < Lines(); ++line) {
    if (const std::string_view raw = Raw(line); !raw.empty()) {
      return raw.ends_with("\r\n") ? "\r\n" : "\n";
    }
  }
  return "\n";
}

std::vector<const ConfDocument::Edit*> ConfDocument::EditsInOrder() const {
  std::vector<const Edit*> edits;
  edits.reserve(edits_.size());
  for (const Edit& edit : edits_) edits.push_back(&edit);
  std::sort(edits.begin(), edits.end(),
            [](const Edit* left, const Edit* right) { return left->line < right->line; });
  return edits;
}

ConfSnapshot ConfDocument::Snapshot() const {
  ConfSnapshot snapshot{bytes_, std::make_unique<char[]>(edited_bytes_), {}};
  char* copy = snapshot.changed.get();
  std::uint64_t done = 0;
  const auto take_up_to = [&](std::uint64_t end) {
    if (end > done) snapshot.pieces.push_back(bytes_->View().substr(done, end - done));
  };
  for (const Edit* edit : EditsInOrder()) {
    take_up_to(edit->begin);
    done = End(edit->line);
    if (edit->raw.empty()) continue;
    snapshot.pieces.emplace_back(copy, edit->raw.size());
    copy = std::copy(edit->raw.begin(), edit->raw.end(), copy);
  }
  take_up_to(bytes_->size());
  return snapshot;
}

std::string ConfDocument::Print() const {
  std::string text;
  for (const std::string_view piece : Snapshot().pieces) text += piece;
  return text;
}

bool ConfDocument::IsWorn() const noexcept {
  constexpr std::size_t kFree = std::size_t{1} << 20;
  return edited_bytes_ + edits_.size() * sizeof(Edit) > bytes_->size() / 2 + kFree;
}
