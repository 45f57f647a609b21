// Stand-ins for child processes and for the system's random source.
#include <sys/random.h>

#include <cerrno>
#include <cstring>
#include <sstream>

#include "mgr_err.h"
#include "mgr_proc.h"
#include "tests/unit/email/recording_host.h"

using recording::Host;

namespace mgr_proc {

class Execute::Run {
 public:
  Run(const std::string& command, int mode) : command_(command), mode_(mode) {}

  std::ostream& In() { return input_; }

  const recording::Outcome& Outcome() {
    if (!ended_) {
      Host& host = Host::Instance();
      host.runs.push_back({command_, mode_, input_.str()});
      outcome_ = host.tool ? host.tool(command_, input_.str()) : recording::Outcome{};
      ended_ = true;
    }
    return outcome_;
  }

 private:
  std::string command_;
  int mode_;
  std::ostringstream input_;
  recording::Outcome outcome_;
  bool ended_ = false;
};

Execute::Execute(const std::string& command, int mode)
    : run_(std::make_unique<Run>(command, mode)) {
  Host::Instance().Note("Execute " + std::to_string(mode) + " '" + command + "'");
}

Execute::~Execute() { Host::Instance().NoteQuietly("~Execute"); }

std::ostream& Execute::In() {
  Host::Instance().Note("In");
  return run_->In();
}

int Execute::Result() {
  Host::Instance().Note("Result");
  return run_->Outcome().status;
}

std::string Execute::Str() {
  Host::Instance().Note("Str");
  return run_->Outcome().output;
}

}  // namespace mgr_proc

// Takes the place of the C library's, under the real str::Random.
extern "C" ssize_t getrandom(void* buffer, std::size_t length, unsigned) {
  try {
    Host::Instance().Note("Random " + std::to_string(length));
  } catch (const mgr_err::Error&) {
    errno = EIO;
    return -1;
  }
  const std::string& random = Host::Instance().random;
  const std::size_t given = std::min(length, random.size());
  std::memcpy(buffer, random.data(), given);
  return static_cast<ssize_t>(given);
}
