#include "framework/journal.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <map>
#include <thread>
#include <utility>

#include "framework/file_steps.h"
#include "mgr_err.h"
#include "mgr_file.h"
#include "str.h"

namespace journal {

namespace {

constexpr std::size_t kIdDigits = 16;
constexpr const char* kSettled = "settled";
constexpr const char* kTold = "told";

struct Place {
  std::mutex mutex;
  std::string folder;
};

Place& ThePlace() {
  static Place& place = *new Place;  // requests of other threads may outlive the statics
  return place;
}

void MakeFolder(const std::string& folder) {
  if (sys::MkDir(AT_FDCWD, folder.c_str(), 0700) == 0) {
    file_steps::SyncDirectoryAt(mgr_file::SplitPath(folder).first, folder);
  } else if (errno != EEXIST) {
    sys::Fail("mkdir", folder);
  }
}

bool IsId(const std::string& name) {
  return name.size() == kIdDigits &&
         name.find_first_not_of("0123456789abcdef") == std::string::npos;
}

std::vector<std::string> IdsIn(const std::string& folder) {
  std::vector<std::string> ids;
  if (folder.empty() || !mgr_file::Exists(folder)) {
    return ids;
  }
  for (mgr_file::Dir directory(folder); directory.Read();) {
    if (IsId(directory.name())) {
      ids.push_back(directory.name());
    }
  }
  std::sort(ids.begin(), ids.end());
  return ids;
}

// Nothing when the entry has gone meanwhile.
Descriptor OpenEntryFile(const std::string& path, int access) {
  Descriptor file(sys::Open(AT_FDCWD, path.c_str(), access | O_NOFOLLOW));
  if (!file && errno != ENOENT) {
    sys::Fail("open", path);
  }
  return file;
}

bool TryLock(int fd, int kind, const std::string& path) {
  if (sys::FLock(fd, kind | LOCK_NB) == 0) {
    return true;
  }
  if (errno != EWOULDBLOCK) {
    sys::Fail("flock", path);
  }
  return false;
}

// True when nobody holds the entry. Shared, so that of several who look each sees the same.
bool IsWithoutHolder(int fd, const std::string& path) { return TryLock(fd, LOCK_SH, path); }

// True when nobody held the entry, which this descriptor holds from now on.
bool TakeHold(int fd, const std::string& path) {
  constexpr auto kNap = std::chrono::milliseconds(1);
  constexpr int kNaps = 10'000;
  for (int nap = 0; nap < kNaps; ++nap) {
    if (TryLock(fd, LOCK_EX, path)) {
      return true;
    }
    if (!IsWithoutHolder(fd, path)) {
      return false;
    }
    // Others only look at it, which takes them a moment.
    sys::FLock(fd, LOCK_UN);
    std::this_thread::sleep_for(kNap);
  }
  throw mgr_err::Error("locked", path, "others look at it all the time");
}

// A process may have ended its request, or another one the recovery, before the hold was taken.
bool IsStillThere(int fd) {
  struct stat state {};
  return sys::FStat(fd, &state) == 0 && state.st_nlink > 0;
}

// A step that was noted again, because somebody else had changed the file meanwhile, has the place
// of the first note and the values of the last.
std::vector<Step> WithoutSuperseded(const std::vector<Step>& all) {
  std::vector<Step> steps;
  std::map<std::string, std::size_t> places;
  for (const Step& step : all) {
    const std::string& key = step.Value("key");
    const auto known = places.find(key);
    if (!key.empty() && known != places.end()) {
      steps[known->second] = step;
      continue;
    }
    places[key] = steps.size();
    steps.push_back(step);
  }
  return steps;
}

// Takes what recoveries have added out of the records.
void TakeMarks(Left& left, std::vector<Step>& all) {
  std::erase_if(all, [&left](const Step& step) {
    if (step.kind == kTold) {
      left.owed.clear();
      return true;
    }
    if (step.kind != kSettled) {
      return false;
    }
    left.settled.insert(static_cast<std::size_t>(str::Int(step.Value("step"))));
    if (!step.Value("changed").empty()) {
      left.owed.insert(step.Value("changed"));
    }
    return true;
  });
}

Left FromContent(const std::string& id, const std::string& path, const std::string& content) {
  Left left{id, path, {}, {}, {}, {}};
  std::vector<Step> all = FromRecords(content);
  if (!all.empty()) {
    left.head = all.front();
    all.erase(all.begin());
    TakeMarks(left, all);
    left.steps = WithoutSuperseded(all);
  }
  return left;
}

OpenEntry Described(const Left& left) {
  OpenEntry entry{left.id,
                  left.head.Value("name"),
                  left.head.Value("who"),
                  left.head.Value("started"),
                  false,
                  {},
                  {}};
  for (std::size_t place = 0; place < left.steps.size(); ++place) {
    if (left.settled.contains(place)) {
      continue;
    }
    const Step& step = left.steps[place];
    if (!step.Value("what").empty()) {
      entry.steps.push_back(step.Value("what"));
    }
    if (!step.Value("aside").empty()) {
      entry.asides.insert(step.Value("aside"));
    }
  }
  return entry;
}

}  // namespace

void SetFolder(const std::string& folder) {
  const std::lock_guard lock(ThePlace().mutex);
  ThePlace().folder = folder;
}

std::string Folder() {
  const std::lock_guard lock(ThePlace().mutex);
  return ThePlace().folder;
}

Entry::Entry(std::string id, Step head)
    : id_(std::move(id)), head_(std::move(head)), folder_(Folder()) {}

Entry::~Entry() = default;

bool Entry::IsOpen() const {
  const std::lock_guard lock(mutex_);
  return static_cast<bool>(file_);
}

void Entry::Open() {
  MakeFolder(folder_);
  const std::string path = mgr_file::ConcatPath(folder_, id_);
  constexpr int kFlags = O_WRONLY | O_CREAT | O_APPEND | O_NOFOLLOW;
  // Who looks for dead entries may find it before it is locked, and remove it as an empty one.
  for (bool there = false; !there;) {
    file_ = Descriptor(sys::Open(AT_FDCWD, path.c_str(), kFlags, 0600));
    if (!file_) {
      sys::Fail("open", path);
    }
    if (sys::FLock(file_.get(), LOCK_EX) != 0) {
      const int error = errno;
      file_ = Descriptor();
      errno = error;
      sys::Fail("flock", path);
    }
    there = IsStillThere(file_.get());
  }
}

void Entry::Append(const std::string& text) {
  file_steps::WriteAll(file_.get(), text, mgr_file::ConcatPath(folder_, id_),
                       "the step was not taken");
  dirty_ = true;
}

void Entry::Write(const std::vector<Step>& steps, bool durable) {
  {
    const std::lock_guard lock(mutex_);
    if (folder_.empty()) {
      return;
    }
    std::string text;
    if (!file_) {
      Open();
      is_new_ = true;
      text = Record(head_);
    }
    for (const Step& step : steps) {
      text += Record(step);
    }
    Append(text);
  }
  if (durable) {
    Sync();
  }
}

void Entry::Sync() {
  const std::lock_guard lock(mutex_);
  if (!dirty_) {
    return;
  }
  if (sys::FSync(file_.get()) != 0) {
    sys::Fail("fsync", mgr_file::ConcatPath(folder_, id_), "the step was not taken");
  }
  if (is_new_) {
    file_steps::SyncDirectoryAt(folder_, folder_);
    is_new_ = false;
  }
  dirty_ = false;
}

void Entry::Remove(bool durable) noexcept {
  const std::lock_guard lock(mutex_);
  if (!file_) {
    return;
  }
  // One that can't be removed is found, and removed, by the next start: it has nothing left to do.
  sys::Unlink(AT_FDCWD, mgr_file::ConcatPath(folder_, id_).c_str());
  try {
    if (durable) {
      file_steps::SyncDirectoryAt(folder_, folder_);
    }
  } catch (const mgr_err::Error&) {
    // As above: only a power cut brings it back.
  }
  file_ = Descriptor();
}

std::vector<Dead> TakeDead() {
  std::vector<Dead> dead;
  const std::string folder = Folder();
  for (const std::string& id : IdsIn(folder)) {
    const std::string path = mgr_file::ConcatPath(folder, id);
    auto hold = std::make_shared<Descriptor>(OpenEntryFile(path, O_RDWR | O_APPEND));
    if (!*hold || !TakeHold(hold->get(), path) || !IsStillThere(hold->get())) {
      continue;
    }
    const std::string content = mgr_file::ReadE(path);
    Dead found{FromContent(id, path, content), hold, WholeLength(content)};
    if (found.entry.steps.empty()) {
      Remove(found);
    } else {
      dead.push_back(std::move(found));
    }
  }
  return dead;
}

Step SettledStep(std::size_t place, const std::string& changed) {
  return {kSettled, {{"step", std::to_string(place)}, {"changed", changed}}};
}

Step ToldStep() { return {kTold, {}}; }

Step CommittedStep() { return {"committed", {}}; }

void Note(Dead& dead, const std::vector<Step>& records) {
  const int fd = dead.hold->get();
  const std::string& path = dead.entry.path;
  std::string text;
  for (const Step& record : records) {
    text += Record(record);
  }
  // A torn record in front would hide this one.
  if (sys::FTruncate(fd, static_cast<off_t>(dead.size)) != 0) {
    sys::Fail("truncate", path);
  }
  file_steps::WriteAll(fd, text, path);
  if (sys::FSync(fd) != 0) {
    sys::Fail("fsync", path);
  }
  dead.size += text.size();
}

std::vector<std::string> Ids() { return IdsIn(Folder()); }

std::set<std::string> DeadIds() {
  const std::string folder = Folder();
  std::set<std::string> dead;
  for (const std::string& id : IdsIn(folder)) {
    const std::string path = mgr_file::ConcatPath(folder, id);
    const Descriptor file = OpenEntryFile(path, O_RDONLY);
    if (file && IsWithoutHolder(file.get(), path) && IsStillThere(file.get())) {
      dead.insert(id);
    }
  }
  return dead;
}

bool HasDead() { return !DeadIds().empty(); }

std::vector<OpenEntry> OpenEntries() {
  std::vector<OpenEntry> entries;
  const std::string folder = Folder();
  for (const std::string& id : IdsIn(folder)) {
    const std::string path = mgr_file::ConcatPath(folder, id);
    const Descriptor file = OpenEntryFile(path, O_RDONLY);
    if (!file) {
      continue;
    }
    const bool dead = IsWithoutHolder(file.get(), path);
    if (IsStillThere(file.get())) {
      entries.push_back(Described(FromContent(id, path, mgr_file::ReadE(path))));
      entries.back().alive = !dead;
    }
  }
  return entries;
}

void Remove(const Dead& dead) {
  if (sys::Unlink(AT_FDCWD, dead.entry.path.c_str()) != 0 && errno != ENOENT) {
    sys::Fail("unlink", dead.entry.path);
  }
  file_steps::SyncDirectoryAt(mgr_file::SplitPath(dead.entry.path).first, dead.entry.path);
}

}  // namespace journal
