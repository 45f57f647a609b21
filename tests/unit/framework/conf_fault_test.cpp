#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <iterator>
#include <span>
#include <string>

#include "framework/conf_defer.h"
#include "framework/conf_lock.h"
#include "tests/support/log_capture.h"
#include "tests/support/sanitized.h"
#include "tests/support/sys_fault.h"
#include "tests/unit/framework/conf_fixture.h"
#include "tests/unit/framework/conf_operations.h"

/// The engine as a whole when every system call may fail.
namespace {

using conf_fixture::ErrorOf;
using conf_fixture::Line;
using conf_fixture::Users;
using conf_fixture::UsersConfig;
using conf_operations::FaultOf;
using conf_operations::FaultOfNextRun;
using conf_operations::HandEdit;
using conf_operations::Operation;
using conf_operations::Operations;
using conf_operations::Place;
using conf_operations::Report;

// Those that the engine tells apart come first, with one of those that it doesn't: enough for a
// sanitizer.
constexpr int kErrors[] = {EINTR, EINVAL, EROFS,  EIO,    EACCES, EBADF,
                           EBUSY, EDQUOT, EMFILE, ENOMEM, ENOSPC, EPERM};
constexpr std::size_t kTried = support::kSanitized ? 4 : std::size(kErrors);
// Longer than any of the operations takes on a loaded machine.
constexpr auto kHang = std::chrono::seconds(30);

/// What came of an operation with all its calls failing, one at a time.
struct Tally {
  std::size_t points = 0;
  int damaged = 0;
  int false_success = 0;
  int hung = 0;
  int unhealed = 0;
  std::string first_fault;

  int Faults() const { return damaged + false_success + hung + unhealed; }
  void Note(int& count, const std::string& fault) {
    if (fault.empty()) return;
    ++count;
    if (first_fault.empty()) first_fault = fault;
  }
  void Print(const char* name) const {
    std::printf(
        "%s: calls made to fail: %zu, damaged: %d, false success: %d, hung: %d, "
        "not healed: %d\n",
        name, points, damaged, false_success, hung, unhealed);
  }
};

/// One call of the operation that fails.
struct Failure {
  std::size_t number;
  int error;
  bool onwards;

