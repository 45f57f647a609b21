#include "tests/support/log_capture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <sstream>

#include "framework/log_setup.h"
#include "str.h"
#include "test.h"

namespace support {

namespace fs = std::filesystem;

namespace {

// TIME PROCESS LEVEL MODULE: TEXT
LogLine Parse(const std::string& log, std::string line) {
  const std::string whole = line;
  const std::string time = str::GetWord(line);
  std::string process = str::GetWord(line);
  LogLine result{log, str::GetWord(line), {}, {}};
  const std::size_t colon = line.find(": ");
  if (time.empty() || !test::Numeric(process) || colon == std::string::npos) {
    ADD_FAILURE() << log << ".log has a line of another form: " << whole;
    return {log, "error", "", whole};
  }
  result.module = line.substr(0, colon);
  result.text = line.substr(colon + 2);
  return result;
}

}  // namespace

LogCapture::LogCapture(int level) {
  mgr_log::Setup setup;
  setup.directory = directory_.path();
  setup.level = level;
  mgr_log::Configure(setup);
}

LogCapture::~LogCapture() {
  for (const LogLine& line : AllLines()) {
    if (line.level != "error") {
      continue;
    }
    const auto met = std::find_if(expected_.begin(), expected_.end(), [&](const std::string& part) {
      return line.text.find(part) != std::string::npos;
    });
    if (met == expected_.end()) {
      ADD_FAILURE() << "unexpected line in " << line.log << ".log: " << line.Short();
    } else {
      expected_.erase(met);
    }
  }
  for (const std::string& part : expected_) {
    ADD_FAILURE() << "no error line contains: " << part;
  }
  mgr_log::Reset();
}

std::vector<LogLine> LogCapture::Lines(const std::string& log) const {
  std::vector<LogLine> lines;
  const std::string path = directory_ / (log + ".log");
  if (!fs::exists(path)) {
    return lines;
  }
  std::istringstream text(ReadFile(path));
  for (std::string line; std::getline(text, line);) {
    lines.push_back(Parse(log, line));
  }
  return lines;
}

std::vector<std::string> LogCapture::Messages(const std::string& log) const {
  std::vector<std::string> messages;
  for (const LogLine& line : Lines(log)) {
    messages.push_back(line.Short());
  }
  return messages;
}

std::vector<LogLine> LogCapture::AllLines() const {
  std::set<std::string> logs;
  for (const fs::directory_entry& entry : fs::directory_iterator(directory_.path())) {
    logs.insert(entry.path().stem().string());
  }
  std::vector<LogLine> all;
  for (const std::string& log : logs) {
    const std::vector<LogLine> lines = Lines(log);
    all.insert(all.end(), lines.begin(), lines.end());
  }
  return all;
}

void LogCapture::Clear() {
  for (const fs::directory_entry& entry : fs::directory_iterator(directory_.path())) {
    fs::resize_file(entry.path(), 0);
  }
}

}  // namespace support
