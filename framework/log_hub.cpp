#include "framework/log_hub.h"

#include <utility>

#include "framework/log_escape.h"
#include "mgr_log.h"

namespace mgr_log {

namespace {

constexpr std::size_t kLongestMessage = 64 * 1024;

std::string Shortened(std::string_view text) {
  const std::string_view kept = text.substr(0, kLongestMessage);
  std::string result = Escaped(kept);
  if (kept.size() < text.size()) {
    result += " ... (" + std::to_string(text.size() - kept.size()) + " bytes more)";
  }
  return result;
}

}  // namespace

Hub& Hub::Instance() {
  static Hub& hub = *new Hub;
  return hub;
}

void Hub::Add(Channel& channel) {
  const std::lock_guard lock(mutex_);
  channels_.insert(&channel);
  channel.level = LevelOf(channel.module);
}

void Hub::Remove(Channel& channel) {
  const std::lock_guard lock(mutex_);
  channels_.erase(&channel);
}

std::vector<std::string> Hub::ModuleNames() {
  const std::lock_guard lock(mutex_);
  std::vector<std::string> names;
  for (const Channel* channel : channels_) {
    names.push_back(channel->module);
  }
  return names;
}

void Hub::Configure(const Setup& setup) { Install(setup); }

void Hub::Reset() { Install(std::nullopt); }

void Hub::Install(std::optional<Setup> setup) {
  const std::lock_guard lock(mutex_);
  setup_ = std::move(setup);
  sinks_.clear();
  for (Channel* channel : channels_) {
    channel->level = LevelOf(channel->module);
  }
}

int Hub::LevelOf(const std::string& module) const {
  if (!setup_) {
    return kWarning;
  }
  const auto own = setup_->levels.find(module);
  return own == setup_->levels.end() ? setup_->level : own->second;
}

std::shared_ptr<Sink> Hub::SinkOf(const std::string& log) {
  const std::lock_guard lock(mutex_);
  std::shared_ptr<Sink>& sink = sinks_[log];
  if (!sink) {
    sink = setup_ ? FileSink(*setup_, log) : StandardErrorSink();
  }
  return sink;
}

void Hub::Write(const Channel& channel, int level, std::string_view text) {
  SinkOf(channel.log)->Write(Escaped(channel.module), level, Shortened(text));
}

}  // namespace mgr_log
