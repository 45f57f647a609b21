#include "mgr_db.h"

#include <algorithm>
#include <mutex>
#include <unordered_map>

#include "framework/database.h"
#include "framework/seal.h"
#include "mgr_err.h"
#include "str.h"

namespace mgr_db {

namespace {

constexpr const char* kOn = "on";
constexpr const char* kOff = "off";

std::string Placeholder(std::size_t number) { return ":v" + std::to_string(number); }

std::string Joined(const std::vector<std::string>& parts, const std::string& between) {
  std::string text;
  for (const std::string& part : parts) {
    text += text.empty() ? part : between + part;
  }
  return text;
}

}  // namespace

Field::Field(CustomTable* table, const std::string& name) : name_(name) {
  table->fields_.push_back(this);
}
Field::~Field() = default;
std::string Field::AsString() const { return stored_; }
void Field::SetStored(const std::string& value) { stored_ = value; }

StringField::operator std::string() const { return Stored(); }
StringField& StringField::operator=(const std::string& value) {
  Assign(value);
  return *this;
}
void StringField::Assign(const std::string& value) { SetStored(value); }
const char* StringField::SqlType() const noexcept { return "TEXT"; }

IntField::operator int() const { return str::Int(Stored()); }
IntField& IntField::operator=(int value) {
  SetStored(std::to_string(value));
  return *this;
}
std::string IntField::AsString() const { return std::to_string(str::Int(Stored())); }
const char* IntField::SqlType() const noexcept { return "INTEGER"; }

BoolField::operator bool() const { return Stored() == kOn; }
BoolField& BoolField::operator=(bool value) {
  SetStored(value ? kOn : kOff);
  return *this;
}
std::string BoolField::AsString() const { return *this ? kOn : kOff; }
const char* BoolField::SqlType() const noexcept { return "TEXT"; }

SealedField::operator std::string() const {
  return Stored().empty() ? std::string() : mgr_seal::Open(Stored());
}
void SealedField::Assign(const std::string& value) {
  SetStored(value.empty() ? value : mgr_seal::Seal(value));
}

CustomTable::CustomTable(const std::string& table) : table_(table) {}
CustomTable::~CustomTable() = default;

void CustomTable::New() {
  for (Field* field : fields_) {
    field->SetStored({});
  }
  loaded_.clear();
  is_new_ = true;
}

void CustomTable::Load(const std::vector<std::string>& row) {
  for (std::size_t i = 0; i < fields_.size(); ++i) {
    fields_[i]->SetStored(row[i]);
  }
  loaded_ = row;
  is_new_ = false;
}

void CustomTable::SetKey(const std::vector<const Field*>& columns) {
  key_.clear();
  for (const Field* column : columns) {
    const auto at = std::find(fields_.begin(), fields_.end(), column);
    key_.push_back(static_cast<std::size_t>(at - fields_.begin()));
  }
}

bool CustomTable::DbFind(const Match& match) {
  const std::shared_ptr<Connection> connection = ThreadConnection();
  const Connection::Row* row = connection->Find(*this, match);
  if (row == nullptr) {
    return false;
  }
  Load(*row);
  return true;
}

void CustomTable::Assert(int id) {
  if (!DbFind({{"id", std::to_string(id)}})) {
    throw mgr_err::Error("missed", table_, std::to_string(id));
  }
}

void CustomTable::DbSelect(const Match& match, const std::string& order) {
  selected_ = ThreadConnection()->Select(*this, match, order);
  at_ = 0;
  if (!Eof()) {
    Load(selected_[at_]);
  }
}

void CustomTable::Next() {
  if (!Eof() && ++at_ < selected_.size()) {
    Load(selected_[at_]);
  }
}

void CustomTable::Post() {
  if (is_new_) {
    Insert();
  } else {
    Update();
  }
}

void CustomTable::Insert() {
  std::vector<std::string> columns, marks, values;
  for (const Field* field : fields_) {
    if (field != fields_.front()) {
      columns.push_back(field->name());
      values.push_back(field->AsString());
      marks.push_back(Placeholder(values.size()));
    }
  }
  const int id =
      ThreadConnection()->Insert("INSERT INTO " + table_ + " (" + Joined(columns, ", ") +
                                     ") VALUES (" + Joined(marks, ", ") + ") RETURNING id",
                                 values);
  fields_.front()->SetStored(std::to_string(id));
  loaded_.clear();
  for (const Field* field : fields_) {
    loaded_.push_back(field->AsString());
  }
  is_new_ = false;
}

void CustomTable::Update() {
  Match changes;
  std::vector<std::size_t> places;
  for (std::size_t i = 0; i < fields_.size(); ++i) {
    if (fields_[i]->Stored() == loaded_[i]) {
      continue;
    }
    std::string value = fields_[i]->AsString();
    if (value != loaded_[i]) {
      changes.emplace_back(fields_[i]->name(), std::move(value));
      places.push_back(i);
    }
  }
  if (changes.empty()) {
    return;
  }
  ThreadConnection()->Update(*this, loaded_.front(), changes);
  for (std::size_t i = 0; i < places.size(); ++i) {
    loaded_[places[i]] = std::move(changes[i].second);
  }
}

void CustomTable::DbDelete() {
  ThreadConnection()->Change("DELETE FROM " + table_ + " WHERE id = :v1",
                             {fields_.front()->AsString()});
  New();
}

void CustomTable::DbDelete(const std::string& condition) {
  ThreadConnection()->Change("DELETE FROM " + table_ + " WHERE " + condition);
}

std::string CustomTable::Schema() const {
  std::vector<std::string> columns;
  for (const Field* field : fields_) {
    columns.push_back(field == fields_.front()
                          ? field->name() + " INTEGER PRIMARY KEY AUTOINCREMENT"
                          : field->name() + " " + field->SqlType() + " NOT NULL");
  }
  return "CREATE TABLE IF NOT EXISTS " + table_ + " (" + Joined(columns, ", ") + ")";
}

// What Put keeps of each class: more than one thread uses at once, and little memory.
constexpr std::size_t kMostInStock = 64;

struct Cache::Stock {
  struct Shelf {
    Factory factory;
    std::vector<std::unique_ptr<CustomTable>> tables;
  };
  std::mutex mutex;
  std::unordered_map<std::string, Shelf> shelves;
};

Cache::Cache() : stock_(std::make_unique<Stock>()) {}
Cache::~Cache() = default;

void Cache::Add(const std::string& name, Factory factory) {
  const std::lock_guard lock(stock_->mutex);
  stock_->shelves[name].factory = factory;
}

CustomTable* Cache::Get(const std::string& name) {
  const std::string plain = name.substr(str::StartsWith(name, "*") ? 1 : 0);
  Factory factory = nullptr;
  {
    const std::lock_guard lock(stock_->mutex);
    const auto shelf = stock_->shelves.find(plain);
    if (shelf == stock_->shelves.end()) {
      throw mgr_err::Error("internal", "table cache", "no table class " + plain);
    }
    if (!shelf->second.tables.empty()) {
      CustomTable* table = shelf->second.tables.back().release();
      shelf->second.tables.pop_back();
      return table;
    }
    factory = shelf->second.factory;
  }
  return factory();
}

void Cache::Put(CustomTable* table) noexcept {
  std::unique_ptr<CustomTable> owned(table);
  if (!owned) {
    return;
  }
  try {
    owned->New();
    owned->selected_.clear();
    owned->at_ = 0;
    const std::lock_guard lock(stock_->mutex);
    const CustomTable& object = *owned;
    const auto shelf = stock_->shelves.find(typeid(object).name());
    if (shelf != stock_->shelves.end() && shelf->second.tables.size() < kMostInStock) {
      shelf->second.tables.push_back(std::move(owned));
    }
  } catch (...) {
    // No memory: one table object less.
  }
}

}  // namespace mgr_db
