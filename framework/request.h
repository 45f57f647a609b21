#pragma once

#include <chrono>
#include <cstddef>
#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "brisq_export.h"
#include "framework/descriptor.h"
#include "framework/journal.h"
#include "framework/unsynced_dirs.h"
#include "mgr_job.h"

class Rehearsal;

/// One unit of work: changes of the database, of files and of directories that happen together or
/// not at all.
///
/// From construction on it is the current request of its thread, whose jobs it owns and whose
/// database operations form one transaction. It ends by Commit, Rollback or its destructor,
/// whichever comes first, and is current no longer. An object belongs to the thread that made it.
///
/// In a dry run (framework/rehearsal.h) jobs are asked instead of done, and what is for after the
/// commit is noted instead of made.
class BRISQ_API Request {
 public:
  /// What a request does to the database. Each may throw, but for `rollback`, whose errors are
  /// noted and logged.
  struct DatabaseHooks {
    std::function<void()> begin;
    std::function<void()> commit;
    std::function<void()> rollback;
    /// Called before `commit` when the journal has an entry of the request: writes, as a part of
    /// the transaction, that the request was committed.
    std::function<void(const Request&)> mark = {};
  };

  /// @param name  for logs and lists, for example "mailbox add"
  /// @throws mgr_err::Error "internal" when the thread has a current request already
  explicit Request(std::string name);
  /// A request that was not committed is rolled back.
  ~Request();
  Request(const Request&) = delete;
  Request& operator=(const Request&) = delete;

  /// The request that goes on on this thread, null when there is none.
  static Request* Current() noexcept;

  /// Does the jobs in the order of their construction (those that jobs add behind them included),
  /// commits the database, lets the jobs forget what only an undo needed, makes the calls noted by
  /// AfterCommit in their order, and hands the queued commands on. The request is current until
  /// the database has been committed.
  ///
  /// A call after the commit that throws is logged and noted; the request stays committed. One that
  /// is owed keeps the journal's entry there (Owes), for a recovery to make it.
  ///
  /// @throws mgr_err::Error "internal" when the request has ended; what a job or the database
  /// throws: then everything has been rolled back as by Rollback
  void Commit();

  /// Takes back, in the reverse order in which they happened, the jobs that were done and the steps
  /// told by OnRollback, then rolls the database back. A step that can't be taken back is logged
  /// and noted, and the rest goes on. Calls and commands that wait for the commit are dropped. Does
  /// nothing to a request that has ended.
  void Rollback() noexcept;

  /// Notes how to take back a step that has just been done outside of the job list. `undo` must
  /// leave alone what somebody else has changed meanwhile; it may log or throw when it does. While
  /// the request is rolled back nothing more is noted: what an undo does itself is final.
  /// @param what  the step, for the note about an undo that fails: "line of u@example.org added"
  void OnRollback(std::string what, std::function<void()> undo);

  /// Writes down in the journal, before they are taken, steps that OnRollback or a job takes back:
  /// so that they are also taken back when this process dies. Dropped while the request is rolled
  /// back; without a journal nothing is written.
  /// @param durable  false for what may be lost with the power as long as nothing else is noted:
  /// it is made durable by the commit
  /// @throws mgr_err::Error "file": the steps must not be taken
  void NoteSteps(const std::vector<journal::Step>& steps, bool durable = true);
  /// The journal's entry of this request, for steps that another thread may take; null while
  /// nothing is to be noted.
  std::shared_ptr<journal::Entry> JournalEntry();
  /// Has a directory synced when all jobs are done, before the database commits: once, however
  /// often it is asked for. Dropped when the request is rolled back.
  /// @param directory  open; the request keeps a descriptor of its own
  /// @param path  names it in an error
  /// @throws mgr_err::Error "file" when the system has no descriptors left; Commit throws the same
  /// when it can't be synced
  void SyncBeforeCommit(int directory, const std::string& path);
  /// Writes down the steps of the jobs that wait, as far as they know them, so that they become
  /// durable together with what else is noted before the next step is taken. Commit makes up for
  /// those that this leaves out.
  /// @throws mgr_err::Error as NoteSteps, and what a look at the steps throws
  void AnnounceJobs();
  /// Closes a file when the thread's request has let go of the database, at once without one: for a
  /// file without a name, whose bytes the system takes its time to give back. A request keeps one;
  /// the one before is closed first.
  /// @param file  may be none
  static void CloseAtEnd(Descriptor file) noexcept;
  /// Leaves the journal's entry there when the request has ended, for the next start to clear up
  /// what could not be removed.
  void KeepEntry() noexcept { undone_ = false; }
  /// The same for the thread's request; nothing without one.
  static void KeepCurrentEntry() noexcept;
  /// 16 hexadecimal digits, by which the journal and the list of jobs know the request.
  const std::string& id() const noexcept { return id_; }

