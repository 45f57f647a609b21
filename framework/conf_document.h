#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "brisq_export.h"
#include "framework/conf_bytes.h"
#include "framework/conf_index.h"
#include "mgr_token.h"

/// Content of a document at one moment, which later changes leave alone.
struct ConfSnapshot {
  std::shared_ptr<const ConfBytes> bytes;
  std::unique_ptr<char[]> changed;
  std::vector<std::string_view> pieces;  // in order; they refer to the other two
};

/// A configuration file in memory: its bytes as they were read, where each line begins, an index
/// from names to lines, and the lines that were changed since.
///
/// A line keeps its number for as long as the document lives: new lines get higher numbers, removed
/// ones leave theirs unused. Lines that nobody changes keep their bytes, whatever they hold. A
/// line's name is the text before its first separator; blank lines and those that begin with the
/// separator or a comment character have none. A line with a name and enough columns is a record.
///
/// Costs about 20 bytes a line beside the bytes. Not synchronised: reading by several threads at
/// once is fine while nobody changes it.
class BRISQ_API ConfDocument {
 public:
  using Line = ConfIndex::Line;
  static constexpr Line kNone = ConfIndex::kNone;

  /// @throws mgr_err::Error "limit" for more than 4,000,000,000 lines
  ConfDocument(std::shared_ptr<const ConfBytes> bytes, mgr_token::Params params);

  const mgr_token::Params& Syntax() const noexcept { return params_; }
  /// Number of lines ever numbered.
  Line Lines() const noexcept { return static_cast<Line>(begins_.size()); }
  /// A line with its end; empty when it was removed.
  std::string_view Raw(Line line) const noexcept;
  /// A line without its end.
  std::string_view Text(Line line) const noexcept;
  /// A line's name; empty when it has none.
  std::string_view Name(Line line) const noexcept;
  bool IsRecord(Line line, unsigned long columns) const noexcept;

  /// First record from `line` on, that line included.
  Line NextRecord(Line line, unsigned long columns) const noexcept;
  /// First record with this name.
  Line FindRecord(std::string_view name, unsigned long columns) const;
  /// First line with this name, record or not.
  Line FindNamed(std::string_view name) const;
  /// All lines with this name, in order.
  std::vector<Line> AllNamed(std::string_view name) const;

  /// Gives a line other content, its end of line included; empty removes it.
  void Put(Line line, std::string raw);
  /// Adds a number behind the last; the line has no content yet.
  Line Extend();
  /// Last line that has content; kNone when there is none.
  Line Last() const noexcept;
  /// End of line that new lines get: that of the first line, LF when there is none.
  std::string_view LineEnd() const noexcept;

  /// The present content, without a copy of what was not changed.
  ConfSnapshot Snapshot() const;
  std::string Print() const;
  /// True when the changed lines outweigh the rest, so that reading the content anew pays.
  bool IsWorn() const noexcept;

 private:
  struct Edit {
    std::uint64_t begin;  // where the line was in the bytes
    Line line;
    std::string raw;
  };
  struct Named {
    Line line;
    std::uint32_t hash;
  };
  // A line as it is found in the bytes.
  struct Seen {
    std::uint64_t begin;
    std::uint32_t hash;
    bool named;
  };
  class Ahead;
  // Set in an entry of `begins_` whose other bits are a number in `edits_`.
  static constexpr std::uint64_t kEdited = std::uint64_t{1} << 63;

  void FindLines();
  template <class Take>
  void Scan(std::size_t begin, std::size_t end, const Take& take) const;
  void EnterAhead(const Seen& seen, Ahead& ahead);
  void Enter(const Named& named);
  void EnterSameName(Line first, const Named& named);
  void Leave(Line line);
  std::string_view NameOf(std::string_view raw) const noexcept;
  std::uint64_t Begin(Line line) const noexcept;
  std::uint64_t End(Line line) const noexcept;
  Edit& EditOf(Line line);
  std::vector<const Edit*> EditsInOrder() const;

  mgr_token::Params params_;
  std::shared_ptr<const ConfBytes> bytes_;
  std::vector<std::uint64_t> begins_;
  std::vector<Edit> edits_;
  std::size_t edited_bytes_ = 0;
  ConfIndex index_;
  // Further lines, in order, whose name is that of the line which the index holds.
  std::map<Line, std::vector<Line>> same_name_;
};
