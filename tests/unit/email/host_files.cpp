// Stand-ins for files, directories and the jobs of a request.
#include <algorithm>

#include "mgr_err.h"
#include "mgr_file.h"
#include "mgr_job.h"
#include "safe_file.h"
#include "tests/unit/email/recording_host.h"

using recording::Host;
using recording::Spell;

/// What a file job would do.
class FileSwap {
 public:
  FileSwap(std::string path_, std::string content_)
      : path(std::move(path_)), content(std::move(content_)) {}

  std::string path;
  std::string content;
};

namespace user_dir {
struct Made {};
}  // namespace user_dir

namespace {

bool IsThere(const std::string& path) {
  const Host& host = Host::Instance();
  return host.files.count(path) != 0 ||
         std::find(host.existing.begin(), host.existing.end(), path) != host.existing.end();
}

}  // namespace

namespace mgr_file {

bool Exists(const std::string& path) {
  Host::Instance().Note("Exists " + path);
  return IsThere(path);
}

void MkDir(const std::string& path, const Attrs& attrs) {
  Host::Instance().Note("MkDir " + path + " " + Spell(attrs));
}

std::string ConcatPath(const std::string& directory, const std::string& name) {
  Host::Instance().Note("ConcatPath " + directory + " " + name);
  return directory + "/" + name;
}

std::pair<std::string, std::string> SplitPath(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return {"", path};
  return {path.substr(0, slash), path.substr(slash + 1)};
}

std::string ReadE(const std::string& path) {
  Host::Instance().Note("ReadE " + path);
  const auto file = Host::Instance().files.find(path);
  if (file == Host::Instance().files.end()) throw mgr_err::Error("file", path, "cannot be read");
  return file->second;
}

bool RemoveFile(const std::string& path) noexcept {
  Host::Instance().NoteQuietly("RemoveFile " + path);
  return !Host::Instance().removals_fail && Host::Instance().files.erase(path) != 0;
}

Info::Info(const std::string& path, int mode) : missed_(!IsThere(path)) {
  Host::Instance().Note("Info " + path + " " + std::to_string(mode));
}

struct Dir::Handle {
  std::size_t next = 0;
};

Dir::Dir(const std::string& path) : path_(path), handle_(std::make_unique<Handle>()) {
  Host::Instance().Note("Dir " + path);
}
Dir::~Dir() { Host::Instance().NoteQuietly("~Dir"); }

bool Dir::Read() {
  Host::Instance().Note("Read");
  if (handle_->next == Host::Instance().entries.size()) return false;
  name_ = Host::Instance().entries[handle_->next++];
  return true;
}

bool Dir::HasExt(const std::string& extension) const { return name_.ends_with(extension); }

std::string Dir::FullName() const {
  std::string full = path_;
  return full.append("/").append(name_);
}

namespace safe {

Owner::~Owner() = default;

Folder::Folder(std::string root, std::string path, uid_t uid, gid_t gid)
    : root_(std::move(root)), path_(std::move(path)), uid_(uid), gid_(gid) {}

}  // namespace safe
}  // namespace mgr_file

namespace mgr_job {

Job::Job() { Host::Instance().jobs.push_back(this); }
Job::~Job() { std::erase(Host::Instance().jobs, this); }
void Job::Forget() noexcept {}
std::string Job::Rehearse() { return {}; }

bool Job::Announce() { return false; }

CreateFile::CreateFile(const std::string& path, const std::string& content,
                       const mgr_file::Attrs& attrs)
    : path_(path), swap_(std::make_unique<FileSwap>(path, content)) {
  Host::Instance().Note("job CreateFile " + path + " " + Spell(attrs) + "\n" + content);
}
CreateFile::~CreateFile() = default;
void CreateFile::Do() { Host::Instance().files[swap_->path] = swap_->content; }
void CreateFile::Undo() { Host::Instance().files.erase(swap_->path); }
void CreateFile::Forget() noexcept {}
std::string CreateFile::Rehearse() { return {}; }

CallOnCommit::CallOnCommit(const std::string& action, const std::string& params)
    : action_(action), params_(params) {
  Host::Instance().Note("job CallOnCommit " + action + " '" + params + "'");
}
void CallOnCommit::Do() { Host::Instance().Note("InternalCall " + action_ + " '" + params_ + "'"); }
void CallOnCommit::Undo() {}
std::string CallOnCommit::Rehearse() { return {}; }

namespace safe {

CreateDir::CreateDir(const mgr_file::safe::Folder& folder, const std::string& name,
                     const mgr_file::Attrs& attrs)
    : folder_(folder), name_(name), attrs_(attrs) {
  Host::Instance().Note("job CreateDir " + folder.path() + " " + name + " " + Spell(attrs));
}
CreateDir::~CreateDir() = default;
void CreateDir::Do() { made_ = std::make_unique<user_dir::Made>(); }
void CreateDir::Undo() { made_.reset(); }
std::string CreateDir::Rehearse() { return {}; }

bool CreateDir::Announce() { return false; }

}  // namespace safe
}  // namespace mgr_job

namespace safe_file {

mgr_file::safe::Folder JobCreateOddDirAbs(const std::shared_ptr<mgr_file::safe::Owner>& owner,
                                          const std::string& path, const mgr_file::Attrs& attrs) {
  Host::Instance().Note("JobCreateOddDirAbs for " + owner->OwnerHome() + " " + path + " " +
                        Spell(attrs));
  return {owner->OwnerHome(), path, attrs.uid, attrs.gid};
}

}  // namespace safe_file
