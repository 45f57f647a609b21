#include "panel/refresh_watch.h"

#include "mgr_err.h"

namespace brisq_panel {

namespace {

thread_local RefreshWatch* g_watch = nullptr;

}  // namespace

RefreshWatch::RefreshWatch(int last_mailbox) : last_mailbox_(last_mailbox) {
  if (g_watch != nullptr) {
    throw mgr_err::Error("internal", "refresh", "one goes on on this thread already");
  }
  g_watch = this;
}

RefreshWatch::~RefreshWatch() { g_watch = nullptr; }

void RefreshWatch::SawFile(const std::string& path, const ConfStamp& stamp, bool changed) {
  if (g_watch != nullptr) {
    g_watch->files_.push_back({path, stamp});
    g_watch->walked_ = g_watch->walked_ || changed;
  }
}

void RefreshWatch::SawName(const std::string& name, bool known) {
  if (g_watch == nullptr || g_watch->swept_) {
    return;
  }
  if (!g_watch->walked_) {
    ++g_watch->figures_;
    return;
  }
  ++g_watch->lines_;
  if (!known) {
    g_watch->unknown_.push_back(name);
  }
}

void RefreshWatch::SawSweep() noexcept {
  if (g_watch != nullptr) {
    g_watch->swept_ = true;
  }
}

void RefreshWatch::SawPutOff() noexcept {
  if (g_watch != nullptr) {
    g_watch->put_off_ = true;
  }
}

void RefreshWatch::SawSpared(const std::string& line) {
  if (g_watch != nullptr) {
    g_watch->spared_.push_back(line);
  }
}

std::vector<std::string> RefreshWatch::PathsSeen() {
  std::vector<std::string> paths;
  if (g_watch != nullptr) {
    for (const File& file : g_watch->files_) {
      paths.push_back(file.path);
    }
  }
  return paths;
}

std::string RefreshWatch::SweepLimit() {
  return g_watch == nullptr ? std::string()
                            : " AND id <= " + std::to_string(g_watch->last_mailbox_);
}

}  // namespace brisq_panel
