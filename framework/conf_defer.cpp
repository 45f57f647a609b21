#include "framework/conf_defer.h"

#include "framework/doubts.h"
#include "mgr_log.h"

namespace {

constexpr auto kLongestDelay = std::chrono::seconds(1);

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
  if (Clock::now() - current->last_save_ >= kLongestDelay) current->SaveNoted();
}

void DeferSaves::SaveOrNote(const std::shared_ptr<ConfFile>& file,
                            const std::shared_ptr<ConfFile::Waiting>& waiting) {
  if (current == nullptr) return file->Save(waiting);
  if (current->noted_.empty()) current->last_save_ = Clock::now();
  current->noted_.emplace_back(file, waiting);
  Look();
  current->Throw();
}

void DeferSaves::SaveNoted() noexcept {
  // Files that come in a row are saved once; one that comes again has nothing left to save.
  const auto noted = std::exchange(noted_, {});
  const ConfFile* last = nullptr;
  for (const auto& [file, waiting] : noted) {
    if (file.get() != last) SaveOne(*file);
    last = file.get();
  }
  for (const auto& [file, waiting] : noted) {
    if (!error_) error_ = file->ErrorOf(*waiting);
  }
  last_save_ = Clock::now();
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
