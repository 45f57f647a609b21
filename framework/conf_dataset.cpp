#include "conf_dataset.h"

#include <algorithm>
#include <numeric>

#include "framework/conf_change.h"
#include "framework/conf_document.h"
#include "framework/conf_line.h"
#include "framework/conf_view.h"
#include "mgr_err.h"

namespace {

auto FindColumn(ConfDataSet::Columns& columns, unsigned long column) {
  return std::find_if(columns.begin(), columns.end(),
                      [&](const auto& each) { return each.first == column; });
}

}  // namespace

ConfDataSet::ConfDataSet(ConfDataSet* parent) : parent_(parent) {}

ConfDataSet::~ConfDataSet() = default;

void ConfDataSet::Attach(std::unique_ptr<ConfView> view) { view_ = std::move(view); }

ConfView& ConfDataSet::View() const {
  if (!view_) RefuseNoFile();
  return *view_;
}

void ConfDataSet::RefuseNoFile() const {
  throw mgr_err::Error("internal", RsName(), "a dataset without a file");
}

dd::RecordCache& ConfDataSet::GetCache() { return View(); }

dd::RecordCache* ConfDataSet::getCache(int level) {
  ConfDataSet* dataset = this;
  for (int step = 0; step < level && dataset != nullptr; ++step) dataset = dataset->parent_;
  if (dataset == nullptr || level < 0) {
    throw mgr_err::Error("internal", RsName(), "no parent " + std::to_string(level));
  }
  return &dataset->GetCache();
}

ConfAllocation* ConfDataSet::getAlloc() { return View().Allocation(); }

const mgr_token::Params* ConfDataSet::getParams() { return View().Params(); }

ConfSrc* ConfDataSet::getConfig() { return View().Source(); }

void ConfDataSet::RawRead(int offset, ConfSrc* source, ConfAllocation* allocation) {
  const auto begin = static_cast<std::size_t>(std::max(offset, 0));
  if (begin >= source->bytes.size()) return;
  const auto bytes = std::make_shared<ConfBytes>(source->bytes.substr(begin));
  const ConfDocument document(bytes, *getParams());
  const unsigned long columns = Fields().size();
  for (ConfDocument::Line line = document.NextRecord(0, columns); line != ConfDocument::kNone;
       line = document.NextRecord(line + 1, columns)) {
    allocation->lines.emplace_back(begin + line, document.Text(line).size());
  }
}

void ConfDataSet::onBeforeNew() {}

void ConfDataSet::onBeforePost() {}

void ConfDataSet::onBeforeDelete() {}

void ConfDataSet::onAfterNew() {}

void ConfDataSet::onAfterPost() {}

void ConfDataSet::onAfterDelete() {}

ConfDataSet* ConfDataSet::Base() { return parent_ == nullptr ? this : parent_->Base(); }

void ConfDataSet::Modify() {
  Columns& values = SetValues();
  if (IsNew()) {
    std::string text = NewRecord(values);
    const auto name = FindColumn(values, 1);
    if (name == values.end() || name->second.empty()) RefuseNoName();
    MoveTo(View().Make(ConfChange::Add(name->second, std::move(text)), true));
    return;
  }
  if (const auto name = FindColumn(values, 1); name != values.end() && name->second.empty()) {
    RefuseNoName();
  }
  MoveTo(View().Make(
      ConfChange::Set(View().TargetAt(Current()), Fields().size(), {values.begin(), values.end()}),
      true));
}

void ConfDataSet::RefuseNoName() const {
  throw mgr_err::Error("value", Fields().empty() ? RsName() : Fields().front()->Name(),
                       "must not be empty");
}

void ConfDataSet::Post(const std::string& place) {
  try {
    if (!place.empty()) throw mgr_err::Error("value", "place", "must be empty");
    onBeforePost();
    Modify();
  } catch (...) {
    // What was refused must not be posted with the next change.
    MoveTo(Current());
    throw;
  }
  onAfterPost();
}

const std::vector<std::string_view>& ConfDataSet::Stored() { return View().Stored(Current()); }

void ConfDataSet::Delete() { _Delete(false); }

