#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "framework/log_setup.h"
#include "framework/log_sink.h"

namespace mgr_log {

/// What a module needs to know to decide whether it writes.
struct Channel {
  Channel(const char* module_, const char* log_) : module(module_), log(log_) {}

  const std::string module;
  const std::string log;
  /// Messages above it are not written.
  std::atomic<int> level{0};
};

/// Connects the channels of all libraries with the logs. Made by the first channel or set-up, and
/// never destroyed: libraries may construct and destroy channels, and write, at any time of the
/// process's life. Any thread.
class Hub {
 public:
  static Hub& Instance();

  /// Sets the channel's level, now and at each change of the set-up, until it is removed.
  void Add(Channel& channel);
  void Remove(Channel& channel);

  /// Modules of the channels that are there.
  std::vector<std::string> ModuleNames();

  /// Has all channels, those that are there and those to come, use this set-up; files are opened by
  /// the first message.
  void Configure(const Setup& setup);
  /// Back to what it is before the first Configure; files are closed.
  void Reset();

  /// Writes one message: shortened, escaped, to where the log goes at present.
  void Write(const Channel& channel, int level, std::string_view text);

 private:
  Hub() = default;
  int LevelOf(const std::string& module) const;
  void Install(std::optional<Setup> setup);
  std::shared_ptr<Sink> SinkOf(const std::string& log);

  std::mutex mutex_;
  std::set<Channel*> channels_;
  std::optional<Setup> setup_;
  std::map<std::string, std::shared_ptr<Sink>> sinks_;
};

}  // namespace mgr_log
