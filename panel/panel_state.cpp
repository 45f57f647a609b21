#include "panel/panel_state.h"

#include "panel/records.h"

namespace brisq_panel {

PanelState::PanelState()
    : CustomTable("panel_state"), id(this, "id"), name(this, "name"), value(this, "value") {}

std::string PanelState::Schema() const {
  return "CREATE TABLE IF NOT EXISTS panel_state ("
         "id INTEGER PRIMARY KEY AUTOINCREMENT, name TEXT NOT NULL UNIQUE, value TEXT NOT NULL)";
}

std::string KeptValue(const std::string& name) {
  const auto state = Table<PanelState>();
  return state->DbFind({{"name", name}}) ? std::string(state->value) : std::string();
}

void KeepValue(const std::string& name, const std::string& value) {
  const auto state = Table<PanelState>();
  if (!state->DbFind({{"name", name}})) {
    state->name = name;
  }
  state->value = value;
  state->Post();
}

}  // namespace brisq_panel
