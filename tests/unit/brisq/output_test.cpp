#include "brisq/output.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <sstream>

namespace brisq {
namespace {

struct Screen {
  std::istringstream in;
  std::ostringstream out;
  std::ostringstream err;
  Console console{in, out, err, false};
};

Record Sample(const std::string& name, long size) {
  return {{"name", name}, {"quota_mb", size}, {"active", true}};
}

TEST(Output, ATableHasTitlesAndAlignedColumns) {
  Screen screen;
  Output output(screen.console, false);
  output.Row(Sample("bob@example.org", 500));
  output.Row(Sample("al@x.org", 0));
  output.Finish();
  EXPECT_EQ(
      "NAME             QUOTA MB  ACTIVE\n"
      "bob@example.org  500       yes\n"
      "al@x.org         0         yes\n",
      screen.out.str());
}

TEST(Output, AnEmptyTableIsEmpty) {
  Screen screen;
  Output(screen.console, false).Finish();
  EXPECT_EQ("", screen.out.str());
}

TEST(Output, OneThingIsShownAsAList) {
  Screen screen;
  Output output(screen.console, false);
  output.Show({{"name", std::string("bob")}, {"home", std::string()}, {"active", false}});
  output.Finish();
  EXPECT_EQ("name:    bob\nhome:    -\nactive:  no\n", screen.out.str());
}

TEST(Output, JsonHoldsDataInOrderAndWarnings) {
  Screen screen;
  Output output(screen.console, true);
  output.Row(Sample("bob", 7));
  output.Warn("careful");
  output.Finish();
  EXPECT_EQ(
      "{\"brisq\":1,\"data\":[{\"name\":\"bob\",\"quota_mb\":7,\"active\":true}],"
      "\"warnings\":[\"careful\"]}\n",
      screen.out.str());
  EXPECT_EQ("brisq: warning: careful\n", screen.err.str());
}

TEST(Output, JsonWithoutDataIsAnEmptyList) {
  Screen screen;
  Output(screen.console, true).Finish();
  EXPECT_EQ("{\"brisq\":1,\"data\":[],\"warnings\":[]}\n", screen.out.str());
}

TEST(Output, JsonBearsEveryByte) {
  for (int byte = 0; byte < 256; ++byte) {
    SCOPED_TRACE(byte);
    Screen screen;
    Output output(screen.console, true);
    output.Row({{"name", std::string(1, static_cast<char>(byte))}});
    output.Finish();
    EXPECT_FALSE(nlohmann::json::parse(screen.out.str(), nullptr, false).is_discarded());
  }
}

TEST(Output, ABareLineIsAllThatIsPrinted) {
  Screen screen;
  Output output(screen.console, false);
  output.Bare("s3cret", Sample("bob", 1));
  output.Finish();
  EXPECT_EQ("s3cret\n", screen.out.str());
}

TEST(Output, NothingOfTheDataIsWrittenBeforeTheEnd) {
  Screen screen;
  Output output(screen.console, false);
  output.Row(Sample("bob", 1));
  EXPECT_EQ("", screen.out.str());
}

TEST(Output, WordsForPeopleGoToTheErrorStreamAndNotIntoJson) {
  Screen plain;
  Output(plain.console, false).Say("done\x1b");
  EXPECT_EQ("done\\x1b\n", plain.err.str());
  Screen json;
  Output(json.console, true).Say("done");
  EXPECT_EQ("", json.err.str());
}

TEST(Output, ControlBytesInATableAreShownAsNumbers) {
  Screen screen;
  Output output(screen.console, false);
  output.Row({{"name", std::string("a\nb")}});
  output.Finish();
  EXPECT_EQ("NAME\na\\nb\n", screen.out.str());
}

}  // namespace
}  // namespace brisq
