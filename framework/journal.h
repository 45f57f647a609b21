#pragma once

#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "brisq_export.h"
#include "framework/descriptor.h"
#include "framework/journal_record.h"
#include "framework/sys.h"

/// The journal of requests: for each that changes something outside of the database an entry, which
/// holds how to take its steps back. The entry is written and synced before each step, and goes
/// when the request has ended whole, done or undone.
///
/// An entry is a file of its own (0600) in the journal's folder (0700), named by the request's id
/// and locked by its process for as long as that lives: one without a holder was left by a process
/// that died. Formats: docs/formats/journal.md. Any thread.
namespace journal {

/// Sets the folder, which is made when something is written for the first time; empty for none:
/// then nothing is written and a process that is killed leaves what it has done.
BRISQ_API void SetFolder(const std::string& folder);
/// The folder; empty for none.
BRISQ_API std::string Folder();

/// The entry of a request that goes on in this process.
class BRISQ_API Entry {
 public:
  /// Nothing is on disk until the first Write.
  /// @param head  who asked for what
  Entry(std::string id, Step head);
  /// Leaves what is on disk as it is.
  ~Entry();
  Entry(const Entry&) = delete;
  Entry& operator=(const Entry&) = delete;

  /// Appends steps; of several with the same value "key" the last one counts.
  /// @param durable  also syncs them, and everything appended before
  /// @throws mgr_err::Error "file" that names the entry: the step must not be taken
  void Write(const std::vector<Step>& steps, bool durable);
  /// Syncs what has been appended.
  /// @throws as Write
  void Sync();
  /// True when something is on disk.
  bool IsOpen() const;
  /// Removes the entry: all is done, or all is undone.
  /// @param durable  for one whose request failed: it must not come back with a power cut
  void Remove(bool durable) noexcept;

 private:
  void Open();
  void Append(const std::string& text);

  const std::string id_;
  const Step head_;
  const std::string folder_;
  mutable std::mutex mutex_;
  Descriptor file_;
  bool dirty_ = false;
  bool is_new_ = false;  // its name is not durable
};

/// An entry as it lies on disk.
struct Left {
  std::string id;
  std::string path;
  Step head;
  std::vector<Step> steps;        ///< in the order in which they were taken
  std::set<std::size_t> settled;  ///< places in `steps` that earlier recoveries dealt with
  std::set<std::string> owed;     ///< what SettledStep named and no ToldStep came behind
};

/// Records that a recovery adds to an entry, by Note: it has dealt with the step at this place of
/// Left::steps, so none does it again.
/// @param changed  a word for what it may have changed, which others must be told; may be empty
BRISQ_API Step SettledStep(std::size_t place, const std::string& changed);
/// The others have been told.
BRISQ_API Step ToldStep();
/// The request was committed: it is to be finished, whatever becomes of its row.
BRISQ_API Step CommittedStep();

/// An entry whose process has died, held so that no other process deals with it.
struct Dead {
  Left entry;
  std::shared_ptr<Descriptor> hold;
  std::size_t size = 0;  ///< bytes of whole records
};

/// The entries that no process holds; empty ones are removed instead.
/// Waits, up to 10 seconds, for others that only look at one of them.
/// @throws mgr_err::Error "file" when the folder can't be read; "locked" after that time
BRISQ_API std::vector<Dead> TakeDead();

/// Adds records to the entry, durably.
/// @throws mgr_err::Error "file": it is as before, or a torn record more
BRISQ_API void Note(Dead& dead, const std::vector<Step>& records);

/// The ids of all entries, sorted, of living requests too.
/// @throws mgr_err::Error "file"
BRISQ_API std::vector<std::string> Ids();

/// The ids of the entries that no process holds. Looking holds nothing back but TakeDead, for a
/// moment.
/// @throws mgr_err::Error "file"
BRISQ_API std::set<std::string> DeadIds();

/// True when there is an entry that no process holds.
/// @throws as DeadIds
BRISQ_API bool HasDead();

/// What a check may tell of an entry that is not finished.
struct OpenEntry {
  std::string id;
  std::string request;             ///< "mailbox add", for example
  std::string who;                 ///< user who asked for it
  std::string started;             ///< in UTC, "2024-01-31T23:59:59Z"
  bool alive = false;              ///< its process goes on: nothing is wrong
  std::vector<std::string> steps;  ///< in words, hashes not among them
  std::set<std::string> asides;    ///< what its open steps need yet (framework/aside.h)
};

/// All entries: those of requests that go on, and what dead processes have left and nobody has
/// recovered yet or could recover.
/// @throws as HasDead
BRISQ_API std::vector<OpenEntry> OpenEntries();

/// Removes an entry that has been dealt with.
/// @throws mgr_err::Error "file"
BRISQ_API void Remove(const Dead& dead);

}  // namespace journal
