#include "panel/passwd_file_edit.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <mutex>
#include <system_error>
#include <utility>

#include "conf_dataset.h"
#include "framework/conf_configuration.h"
#include "framework/conf_stamp.h"
#include "framework/descriptor.h"
#include "framework/file_error.h"
#include "framework/file_steps.h"
#include "framework/rehearsal.h"
#include "mgr_cf.h"
#include "mgr_err.h"
#include "mgr_file.h"
#include "panel/passwd_lines.h"

namespace brisq_panel {

namespace {

std::mutex g_mutex;

std::string& StateFolder() {
  static std::string& folder = *new std::string;
  return folder;
}

std::string InState(const std::string& name) {
  const std::lock_guard lock(g_mutex);
  return mgr_file::ConcatPath(StateFolder(), name);
}

std::string RequirePath() {
  std::string path = mgr_cf::GetPath("dovecot-passwd");
  if (!StampAt(path).exists) throw mgr_err::Error("file", path, "does not exist");
  return path;
}

FileLock TakeLock(const std::string& path) {
  std::optional<FileLock> lock = FileLock::Take(InState("passwd-file-edit.lock"));
  if (!lock) throw mgr_err::Error("locked", path, "is being edited by brisq passwd-file edit");
  return std::move(*lock);
}

std::shared_ptr<ConfFile> OpenFile(const std::string& path) {
  auto configuration = std::make_shared<ConfConfiguration>("passwd-file edit");
  configuration->SetSyntax(*UnixConfParams());
  return std::make_shared<ConfFile>(path, std::move(configuration));
}

void Remove(const std::string& folder) noexcept {
  std::error_code error;
  std::filesystem::remove_all(folder, error);
}

}  // namespace

void PasswdFileEdit::SetFolder(const std::string& folder) {
  const std::lock_guard lock(g_mutex);
  StateFolder() = folder;
}

PasswdFileEdit::PasswdFileEdit()
    : path_(RequirePath()),
      folder_(InState("passwd-file-edit")),
      lock_(TakeLock(path_)),
      file_(OpenFile(path_)),
      copy_(mgr_file::ConcatPath(folder_, "passwd-file")) {
  before_ = file_->ReadCurrent().document->Print();
  after_ = before_;
  try {
    MakeCopy();
  } catch (...) {
    Remove(folder_);
    throw;
  }
}

PasswdFileEdit::~PasswdFileEdit() {
  if (!keep_folder_) Remove(folder_);
}

void PasswdFileEdit::MakeCopy() {
  Remove(folder_);
  if (::mkdir(folder_.c_str(), 0700) != 0) throw mgr_file::FileError(folder_, "mkdir");
  constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
  const Descriptor file(::open(copy_.c_str(), kFlags, 0600));
  if (!file) throw mgr_file::FileError(copy_, "open");
  file_steps::WriteAll(file.get(), before_, copy_);
}

PasswdFileEdit::Review PasswdFileEdit::Look() {
  struct stat info {};
  const Descriptor file = OpenRegular(AT_FDCWD, copy_, copy_, info);
  if (!file) throw mgr_err::Error("file", copy_, "the editor has left no file");
  const ConfContent content = ReadContent(file.get(), copy_);
  if (!content.bytes) throw mgr_err::Error("locked", copy_, "is still being written");
  after_ = content.bytes->View();
  return {after_ != before_, NewPasswdFindings(copy_, before_, after_)};
}

void PasswdFileEdit::Save() {
  if (Rehearsal* rehearsal = Rehearsal::Current()) return rehearsal->Note(path_ + " edited");
  try {
    file_->Save(file_->Apply(ConfChange::Edit(before_, after_)));
  } catch (const mgr_err::Error& error) {
    if (error.type() != "later") throw;
    const std::string kept = InState("passwd-file.refused");
    std::error_code failed;
    std::filesystem::rename(copy_, kept, failed);
    keep_folder_ = static_cast<bool>(failed);
    throw mgr_err::Error("later", path_,
                         "unchanged: " + error.object() + " " + error.value() +
                             (failed ? "; your version is still " + copy_ +
                                           ": copy it away, the next edit removes it"
                                     : "; your version is kept as " + kept));
  }
}

}  // namespace brisq_panel
