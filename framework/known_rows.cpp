#include "framework/known_rows.h"

#include <algorithm>
#include <charconv>

namespace mgr_db {

namespace {

// Finds that must have gone up before rows are read ahead: by chance that many hardly ever do.
constexpr std::size_t kLeastCredit = 8;

// Values may hold the mark between them, so whoever finds by it compares the values too.
void Append(std::string& joined, const std::string& value) {
  joined += value;
  joined += '\0';
}

}  // namespace

KnownRows::KnownRows(const CustomTable& table)
    : type_(typeid(table)), key_(table.Key()), width_(table.Fields().size()) {}

bool KnownRows::IsKey(const CustomTable& table, const Match& match) {
  const std::vector<std::size_t>& key = table.Key();
  return !key.empty() && std::equal(key.begin(), key.end(), match.begin(), match.end(),
                                    [&](std::size_t column, const auto& pair) {
                                      return table.Fields()[column]->name() == pair.first;
                                    });
}

long long KnownRows::Number(const std::string& text) {
  long long number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

std::string KnownRows::Joined(const KnownRow& row) const {
  std::string joined;
  for (const std::size_t column : key_) {
    Append(joined, row.columns[column]);
  }
  return joined;
}

bool KnownRows::Matches(const KnownRow& row, const Match& match) const {
  for (std::size_t i = 0; i < match.size(); ++i) {
    if (row.columns[key_[i]] != match[i].second) {
      return false;
    }
  }
  return !row.gone;
}

const KnownRow* KnownRows::Find(const Match& match) {
  const std::size_t place = PlaceOf(match);
  if (place == kNowhere) {
    return nullptr;
  }
  current_ = place;
  found_ = rows_[current_].id;
  ++credit_;
  return &rows_[current_];
}

// Who walks asks for one row again and again, or for all in the order in which they were read.
std::size_t KnownRows::PlaceOf(const Match& match) {
  const std::size_t next = current_ + 1;
  if (current_ < used_ && Matches(rows_[current_], match)) {
    return current_;
  }
  if (next >= block_ && next < used_ && Matches(rows_[next], match)) {
    return next;
  }
  return PlaceByKey(match);
}

std::size_t KnownRows::PlaceByKey(const Match& match) {
  for (; entered_ < used_; ++entered_) {
    places_.insert_or_assign(Joined(rows_[entered_]), entered_);
  }
  joined_.clear();
  for (const auto& [column, value] : match) {
    Append(joined_, value);
  }
  const auto place = places_.find(joined_);
  const bool is_there = place != places_.end() && Matches(rows_[place->second], match);
  return is_there ? place->second : kNowhere;
}

void KnownRows::Add(const std::vector<std::string>& columns) {
  Next() = columns;
  const long long id = Number(columns.front());
  Enter(id);
  block_ = kNowhere;
  current_ = used_ - 1;
  credit_ = id > found_ ? credit_ + 1 : 0;
  found_ = id;
}

std::size_t KnownRows::Wanted() const noexcept {
  return credit_ < kLeastCredit ? 0 : std::clamp(2 * credit_, kLeastAhead, kMostAhead);
}

void KnownRows::BeginAhead() {
  if (used_ + Wanted() > kMost) {
    std::swap(rows_.front(), rows_[current_]);
    current_ = 0;
    ForgetBehind(1);
  }
  ahead_ = found_;
  block_ = used_;
  credit_ = 0;
}

void KnownRows::ForgetBehind(std::size_t kept) {
  used_ = kept;
  places_.clear();
  entered_ = 0;
  block_ = kNowhere;
}

std::vector<std::string>& KnownRows::Next() {
  if (used_ == kMost) {
    ForgetBehind(0);
  }
  if (used_ == rows_.size()) {
    rows_.emplace_back().columns.resize(width_);
  }
  return rows_[used_].columns;
}

void KnownRows::EnterNext() {
  Enter(ahead_);
  ahead_ = rows_[used_ - 1].id;
}

void KnownRows::Enter(long long after) {
  KnownRow& row = rows_[used_];
  row.id = Number(row.columns.front());
  row.after = after;
  row.gone = false;
  ++used_;
}

const KnownRow* KnownRows::Current(long long id) const noexcept {
  const bool is_known = current_ < used_ && rows_[current_].id == id && !rows_[current_].gone;
  return is_known ? &rows_[current_] : nullptr;
}

}  // namespace mgr_db