void ConfDataSet::_Delete(bool save) {
  onBeforeDelete();
  const dd::RecordPtr place = Current();
  View().Make(ConfChange::Remove(View().TargetAt(place), Fields().size()), save);
  // The place of the removed line stays, so that the walk goes on with the one that followed.
  MoveTo(place);
  onAfterDelete();
}

std::string ConfDataSet::FieldValue(const std::string& name, const std::string& value) {
  GetCache().CheckValue(ColumnOf(name), name, value);
  // With room for what comes to stand in front of it.
  std::string stored;
  stored.reserve(value.size() + 1);
  stored = value;
  return stored;
}

unsigned long ConfDataSet::ColumnOf(const std::string& name) const {
  const auto find = [&](const auto& is_it) {
    return std::find_if(Fields().begin(), Fields().end(), is_it);
  };
  // As a rule it is the field's own name, and need not be compared.
  auto field = find([&](const dd::Field* known) { return &known->Name() == &name; });
  if (field == Fields().end()) {
    field = find([&](const dd::Field* known) { return known->Name() == name; });
  }
  if (field == Fields().end()) throw mgr_err::Error("internal", RsName(), "no field " + name);
  return (*field)->Column();
}

std::string ConfDataSet::FieldPrefix(const std::string& name) {
  const bool first = !Fields().empty() && Fields().front()->Name() == name;
  return first ? std::string() : std::string(1, getParams()->separator);
}

std::string ConfDataSet::FieldSuffix(const std::string&) { return {}; }

std::string ConfDataSet::NewField(const std::string& name, const std::string& value) {
  std::string text = FieldValue(name, value);
  text.insert(0, FieldPrefix(name));
  text += FieldSuffix(name);
  return text;
}

void ConfDataSet::CheckPlain(std::string_view line, Columns& columns) {
  if (line.empty()) return;
  const mgr_token::Params& params = *getParams();
  const auto last = FindColumn(columns, Fields().size());
  // The last column may hold separators.
  const std::string_view checked = line.substr(0, line.size() - last->second.size());
  if (conf_line::CountColumns(checked, params.separator) == Fields().size() &&
      !conf_line::HasSpecial(line, '\n') && params.comment.find(line[0]) == std::string::npos) {
    return;
  }
  for (const dd::Field* field : Fields()) {
    GetCache().CheckValue(field->Column(), field->Name(),
                          FindColumn(columns, field->Column())->second);
  }
}

std::string ConfDataSet::NewRecordTemplate() {
  Columns none;
  return NewRecord(none);
}

void ConfDataSet::Erase(unsigned long column) { SetField(column, {}); }

HeadDataSet::HeadDataSet() : ConfDataSet(nullptr) {}

HeadDataSet::~HeadDataSet() = default;

void HeadDataSet::Drop() { delete this; }

ConfDataSet* HeadDataSet::Base() { return this; }

UnixDataSet::UnixDataSet() : ConfDataSet(nullptr) {}

UnixDataSet::~UnixDataSet() = default;

void UnixDataSet::Parse(Cf line) {
  const unsigned long columns = Fields().size();
  const char separator = getParams()->separator;
  for (unsigned long column = 1; column <= columns; ++column) {
    SetField(column, std::string(conf_line::Column(line.line, separator, columns, column)));
  }
}

std::string UnixDataSet::NewRecord(Columns& columns) {
  std::string line;
  line.reserve(Fields().size() + std::accumulate(columns.begin(), columns.end(), std::size_t{0},
                                                 [](std::size_t sum, const auto& column) {
                                                   return sum + column.second.size();
                                                 }));
  const char separator = getParams()->separator;
  auto value = columns.begin();
  for (const dd::Field* field : Fields()) {
    // The one that follows, as a rule.
    if (value == columns.end() || value->first != field->Column()) {
      value = FindColumn(columns, field->Column());
    }
    if (value == columns.end()) {
      value = AddColumn(columns, columns.end(), field->Column(), DummyString());
    }
    if (!is_plain_) {
      line += NewField(field->Name(), value->second);
    } else {
      if (field->Column() > 1) line += separator;
      line += value->second;
    }
    ++value;
  }
  if (is_plain_) CheckPlain(line, columns);
  return line;
}

std::string UnixDataSet::DummyString() const { return {}; }

std::shared_ptr<mgr_token::Params> UnixConfParams() {
  static const auto params = std::make_shared<mgr_token::Params>();
  return params;
}
