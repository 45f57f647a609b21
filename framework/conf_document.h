#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "brisq_export.h"
#include "framework/conf_bytes.h"
#include "framework/conf_index.h"
#include "framework/conf_texts.h"
#include "mgr_token.h"

/// Content of a document at one moment, which later changes leave alone.
struct ConfSnapshot {
  std::shared_ptr<const ConfBytes> bytes;
  std::unique_ptr<char[]> changed;
  std::vector<std::string_view> pieces;  // in order; they refer to the other two
};

/// A configuration file in memory: its bytes as they were read, the lines that were changed or
/// added since, and an index from names to lines.
///
/// A line is known by where it begins in the bytes, so a file that was read needs no table of its
/// lines; added lines have higher numbers. A line keeps its number for as long as the document
/// lives, removed ones leave theirs unused. Lines that nobody changes keep their bytes, whatever
/// they hold. A line's name is the text before its first separator; blank lines and those that
/// begin with the separator or a comment character have none. A line with a name and enough columns
/// is a record.
///
/// The first few names are looked for in the bytes themselves; who looks for more pays for the
/// index, about 16 bytes a line. Not synchronised: reading by several threads at once is fine while
/// nobody changes it.
class BRISQ_API ConfDocument {
 public:
  using Line = ConfIndex::Line;
  static constexpr Line kNone = ConfIndex::kNone;

  /// @throws mgr_err::Error "limit" for more than 2^40 bytes
  ConfDocument(std::shared_ptr<const ConfBytes> bytes, mgr_token::Params params);

  const mgr_token::Params& Syntax() const noexcept { return params_; }
  /// All lines have numbers below this one.
  Line End() const noexcept { return bytes_->size() + added_.size(); }
  /// First line with content from `line` on, that one included; kNone behind the last. `line` is
  /// any number.
  Line NextLine(Line line) const noexcept;
  /// Last line with content before `line`; kNone when there is none.
  Line LineBefore(Line line) const noexcept;
  /// A line with its end; empty when it was removed.
  std::string_view Raw(Line line) const noexcept;
  /// A line without its end.
  std::string_view Text(Line line) const noexcept;
  /// A line's name; empty when it has none.
  std::string_view Name(Line line) const noexcept;
  bool IsRecord(Line line, unsigned long columns) const noexcept;

  /// First record from `line` on, that line included; `line` is any number.
  Line NextRecord(Line line, unsigned long columns) const noexcept;
  /// First record with this name.
  Line FindRecord(std::string_view name, unsigned long columns) const;
  /// First line with this name, record or not.
  Line FindNamed(std::string_view name) const;
  /// All lines with this name, in order.
  std::vector<Line> AllNamed(std::string_view name) const;
  /// Makes the index, if it is not there yet: for who knows that many finds follow.
  void Index() const;

  /// The bytes from `line` on up to the first line that is not as it was read.
  std::string_view Unchanged(Line line) const noexcept;

  /// Gives a line other content, its end of line included: `raw` with `end` behind it. Empty
  /// removes it. Texts of changed lines that were got before are no longer good.
  void Put(Line line, std::string_view raw, std::string_view end = {});
  /// Adds a number behind the last; the line has no content yet.
  /// @throws mgr_err::Error "limit"
  Line Extend();
  /// Last line that has content; kNone when there is none.
  Line Last() const noexcept { return LineBefore(End()); }
  /// End of line that new lines get: that of the first line, LF when there is none.
  std::string_view LineEnd() const noexcept;

  /// The present content, without a copy of what was not changed.
  ConfSnapshot Snapshot() const;
  std::string Print() const;
  /// True when the changed lines outweigh the rest, so that reading the content anew pays.
  bool IsWorn() const noexcept;

 private:
  struct Named {
    Line line;
    std::uint64_t hash;
  };
  class Ahead;

  bool IsIndexed() const { return indexed_.load(std::memory_order_acquire) || IsWorthIndexing(); }
  bool IsWorthIndexing() const;
  void Fill() const;
  template <class Take>
  unsigned long Scan(std::size_t begin, std::size_t end, const Take& take) const;
  Line ScanNamed(std::string_view name, Line from) const;
  Line ScanPart(std::string_view name, Line from, std::size_t end) const noexcept;
  Line ScanBytes(std::string_view name, Line from) const;
  bool IsNamed(Line line, std::string_view name) const noexcept;
  void Enter(const Named& named) const;
  void EnterSameName(Line first, const Named& named) const;
  void Leave(Line line);
  std::uint64_t HashOf(Line line) const noexcept { return index_.Hash(Name(line)); }
  std::string_view NameOf(std::string_view raw) const noexcept;
  bool CanBeginName(char byte) const noexcept;
  bool HasEndOfName(std::string_view text) const noexcept;
  bool BeginsAsName(std::string_view text) const noexcept;
  bool CanBeName(std::string_view name) const noexcept;
  // Of lines with a name that are as they were read. Counting one's columns takes longer than
  // finding it.
  bool AreKnownRecords(unsigned long columns) const noexcept {
    return indexed_.load(std::memory_order_acquire) && columns <= least_columns_ &&
           changed_.empty();
  }
  // Apart from FindRecord, which would save registers for it each time.
  [[gnu::noinline]] Line FindAnyRecord(std::string_view name, unsigned long columns) const;
  Line FindLaterRecord(std::string_view name, unsigned long columns) const;
  Line FirstFrom(Line line) const noexcept;
  std::string_view& Edited(Line line);
  void NoteRemoval(Line line, bool removed) noexcept;
  void DropFormer() noexcept;
  bool IsInBytes(Line line) const noexcept { return line < bytes_->size(); }
  std::string_view RawInBytes(Line line) const noexcept;

  mgr_token::Params params_;
  std::shared_ptr<const ConfBytes> bytes_;
  // Lines that are not as they were read: of those in the bytes, and the others. Their texts have
  // `edited_bytes_` together; beside them are kept some that they had before.
  std::map<Line, std::string_view> changed_;
  std::vector<std::string_view> added_;
  std::size_t edited_bytes_ = 0;
  ConfTexts texts_;
  // Numbers from the first on, below the second, that are no line's with content: who removes lines
  // one behind the other, or back to front, looks for their neighbours each time.
  Line gone_ = 0;
  Line gone_end_ = 0;

  // Made by the first find that wants it, of which there may be several at once.
  mutable std::once_flag index_once_;
  mutable std::atomic<bool> indexed_{false};
  mutable std::atomic<int> scans_{0};
  mutable ConfIndex index_;
  // Of the lines in the bytes that have a name.
  mutable unsigned long least_columns_ = 0;
  // Further lines, in order, whose name is that of the line which the index holds.
  mutable std::map<Line, std::vector<Line>> same_name_;
};
