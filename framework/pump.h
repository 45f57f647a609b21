#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "brisq_export.h"
#include "framework/descriptor.h"
#include "framework/secret_buffer.h"

namespace mgr_proc {

/// Longest input, in bytes, that SendAhead sends.
inline constexpr std::size_t kSentAhead = 65536;

/// Keeps the first bytes of an output and forgets the rest.
class BRISQ_API Sink {
 public:
  /// @param limit  number of bytes to keep
  explicit Sink(std::size_t limit) : limit_(limit) {}

  void Add(std::string_view bytes);
  /// All that was kept, put together anew by each call.
  std::string Text() const;
  /// Number of bytes that were not kept.
  std::size_t dropped() const noexcept { return dropped_; }

 private:
  // Pieces of bounded size: one string would need twice its size whenever it grows.
  std::vector<std::string> pieces_;
  std::size_t limit_;
  std::size_t kept_ = 0;
  std::size_t dropped_ = 0;
};

/// One of a child's outputs: the end that we read, where its bytes go, and whether a child that
/// prints more than is kept has gone astray.
struct Outlet {
  Descriptor from;
  Sink* to;
  bool must_fit = false;
};

/// Gives a child that is yet to be started its input, when it has at most kSentAhead bytes, whole
/// and closed: it lies in the pipe, is wiped from `input`, and `end` is empty. Half of it would be
/// a different input to a child that comes to it too soon. A longer one is left to the pump.
/// @param end  where we write, the other end still open
/// @throws std::system_error when the system has no room for it
BRISQ_API void SendAhead(Descriptor& end, SecretBuffer& input);

/// Moves input and outputs of one child at the same time, whichever is ready, so that neither side
/// waits for the other. Never raises SIGPIPE. For one thread.
class BRISQ_API Pump {
 public:
  using Time = std::chrono::steady_clock::time_point;

  /// @param in     the end that we write, empty when the child has its input already
  /// @param input  what to write; wiped when it has been written or the child reads no more. Must
  ///               outlive the pump, as must the sinks.
  Pump(Descriptor in, SecretBuffer& input, Outlet out, Outlet err);

  /// Moves bytes until `pidfd` is readable, that is until the child has ended; false when that has
  /// not happened at `deadline`, or when an output that must fit does not. With a negative `pidfd`
  /// the child has ended.
  /// @throws std::system_error when the system can't wait for descriptors
  bool RunUntilEnd(int pidfd, Time deadline);

  /// Takes what the child had written to its outputs when it ended. Never waits, and takes no more
  /// than a pipe holds: a grandchild may go on writing.
  void Drain();

 private:
  void Send();

  Descriptor in_;
  SecretBuffer& input_;
  std::size_t sent_ = 0;
  Outlet out_;
  Outlet err_;
};

}  // namespace mgr_proc
