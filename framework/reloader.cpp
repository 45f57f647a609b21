#include "reloader.h"

#include "framework/reload_queue.h"

namespace reloader {

Reloader::Reloader(const std::string& group, const std::string& action,
                   const std::string& delay_param, const std::string& reload,
                   const std::string& restart)
    : Action(action, kAdministratorOnly, nullptr),
      group_(group),
      delay_param_(delay_param),
      reload_(reload),
      restart_(restart) {
  Queue::OfProcess().Enter({group_, action, delay_param_, reload_, restart_});
}

Reloader::~Reloader() { Queue::OfProcess().Leave(name()); }

void Reloader::Execute(brisq_api::Session& session) const {
  Queue::OfProcess().Ask(group_, name(), session.Param("hard") == "on");
}

}  // namespace reloader
