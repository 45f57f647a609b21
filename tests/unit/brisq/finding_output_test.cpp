#include "brisq/finding_output.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <sstream>

#include "brisq/exit_codes.h"
#include "brisq/output.h"

namespace brisq {
namespace {

using brisq_panel::Finding;
using brisq_panel::Severity;

const std::vector<Finding> kTwo = {{"A-1", Severity::kError, "x\ny", "is bad", "mend it"},
                                   {"B-2", Severity::kWarning, "z", "is odd", ""}};

class FindingOutput : public testing::Test {
 protected:
  int Show(const std::vector<Finding>& findings, bool json) {
    Output output(console_, json);
    Call call{arguments_, output, console_};
    ShowFindings(call, findings);
    output.Finish();
    return call.exit_code;
  }

  std::istringstream in_;
  std::ostringstream out_, err_;
  Console console_{in_, out_, err_};
  Arguments arguments_;
};

TEST_F(FindingOutput, EachFindingIsALineAndTheExitCodeTellsThatThereAreAny) {
  EXPECT_EQ(kExitFindings, Show(kTwo, false));
  EXPECT_EQ("A-1 error x\\ny: is bad (fix: mend it)\nB-2 warning z: is odd\n", out_.str());
  EXPECT_EQ("", err_.str());
}

TEST_F(FindingOutput, WithoutFindingsThereIsNothingToSay) {
  EXPECT_EQ(0, Show({}, false));
  EXPECT_EQ("", out_.str());
}

TEST_F(FindingOutput, InJsonEachFindingIsAnObject) {
  EXPECT_EQ(kExitFindings, Show(kTwo, true));
  const auto data = nlohmann::json::parse(out_.str())["data"];
  ASSERT_EQ(2U, data.size());
  EXPECT_EQ("x\ny", data[0]["object"]);
  EXPECT_EQ("mend it", data[0]["fix"]);
  EXPECT_EQ("warning", data[1]["severity"]);
}

}  // namespace
}  // namespace brisq
