#include "panel/file_stamps.h"

#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <list>

#include "brisq_db.h"
#include "framework/file_error.h"
#include "panel/records.h"
#include "panel/refresh_watch.h"
#include "str.h"

namespace brisq_panel {

namespace {

std::string Nanoseconds(const timespec& time) {
  return str::Str(time.tv_sec) + "." + str::Str(time.tv_nsec);
}

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

FileStamps::FileStamps()
    : CustomTable("file_stamps"), id(this, "id"), path(this, "path"), stamp(this, "stamp") {}

std::string FileStamps::Schema() const {
  return "CREATE TABLE IF NOT EXISTS file_stamps ("
         "id INTEGER PRIMARY KEY AUTOINCREMENT, path TEXT NOT NULL UNIQUE, stamp TEXT NOT NULL)";
}

std::string CurrentStamp(const std::string& path) {
  struct stat state {};
  if (::stat(path.c_str(), &state) != 0) {
    if (errno == ENOENT || errno == ENOTDIR) {
      return {};
    }
    throw mgr_file::FileError(path, "stat");
  }
  return std::to_string(state.st_dev) + " " + std::to_string(state.st_ino) + " " +
         std::to_string(state.st_size) + " " + Nanoseconds(state.st_mtim) + " " +
         Nanoseconds(state.st_ctim);
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
  const std::string now = brisq_panel::CurrentStamp(path);
  const std::string before = brisq_panel::RecordedStamp(path);
  if (!now.empty() && now != before) {
    text = before.empty() ? "not read before" : brisq_panel::Difference(before, now);
  }
  brisq_panel::RefreshWatch::SawFile(path, now, !text.empty());
  return !text.empty();
}

}  // namespace brisq_db
