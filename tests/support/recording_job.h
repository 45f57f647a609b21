#pragma once

#include <string>
#include <vector>

#include "mgr_err.h"
#include "mgr_job.h"

namespace support {

/// What has happened, oldest first.
using Events = std::vector<std::string>;

/// A job that writes each thing that befalls it into a list, as "do NAME", "undo NAME", "forget
/// NAME" and "delete NAME", and fails where it is told to.
class RecordingJob : public mgr_job::Job {
 public:
  struct Fails {
    bool in_do = false;
    bool in_undo = false;
  };

  RecordingJob(Events& events, std::string name) : RecordingJob(events, std::move(name), Fails{}) {}
  RecordingJob(Events& events, std::string name, Fails fails)
      : events_(events), name_(std::move(name)), fails_(fails) {}
  ~RecordingJob() override { events_.push_back("delete " + name_); }

  void Do() override { Happen("do", fails_.in_do); }
  void Undo() override { Happen("undo", fails_.in_undo); }
  void Forget() noexcept override { events_.push_back("forget " + name_); }

 private:
  void Happen(const char* what, bool fails) {
    events_.push_back(what + (" " + name_));
    if (fails) {
      throw mgr_err::Error("file", name_, std::string(what) + " refused");
    }
  }

  Events& events_;
  std::string name_;
  Fails fails_;
};

/// Those of the events that begin with one of the words.
inline Events Only(const Events& events, const std::vector<std::string>& words) {
  Events chosen;
  for (const std::string& event : events) {
    for (const std::string& word : words) {
      if (event.starts_with(word)) {
        chosen.push_back(event);
      }
    }
  }
  return chosen;
}

}  // namespace support
