#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "brisq_api.h"
#include "email.h"
#include "mgr_job.h"

/// A stand-in for the host's libraries that writes down every call of the plug-in, so that a test
/// can compare whole sequences, and that can be told to fail at any one of them.
namespace recording {

/// Columns of one line of the passwd-file, in their order.
using Line = std::array<std::string, 9>;

/// A mailbox as the stand-in's tables hold it, under its full address.
struct Mailbox {
  std::string local = {};
  std::string domain = {};
  std::string password = {};
  std::string home = {};
  int used = 0;
  int tag = 0;
  bool active = true;
};

/// What a stand-in child does.
struct Outcome {
  std::string output = {};
  int status = 0;
};

/// A child process that was asked for.
struct ChildRun {
  std::string command;
  int mode;
  std::string input;
};

class Host {
 public:
  static Host& Instance();

  /// Back to an empty host: scripts, calls and everything that the plug-in has handed over.
  void Reset();

  /// Writes a call down. @throws mgr_err::Error "planned" when it is call number `fail_at`.
  void Note(const std::string& call);
  /// Writes down what can't fail: destructors, log lines. Takes no number.
  void NoteQuietly(const std::string& call) noexcept;

  std::vector<std::string> Calls() const;
  /// Calls that begin with `prefix`.
  std::vector<std::string> Calls(const std::string& prefix) const;
  void ForgetCalls();
  /// Calls that the plug-in made while it was loaded.
  const std::vector<std::string>& CallsAtLoad() const { return at_load_; }

  /// Number, from 0, of the call that fails; none when negative.
  int fail_at = -1;

  std::map<std::string, std::string> params, paths;
  int log_level = 4;

  std::function<Outcome(const std::string& command, const std::string& input)> tool;
  std::vector<ChildRun> runs;

  std::vector<Line> lines;                     ///< of the passwd-file
  std::map<std::string, Mailbox> mailboxes;    ///< known to the panel, by address
  std::map<std::string, std::string> spelled;  ///< other spellings that FindByEmailName knows
  bool file_changed = true;
  bool may_run_password_work = true;
  std::string random = "\x2a\0\0\0";  ///< what the system's random source yields
  int save_reason = 0;                ///< what the after-save hook is told

  std::vector<std::string> existing;         ///< paths that exist
  std::vector<std::string> entries;          ///< of the walked directory, in its order
  std::map<std::string, std::string> files;  ///< content by path
  bool removals_fail = false;                ///< of files
  int tables_out = 0;                        ///< table objects that were not given back
  int cursors_out = 0;                       ///< datasets that are alive
  bool follow_datasets = false;              ///< write their construction down too

  brisq_api::BaseRegisterModule::ConstructorFn constructor = nullptr;
  const void* module = nullptr;  ///< where the last one was made
  email::Pop3Interface* pop3 = nullptr;
  email::PasswdInterface* passwords = nullptr;
  std::vector<brisq_api::Action*> actions;
  std::vector<mgr_job::Job*> jobs;

  /// A record as the panel hands it over; its fields are set without being written down.
  std::shared_ptr<brisq_db::EmailTable> NewMailbox(
      const std::map<std::string, std::string>& values);
  std::shared_ptr<brisq_db::User> owner;  ///< of every mailbox

  /// Column of the line with this name; "(no line)" without one.
  std::string Column(const std::string& name, unsigned long column) const;

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> calls_;
  std::vector<std::string> at_load_;
  bool loaded_ = false;
  int next_ = 0;
};

/// The full mode and owner as the calls spell them: "0700 1001:1002".
std::string Spell(const mgr_file::Attrs& attrs);

/// Follows the storage of objects of a few sizes, to tell which were freed.
class Storage {
 public:
  /// Blocks of `size` bytes that were allocated since the last Watch and not freed.
  static std::vector<void*> Live(std::size_t size);
  /// True when the block that was at this place was freed since, whatever lies there now.
  static bool WasFreed(const void* at);
  /// Follows these sizes from now on; at most four.
  static void Watch(std::initializer_list<std::size_t> sizes);
};

}  // namespace recording
