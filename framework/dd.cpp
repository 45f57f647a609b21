#include "dd.h"

#include <string.h>

#include <algorithm>

#include "mgr_err.h"

namespace dd {

RecordCache::~RecordCache() = default;

void RecordCache::BeforeNew() {}

void RecordCache::AfterNew() {}

Record::Record() = default;

Record::~Record() = default;

void Record::AddField(const std::string&, Field* field) { fields_.push_back(field); }

std::string Record::RsName() const { return "unknown"; }

std::string Record::KeyVal(RecordPtr place) const {
  // Reading changes nothing that a caller could see; storages may still have to look at their file.
  return place ? const_cast<Record*>(this)->GetCache().Value(place, 1) : std::string();
}

bool Record::Find(const std::string& key) {
  const RecordPtr found = GetCache().Find(key);
  if (!found) return false;
  MoveTo(found);
  return true;
}

void Record::New() {
  GetCache().BeforeNew();
  MoveTo(RecordPtr{});
  is_new_ = true;
  GetCache().AfterNew();
}

std::string Record::GetField(unsigned long column) const {
  const auto set = std::find_if(set_.begin(), set_.end(),
                                [&](const auto& each) { return each.first == column; });
  if (set != set_.end()) return set->second;
  if (is_new_) return DummyString();
  return current_ ? const_cast<Record*>(this)->GetCache().Value(current_, column) : std::string();
}

void Record::SetField(unsigned long column, const std::string& value) {
  if (column == 0 || column > fields_.size()) {
    throw mgr_err::Error("internal", RsName(), "no column " + std::to_string(column));
  }
  GetCache().CheckValue(column, fields_[column - 1]->Name(), value);
  // Columns are set in their order, as a rule.
  auto place = set_.end();
  while (place != set_.begin() && std::prev(place)->first >= column) --place;
  AddColumn(set_, place, column, value);
  if (place != set_.end() && place->first == column) Drop(place, std::next(place));
}

Record::Columns::iterator Record::AddColumn(Columns& columns, Columns::const_iterator before,
                                            unsigned long column, const std::string& value) {
  if (spare_.empty()) spare_.emplace_back();
  const auto added = spare_.begin();
  added->first = column;
  added->second = value;
  columns.splice(before, spare_, added);
  return added;
}

void Record::Drop(Columns::iterator first, Columns::iterator last) noexcept {
  for (auto each = first; each != last; ++each) {
    std::string& value = each->second;
    if (!value.empty()) ::explicit_bzero(value.data(), value.size());
    value.clear();
  }
  spare_.splice(spare_.begin(), set_, first, last);
  // Whoever stores a record may have added any number.
  while (spare_.size() > fields_.size()) spare_.pop_back();
}

void Record::First() { MoveTo(GetCache().First()); }

void Record::Next() { MoveTo(current_ ? GetCache().Next(current_) : RecordPtr{}); }

void Record::Assert(const std::string& key) {
  if (!Find(key)) throw mgr_err::Error("missed", "name", key);
}

void Record::MoveTo(RecordPtr place) {
  current_ = place;
  is_new_ = false;
  if (!set_.empty()) Drop(set_.begin(), set_.end());
}

Field::Field(Record* owner, const std::string& name, bool (*check)(std::string&))
    : owner_(owner), name_(name), check_(check), column_(0) {
  owner_->AddField(name_, this);
  column_ = owner_->Fields().size();
}

std::string Field::Str() const { return owner_->GetField(column_); }

void Field::Set(const std::string& value) {
  if (check_ == nullptr) return owner_->SetField(column_, value);
  std::string canonical = value;
  if (!check_(canonical)) {
    throw mgr_err::Error("value", name_, "is not of the form that this field takes");
  }
  owner_->SetField(column_, canonical);
}

}  // namespace dd
