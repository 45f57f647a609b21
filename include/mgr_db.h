#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <typeinfo>
#include <utility>
#include <vector>

#include "brisq_export.h"

/// Tables of the host's database as objects: a table object stands on one row and has a field for
/// each column.
namespace mgr_db {

class CustomTable;
class Connection;

/// One column of the row on which its table stands. Belongs to its table and must not outlive it.
class BRISQ_API Field {
 public:
  /// Adds itself to the table's columns: the order of construction is the order of the columns.
  Field(CustomTable* table, const std::string& name);
  virtual ~Field();
  Field(const Field&) = delete;
  Field& operator=(const Field&) = delete;

  const std::string& name() const noexcept { return name_; }
  /// The value as text: numbers in decimal, a boolean as "on" or "off".
  virtual std::string AsString() const;
  /// Value as it lies in the database.
  const std::string& Stored() const noexcept { return stored_; }
  /// Sets the value as it lies in the database, without any conversion.
  void SetStored(const std::string& value);
  /// SQL type of the column.
  virtual const char* SqlType() const noexcept = 0;

 private:
  std::string name_;
  std::string stored_;
};

/// A text; empty in a new row.
class BRISQ_API StringField : public Field {
 public:
  using Field::Field;
  virtual operator std::string() const;
  StringField& operator=(const std::string& value);
  const char* SqlType() const noexcept override;

 protected:
  virtual void Assign(const std::string& value);
};

/// A whole number; 0 in a new row.
class BRISQ_API IntField : public Field {
 public:
  using Field::Field;
  operator int() const;
  IntField& operator=(int value);
  std::string AsString() const override;
  const char* SqlType() const noexcept override;
};

/// On or off, stored as "on" and "off"; off in a new row.
class BRISQ_API BoolField : public Field {
 public:
  using Field::Field;
  operator bool() const;
  BoolField& operator=(bool value);
  std::string AsString() const override;
  const char* SqlType() const noexcept override;
};

/// A text that lies sealed in the database: the conversion to text opens it, assignment seals it.
/// An empty text is stored as an empty text. AsString gives the sealed form, so that the clear text
/// gets nowhere by accident.
class BRISQ_API SealedField : public StringField {
 public:
  using StringField::StringField;
  /// @throws mgr_err::Error "db" when the stored text was not sealed with this instance's key
  operator std::string() const override;
  using StringField::operator=;

 protected:
  void Assign(const std::string& value) override;
};

/// Base of the table classes. The first column is "id", the row's number, given by the database
/// when a new row is posted.
///
/// A table object works on the connection of the thread that took it from the cache, inside that
/// thread's request when there is one; without a request each operation is a transaction of its
/// own. It belongs to one thread at a time.
///
/// Every operation on the database may throw mgr_err::Error "db" (the system's words, never a value
/// of a row), or "locked" when another process held the database for longer than its busy limit:
/// the table is as it was.
class BRISQ_API CustomTable {
 public:
  /// A column and the text that it must equal.
  using Match = std::vector<std::pair<std::string, std::string>>;

  explicit CustomTable(const std::string& table);
  virtual ~CustomTable();
  CustomTable(const CustomTable&) = delete;
  CustomTable& operator=(const CustomTable&) = delete;

  const std::string& TableName() const noexcept { return table_; }
  const std::vector<Field*>& Fields() const noexcept { return fields_; }
  /// What SetKey has named, as places in Fields(); empty when it was not called.
  const std::vector<std::size_t>& Key() const noexcept { return key_; }
  /// True for the name of the column that SetMark has named.
  bool IsMark(const std::string& column) const noexcept {
    return mark_ != nullptr && mark_->name() == column;
  }

  /// Starts a new row: every field at its empty value.
  void New();
  /// Writes the current row: inserts one that New started (its id is set then); of any other
  /// writes the columns that were changed since it was read, so that what others have changed
  /// meanwhile in the rest stays. Inside a transaction a mark alone may be written later, together
  /// with those of other rows: before anything else of the connection reads or changes the table,
  /// at the latest by the commit, which fails then if the database can't write it.
  /// @throws mgr_err::Error "exists" when a unique column's value is taken, "missed" when the row
  /// has been deleted meanwhile
  void Post();
  /// Makes the first row that matches all pairs current; false when there is none, and the table
  /// stays on the row it was on.
  bool DbFind(const Match& match);
  /// Makes the row with this id current or fails.
  /// @throws mgr_err::Error "missed" with the table's name and the id
  void Assert(int id);
  /// Selects rows that match all pairs (all rows when there are none), ordered by `order` (a
  /// column), and goes to the first.
  void DbSelect(const Match& match = {}, const std::string& order = "id");
  /// Goes on to the next selected row.
  void Next();
  /// True behind the last selected row.
  bool Eof() const noexcept { return at_ >= selected_.size(); }
  /// Deletes the current row; the table is in the state of a new row then. A walk goes on with
  /// Next.
  void DbDelete();
  /// Deletes every row that matches an SQL condition. A table may refuse it or keep the rows
  /// elsewhere.
  /// @param condition  SQL; never built from a value that a user gave
  virtual void DbDelete(const std::string& condition);

  /// SQL that makes the table when it does not exist; more than the plain columns (unique,
  /// references) is the derived class's.
  virtual std::string Schema() const;

 protected:
  /// Says by which columns rows are mostly found: their values together are unique and never NULL,
  /// which Schema must see to. A run that finds many rows by these columns, in this order, while it
  /// holds the database's write lock may get them from memory.
  void SetKey(const std::vector<const Field*>& columns);
  /// Says that runs mark rows in this column: it takes any value, so nothing constrains it and no
  /// index or trigger of the database depends on it.
  void SetMark(const Field& column) noexcept { mark_ = &column; }

 private:
  friend class Field;
  friend class Cache;
  void Load(const std::vector<std::string>& row);
  void Insert();
  void Update();

  std::string table_;
  std::vector<Field*> fields_;
  std::vector<std::size_t> key_;
  const Field* mark_ = nullptr;
  std::vector<std::string> loaded_;  // as the row was read or written last
  std::vector<std::vector<std::string>> selected_;
  std::size_t at_ = 0;
  bool is_new_ = true;
};

/// Table objects in stock, by class. Any thread.
class BRISQ_API Cache {
 public:
  using Factory = CustomTable* (*)();

  Cache();
  ~Cache();
  Cache(const Cache&) = delete;
  Cache& operator=(const Cache&) = delete;

  /// Gives a table back into the stock when the last shared pointer lets go of it.
  template <class T>
  struct Deleter {
    Cache* cache;
    void operator()(T* table) const { cache->Put(table); }
  };

  /// Makes a class known.
  /// @param name  run-time type name of the class, without a leading "*"
  void Add(const std::string& name, Factory factory);

  /// Hands out a table object, from the stock or new, in the state of a new row. The caller owns it
  /// until Put.
  /// @param name  run-time type name of the class; a leading "*" is dropped
  /// @throws mgr_err::Error "internal" for a name that nobody has added
  CustomTable* Get(const std::string& name);

  /// Takes a table back. Never fails: one that can't be kept is deleted.
  void Put(CustomTable* table) noexcept;

  /// Get and Put as a shared pointer.
  template <class T>
  std::shared_ptr<T> Get() {
    // A shared pointer that can't be made calls the deleter, and so gives the table back.
    return std::shared_ptr<T>(static_cast<T*>(Get(typeid(T).name())), Deleter<T>{this});
  }

 private:
  struct Stock;
  std::unique_ptr<Stock> stock_;
};

}  // namespace mgr_db
