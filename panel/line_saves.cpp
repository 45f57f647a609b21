#include "panel/line_saves.h"

#include <utility>

#include "framework/doubts.h"

namespace brisq_panel {

namespace {

thread_local LineSaves* g_current = nullptr;

}  // namespace

LineSaves::LineSaves() : outermost_(g_current == nullptr) {
  if (outermost_) {
    g_current = this;
  }
}

LineSaves::~LineSaves() {
  if (outermost_) {
    g_current = nullptr;
  }
}

void LineSaves::Save() {
  if (!outermost_) {
    return;
  }
  doubts::NoteInRequest([this] { saves_.Save(); });
  for (const auto& work : std::exchange(waiting_, {})) {
    work();
  }
  doubts::NoteInRequest([this] { saves_.Save(); });
}

bool LineSaves::Active() noexcept { return g_current != nullptr; }

void LineSaves::WhenSaved(std::function<void()> work) {
  if (g_current == nullptr) {
    return work();
  }
  g_current->waiting_.push_back(std::move(work));
}

}  // namespace brisq_panel