  /// What becomes of a call after the commit that throws.
  enum class Failing {
    kIsOver,     ///< it is noted, and that is all
    kStaysOwed,  ///< the journal holds it too: a recovery makes it, unless it can never work
  };
  /// Notes a call for after the commit, dropped when the request fails.
  /// @param what  the call, for the note about one that throws
  void AfterCommit(std::string what, std::function<void()> call,
                   Failing failing = Failing::kIsOver);
  /// True when the request was committed and a call stays owed.
  bool Owes() const noexcept { return owes_; }

  /// Queues a shell command for after the commit, dropped when the request fails.
  void QueueCommand(std::string command);

  /// Adds a text that the user who made the request should see.
  void AddNote(std::string note);
  /// The texts of AddNote, undo steps and calls after the commit that failed; also after the end.
  const std::vector<std::string>& Notes() const noexcept { return notes_; }

  const std::string& name() const noexcept { return name_; }
  /// Who it is done for, as ActingUser (framework/acting_user.h) told when it began: the look takes
  /// files, and is over before the database is locked.
  const std::string& who() const noexcept { return who_; }
  std::chrono::system_clock::time_point started() const noexcept { return started_; }

  /// Sets how requests that begin from now on reach the database; a request keeps those that were
  /// set when it began. Empty functions stand for no database. Any thread.
  static void SetDatabaseHooks(DatabaseHooks hooks);
  /// Begins the database transaction of this request if that has not happened. The database layer
  /// calls it before each operation: a request that never touches the database has no transaction.
  /// @throws what the hook `begin` throws; the next call tries again
  void BeginDatabase();

 private:
  friend class mgr_job::Job;

  enum class State { kOpen, kCommitting, kUndoing, kEnded };
  struct Step {
    std::string what;
    std::function<void()> call;
    Failing failing = Failing::kIsOver;
  };

  void Enter(mgr_job::Job& job);
  void Leave(const mgr_job::Job& job) noexcept;
  void DoJobs();
  void Announce(std::size_t first);
  void NoteJobs(std::size_t first);
  void CommitDatabase();
  void MarkCommitted();
  void CloseEntry() noexcept;
  void UndoSteps() noexcept;
  bool UndoStep(const Step& step, const std::string& what,
                const std::function<void()>& save) noexcept;
  void RollbackDatabase() noexcept;
  void End() noexcept;
  void MakeCallsAfterCommit() noexcept;
  void MakeCall(const Step& step) noexcept;
  bool StaysOwed(const Step& step, const std::exception& error) const;
  void NoteCallsAfterCommit(Rehearsal& rehearsal);
  void Problem(const std::string& what, const std::string& reason) noexcept;
  bool Attempt(const Step& step, const std::string& what) noexcept;

  const std::string id_;
  std::string name_;
  const std::string who_;
  std::chrono::system_clock::time_point started_;
  std::shared_ptr<const DatabaseHooks> database_;
  bool transaction_ = false;
  State state_ = State::kOpen;
  std::vector<mgr_job::Job*> jobs_;  // owned; a job that is being constructed is among them
  std::size_t announced_ = 0;        // jobs whose steps the journal has
  bool notes_undurable_ = false;     // of some of them only in the system's memory
  UnsyncedDirs unsynced_;
  Descriptor closing_;
  std::vector<Step> done_;  // what has happened, oldest first, by its undo
  std::vector<Step> after_commit_;
  std::vector<std::string> commands_;
  std::vector<std::string> notes_;
  std::shared_ptr<journal::Entry> entry_;  // null while nothing was noted
  bool undone_ = true;                     // a recovery has nothing left to do
  bool owes_ = false;
  bool committed_ = false;
};
