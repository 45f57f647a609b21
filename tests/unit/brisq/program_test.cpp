#include "brisq/program.h"

#include <gtest/gtest.h>

#include <sstream>
#include <streambuf>

#include "framework/doubts.h"

namespace brisq {
namespace {

class Broken : public std::streambuf {
 protected:
  int_type overflow(int_type) override { return traits_type::eof(); }
};

TEST(Program, DoubtsAreToldWhateverEndsTheCommand) {
  std::istringstream in;
  std::ostringstream err;
  Broken nowhere;
  std::ostream out(&nowhere);
  out.exceptions(std::ios::badbit);  // an exception that is none of ours
  doubts::Note("/etc/users may be lost");
  EXPECT_EQ(1, RunProgram({"--help"}, Console{in, out, err}));
  EXPECT_NE(std::string::npos, err.str().find("brisq: failed: "));
  EXPECT_NE(std::string::npos, err.str().find("brisq: warning: /etc/users may be lost\n"));
}

TEST(Program, OutputThatCannotBeWrittenIsAFailure) {
  std::istringstream in;
  std::ostringstream err;
  Broken nowhere;
  std::ostream out(&nowhere);
  EXPECT_EQ(1, RunProgram({"--help"}, Console{in, out, err}));
  EXPECT_EQ("brisq: failed: standard output: can't be written\n", err.str());
}

}  // namespace
}  // namespace brisq
