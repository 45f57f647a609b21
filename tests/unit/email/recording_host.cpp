#include "tests/unit/email/recording_host.h"

#include <algorithm>
#include <cstdio>

namespace recording {

Host& Host::Instance() {
  // Never destroyed: the plug-in's own objects at file scope are destroyed after it otherwise.
  static Host* const host = new Host;
  return *host;
}

void Host::Reset() {
  if (!loaded_) at_load_ = Calls();
  loaded_ = true;
  fail_at = -1;
  for (mgr_job::Job* job : std::vector<mgr_job::Job*>(jobs)) delete job;
  for (brisq_api::Action* action : std::vector<brisq_api::Action*>(actions)) delete action;
  pop3 = nullptr;
  passwords = nullptr;
  params = {};
  paths = {};
  log_level = 4;
  tool = nullptr;
  runs.clear();
  lines.clear();
  mailboxes.clear();
  spelled.clear();
  file_changed = true;
  may_run_password_work = true;
  random = std::string("\x2a\0\0\0", 4);
  save_reason = 0;
  existing.clear();
  entries.clear();
  files.clear();
  removals_fail = false;
  owner = nullptr;
  follow_datasets = false;
  ForgetCalls();
}

void Host::Note(const std::string& call) {
  int number = 0;
  {
    const std::lock_guard guard(mutex_);
    calls_.push_back(call);
    number = next_++;
  }
  if (number == fail_at) throw mgr_err::Error("planned", std::to_string(number), call);
}

void Host::NoteQuietly(const std::string& call) noexcept {
  const std::lock_guard guard(mutex_);
  calls_.push_back(call);
}

std::vector<std::string> Host::Calls() const {
  const std::lock_guard guard(mutex_);
  return calls_;
}

std::vector<std::string> Host::Calls(const std::string& prefix) const {
  std::vector<std::string> matching = Calls();
  std::erase_if(matching, [&](const std::string& call) { return !call.starts_with(prefix); });
  return matching;
}

void Host::ForgetCalls() {
  const std::lock_guard guard(mutex_);
  calls_.clear();
  next_ = 0;
}

std::string Host::Column(const std::string& name, unsigned long column) const {
  const auto line =
      std::find_if(lines.begin(), lines.end(), [&](const Line& l) { return l[0] == name; });
  return line == lines.end() ? "(no line)" : line->at(column - 1);
}

std::shared_ptr<brisq_db::EmailTable> Host::NewMailbox(
    const std::map<std::string, std::string>& values) {
  auto mailbox = std::make_shared<brisq_db::EmailTable>();
  for (mgr_db::Field* field : mailbox->Fields()) {
    const auto value = values.find(field->name());
    if (value != values.end()) field->SetStored(value->second);
  }
  return mailbox;
}

std::string Spell(const mgr_file::Attrs& attrs) {
  char text[64];
  std::snprintf(text, sizeof text, "%04o %u:%u", attrs.mode, attrs.uid, attrs.gid);
  return text;
}

}  // namespace recording