  std::string Text() const {
    return "call " + std::to_string(number) + " gives " + std::to_string(error) +
           (onwards ? " from then on: " : ": ");
  }
};

Report ReportOf(const std::string& told) {
  if (told.empty()) return Report::kMade;
  const bool changed = told.find("was changed") != std::string::npos;
  return changed ? Report::kMadeInDoubt : Report::kNotMade;
}

/// False when the call's number was never reached.
bool TryFailure(const Operation& operation, const Failure& failure, Tally& tally) {
  const Place place(operation.before, operation.linked);
  HandEdit edit(place, operation);
  std::string told;
  const auto begin = std::chrono::steady_clock::now();
  {
    // Opened before the fault is set: what is tried is the change.
    const auto act = operation.open(place.path());
    support::SysFault fault;
    fault.OnCall([&](std::string_view call, std::size_t) { edit.Before(call); });
    fault.FailNumber(failure.number, failure.error, failure.onwards);
    told = ErrorOf(act);
    if (!fault.Failed()) return false;
  }
  ++tally.points;
  const bool late = std::chrono::steady_clock::now() - begin > kHang;
  tally.Note(tally.hung, late ? failure.Text() + "hangs" : "");
  const std::string fault = FaultOf(place, operation, ReportOf(told));
  int& kind = told.empty() ? tally.false_success : tally.damaged;
  tally.Note(kind, fault.empty() ? "" : failure.Text() + "told: " + told + "; " + fault);
  tally.Note(tally.unhealed, FaultOfNextRun(place, operation));
  return true;
}

Tally FailEachCall(const Operation& operation) {
  Tally tally;
  for (const int error : std::span(kErrors).first(kTried)) {
    // From readlink this one is no error: it says that there is no link.
    if (error == EINVAL && operation.linked) continue;
    for (const bool onwards : {false, true}) {
      Failure failure{1, error, onwards};
      while (TryFailure(operation, failure, tally)) ++failure.number;
    }
  }
  tally.Print(operation.name);
  return tally;
}

class ConfFaultTest : public ::testing::TestWithParam<Operation> {
 protected:
  ConfFaultTest() { SetConfWaitLimit(std::chrono::milliseconds(1)); }
  ~ConfFaultTest() override { SetConfWaitLimit(std::chrono::seconds(10)); }
};

TEST_P(ConfFaultTest, AnErrorAtAnyCallDamagesNothingAndIsNeverTakenForSuccess) {
  support::LogCapture log;
  const Tally tally = FailEachCall(GetParam());
  EXPECT_GE(tally.points, kTried * 2 * 20);
  EXPECT_EQ(tally.Faults(), 0) << tally.first_fault;
  // A deferred change whose failure nobody asked for is logged, and so is an edit kept aside.
  log.Clear();
}

TEST_P(ConfFaultTest, ShortWritesAreGoneOnWith) {
  const Place place(GetParam().before, GetParam().linked);
  HandEdit edit(place, GetParam());
  const auto act = GetParam().open(place.path());
  support::SysFault fault;
  fault.OnCall([&](std::string_view call, std::size_t) { edit.Before(call); });
  fault.CutWrites(3);
  act();
  EXPECT_EQ(place.Read(), GetParam().after);
}

INSTANTIATE_TEST_SUITE_P(Operations, ConfFaultTest, ::testing::ValuesIn(Operations()),
                         [](const auto& operation) { return std::string(operation.param.name); });

// The control: the same faults find the damage that is done to a file written in place.
TEST(ConfFaults, AreFoundInAWriterInPlace) {
  const Tally tally = FailEachCall(conf_operations::WritingInPlace());
  EXPECT_GT(tally.damaged, 0);
}

// The control: without an error at all a renaming loses what came before it.
TEST(ConfFaults, AreFoundInAWriterThatRenames) {
  const Operation operation = conf_operations::RenamingWithoutExchange();
  const Place place(operation.before, operation.linked);
  HandEdit edit(place, operation);
  support::SysFault fault;
  fault.OnCall([&](std::string_view call, std::size_t) { edit.Before(call); });
  operation.open(place.path())();
  EXPECT_NE(FaultOf(place, operation, Report::kMade), "");
}

// Any byte in any field ends in a refusal or in one line with that value.
TEST(ConfFaults, NoByteInAnyFieldMakesALineOrMovesAColumn) {
  const support::TempDir folder;
  const auto users =
      UsersConfig::Open(folder.Write("users", "# head\n" + Line("a") + "\n" + Line("b") + "\n"));
  // Three that were there and the new one.
  constexpr int kLines = 4;
  int tried = 0;
  DeferSaves scope;
  for (unsigned long column = 1; column <= 9; ++column) {
    for (int byte = 0; byte < 256; ++byte) {
      for (const int where : {0, 1, 2}) {
        SCOPED_TRACE("column " + std::to_string(column) + " byte " + std::to_string(byte));
        std::string value = "xy";
        value.insert(static_cast<std::size_t>(where), 1, static_cast<char>(byte));
        users->New();
        std::string name = "n";
        ++tried;
        const std::string refused = ErrorOf([&] {
          users->name.Set(name);
          users->Fields()[column - 1]->Set(value);
          users->Post("");
        });
        if (column == 1) name = value;
        const bool there = users->Find(name);
        ASSERT_EQ(there, refused.empty());
        if (!there) continue;
        for (const dd::Field* field : users->Fields()) {
          const std::string want = field->Column() == column ? value
                                   : field->Column() == 1    ? name
                                                             : "";
          ASSERT_EQ(field->Str(), want);
        }
        const std::string_view content = users->getConfig()->bytes;
        ASSERT_EQ(std::count(content.begin(), content.end(), '\n'), kLines);
        users->_Delete(true);
      }
    }
  }
  std::printf("values tried: %d\n", tried);
  EXPECT_EQ(tried, 9 * 256 * 3);
}

}  // namespace
