#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "brisq_export.h"
#include "framework/secret_buffer.h"
#include "framework/secret_text.h"
#include "framework/started_child.h"

namespace mgr_proc {

/// A command that runs already when somebody is about to ask for its outcome: the next Execute of
/// the process for this command takes it over, at whatever point it has come to by then, and
/// counts its time limit from there. One that nobody has taken over ends with the object.
///
/// For a command that only looks: it runs even when nobody comes to ask. When it can't be started,
/// the one who asks gets to know why: nothing is thrown. Any thread.
class BRISQ_API Ahead {
 public:
  static constexpr std::size_t kMostWithInput = 8;

  /// Starts the command as Execute(command, 2) would.
  explicit Ahead(const std::string& command);
  /// Starts the command as Execute(command, 3) would that is given this input: whoever asks with
  /// another input runs a command of his own. Starts nothing for more input than lies in the pipe
  /// before the child exists, nor while the same runs ahead already, nor while kMostWithInput
  /// others do: some hashes take much memory.
  /// @param input  wiped; what is kept of it shows nothing (MaskedSecret)
  Ahead(const std::string& command, SecretBuffer& input);
  ~Ahead();
  Ahead(const Ahead&) = delete;
  Ahead& operator=(const Ahead&) = delete;

  /// The child that runs this command ahead in mode 2, which is the caller's from now on; null for
  /// none.
  static std::unique_ptr<StartedChild> Take(const std::string& command);
  /// The same in mode 3 with this input.
  static std::unique_ptr<StartedChild> Take(const std::string& command, std::string_view input);

 private:
  class Waiting;

  void Start(Shell shell, SecretBuffer& input);
  bool IsFor(const std::string& command, const std::string_view* input) const;

  const std::string command_;
  const std::optional<MaskedSecret> input_;  // none in mode 2
  std::unique_ptr<StartedChild> child_;
};

}  // namespace mgr_proc
