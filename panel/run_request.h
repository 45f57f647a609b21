#pragma once

#include <functional>
#include <string>
#include <vector>

#include "framework/request.h"

namespace brisq_panel {

/// Does `work` as one request, with the database's write lock from its beginning, and commits it.
/// Inside of another call of it on this thread it is a part of that one's request. Requests whose
/// process has died are recovered before. What was changed of objects that JobLog watches becomes a
/// job in the list. Returns the request's notes. INT, TERM and HUP wait until all of it is done or
/// taken back.
/// @throws what work or commit throws, after everything has been taken back; when something could
/// not be, the error says so behind its value
BRISQ_API std::vector<std::string> RunRequest(const std::string& name,
                                              const std::function<void(Request&)>& work);

/// The same for who has no place for the notes: they go to the thread's NoteKeeper.
/// @throws as RunRequest
BRISQ_API void DoRequest(const std::string& name, const std::function<void(Request&)>& work);

/// Keeps the notes of the requests that DoRequest makes on this thread during the object's life,
/// for who answers the user. Without one they stand in the log only. One at a time on a thread.
class BRISQ_API NoteKeeper {
 public:
  NoteKeeper();
  ~NoteKeeper();
  NoteKeeper(const NoteKeeper&) = delete;
  NoteKeeper& operator=(const NoteKeeper&) = delete;

  /// What was noted, in order.
  const std::vector<std::string>& notes() const noexcept { return notes_; }
  /// True when a request, of RunRequest too, was committed and still owes calls: no recovery has
  /// made them since, or the journal can't be read.
  bool IsAnythingOwed() const noexcept;

 private:
  friend std::vector<std::string> RunRequest(const std::string& name,
                                             const std::function<void(Request&)>& work);
  friend void DoRequest(const std::string& name, const std::function<void(Request&)>& work);

  std::vector<std::string> notes_;
  std::vector<std::string> owing_;  // ids
};

}  // namespace brisq_panel
