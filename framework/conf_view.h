#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "brisq_export.h"
#include "conf_dataset.h"
#include "dd.h"
#include "framework/conf_change.h"
#include "framework/conf_document.h"
#include "framework/conf_file.h"

/// One cursor's view of a file: the records of its document, and a place among them.
///
/// The place is kept by line and, for when somebody else's edit has replaced the document, by name:
/// the walk goes on behind the line with that name, or, when that is gone, at the next line of the
/// old document that the new one still has. One place is kept, the one given out last. Threads as
/// dd::Record.
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

  void Follow(const std::shared_ptr<const ConfDocument>& document);
  void FollowNeighbour(const ConfDocument& document);
  bool IsAt(dd::RecordPtr place) const noexcept { return place.at == serial_; }
  dd::RecordPtr Place(Line line);

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
  std::string source_text_;
  ConfSrc source_;
  ConfAllocation allocation_;
};
