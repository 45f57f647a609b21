#include "safe_file.h"

#include <vector>

#include "framework/request.h"
#include "framework/user_dir.h"
#include "mgr_job.h"

namespace safe_file {

namespace {

class CreatePath : public mgr_job::Job {
 public:
  CreatePath(const mgr_file::safe::Folder& folder, const mgr_file::Attrs& attrs)
      : folder_(folder), attrs_(attrs) {}

  bool Announce() override {
    Request::Current()->NoteSteps(user_dir::StepsOfMaking(folder_), false);
    return true;
  }

  void Do() override { made_ = user_dir::MakePath(folder_, attrs_); }

  void Undo() override {
    for (auto directory = made_.rbegin(); directory != made_.rend(); ++directory) {
      user_dir::Remove(folder_, *directory);
    }
  }

  std::string Rehearse() override {
    const bool missing = user_dir::CheckMakePath(folder_);
    return missing ? "directory " + folder_.path() + " made" : "";
  }

 private:
  mgr_file::safe::Folder folder_;
  mgr_file::Attrs attrs_;
  std::vector<user_dir::Made> made_;
};

}  // namespace

mgr_file::safe::Folder JobCreateOddDirAbs(const std::shared_ptr<mgr_file::safe::Owner>& owner,
                                          const std::string& path, const mgr_file::Attrs& attrs) {
  mgr_file::safe::Folder folder = user_dir::Below(*owner, path);
  new CreatePath(folder, attrs);  // belongs to the request
  return folder;
}

}  // namespace safe_file
