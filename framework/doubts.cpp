#include "framework/doubts.h"

#include <algorithm>
#include <mutex>
#include <utility>

#include "framework/request.h"
#include "mgr_err.h"
#include "mgr_log.h"

namespace doubts {
namespace {

mgr_log::Module log_channel("conf", "brisq");

struct Noted {
  std::mutex mutex;
  std::vector<std::string> texts;
};

Noted& TheNoted() {
  static Noted& noted = *new Noted;  // files may be saved while the process ends
  return noted;
}

}  // namespace

void Note(const std::string& text) {
  if (log_channel.Check(mgr_log::kError)) {
    log_channel.Write(mgr_log::kError, "%s", text.c_str());
  }
  Noted& noted = TheNoted();
  const std::lock_guard lock(noted.mutex);
  const auto same = std::find(noted.texts.begin(), noted.texts.end(), text);
  if (same == noted.texts.end()) noted.texts.push_back(text);
}

void NoteInRequest(const std::function<void()>& save) {
  try {
    save();
  } catch (const mgr_err::Error& error) {
    if (error.type() != "doubt" || Request::Current() == nullptr) throw;
    Note(error.object() + " " + error.value());
  }
}

std::vector<std::string> Take() {
  Noted& noted = TheNoted();
  const std::lock_guard lock(noted.mutex);
  return std::exchange(noted.texts, {});
}

}  // namespace doubts
