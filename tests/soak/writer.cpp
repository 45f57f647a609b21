#include "tests/soak/writer.h"

#include <array>
#include <chrono>
#include <mutex>
#include <thread>
#include <vector>

#include "framework/conf_lock.h"
#include "mgr_err.h"
#include "tests/soak/ledger.h"

namespace soak {
namespace {

// A loaded machine may keep others waiting for longer than an administrator would.
constexpr auto kPatience = std::chrono::seconds(120);

class WritingThread {
 public:
  WritingThread(const Board& board, const MakeStore& make, Ledger& ledger, std::mutex& mutex)
      : board_(board), store_(make(board.path())), ledger_(ledger), mutex_(mutex) {}

  void Take(const std::string& name) { boxes_.push_back({name, ValueOf(board_.Look(), name)}); }

  void Run() {
    for (long number = 1; board_.shared().updates < board_.updates(); ++number) {
      if (board_.UpdateIsDue()) {
        Update(boxes_[static_cast<std::size_t>(number) % boxes_.size()], number);
      } else {
        std::this_thread::sleep_for(std::chrono::microseconds(200));
      }
    }
    const std::lock_guard lock(mutex_);
    for (const Box& box : boxes_) ledger_.Final(box.name, box.value);
  }

 private:
  struct Box {
    std::string name;
    std::string value;  // acknowledged last
  };

  void Update(Box& box, long number) {
    Check(box);
    // Hashes of different length: a torn line would show.
    const std::string value =
        std::to_string(number) + std::string(static_cast<std::size_t>(number) % 40, 'x');
    try {
      box.value = Change(box, number, value);
      ++board_.shared().updates;
    } catch (const mgr_err::Error&) {
      ++board_.shared().refused;
      box.value = ValueOf(board_.Look(), box.name);
    }
    Check(box);
  }

  std::string Change(const Box& box, long number, const std::string& value) {
    if (box.value == kAbsent) {
      store_->Add(box.name, value);
    } else if (number % 17 == 0) {
      store_->Remove(box.name);
      return kAbsent;
    } else {
      store_->Set(box.name, value);
    }
    return value;
  }

  void Check(Box& box) {
    const std::string found = ValueOf(board_.Look(), box.name);
    if (found == box.value) return;
    const std::lock_guard lock(mutex_);
    ledger_.Differs(box.name, box.value, found);
    box.value = found;
  }

  const Board& board_;
  std::unique_ptr<Store> store_;
  Ledger& ledger_;
  std::mutex& mutex_;  // of the ledger
  std::vector<Box> boxes_;
};

}  // namespace

std::string BoxName(int process, int thread, int box) {
  return "p" + std::to_string(process) + "t" + std::to_string(thread) + "b" + std::to_string(box) +
         "@example.org";
}

void RunWriter(const Board& board, const MakeStore& make, int process, int threads,
               const std::string& ledger_path) {
  SetConfWaitLimit(kPatience);
  Ledger ledger(ledger_path);
  std::mutex mutex;
  std::vector<std::thread> running;
  for (int thread = 0; thread < threads; ++thread) {
    running.emplace_back([&, thread] {
      WritingThread writing(board, make, ledger, mutex);
      for (int box = 0; box < kBoxes; ++box) writing.Take(BoxName(process, thread, box));
      writing.Run();
    });
  }
  for (std::thread& thread : running) thread.join();
}

}  // namespace soak
