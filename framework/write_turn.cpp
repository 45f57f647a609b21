#include "framework/write_turn.h"

#include <list>
#include <map>
#include <mutex>

#include "mgr_err.h"

namespace mgr_db {

struct WriteTurn::Line {
  std::mutex mutex;
  // Those who wait, in order; the first one has the turn.
  std::list<WriteTurn*> waiting;

  static std::shared_ptr<Line> Of(const std::string& file) {
    static std::mutex mutex;
    static auto& lines = *new std::map<std::string, std::weak_ptr<Line>>;
    const std::lock_guard lock(mutex);
    std::erase_if(lines, [](const auto& entry) { return entry.second.expired(); });
    std::shared_ptr<Line> line = lines[file].lock();
    if (!line) lines[file] = line = std::make_shared<Line>();
    return line;
  }
  // Wakes the one whose turn comes, and nobody else: the others would only go back to sleep.
  void Leave(WriteTurn* turn) {
    waiting.remove(turn);
    if (!waiting.empty()) waiting.front()->came_.notify_one();
  }
};

WriteTurn::WriteTurn(const std::string& file, std::chrono::milliseconds patience)
    : line_(Line::Of(file)) {
  std::unique_lock lock(line_->mutex);
  line_->waiting.push_back(this);
  if (came_.wait_for(lock, patience, [&] { return line_->waiting.front() == this; })) return;
  line_->Leave(this);
  throw mgr_err::Error("locked", "database", "other threads are changing it");
}

WriteTurn::~WriteTurn() {
  const std::lock_guard lock(line_->mutex);
  line_->Leave(this);
}

}  // namespace mgr_db
