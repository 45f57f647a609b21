#include "framework/config_file.h"

#include <filesystem>
#include <sstream>
#include <string_view>

#include "framework/safe_program.h"
#include "framework/toml.h"
#include "mgr_err.h"
#include "mgr_file.h"

namespace mgr_cf {

namespace {

namespace fs = std::filesystem;

// The tables of one file, with what each error needs to name its place.
class Reader {
 public:
  explicit Reader(const std::string& file) : file_(fs::absolute(file).lexically_normal()) {}

  Settings Read();

 private:
  using Entry = void (Reader::*)(const std::string& key, const toml::node& value);

  [[noreturn]] void Refuse(const toml::source_position& place, const std::string& rule) const;
  [[noreturn]] void Refuse(const toml::node& node, const std::string& rule) const {
    Refuse(node.source().begin, rule);
  }
  std::string Place(const toml::source_position& place) const {
    return file_.string() + ":" + std::to_string(place.line);
  }
  toml::table Parse() const;
  void ReadTable(const std::string& name, const toml::node& node);
  void ReadPanelEntry(const std::string& key, const toml::node& value);
  void ReadLogEntry(const std::string& key, const toml::node& value);
  void ReadParam(const std::string& key, const toml::node& value);
  void ReadPath(const std::string& key, const toml::node& value);

  std::string Text(const std::string& what, const toml::node& value) const;
  std::string File(const std::string& what, const toml::node& value) const;
  std::vector<std::string> Files(const std::string& what, const toml::node& value) const;
  int Number(const std::string& what, const toml::node& value, int least, int most) const;
  std::string Absolute(const std::string& path) const {
    return (file_.parent_path() / path).lexically_normal().string();
  }

  fs::path file_;
  Settings settings_;
};

Settings Reader::Read() {
  settings_.file = file_.string();
  settings_.database = Absolute("state/panel.db");
  settings_.state = Absolute("state");
  settings_.log_directory = Absolute("log");
  for (const auto& [name, node] : Parse()) {
    ReadTable(std::string(name.str()), node);
  }
  return settings_;
}

toml::table Reader::Parse() const {
  // It names libraries and tools.
  mgr_proc::RefuseUnsafe(file_.string());
  std::string text;
  try {
    text = mgr_file::ReadE(file_.string());
  } catch (const mgr_err::Error& error) {
    throw mgr_err::Error("config", file_.string(), error.value());
  }
  try {
    return toml::parse(text);
  } catch (const toml::parse_error& error) {
    Refuse(error.source().begin, std::string(error.description()));
  }
}

void Reader::Refuse(const toml::source_position& place, const std::string& rule) const {
  throw mgr_err::Error("config", Place(place), rule);
}

void Reader::ReadTable(const std::string& name, const toml::node& node) {
  static const std::map<std::string, Entry> kTables = {{"panel", &Reader::ReadPanelEntry},
                                                       {"log", &Reader::ReadLogEntry},
                                                       {"param", &Reader::ReadParam},
                                                       {"path", &Reader::ReadPath}};
  const auto entry = kTables.find(name);
  if (entry == kTables.end()) {
    Refuse(node, "[" + name + "] is not known: the tables are [log], [panel], [param] and [path]");
  }
  if (!node.is_table()) {
    Refuse(node, "\"" + name + "\" must be a table");
  }
  for (const auto& [key, value] : *node.as_table()) {
    (this->*entry->second)(std::string(key.str()), value);
  }
}

void Reader::ReadPanelEntry(const std::string& key, const toml::node& value) {
  if (key == "database") {
    settings_.database = File(key, value);
  } else if (key == "state") {
    settings_.state = File(key, value);
  } else if (key == "plugins") {
    settings_.plugins = Files(key, value);
  } else {
    Refuse(value,
           "\"" + key + "\" is not known in [panel]: the keys are database, plugins and state");
  }
}

void Reader::ReadLogEntry(const std::string& key, const toml::node& value) {
  if (key == "directory") {
    settings_.log_directory = File(key, value);
  } else if (key == "level") {
    settings_.log_level = Number(key, value, 0, 9);
  } else if (key == "rotate_mb") {
    settings_.log_rotate_mb = Number(key, value, 1, 4096);
  } else if (key == "keep") {
    settings_.log_keep = Number(key, value, 0, 1000);
  } else {
    settings_.log_levels[key] = Number(key, value, 0, 9);
    settings_.level_places[key] = Place(value.source().begin);
  }
}

void Reader::ReadParam(const std::string& key, const toml::node& value) {
  settings_.params[key] = Text(key, value);
  settings_.param_places[key] = Place(value.source().begin);
}

void Reader::ReadPath(const std::string& key, const toml::node& value) {
  settings_.paths[key] = Text(key, value);
  settings_.path_places[key] = Place(value.source().begin);
}

std::string Reader::Text(const std::string& what, const toml::node& value) const {
  const auto text = value.value_exact<std::string>();
  if (!text) {
    Refuse(value, "\"" + what + "\" must be a string");
  }
  return *text;
}

std::string Reader::File(const std::string& what, const toml::node& value) const {
  const std::string path = Text(what, value);
  if (path.empty() || path.find('\0') != std::string::npos) {
    Refuse(value, "\"" + what + "\" must be the path of a file or folder");
  }
  return Absolute(path);
}

std::vector<std::string> Reader::Files(const std::string& what, const toml::node& value) const {
  if (!value.is_array()) {
    Refuse(value, "\"" + what + "\" must be an array of strings");
  }
  std::vector<std::string> files;
  for (const toml::node& element : *value.as_array()) {
    files.push_back(File(what, element));
  }
  return files;
}

int Reader::Number(const std::string& what, const toml::node& value, int least, int most) const {
  const auto number = value.value_exact<std::int64_t>();
  if (!number || *number < least || *number > most) {
    Refuse(value, "\"" + what + "\" must be an integer from " + std::to_string(least) + " to " +
                      std::to_string(most));
  }
  return static_cast<int>(*number);
}

}  // namespace

Settings ReadSettings(const std::string& file) {
  if (file.empty()) {
    throw mgr_err::Error("config", {}, "no file is named");
  }
  return Reader(file).Read();
}

}  // namespace mgr_cf
