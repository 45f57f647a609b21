#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "brisq_export.h"
#include "dd.h"
#include "mgr_token.h"

class ConfView;

/// Bytes of a configuration file as they were read: what records are parsed from.
struct BRISQ_API ConfSrc {
  std::string path;
  std::string_view bytes;
};

/// Where the records lie in a source: offset and length of each record's line, without its end, in
/// file order.
struct BRISQ_API ConfAllocation {
  std::vector<std::pair<std::size_t, std::size_t>> lines;
};

/// One line as it is given to a parser: its text without the end of line; good while its source is.
struct BRISQ_API Cf {
  std::string_view line;
};

/// Records that are lines of a configuration file: a view with a current line of its own on the
/// file's shared document.
///
/// The view sees the file's current content: its own posts at once, those of other threads and
/// processes and edits by hand when it next looks. It is got from ConfCache only. Thread rule as
/// for dd::Record.
class BRISQ_API ConfDataSet : public virtual dd::Record {
 public:
  /// @param parent  dataset of which this one is a part; null for one that stands for a whole file
  explicit ConfDataSet(ConfDataSet* parent);
  ~ConfDataSet() override;

  /// Storage of the dataset `level` steps up the line of parents; 0 is this one's own.
  /// @throws mgr_err::Error "internal" when there is none
  virtual dd::RecordCache* getCache(int level);
  /// Where this file's records lie at present, read afresh: cost grows with the file.
  virtual ConfAllocation* getAlloc();
  /// Syntax of the file.
  virtual const mgr_token::Params* getParams();
  /// The file's present content.
  virtual ConfSrc* getConfig();
  /// Finds the records of `source` from byte `offset` on and appends them to `allocation`.
  virtual void RawRead(int offset, ConfSrc* source, ConfAllocation* allocation);
  /// Brings what was set into the document and the document to the disk; see Post.
  virtual void Modify();
  dd::RecordCache& GetCache() override;
  /// Hooks around New, Post and Delete, for derived classes; empty. One that throws before the step
  /// prevents it.
  virtual void onBeforeNew();
  virtual void onBeforePost();
  virtual void onBeforeDelete();
  virtual void onAfterNew();
  virtual void onAfterPost();
  virtual void onAfterDelete();
  /// The dataset that stands for the whole file.
  virtual ConfDataSet* Base();
  /// Stores what was set and returns when it is durable; inside a scope that defers saves, when it
  /// is in the document.
  ///
  /// After New a line is added at the end; otherwise the set columns of the current line, found
  /// again by its key, are changed in the line as it now stands in the file. The new or changed
  /// line is current afterwards. Inside a request the change is taken back when the request fails,
  /// unless somebody else has changed the line meanwhile.
  ///
  /// @param place  must be empty (at the end)
  /// @throws mgr_err::Error "exists" when a line with a new record's name is there, also one that
  /// is not offered as a record; "missed"
  ///         when the current line is gone; "value" for a place; "file" or "locked" when the file
  ///         can't be saved. In every case the file and the document are as they were and nothing
  ///         is set any more.
  void Post(const std::string& place) override;
  /// Removes the current line from the document; saved with the next save.
  void Delete() override;
  /// Puts one line of the file into the set values of the current record.
  virtual void Parse(Cf line) = 0;
  /// Text of a value as it stands in the file.
  /// @throws mgr_err::Error "value" with the field's name when the syntax can't hold it
  virtual std::string FieldValue(const std::string& name, const std::string& value);
  /// Text that stands before a field's value in the file; empty for the first column, else the
  /// separator.
  virtual std::string FieldPrefix(const std::string& name);
  /// Text that stands behind a field's value; empty.
  virtual std::string FieldSuffix(const std::string& name);
  /// Prefix, value and suffix of one field.
  virtual std::string NewField(const std::string& name, const std::string& value);
  /// Line of a new record.
  /// @param columns  values by column number; columns that are missing get DummyString and are
  /// added to the list
  virtual std::string NewRecord(Columns& columns) = 0;
  /// Line of a record in which nothing is set.
  virtual std::string NewRecordTemplate();
  void Erase(unsigned long column) override;

  /// The current record's columns as the file has them, in column order and without what was set:
  /// all at once, and without a copy. Empty when no record is current. Good until the next call of
  /// this cursor.
  const std::vector<std::string_view>& Stored();

  /// Removes the current line.
  /// @param save  true: saved, and durable on return, as by Post; false: as by Delete
  /// @throws as Post, without "exists" and "value"
  void _Delete(bool save);

 private:
  friend class ConfCache;
  friend class ConfRef;
  friend class UnixDataSet;
  void Attach(std::unique_ptr<ConfView> view);
  ConfView& View() const;
  unsigned long ColumnOf(const std::string& name) const;
  // Checks all values of a line that consists of nothing but them and separators at once.
  void CheckPlain(std::string_view line, Columns& columns);
  [[noreturn]] void RefuseNoFile() const;
  [[noreturn]] void RefuseNoName() const;

  ConfDataSet* parent_;
  std::unique_ptr<ConfView> view_;
  bool is_plain_ = false;  // as ConfPlainDataSet says of the class of this object
};

/// True for a class of datasets that overrides nothing of what makes a part of a line of a value:
/// then the parts need not be made, and checked, one by one as texts of their own.
template <class T>
concept ConfPlainDataSet =
    std::is_same_v<decltype(&T::NewField), decltype(&ConfDataSet::NewField)> &&
    std::is_same_v<decltype(&T::FieldValue), decltype(&ConfDataSet::FieldValue)> &&
    std::is_same_v<decltype(&T::FieldPrefix), decltype(&ConfDataSet::FieldPrefix)> &&
    std::is_same_v<decltype(&T::FieldSuffix), decltype(&ConfDataSet::FieldSuffix)> &&
    std::is_same_v<decltype(&T::getParams), decltype(&ConfDataSet::getParams)>;

/// A dataset that stands for a whole file, as the cache's factories make it.
class BRISQ_API HeadDataSet : public virtual ConfDataSet {
 public:
  ~HeadDataSet() override;
  /// Gives the dataset back to its cache: called when the last cursor lets go; the object is gone
  /// afterwards.
  virtual void Drop();
  ConfDataSet* Base() override;

 protected:
  HeadDataSet();
};

/// Lines of columns parted by one character, as in the system's own user files. The last column
/// takes the rest of the line.
///
/// Lines that are blank, begin with the separator or a comment character, or have too few columns
/// are kept byte for byte and never offered as records.
class BRISQ_API UnixDataSet : public virtual HeadDataSet, public virtual ConfDataSet {
 public:
  UnixDataSet();
  ~UnixDataSet() override;
  void Parse(Cf line) override;
  std::string NewRecord(Columns& columns) override;
  /// Empty: a column that was never set has no text.
  std::string DummyString() const override;
};

/// Syntax of colon-separated files; always the same object. Any thread.
BRISQ_API std::shared_ptr<mgr_token::Params> UnixConfParams();
