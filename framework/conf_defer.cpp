#include "framework/conf_defer.h"

#include <utility>

#include "framework/doubts.h"
#include "mgr_log.h"

namespace {

constexpr std::int64_t kLongestDelay = 1'000'000'000;  // nanoseconds

thread_local DeferSaves* current = nullptr;

mgr_log::Module log_channel("conf", "brisq");

void LogLost(const std::exception_ptr& error) {
  if (!log_channel.Check(mgr_log::kError)) return;
  try {
    std::rethrow_exception(error);
  } catch (const std::exception& caught) {
    log_channel.Write(mgr_log::kError, "a deferred change was not saved: %s", caught.what());
  }
}

}  // namespace

DeferSaves::DeferSaves(Between between) : outermost_(current == nullptr), between_(between) {
  if (outermost_) current = this;
}

DeferSaves::~DeferSaves() {
  if (!outermost_) return;
  current = nullptr;
  SaveNoted();
  if (error_) LogLost(error_);
}

void DeferSaves::Save() {
  if (current == nullptr) return;
  current->SaveNoted();
  doubts::NoteInRequest([] { current->Throw(); });
}

bool DeferSaves::IsOpen() noexcept { return current != nullptr; }

void DeferSaves::Look() noexcept {
  if (current == nullptr || current->noted_.empty()) return;
  if (current->between_ == Between::kNever) return;
  if (RecentLook::Now() - current->last_save_ >= kLongestDelay) current->SaveNoted();
}

void DeferSaves::SaveOrNote(const std::shared_ptr<ConfFile>& file,
                            const std::shared_ptr<ConfFile::Waiting>& waiting) {
  if (current == nullptr) return file->Save(waiting);
  std::vector<Noted>& noted = current->noted_;
  if (noted.empty()) current->last_save_ = RecentLook::Now();
  if (noted.empty() || noted.back().file != file) noted.push_back({file, {}});
  noted.back().changes.push_back(waiting);
  Look();
  current->Throw();
}

void DeferSaves::SaveNoted() noexcept {
  // A file that comes again has nothing left to save.
  const auto noted = std::exchange(noted_, {});
  for (const Noted& each : noted) SaveOne(*each.file);
  for (const Noted& each : noted) {
    if (!error_) error_ = each.file->FirstErrorOf(each.changes);
  }
  last_save_ = RecentLook::Now();
}

void DeferSaves::SaveOne(ConfFile& file) noexcept {
  try {
    file.SaveAll();
  } catch (...) {
    if (!error_) error_ = std::current_exception();
  }
}

void DeferSaves::Throw() {
  if (error_) std::rethrow_exception(std::exchange(error_, nullptr));
}
