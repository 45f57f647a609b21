#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <string>
#include <utility>
#include <vector>

#include "brisq_export.h"

/// Data description: records with named fields, walked and searched by a key, wherever they are
/// stored.
namespace dd {

class Field;

/// Place of a record in its cache; a plain value that is meaningful to that cache only.
struct RecordPtr {
  static constexpr std::size_t kNone = static_cast<std::size_t>(-1);

  std::size_t at = kNone;

  explicit operator bool() const noexcept { return at != kNone; }
  bool operator==(const RecordPtr&) const = default;
};

/// What a record walks over: stored records in their order, found by the value of column 1.
///
/// Columns count from 1. A cache may change while it is walked, by other threads too; a place stays
/// good until the walk leaves it, also when its record is gone: Next then gives the record that
/// followed.
class BRISQ_API RecordCache {
 public:
  virtual ~RecordCache();
  /// First record; none when there is none.
  virtual RecordPtr First() = 0;
  /// The record behind `place`; none behind the last.
  virtual RecordPtr Next(RecordPtr place) = 0;
  /// First record with this key; none when there is none.
  virtual RecordPtr Find(const std::string& key) = 0;
  /// A column as it is stored now; empty when the record is gone.
  virtual std::string Value(RecordPtr place, unsigned long column) = 0;
  /// Refuses a value that the storage can't hold in this column.
  /// @throws mgr_err::Error "value" with the field's name as object; the value is never in the text
  virtual void CheckValue(unsigned long column, const std::string& field,
                          const std::string& value) const = 0;
  /// Called before and after a record on this storage starts a new one; do nothing by default. One
  /// that throws before prevents it.
  virtual void BeforeNew();
  virtual void AfterNew();
};

/// A cursor on records: a current record, its fields, and values that were set and not yet posted.
///
/// Set values are seen by reads of the same cursor at once and by others after the post; moving to
/// another record drops them. A cursor belongs to one thread at a time; different cursors on one
/// storage may be used by different threads at once.
class BRISQ_API Record {
 public:
  /// Values by the number of their column.
  using Columns = std::list<std::pair<unsigned long, std::string>>;

  Record();
  virtual ~Record();
  Record(const Record&) = delete;
  Record& operator=(const Record&) = delete;

  /// Text that stands for a column that was never set in a new record.
  virtual std::string DummyString() const = 0;
  /// The storage of this record.
  virtual RecordCache& GetCache() = 0;
  /// Called by a field's constructor: the next column gets this name.
  virtual void AddField(const std::string& name, Field* field);
  /// Name of the record set; "unknown" unless overridden.
  virtual std::string RsName() const;
  /// Key (value of column 1) of the record at a place.
  virtual std::string KeyVal(RecordPtr place) const;
  /// Makes the first record with this key current. False when there is none: what was current stays
  /// so.
  virtual bool Find(const std::string& key);
  /// Starts a new record: nothing is set, nothing is stored before the post.
  virtual void New();
  /// Removes the current record from the storage.
  virtual void Delete() = 0;
  /// Stores what was set: as a new record after New, else by changing just the set columns of the
  /// current one.
  virtual void Post(const std::string& place) = 0;
  /// Value of a column of the current record, set values included; empty when no record is current.
  virtual std::string GetField(unsigned long column) const;
  /// Sets a column of the current record, until the post in this cursor only.
  /// @throws mgr_err::Error "value" from RecordCache::CheckValue: nothing is set
  virtual void SetField(unsigned long column, const std::string& value);
  /// Sets a column back to the empty value.
  virtual void Erase(unsigned long column) = 0;

  /// Goes to the first record.
  void First();
  /// Goes to the next record. After a removal that is the one that followed the removed one.
  void Next();
  /// True when no record is current because the walk is over, or was never begun.
  bool Eof() const noexcept { return !is_new_ && !current_; }
  /// Makes the first record with this key current or fails.
  /// @throws mgr_err::Error "missed" with object "name" and the key: what was current stays so
  void Assert(const std::string& key);

  /// Fields in column order.
  const std::vector<Field*>& Fields() const noexcept { return fields_; }

 protected:
  RecordPtr Current() const noexcept { return current_; }
  bool IsNew() const noexcept { return is_new_; }
  /// Columns that were set since the record became current, in column order, with their values.
  /// Moving overwrites the values, which may be secrets, and keeps their memory for the next ones.
  const Columns& SetValues() const noexcept { return set_; }
  /// As SetValues, for who adds what was not set before the record is stored.
  Columns& SetValues() noexcept { return set_; }
  /// Adds a column before a place in a list, in memory that earlier values have left.
  Columns::iterator AddColumn(Columns& columns, Columns::const_iterator before,
                              unsigned long column, const std::string& value);
  /// Makes a stored record current and forgets what was set.
  void MoveTo(RecordPtr place);

 private:
  void Drop(Columns::iterator first, Columns::iterator last) noexcept;

  std::vector<Field*> fields_;
  Columns set_;
  Columns spare_;  // memory for values that come to be set
  RecordPtr current_;
  bool is_new_ = false;
};

/// A named column of a record, with a check. Belongs to its record and must not outlive it.
class BRISQ_API Field {
 public:
  using Check = bool (*)(std::string&);

  /// Adds itself to `owner` as its next column.
  /// @param check  may change the value into its canonical form and tells whether it is acceptable;
  /// null accepts all
  Field(Record* owner, const std::string& name, bool (*check)(std::string&) = nullptr);
  Field(const Field&) = delete;
  Field& operator=(const Field&) = delete;

  const std::string& Name() const noexcept { return name_; }
  /// Number of the column, from 1.
  unsigned long Column() const noexcept { return column_; }
  /// Value in the current record.
  std::string Str() const;
  /// Sets the value in the current record, after the check.
  /// @throws mgr_err::Error "value" with the field's name when the check or the storage refuses it:
  /// nothing is set
  void Set(const std::string& value);

 private:
  Record* owner_;
  std::string name_;
  Check check_;
  unsigned long column_;
};

}  // namespace dd
