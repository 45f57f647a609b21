#include "mgr_job.h"

#include <typeinfo>
#include <vector>

#include "framework/demangle.h"
#include "framework/file_swap.h"
#include "framework/owed_call.h"
#include "framework/rehearsal.h"
#include "framework/request.h"
#include "framework/user_dir.h"
#include "mgr_err.h"

namespace mgr_job {

std::string ClassOf(const mgr_job::Job& job) { return Demangled(typeid(job).name()); }

Job::Job() {
  if (Request::Current() == nullptr) {
    throw mgr_err::Error("internal", "job", "made outside of a request");
  }
  Request::Current()->Enter(*this);
}

Job::~Job() {
  if (Request::Current() != nullptr) {
    Request::Current()->Leave(*this);
  }
}

void Job::Forget() noexcept {}

std::string Job::Rehearse() { return ClassOf(*this); }

bool Job::Announce() { return false; }

CreateFile::CreateFile(const std::string& path, const std::string& content,
                       const mgr_file::Attrs& attrs)
    : path_(path),
      swap_(Rehearsal::Current() == nullptr ? std::make_unique<FileSwap>(path, content, attrs)
                                            : nullptr) {}

CreateFile::~CreateFile() = default;

void CreateFile::Do() { swap_->Publish(); }

void CreateFile::Undo() { swap_->Restore(); }

void CreateFile::Forget() noexcept { swap_->Discard(); }

std::string CreateFile::Rehearse() {
  const std::string directory = mgr_file::SplitPath(path_).first;
  if (!Rehearsal::Current()->HasDirectory(directory)) {
    FileSwap::RefuseUnfit(path_);
  }
  return "file " + path_ + " written";
}

CallOnCommit::CallOnCommit(const std::string& action, const std::string& params)
    : action_(action), params_(params) {}

void CallOnCommit::Do() {
  Request& request = *Request::Current();
  // Written out with the steps, or before the commit: until then it is dropped with the request.
  const journal::Step step{
      "call",
      {{"action", action_}, {"params", params_}, {"what", "action " + action_ + " called"}}};
  request.NoteSteps({step}, false);
  const auto call = [action = action_, params = params_] { owed_call::Make(action, params); };
  request.AfterCommit("action " + action_, call, Request::Failing::kStaysOwed);
}

// The request drops the call when it fails.
void CallOnCommit::Undo() {}

std::string CallOnCommit::Rehearse() {
  return "action " + action_ + (params_.empty() ? "" : " with " + params_) + " called";
}

namespace safe {

namespace {

void CheckName(const std::string& name) {
  if (name.empty() || name == "." || name == ".." ||
      name.find_first_of(std::string("/\0", 2)) != std::string::npos) {
    throw mgr_err::Error("value", "directory name", "must be a single name");
  }
}

}  // namespace

CreateDir::CreateDir(const mgr_file::safe::Folder& folder, const std::string& name,
                     const mgr_file::Attrs& attrs)
    : folder_(folder), name_(name), attrs_(attrs) {
  CheckName(name_);
  if (folder_.empty()) {
    throw mgr_err::Error("internal", "directory " + name_, "needs a folder to be made in");
  }
}

CreateDir::~CreateDir() = default;

// A folder that is missing yet is announced by the job that makes it.
bool CreateDir::Announce() {
  const mgr_file::safe::Folder made(folder_.root(), mgr_file::ConcatPath(folder_.path(), name_),
                                    folder_.uid(), folder_.gid());
  const std::vector<journal::Step> steps = user_dir::StepsOfMaking(made);
  if (!steps.empty()) {
    Request::Current()->NoteSteps({steps.back()}, false);
  }
  return true;
}

void CreateDir::Do() {
  made_ = std::make_unique<user_dir::Made>(user_dir::MakeOne(folder_, name_, attrs_));
}

void CreateDir::Undo() { user_dir::Remove(folder_, *made_); }

std::string CreateDir::Rehearse() {
  user_dir::CheckMakeOne(folder_, name_);
  return "directory " + mgr_file::ConcatPath(folder_.path(), name_) + " made";
}

}  // namespace safe
}  // namespace mgr_job
