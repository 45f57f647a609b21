#include "panel/file_stamps.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <thread>

#include "brisq_db.h"
#include "panel/records.h"
#include "panel/refresh_watch.h"
#include "str.h"

namespace brisq_panel {

namespace {

// The parts of a stamp, in order.
constexpr std::array<const char*, 5> kParts = {"device", "inode", "size", "modification time",
                                               "change time"};

std::string Difference(const std::string& before, const std::string& now) {
  std::string old_rest = before, new_rest = now, text;
  for (const char* part : kParts) {
    const std::string old_part = str::GetWord(old_rest);
    const std::string new_part = str::GetWord(new_rest);
    if (old_part != new_part) {
      text += (text.empty() ? "" : ", ") + std::string(part) + " " + old_part + " -> " + new_part;
    }
  }
  return text;
}

}  // namespace

ConfStamp SettledStamp(const std::string& path) {
  constexpr int kMostLooks = 250;
  for (int looks = 1;; ++looks) {
    const std::int64_t clock = FileClock() - kClockAside;
    const ConfStamp stamp = StampAt(path);
    if (!stamp.exists || IsSettled(stamp, clock) || looks == kMostLooks) return stamp;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
}

FileStamps::FileStamps()
    : CustomTable("file_stamps"), id(this, "id"), path(this, "path"), stamp(this, "stamp") {}

std::string FileStamps::Schema() const {
  return "CREATE TABLE IF NOT EXISTS file_stamps ("
         "id INTEGER PRIMARY KEY AUTOINCREMENT, path TEXT NOT NULL UNIQUE, stamp TEXT NOT NULL)";
}

std::string StampText(const ConfStamp& stamp) {
  if (!stamp.exists) {
    return {};
  }
  return std::to_string(stamp.device) + " " + std::to_string(stamp.inode) + " " +
         std::to_string(stamp.size) + " " + std::to_string(stamp.modified) + " " +
         std::to_string(stamp.changed);
}

std::string RecordedStamp(const std::string& path) {
  const auto stamps = Table<FileStamps>();
  return stamps->DbFind({{"path", path}}) ? std::string(stamps->stamp) : std::string();
}

void RecordStamp(const std::string& path, const std::string& stamp) {
  const auto stamps = Table<FileStamps>();
  if (!stamps->DbFind({{"path", path}})) {
    stamps->path = path;
  }
  stamps->stamp = stamp;
  stamps->Post();
}

}  // namespace brisq_panel

namespace brisq_db {

bool FileIsChanged(const std::string& path, std::string& text) {
  text.clear();
  const ConfStamp stamp = brisq_panel::SettledStamp(path);
  const std::string now = brisq_panel::StampText(stamp);
  const std::string before = brisq_panel::RecordedStamp(path);
  if (!now.empty() && now != before) {
    text = before.empty() ? "not read before" : brisq_panel::Difference(before, now);
  }
  brisq_panel::RefreshWatch::SawFile(path, stamp, !text.empty());
  return !text.empty();
}

}  // namespace brisq_db
