#include "framework/conf_document.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <iterator>
#include <limits>
#include <new>
#include <utility>

#include "framework/byte_block.h"
#include "framework/conf_line.h"
#include "framework/conf_memory.h"
#include "framework/in_two.h"
#include "mgr_err.h"

namespace {

// Finds that look through the bytes: making the index takes as long as a handful of them.
constexpr int kScans = 4;
// From this size on a second thread pays.
constexpr std::size_t kInHalves = std::size_t{8} << 20;
constexpr unsigned long kManyColumns = std::numeric_limits<unsigned long>::max();

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
    : params_(std::move(params)), bytes_(std::move(bytes)) {
  if (bytes_->size() >= ConfIndex::kLimit) {
    throw mgr_err::Error("limit", "size", "too large for a configuration file");
  }
}

bool ConfDocument::IsWorthIndexing() const {
  if (scans_.fetch_add(1, std::memory_order_relaxed) < kScans) return false;
  Index();
  return true;
}

void ConfDocument::Index() const {
  std::call_once(index_once_, [this] {
    Fill();
    indexed_.store(true, std::memory_order_release);
  });
}

void ConfDocument::Fill() const {
  const std::string_view bytes = bytes_->View();
  const std::size_t expected = GuessLines(bytes);
  index_ = ConfIndex(expected + added_.size());
  same_name_.clear();
  std::size_t half = bytes.size();
  if (bytes.size() >= kInHalves) half = std::min(bytes.find('\n', half / 2), half - 1) + 1;
  // The index can't be filled by two, but finding and hashing the names takes most of the time.
  std::vector<Named> upper;
  unsigned long upper_columns = kManyColumns;
  const auto find_upper = [&] {
    upper.reserve(expected / 2);
    WantLargePages(upper.data(), upper.capacity() * sizeof(Named));
    upper_columns = Scan(half, bytes.size(), [&](const Named& named) { upper.push_back(named); });
  };
  Ahead ahead;
  const auto enter = [&](const Named& named) {
    if (ahead.Full()) Enter(ahead.Pop());
    ahead.Push(named);
    index_.Prefetch(named.hash);
  };
  if (half < bytes.size()) {
    InTwo([&] { least_columns_ = Scan(0, half, enter); }, find_upper);
  } else {
    least_columns_ = Scan(0, half, enter);
  }
  least_columns_ = std::min(least_columns_, upper_columns);
  for (const Named& named : upper) enter(named);
  while (!ahead.Empty()) Enter(ahead.Pop());
  for (const auto& [line, raw] : changed_) {
    if (!NameOf(raw).empty()) Enter({line, HashOf(line)});
  }
  for (Line line = bytes.size(); line < End(); ++line) {
    if (!Name(line).empty()) Enter({line, HashOf(line)});
  }
}

// Takes lines that have a name and are as they were read; tells how many columns each has at least.
template <class Take>
unsigned long ConfDocument::Scan(std::size_t begin, std::size_t end, const Take& take) const {
  unsigned long columns = kManyColumns;
  const char* const first = bytes_->View().data();
  const char* const last = first + end;
  for (const char* at = first + begin; at < last;) {
    const char* const next = std::min(FindByte(at, last, '\n') + 1, last);
    const std::string_view name = NameOf({at, static_cast<std::size_t>(next - at)});
    const auto line = static_cast<Line>(at - first);
    if (!name.empty() && (changed_.empty() || changed_.count(line) == 0)) {
      const std::string_view rest(name.end(), next);
      columns = std::min(columns, conf_line::CountColumns(rest, params_.separator));
      take(Named{line, index_.Hash(name)});
    }
    at = next;
  }
  return columns;
}

// Only for names that lines can have.
bool ConfDocument::IsNamed(Line line, std::string_view name) const noexcept {
  const std::string_view bytes = bytes_->View();
  if (line < bytes.size() && changed_.empty()) {
    const std::string_view text = bytes.substr(line);
    if (text.size() > name.size() && text[name.size()] == params_.separator) {
      return AreSame(text.data(), name.data(), name.size());
    }
  }
  return Name(line) == name;
}

void ConfDocument::Enter(const Named& named) const {
  const Line first = index_.FindOrInsert(
      named.hash, named.line, [&](Line other) { return IsNamed(other, Name(named.line)); },
      [this](Line other) { return HashOf(other); });
  if (first != kNone) EnterSameName(first, named);
}

void ConfDocument::EnterSameName(Line first, const Named& named) const {
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
  const std::uint64_t hash = index_.Hash(name);
  const Line first = index_.Find(hash, [&](Line other) { return IsNamed(other, name); });
  auto node = same_name_.extract(first);
  if (node.empty()) {
    index_.Erase(hash, line, [this](Line other) { return HashOf(other); });
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

// First number from `line` on that is a line's, with content or not.
ConfDocument::Line ConfDocument::FirstFrom(Line line) const noexcept {
  if (line == 0 || !IsInBytes(line)) return line;
  const std::string_view bytes = bytes_->View();
  const char* const end = bytes.data() + bytes.size();
  const char* const found = FindByte(bytes.data() + line - 1, end, '\n');
  return static_cast<Line>(std::min(found + 1, end) - bytes.data());
}

ConfDocument::Line ConfDocument::NextLine(Line line) const noexcept {
  line = FirstFrom(line);
  while (line < End() && Raw(line).empty()) {
    line = line >= gone_ && line < gone_end_ ? gone_end_ : FirstFrom(line + 1);
  }
  return line < End() ? line : kNone;
}

ConfDocument::Line ConfDocument::LineBefore(Line line) const noexcept {
  while (line > 0) {
    if (line > gone_ && line <= gone_end_) {
      line = gone_;
      continue;
    }
    if (line > bytes_->size()) {
      --line;
    } else {
      const void* const found = ::memrchr(bytes_->View().data(), '\n', line - 1);
      const auto* const end = static_cast<const char*>(found);
      line = end == nullptr ? 0 : static_cast<Line>(end + 1 - bytes_->View().data());
    }
    if (!Raw(line).empty()) return line;
  }
  return kNone;
}

std::string_view ConfDocument::RawInBytes(Line line) const noexcept {
  const std::string_view rest = bytes_->View().substr(line);
  const char* const end = rest.data() + rest.size();
  const char* const next = std::min(FindByte(rest.data(), end, '\n') + 1, end);
  return rest.substr(0, static_cast<std::size_t>(next - rest.data()));
}

std::string_view ConfDocument::Raw(Line line) const noexcept {
  if (!IsInBytes(line)) return added_[line - bytes_->size()];
  if (!changed_.empty()) {
    if (const auto changed = changed_.find(line); changed != changed_.end()) return changed->second;
  }
  return RawInBytes(line);
}

std::string_view ConfDocument::Text(Line line) const noexcept {
  std::string_view text = Raw(line);
  text.remove_suffix(conf_line::EndLength(text));
  return text;
}

bool ConfDocument::CanBeginName(char byte) const noexcept {
  const std::string& comment = params_.comment;
  return byte != params_.separator &&
         std::find(comment.begin(), comment.end(), byte) == comment.end();
}

std::string_view ConfDocument::NameOf(std::string_view raw) const noexcept {
  if (!BeginsAsName(raw)) return {};
  const char* const end = raw.data() + raw.size();
  const char* const separator = FindByte(raw.data(), end, params_.separator);
  if (separator == end) raw.remove_suffix(conf_line::EndLength(raw));
  return raw.substr(0, static_cast<std::size_t>(separator - raw.data()));
}

// Whether something in it ends a name.
bool ConfDocument::HasEndOfName(std::string_view text) const noexcept {
  return HasOneOf(text, std::array{params_.separator, '\n'});
}

bool ConfDocument::BeginsAsName(std::string_view text) const noexcept {
  return !text.empty() && CanBeginName(text.front());
}

bool ConfDocument::CanBeName(std::string_view name) const noexcept {
  return BeginsAsName(name) && !HasEndOfName(name);
}

std::string_view ConfDocument::Name(Line line) const noexcept { return NameOf(Raw(line)); }

bool ConfDocument::IsRecord(Line line, unsigned long columns) const noexcept {
  // Where a second column is, what begins like a name has one.
  if (columns > 1 && IsInBytes(line) && changed_.empty()) {
    const std::string_view bytes = bytes_->View().substr(line);
    return CanBeginName(bytes.front()) &&
           conf_line::BeginsWithColumns(bytes, params_.separator, columns);
  }
  const std::string_view raw = Raw(line);
  return !NameOf(raw).empty() && conf_line::HasColumns(raw, params_.separator, columns);
}

ConfDocument::Line ConfDocument::NextRecord(Line line, unsigned long columns) const noexcept {
  line = NextLine(line);
  while (line != kNone && !IsRecord(line, columns)) line = NextLine(line + 1);
  return line;
}

// First line with this name of those that begin in a part of the bytes.
ConfDocument::Line ConfDocument::ScanPart(std::string_view name, Line from,
                                          std::size_t end) const noexcept {
  const std::string_view bytes = bytes_->View();
  const char* const last = bytes.data() + bytes.size();
  for (const char* at = bytes.data() + FirstFrom(from); at < bytes.data() + end;
       at = FindByte(at, last, '\n') + 1) {
    const std::string_view rest(at, static_cast<std::size_t>(last - at));
    if (!rest.starts_with(name)) continue;
    const auto line = static_cast<Line>(at - bytes.data());
    if (changed_.count(line) == 0 && IsNamed(line, name)) return line;
  }
  return kNone;
}

// Two threads take parts by turns: one of them alone waits for memory most of the time.
ConfDocument::Line ConfDocument::ScanBytes(std::string_view name, Line from) const {
  const std::size_t size = bytes_->size();
  if (size - from < kInHalves) return ScanPart(name, from, size);
  constexpr std::size_t kPart = std::size_t{1} << 20;
  std::atomic<Line> next = from;
  std::atomic<Line> first = kNone;
  // Whoever has found one ends both: all parts before its own have been taken.
  const auto scan = [&] {
    for (Line part = next.fetch_add(kPart); part < size && first == kNone;
         part = next.fetch_add(kPart)) {
      const Line found = ScanPart(name, part, std::min(part + kPart, size));
      Line known = first;
      while (found < known && !first.compare_exchange_weak(known, found)) continue;
    }
  };
  InTwo(scan, scan);
  return first;
}

// First line with this name from a line on.
ConfDocument::Line ConfDocument::ScanNamed(std::string_view name, Line from) const {
  const Line in_bytes = IsInBytes(from) ? ScanBytes(name, from) : kNone;
  const auto end = changed_.end();
  const auto changed = std::find_if(changed_.lower_bound(from), end, [&](const auto& each) {
    return each.first > in_bytes || NameOf(each.second) == name;
  });
  if (changed != end && changed->first < in_bytes) return changed->first;
  if (in_bytes != kNone) return in_bytes;
  for (Line line = std::max<Line>(from, bytes_->size()); line < End(); ++line) {
    if (Name(line) == name) return line;
  }
  return kNone;
}

ConfDocument::Line ConfDocument::FindNamed(std::string_view name) const {
  if (HasEndOfName(name)) return kNone;
  if (!IsIndexed()) return BeginsAsName(name) ? ScanNamed(name, 0) : kNone;
  // What begins as no name does is in no line that the index holds.
  return index_.Find(index_.Hash(name), [&](Line line) { return IsNamed(line, name); });
}

// What most finds need: the index, then the line's bytes. As it calls nothing and jumps to the
// rest, a processor has several finds under way.
[[gnu::flatten]] ConfDocument::Line ConfDocument::FindRecord(std::string_view name,
                                                             unsigned long columns) const {
  if (AreKnownRecords(columns) && name.size() < ConfIndex::kLongName) {
    const Line line = index_.First(index_.Hash(name));
    // As both names have one size, nothing is to be looked for in them.
    const bool found =
        line < bytes_->size() && AreSame(bytes_->View().data() + line, name.data(), name.size());
    if (found || line == kNone) return line;
  }
  return FindAnyRecord(name, columns);
}

ConfDocument::Line ConfDocument::FindAnyRecord(std::string_view name, unsigned long columns) const {
  const Line first = FindNamed(name);
  if (first == kNone || IsRecord(first, columns)) return first;
  return FindLaterRecord(name, columns);
}

ConfDocument::Line ConfDocument::FindLaterRecord(std::string_view name,
                                                 unsigned long columns) const {
  const std::vector<Line> all = AllNamed(name);
  const auto record =
      std::find_if(all.begin(), all.end(), [&](Line line) { return IsRecord(line, columns); });
  return record == all.end() ? kNone : *record;
}

std::vector<ConfDocument::Line> ConfDocument::AllNamed(std::string_view name) const {
  std::vector<Line> all;
  if (!CanBeName(name)) return all;
  if (!IsIndexed()) {
    for (Line line = ScanNamed(name, 0); line != kNone; line = ScanNamed(name, FirstFrom(line + 1)))
      all.push_back(line);
    return all;
  }
  const Line first = FindNamed(name);
  if (first == kNone) return all;
  all.push_back(first);
  if (const auto rest = same_name_.find(first); rest != same_name_.end()) {
    all.insert(all.end(), rest->second.begin(), rest->second.end());
  }
  return all;
}

std::string_view ConfDocument::Unchanged(Line line) const noexcept {
  const auto changed = changed_.lower_bound(line);
  const Line end = changed == changed_.end() ? bytes_->size() : changed->first;
  return line < end ? bytes_->View().substr(line, end - line) : std::string_view();
}

std::string_view& ConfDocument::Edited(Line line) {
  return IsInBytes(line) ? changed_[line] : added_[line - bytes_->size()];
}

void ConfDocument::NoteRemoval(Line line, bool removed) noexcept {
  const bool noted = line >= gone_ && line < gone_end_;
  if (!removed) {
    if (noted) gone_end_ = line;
    return;
  }
  const Line next = line + (IsInBytes(line) ? RawInBytes(line).size() : 1);
  if (line == gone_end_) {
    gone_end_ = next;
  } else if (next == gone_) {
    gone_ = line;
  } else if (!noted) {
    gone_ = line;
    gone_end_ = next;
  }
}

void ConfDocument::Put(Line line, std::string_view raw, std::string_view end) {
  // First, as the line may be made of what it holds.
  const std::string_view kept = texts_.Keep(raw, end);
  const bool indexed = indexed_.load(std::memory_order_relaxed);
  if (indexed) Leave(line);
  std::string_view& text = Edited(line);
  edited_bytes_ += kept.size() - text.size();
  ConfTexts::Overwrite(std::exchange(text, kept));
  NoteRemoval(line, kept.empty());
  if (indexed) {
    const std::string_view name = NameOf(text);
    if (!name.empty()) Enter({line, index_.Hash(name)});
  }
  DropFormer();
}

// A line may be changed any number of times.
void ConfDocument::DropFormer() noexcept {
  constexpr std::size_t kFree = std::size_t{64} << 10;
  if (texts_.size() <= 2 * edited_bytes_ + kFree) return;
  ConfTexts texts;
  try {
    texts.Reserve(edited_bytes_);
  } catch (const std::bad_alloc&) {
    return;  // it only saves memory
  }
  for (auto& [line, text] : changed_) text = texts.Keep(text, {});
  for (std::string_view& text : added_) text = texts.Keep(text, {});
  texts_ = std::move(texts);
}

ConfDocument::Line ConfDocument::Extend() {
  if (End() >= ConfIndex::kLimit) throw mgr_err::Error("limit", "lines", "too many in one file");
  added_.emplace_back();
  return End() - 1;
}

std::string_view ConfDocument::LineEnd() const noexcept {
  const Line first = NextLine(0);
  return first != kNone && Raw(first).ends_with("\r\n") ? "\r\n" : "\n";
}

ConfSnapshot ConfDocument::Snapshot() const {
  ConfSnapshot snapshot{bytes_, std::make_unique_for_overwrite<char[]>(edited_bytes_), {}};
  char* copy = snapshot.changed.get();
  const char* run = copy;
  // Texts that are kept one behind the other, as those of lines added in a row are, are copied at
  // once.
  std::string_view row;
  const auto copy_row = [&] {
    copy = std::copy(row.begin(), row.end(), copy);
    row = {};
  };
  const auto take = [&](std::string_view raw) {
    if (row.data() + row.size() == raw.data()) {
      row = {row.data(), row.size() + raw.size()};
    } else {
      copy_row();
      row = raw;
    }
  };
  // Changed lines that follow each other are one piece: many small ones cost the system more.
  const auto end_run = [&] {
    copy_row();
    if (copy > run) snapshot.pieces.emplace_back(run, static_cast<std::size_t>(copy - run));
    run = copy;
  };
  std::uint64_t done = 0;
  const auto take_up_to = [&](std::uint64_t end) {
    if (end <= done) return;
    end_run();
    snapshot.pieces.push_back(bytes_->View().substr(done, end - done));
  };
  for (const auto& [line, raw] : changed_) {
    take_up_to(line);
    done = line + RawInBytes(line).size();
    take(raw);
  }
  take_up_to(bytes_->size());
  std::for_each(added_.begin(), added_.end(), take);
  end_run();
  return snapshot;
}

std::string ConfDocument::Print() const {
  std::string text;
  for (const std::string_view piece : Snapshot().pieces) text += piece;
  return text;
}

bool ConfDocument::IsWorn() const noexcept {
  constexpr std::size_t kFree = std::size_t{1} << 20;
  constexpr std::size_t kEdit = 64;  // bytes of memory beside a changed line's text
  return texts_.size() + (changed_.size() + added_.size()) * kEdit > bytes_->size() / 2 + kFree;
}
