#pragma once

#include <memory>
#include <string>

#include "brisq_export.h"
#include "mgr_file.h"

class FileSwap;
namespace user_dir {
struct Made;
}

/// Jobs: the steps of a request that wait for its commit.
///
/// A job is made with `new` and belongs to the request that goes on on the constructing thread from
/// construction on; nobody else deletes it. At commit the jobs run in the order of their
/// construction, before the database commits. When one fails, those before it are undone in reverse
/// order and the request fails with its error. Outside of a request construction throws
/// mgr_err::Error "internal".
namespace mgr_job {

class BRISQ_API Job {
 public:
  /// Enters the current request's list.
  Job();
  /// Leaves the list, when construction of the derived class failed.
  virtual ~Job();
  Job(const Job&) = delete;
  Job& operator=(const Job&) = delete;

  /// Takes the step, wholly or not at all.
  /// @throws mgr_err::Error when it can't: nothing is left of it
  virtual void Do() = 0;
  /// Takes the step back after Do has succeeded; leaves alone what somebody else has changed
  /// meanwhile.
  virtual void Undo() = 0;
  /// After the commit: gives up what only Undo needed. Does nothing by default, must not fail.
  virtual void Forget() noexcept;
  /// In a dry run, instead of Do: looks whether Do could succeed, as far as that shows without
  /// changing anything, and tells in words what it would do; empty for nothing worth telling. By
  /// default the job's class.
  /// @throws mgr_err::Error as Do would
  virtual std::string Rehearse();
  /// Before Do, and before Do of jobs in front of it: notes the steps that Do will take, so that
  /// jobs that stand together wait for the disk once. By default false, with nothing done: the
  /// steps show in Do only, which notes them itself.
  /// @throws mgr_err::Error as Do would
  virtual bool Announce();
};

/// A job's class by its name in the source.
BRISQ_API std::string ClassOf(const Job& job);

/// Makes a file hold exactly `content`. Construction writes a temporary file beside the target,
/// commit puts it in the target's place in one step, so a reader sees the old file (none where none
/// was) or the whole new one.
/// Undone, the old file is back (or none).
class BRISQ_API CreateFile : public Job {
 public:
  /// @throws mgr_err::Error "file" when the temporary can't be written: nothing of it stays
  CreateFile(const std::string& path, const std::string& content, const mgr_file::Attrs& attrs);
  ~CreateFile() override;
  void Do() override;
  void Undo() override;
  void Forget() noexcept override;
  std::string Rehearse() override;

 private:
  std::string path_;
  std::unique_ptr<FileSwap> swap_;  // none in a dry run
};

/// Calls an action with a parameter string after the request has been committed; never when it
/// fails. Each job makes a call of its own. What the action throws is logged, the request stays
/// committed.
class BRISQ_API CallOnCommit : public Job {
 public:
  CallOnCommit(const std::string& action, const std::string& params);
  void Do() override;
  void Undo() override;
  std::string Rehearse() override;

 private:
  std::string action_;
  std::string params_;
};

namespace safe {

/// Makes one directory inside a folder of a user's tree. An existing one is an error; undone, a
/// directory that this job made is removed when it is still empty.
class BRISQ_API CreateDir : public Job {
 public:
  /// @throws mgr_err::Error "value" when `name` is no single name, "internal" for a folder that
  /// names no directory
  CreateDir(const mgr_file::safe::Folder& folder, const std::string& name,
            const mgr_file::Attrs& attrs);
  ~CreateDir() override;
  void Do() override;
  void Undo() override;
  std::string Rehearse() override;
  bool Announce() override;

 private:
  mgr_file::safe::Folder folder_;
  std::string name_;
  mgr_file::Attrs attrs_;
  std::unique_ptr<user_dir::Made> made_;
};

}  // namespace safe
}  // namespace mgr_job
