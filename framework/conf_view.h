#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "brisq_export.h"
#include "conf_dataset.h"
#include "dd.h"
#include "framework/conf_change.h"
#include "framework/conf_document.h"
#include "framework/conf_file.h"
#include "framework/conf_run.h"
#include "framework/recent_look.h"

/// One cursor's view of a file: the records of its document, and a place among them.
///
/// The place is kept by line and, for when somebody else's edit has replaced the document, by name:
/// the walk goes on behind the line with that name, or, when that is gone, at the next line of the
/// old document that the new one still has. One place is kept, the one given out last. Threads as
/// dd::Record.
///
/// A walk takes neither lock nor system call for a line, as long as nothing changes: it looks at
/// the version of the document for each step, and at the file's stamp after 5 ms.
class BRISQ_API ConfView : public dd::RecordCache {
 public:
  /// @param dataset  whose fields the columns are and whose hooks are called; owns the view
  ConfView(std::shared_ptr<ConfFile> file, ConfDataSet& dataset);

  dd::RecordPtr First() override;
  dd::RecordPtr Next(dd::RecordPtr place) override;
  dd::RecordPtr Find(const std::string& key) override;
  std::string Value(dd::RecordPtr place, unsigned long column) override;
  void CheckValue(unsigned long column, const std::string& field,
                  const std::string& value) const override;
  void BeforeNew() override;
  void AfterNew() override;

  /// All columns of the record at a place as they are stored now; none when it is gone. Good until
  /// the next call of this view.
  const std::vector<std::string_view>& Stored(dd::RecordPtr place);
  /// The line at a place, as a change is aimed at it.
  ConfChange::Target TargetAt(dd::RecordPtr place);
  /// Makes a change, durable when asked for and no scope defers that.
  /// @return the place of the line that it has left, none after a removal
  /// @throws as ConfFile::Apply and ConfFile::Save
  dd::RecordPtr Make(ConfChange change, bool durable);

  const mgr_token::Params& Syntax() const noexcept { return syntax_; }
  unsigned long Columns() const { return dataset_.Fields().size(); }
  const std::string& path() const noexcept { return file_->path(); }

  /// What getConfig, getAlloc and getParams hand out; good until the next call of the same.
  ConfSrc* Source();
  ConfAllocation* Allocation();
  const mgr_token::Params* Params() const noexcept { return &syntax_; }

 private:
  using Line = ConfDocument::Line;
  static constexpr std::uint64_t kNeverParted = ~std::uint64_t{0};

  void Follow(const std::shared_ptr<const ConfDocument>& document);
  void FollowNeighbour(const ConfDocument& document);
  bool IsAt(dd::RecordPtr place) const noexcept { return place.at == serial_; }
  void Settle(Line line);
  dd::RecordPtr Place(Line line);
  void Part();
  bool Step();

  const std::shared_ptr<ConfFile> file_;
  ConfDataSet& dataset_;
  const mgr_token::Params syntax_;
  // The place: a line of the document and its name. When its record is gone with the document it
  // was in, `gone_` is set and the line is the one that follows.
  std::shared_ptr<const ConfDocument> document_;
  Line line_ = ConfDocument::kNone;
  std::string name_;
  bool gone_ = false;
  std::size_t serial_ = 0;
  // Its columns, which refer to the document's bytes, or to the copy when the line is none of
  // those; right while the file has this version.
  std::vector<std::string_view> columns_;
  std::string copy_;
  std::uint64_t parted_version_ = kNeverParted;
  // What follows, as the file's version `run_version_` has it.
  ConfRun run_;
  std::uint64_t run_version_ = 0;
  RecentLook looked_;  // at the file's stamp
  std::string source_text_;
  ConfSrc source_;
  ConfAllocation allocation_;
};
