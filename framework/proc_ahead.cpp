#include "framework/proc_ahead.h"

#include <algorithm>
#include <list>
#include <mutex>
#include <stdexcept>
#include <utility>

#include "framework/pump.h"

namespace mgr_proc {

// Those whose child nobody has taken over, if they have one.
class Ahead::Waiting {
 public:
  static Waiting& The() {
    static Waiting waiting;
    return waiting;
  }

  void Add(Ahead* ahead) {
    const std::lock_guard lock(mutex_);
    aheads_.push_back(ahead);
  }
  void Remove(Ahead* ahead) {
    const std::lock_guard lock(mutex_);
    aheads_.remove(ahead);
  }
  bool MayStart(const std::string& command, std::string_view input) {
    const std::lock_guard lock(mutex_);
    const auto others = std::count_if(aheads_.begin(), aheads_.end(), [](const Ahead* ahead) {
      return ahead->child_ != nullptr && ahead->input_;
    });
    return static_cast<std::size_t>(others) < kMostWithInput &&
           Find(command, &input) == aheads_.end();
  }
  std::unique_ptr<StartedChild> Take(const std::string& command, const std::string_view* input) {
    const std::lock_guard lock(mutex_);
    const auto found = Find(command, input);
    return found == aheads_.end() ? nullptr : std::move((*found)->child_);
  }

 private:
  std::list<Ahead*>::iterator Find(const std::string& command, const std::string_view* input) {
    return std::find_if(aheads_.begin(), aheads_.end(), [&](const Ahead* ahead) {
      return ahead->child_ != nullptr && ahead->IsFor(command, input);
    });
  }

  std::mutex mutex_;
  std::list<Ahead*> aheads_;
};

Ahead::Ahead(const std::string& command) : command_(command) {
  SecretBuffer no_input;
  no_input.Close();
  Start(Shell::kIfNeeded, no_input);
}

Ahead::Ahead(const std::string& command, SecretBuffer& input)
    : command_(command), input_(input.Text()) {
  const std::string_view text = input.Text();
  if (text.size() <= kSentAhead && Waiting::The().MayStart(command, text)) {
    Start(Shell::kNone, input);
  }
  input.Wipe();
}

Ahead::~Ahead() { Waiting::The().Remove(this); }

std::unique_ptr<StartedChild> Ahead::Take(const std::string& command) {
  return Waiting::The().Take(command, nullptr);
}

std::unique_ptr<StartedChild> Ahead::Take(const std::string& command, std::string_view input) {
  return Waiting::The().Take(command, &input);
}

void Ahead::Start(Shell shell, SecretBuffer& input) {
  try {
    child_ = std::make_unique<StartedChild>(command_, shell, input);
  } catch (const std::runtime_error&) {
    return;  // the one who asks tries it again, and tells
  }
  Waiting::The().Add(this);
}

bool Ahead::IsFor(const std::string& command, const std::string_view* input) const {
  return command_ == command &&
         (input == nullptr ? !input_ : input_.has_value() && input_->Is(*input));
}

}  // namespace mgr_proc
