#include "brisq/manual.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "brisq/command.h"
#include "brisq/exit_codes.h"
#include "tests/support/places.h"

namespace brisq {
namespace {

const std::string kPage = support::SourceFolder() + "/docs/operate/commands.md";

// BRISQ_UPDATE_DOCS=1 writes the page anew.
TEST(Manual, ThePageInTheDocumentsIsTheOneThatTheTablesGive) {
  if (std::getenv("BRISQ_UPDATE_DOCS")) std::ofstream(kPage) << Manual();
  std::ostringstream page;
  page << std::ifstream(kPage).rdbuf();
  EXPECT_EQ(Manual(), page.str());
}

TEST(Manual, NamesEveryCommandOptionAndExitCode) {
  const std::string manual = Manual();
  for (const Command& command : Commands()) {
    EXPECT_NE(std::string::npos, manual.find(command.summary)) << command.summary;
    for (const Option& option : command.options)
      EXPECT_NE(std::string::npos, manual.find("- `" + option.name)) << option.name;
    for (const Datum& datum : command.data)
      EXPECT_NE(std::string::npos, manual.find("- `" + datum.name + "`: " + datum.help + "\n"))
          << datum.name;
  }
  for (const ErrorKind& kind : ErrorKinds())
    EXPECT_NE(std::string::npos, manual.find(kind.meaning)) << kind.label;
}

TEST(Manual, AChoiceIsShownAsOne) {
  EXPECT_NE(
      std::string::npos,
      Manual().find("`brisq mailbox add ADDRESS (--password-stdin | --generate) [--quota SIZE]"));
}

}  // namespace
}  // namespace brisq
