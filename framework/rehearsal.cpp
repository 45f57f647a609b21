#include "framework/rehearsal.h"

#include "framework/conf_file.h"
#include "framework/conf_scratch.h"
#include "framework/request.h"
#include "mgr_err.h"
#include "mgr_log.h"

namespace {

mgr_log::Module log_channel("request", "brisq");

thread_local Rehearsal* current = nullptr;

}  // namespace

Rehearsal::Rehearsal() : scratch_(std::make_shared<ConfScratch>()) {
  if (current != nullptr || Request::Current() != nullptr) {
    throw mgr_err::Error("internal", "dry run", "begun inside of another one or of a request");
  }
  current = this;
}

Rehearsal::~Rehearsal() {
  for (auto call = at_end_.rbegin(); call != at_end_.rend(); ++call) {
    try {
      (*call)();
    } catch (const std::exception& error) {
      if (log_channel.Check(mgr_log::kError)) {
        log_channel.Write(mgr_log::kError, "end of a dry run: %s", error.what());
      }
    }
  }
  current = nullptr;
}

Rehearsal* Rehearsal::Current() noexcept { return current; }

void Rehearsal::Note(const std::string& effect) {
  if (!effect.empty() && noted_.insert(effect).second) {
    effects_.push_back(effect);
  }
}

void Rehearsal::OnEnd(std::function<void()> call) { at_end_.push_back(std::move(call)); }

std::shared_ptr<ConfFile> Rehearsal::File(
    const std::string& path, const std::shared_ptr<const ConfConfiguration>& configuration) {
  std::shared_ptr<ConfFile>& file = files_[ConfFile::KeyOf(path, configuration->Syntax())];
  if (!file) file = std::make_shared<ConfFile>(path, configuration, scratch_);
  return file;
}

void Rehearsal::AddDirectory(const std::string& path) {
  Note("directory " + path + " made");
  directories_.insert(path);
}

void Rehearsal::AddRemoved(const std::string& path) {
  Note("file " + path + " removed");
  removed_.insert(path);
}
