#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <shared_mutex>
#include <string>
#include <utility>
#include <vector>

#include "brisq_export.h"
#include "framework/conf_change.h"
#include "framework/conf_configuration.h"
#include "framework/conf_document.h"
#include "framework/conf_save.h"
#include "framework/conf_stamp.h"
#include "framework/journal.h"
#include "framework/recent_look.h"

class ConfScratch;

/// A configuration file that is in use: its document, what has been changed in it and is not yet
/// saved, and the one save that may be going on.
///
/// Changes are applied to the document at once, in the order in which they come, and wait in that
/// order for a save. The first thread that wants its change saved saves all that wait; those that
/// come meanwhile wait for the next save together. When the file turns out to be changed by
/// somebody else, the waiting changes are applied anew to what it holds now. Any thread.
class BRISQ_API ConfFile : public std::enable_shared_from_this<ConfFile> {
 public:
  /// How the journal of a request is told of a change: noted when the change has been made in the
  /// document, and again when it had to be made anew in somebody else's edit; synced before a save,
  /// on whichever thread, brings it to the file. When either throws the change is not made.
  struct Journal {
    std::function<void(const ConfChange&, const ConfDocument&)> note;  // may be empty
    std::shared_ptr<journal::Entry> entry;                             // null without a note
  };
  /// What became of one change.
  struct Waiting {
    Waiting(ConfChange&& what, Journal&& told)
        : change(std::move(what)), journal(std::move(told)) {}

    ConfChange change;
    Journal journal;
    bool made = true;      // it is in the document, or in the file
    bool settled = false;  // a save has dealt with it
    std::exception_ptr error;
  };
  /// The document, readable until the end of this object's life.
  struct Reading {
    std::shared_lock<std::shared_mutex> lock;
    std::shared_ptr<const ConfDocument> document;
  };

  /// @param scratch  null, or what stands in for the disk once something was saved: then the file
  /// itself is read only, nothing is ever written to it and no hook is called
  ConfFile(std::string path, std::shared_ptr<const ConfConfiguration> configuration,
           std::shared_ptr<ConfScratch> scratch = nullptr);

  const std::string& path() const noexcept { return path_; }
  /// Syntax of its configuration when this object was made.
  const mgr_token::Params& syntax() const noexcept { return syntax_; }
  /// Has the after-save hook of another configuration called as well, whoever saves: all that read
  /// a file in one syntax share its document.
  void Join(const std::shared_ptr<const ConfConfiguration>& configuration);
  /// Equal for configurations that share one object.
  using Key = std::pair<std::string, std::string>;
  static Key KeyOf(const std::string& path, const mgr_token::Params& syntax);

  /// The document as it is in memory.
  Reading Read() const;
  /// A number that grows whenever the document, or anything in it, becomes another. While it stays,
  /// what was read stays.
  std::uint64_t Version() const noexcept { return version_.load(std::memory_order_acquire); }
  /// The document after a look whether somebody else has changed the file.
  /// @throws mgr_err::Error "file"; "locked" for a file that was never read and that somebody is
  /// writing into
  Reading ReadCurrent();

  /// How current the document must be that a change is applied to.
  enum class Look {
    kNow,    ///< looked at the file in this call
    kLately  ///< some milliseconds will do: for one of many changes that are saved later, together
  };
  /// Applies a change to the file as it stands.
  /// @throws as ReadCurrent and ConfChange::Apply, and what the journal throws: nothing has
  /// changed
  std::shared_ptr<Waiting> Apply(ConfChange&& change, Journal&& journal = {},
                                 Look look = Look::kNow);
  /// Returns when a change that was applied is durable.
  /// @throws mgr_err::Error what became of the change, "file" and "locked" included: the file and
  /// the document are without it; what the after-save hook throws: the change is saved
  void Save(const std::shared_ptr<Waiting>& waiting);
  /// What became of the first of some changes with which anything is wrong; null when nothing is so
  /// far.
  std::exception_ptr FirstErrorOf(const std::vector<std::shared_ptr<Waiting>>& changes) const;
  /// Saves all that waits, if anything does. Errors of single changes are told by FirstErrorOf
  /// alone.
  void SaveAll();
  /// Applies what takes back a change, as ConfChange::Reverse says; null when the change was not
  /// made.
  std::shared_ptr<Waiting> ApplyReverse(const Waiting& waiting);

  /// True while changes wait for a save.
  bool HasWaiting() const;

 private:
  enum class Work { kNone, kReading, kSaving };
  using Lock = std::unique_lock<std::shared_mutex>;

  bool IsCurrent() const;
  ConfStamp StampNow() const;
  void Refresh();
  void ReadAnew();
  ConfContent ReadFile() const;
  void TakeOver(const ConfContent& content);
  void ApplyOne(Waiting& waiting);
  void ApplyWaiting();
  void Lead(Lock& lock);
  void SaveIntoScratch();
  std::set<std::shared_ptr<journal::Entry>> JournalsOfTaken() const;
  ConfCache::SaveReason WriteOut(Lock& lock, ConfSave& save);
  void TakeIn(const ConfContent& found, const std::optional<ConfSnapshot>& origin);
  void FinishWritten(Lock& lock, ConfSave& save, ConfSnapshot&& written);
  bool AnyEffective() const;
  void Settle(const std::exception_ptr& error, bool made);
  // Memory that runs out here ends the process: the next start takes back by the journal what was
  // not saved, and a save that never ends would hold up all others of this process.
  void FailTaken(const std::exception_ptr& error, bool in_place) noexcept;
  void RenewWorn(ConfSnapshot&& written);
  void CallHooks(ConfCache::SaveReason reason);
  void StartWork(Lock& lock, Work work);
  void EndWork();

  const std::string path_;
  const mgr_token::Params syntax_;
  const std::shared_ptr<ConfScratch> scratch_;
  mutable std::shared_mutex mutex_;
  std::atomic<std::uint64_t> version_{0};
  RecentLook looked_;
  std::condition_variable_any work_ended_;
  Work work_ = Work::kNone;
  std::shared_ptr<ConfDocument> document_;  // null before the first reading
  ConfStamp stamp_;
  bool settled_ = false;  // whether an equal stamp means equal content
  std::deque<std::shared_ptr<Waiting>> waiting_;
  std::size_t saving_ = 0;  // of those that wait, how many the save that goes on has taken
  std::mutex users_mutex_;
  std::vector<std::shared_ptr<const ConfConfiguration>> users_;  // whose hooks are called
};
