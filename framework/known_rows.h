#pragma once

#include <cstddef>
#include <string>
#include <typeinfo>
#include <unordered_map>
#include <vector>

#include "brisq_export.h"
#include "mgr_db.h"

namespace mgr_db {

/// A row as it is in the database.
struct KnownRow {
  std::vector<std::string> columns;  ///< as text, in the order of the table's Fields()
  long long id = 0;
  /// No row has a number between this one and `id`; the same as `id` when that is not known.
  long long after = 0;
  bool gone = false;  ///< forgotten
};

/// Rows of one table that need not be asked for again, found by the table's key; and how many are
/// worth reading ahead, as the finds went until now.
///
/// Whoever keeps them must know that they are still so in the database. At most kMost are kept:
/// about 700 bytes each with eleven columns. For one thread at a time.
class BRISQ_API KnownRows {
 public:
  using Match = CustomTable::Match;

  static constexpr std::size_t kMost = 2048;
  /// Rows read ahead at a time.
  static constexpr std::size_t kLeastAhead = 16;
  static constexpr std::size_t kMostAhead = kMost / 2;

  /// True when a row of the table that matches is the only one: the columns are those of the key,
  /// in its order.
  static bool IsKey(const CustomTable& table, const Match& match);
  /// Number of a row, from its text.
  static long long Number(const std::string& text);

  /// @param table  must have a key
  explicit KnownRows(const CustomTable& table);

  /// True for tables of the class of the one that it was made for: others of the same name may have
  /// other columns.
  bool Fits(const CustomTable& table) const noexcept { return typeid(table) == type_; }

  /// The row with these values, which becomes the current one; null when it is not known. Valid
  /// until the next call that is not const.
  /// @param match  the columns of the key, in its order
  const KnownRow* Find(const Match& match);

  /// Makes a row known that was found in the database, and the current one.
  void Add(const std::vector<std::string>& columns);

  /// How many of the rows behind the current one are likely to be asked for next: 0 while the finds
  /// do not go up, then twice as many as reading ahead has served last, within the limits.
  std::size_t Wanted() const noexcept;

  /// Begins to take in the rows that follow the current one in the table, in their order; makes
  /// room for them, and so may forget all but the current one.
  void BeginAhead();
  /// Where the columns of the next one are to be put, in place of other texts. EnterNext makes it
  /// known; without that nothing has happened.
  std::vector<std::string>& Next();
  void EnterNext();

  /// The current row when that is its number and it was not forgotten; null otherwise.
  const KnownRow* Current(long long id) const noexcept;
  /// Forgets the current row. There must be one.
  void ForgetCurrent() noexcept { rows_[current_].gone = true; }

 private:
  static constexpr std::size_t kNowhere = static_cast<std::size_t>(-1);

  std::string Joined(const KnownRow& row) const;
  std::size_t PlaceOf(const Match& match);
  std::size_t PlaceByKey(const Match& match);
  bool Matches(const KnownRow& row, const Match& match) const;
  void Enter(long long after);
  void ForgetBehind(std::size_t kept);

  const std::type_info& type_;
  const std::vector<std::size_t> key_;
  const std::size_t width_;
  std::vector<KnownRow> rows_;  // the first used_ are known; the others are kept for their memory
  // In rows_, by the joined key: of a row that was read twice the later place. A walk needs none.
  std::unordered_map<std::string, std::size_t> places_;
  std::string joined_;
  std::size_t used_ = 0;
  std::size_t entered_ = 0;  // so many of them are in places_
  // First of the rows read ahead last, in which no row is twice and which hold nothing older than
  // others; kNowhere when a row was added behind them.
  std::size_t block_ = kNowhere;
  std::size_t current_ = 0;
  long long found_ = 0;     // number of the row found last
  long long ahead_ = 0;     // number of the row read last
  std::size_t credit_ = 0;  // finds that reading ahead has served, or would have
};

}  // namespace mgr_db
