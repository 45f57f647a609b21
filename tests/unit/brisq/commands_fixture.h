#pragma once

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "tests/unit/brisq/program_fixture.h"

namespace brisq {

/// The built program, whose data is read as JSON.
class CommandsTest : public ProgramTest {
 protected:
  /// Puts another text in the place of one in the configuration.
  void Reconfigure(const std::string& old_text, const std::string& new_text) {
    std::string config = dir_.Read("brisq.toml");
    const std::size_t at = config.find(old_text);
    ASSERT_NE(std::string::npos, at);
    dir_.Write("brisq.toml", config.replace(at, old_text.size(), new_text));
  }

  /// The "data" of its answer.
  nlohmann::json Data(const std::string& words) {
    const Ran ran = Run(words + " --json");
    EXPECT_EQ(0, ran.status) << words << ": " << ran.err;
    const auto document = nlohmann::json::parse(ran.out);
    EXPECT_EQ(1, document["brisq"]);
    return document["data"];
  }
};

}  // namespace brisq
