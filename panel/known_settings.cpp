#include "panel/known_settings.h"

#include <algorithm>
#include <cctype>
#include <map>
#include <numeric>
#include <set>

#include "framework/log_setup.h"

namespace brisq_panel {

namespace {

using Names = std::set<std::string>;

// One table of the file: what stands in it, and what is read.
struct Table {
  std::string name;
  std::map<std::string, std::string> places;  // by key
  Names known;
};

Names With(Names names, const std::vector<std::string>& more) {
  names.insert(more.begin(), more.end());
  return names;
}

Names Params() {
  return With({"POP3", "EmailAuth", "DovecotPwScheme", "DovecotCheckPeriod", "EmailReloadDelay",
               "EmailPasswordDelay", "EmailSweepLimit", "EmailRefreshPeriod", "EmailExpiryPeriod",
               "JobHistoryDays", "ExecTimeout"},
              mgr_cf::DeclaredParams());
}

Names Paths() {
  return With({"dovecot-passwd", "dovecot-doveadm", "dovecot-restart", "dovecot-configtest",
               "dovecot-certconf", "dovecot-ssl-certs"},
              mgr_cf::DeclaredPaths());
}

// Those of a plug-in that can't be loaded are no slips.
Names LogKeys() {
  return With({"directory", "level", "rotate_mb", "keep", "email"}, mgr_log::ModuleNames());
}

char Lower(char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); }

// Letters to put in, take out or change until one name is the other; capitals count as small ones.
std::size_t Distance(const std::string& from, const std::string& to) {
  std::vector<std::size_t> row(to.size() + 1);
  std::iota(row.begin(), row.end(), 0);
  for (const char c : from) {
    std::size_t diagonal = row[0]++;
    for (std::size_t i = 1; i <= to.size(); ++i) {
      const std::size_t changed = diagonal + (Lower(c) == Lower(to[i - 1]) ? 0 : 1);
      diagonal = row[i];
      row[i] = std::min({row[i] + 1, row[i - 1] + 1, changed});
    }
  }
  return row.back();
}

// Empty when none is near.
std::string Nearest(const std::string& name, const Names& known) {
  std::string nearest;
  std::size_t least = name.size() / 3 + 2;  // what has less in common is no slip
  for (const std::string& other : known) {
    const std::size_t distance = Distance(name, other);
    if (distance < least) {
      least = distance;
      nearest = other;
    }
  }
  return nearest;
}

std::string Hint(const std::string& name, const Table& table, const std::vector<Table>& tables) {
  for (const Table& other : tables) {
    if (other.known.count(name) != 0) {
      return ": it belongs into [" + other.name + "]";
    }
  }
  const std::string nearest = Nearest(name, table.known);
  return nearest.empty() ? "" : ": did you mean \"" + nearest + "\"?";
}

}  // namespace

std::vector<std::string> UnknownSettings(const mgr_cf::Settings& settings) {
  const std::vector<Table> tables = {{"param", settings.param_places, Params()},
                                     {"path", settings.path_places, Paths()},
                                     {"log", settings.level_places, LogKeys()}};
  std::vector<std::string> lines;
  for (const Table& table : tables) {
    for (const auto& [name, place] : table.places) {
      if (table.known.count(name) == 0) {
        lines.push_back(place + ": \"" + name + "\" is not known in [" + table.name +
                        "] and changes nothing" + Hint(name, table, tables));
      }
    }
  }
  return lines;
}

}  // namespace brisq_panel
