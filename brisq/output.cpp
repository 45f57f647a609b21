#include "brisq/output.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <ostream>

#include "brisq/exit_codes.h"

namespace brisq {
namespace {

std::string Text(const Value& value) {
  if (const auto* text = std::get_if<std::string>(&value))
    return text->empty() ? "-" : Printable(*text);
  if (const auto* number = std::get_if<long>(&value)) return std::to_string(*number);
  return std::get<bool>(value) ? "yes" : "no";
}

nlohmann::ordered_json Json(const Record& record) {
  nlohmann::ordered_json object = nlohmann::ordered_json::object();
  for (const auto& [name, value] : record)
    std::visit([&, &key = name](const auto& held) { object[key] = held; }, value);
  return object;
}

std::string Title(std::string name) {
  std::replace(name.begin(), name.end(), '_', ' ');
  std::transform(name.begin(), name.end(), name.begin(),
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  return name;
}

using Cells = std::vector<std::string>;

std::vector<std::size_t> Widths(const std::vector<Cells>& rows) {
  std::vector<std::size_t> widths(rows.front().size());
  for (const Cells& row : rows)
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], row[i].size());
  return widths;
}

std::string Line(const Cells& row, const std::vector<std::size_t>& widths) {
  std::string line;
  for (std::size_t i = 0; i + 1 < row.size(); ++i)
    line += fmt::format("{:<{}}", row[i], widths[i] + 2);
  return line + row.back();
}

}  // namespace

void Output::Add(Record record, Layout layout) {
  layout_ = layout;
  rows_.push_back(record);
  records_.push_back(std::move(record));
}

void Output::Bare(const std::string& line, Record record) {
  bare_.push_back(line);
  Add(std::move(record), Layout::kBare);
}

void Output::Say(const std::string& line) {
  if (!json_) console_.err << (dry_run_ ? "dry run: " : "") << Printable(line) << "\n";
}

void Output::WouldHappen(const std::string& effect) {
  effects_.push_back(effect);
  Say(effect);
}

void Output::Warn(const std::string& line) {
  warnings_.push_back(line);
  console_.err << "brisq: warning: " << Printable(line) << "\n";
}

std::string Output::Loss() const {
  return "can't be written" + (advice_.empty() ? "" : "; " + advice_);
}

void Output::Finish() {
  if (json_) return WriteJson();
  switch (layout_) {
    case Layout::kTable:
      return WriteTable();
    case Layout::kList:
      return WriteList();
    case Layout::kBare:
      for (const std::string& line : bare_) console_.out << line << "\n";
  }
}

void Output::WriteJson() const {
  nlohmann::ordered_json document = {
      {"brisq", 1}, {"data", nlohmann::ordered_json::array()}, {"warnings", warnings_}};
  if (dry_run_) document["dry_run"] = effects_;
  for (const Record& record : records_) document["data"].push_back(Json(record));
  for (const auto& [name, records] : beside_)
    for (const Record& record : records) document[name].push_back(Json(record));
  // Bytes that are no UTF-8 can only come from outside; they must not make the listing fail.
  console_.out << document.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace)
               << "\n";
}

void Output::WriteTable() const {
  if (rows_.empty()) return;
  std::vector<Cells> rows(1);
  for (const auto& [name, value] : rows_.front()) rows[0].push_back(Title(name));
  for (const Record& record : rows_) {
    Cells& row = rows.emplace_back();
    for (const auto& [name, value] : record) row.push_back(Text(value));
  }
  const std::vector<std::size_t> widths = Widths(rows);
  for (const Cells& row : rows) console_.out << Line(row, widths) << "\n";
}

void Output::WriteList() const {
  for (const Record& record : rows_) {
    std::vector<Cells> rows;
    for (const auto& [name, value] : record) rows.push_back({name + ":", Text(value)});
    const std::vector<std::size_t> widths = Widths(rows);
    for (const Cells& row : rows) console_.out << Line(row, widths) << "\n";
  }
}

}  // namespace brisq
