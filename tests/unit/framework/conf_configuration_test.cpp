#include "framework/conf_configuration.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "framework/conf_file.h"
#include "tests/unit/framework/conf_fixture.h"

namespace {

using conf_fixture::ErrorOf;
using conf_fixture::Users;

TEST(ConfConfiguration, HoldsWhatWasRegisteredLast) {
  ConfConfiguration configuration("users");
  configuration.SetSyntax({':', "#"});
  configuration.SetSyntax({'|', ";"});
  EXPECT_EQ(configuration.Syntax().separator, '|');
  EXPECT_EQ(configuration.Syntax().comment, ";");
}

TEST(ConfConfiguration, MakesDatasetsByTheirNames) {
  ConfConfiguration configuration("users");
  configuration.AddDataSet("lines", &ConfCache::Create<Users>);
  const std::unique_ptr<HeadDataSet> made(configuration.MakeDataSet("lines"));
  EXPECT_NE(dynamic_cast<Users*>(made.get()), nullptr);
  EXPECT_EQ(ErrorOf([&] { configuration.MakeDataSet("other"); }),
            "internal: other: not a dataset of configuration users");
}

TEST(ConfConfiguration, CallsItsHookWhenThereIsOne) {
  const auto configuration = std::make_shared<ConfConfiguration>("users");
  ConfRef ref(std::make_shared<ConfFile>("/a", configuration), configuration);
  configuration->CallHook(ref, ConfCache::srWritten);
  std::string calls;
  configuration->SetHook([&](ConfRef& told, ConfCache::SaveReason& reason) {
    calls += told.path() + std::to_string(reason);
    // A hook may register another one: no lock is held.
    configuration->SetHook({});
  });
  configuration->CallHook(ref, ConfCache::srTakenOver);
  configuration->CallHook(ref, ConfCache::srWritten);
  EXPECT_EQ(calls, "/a2");
}

}  // namespace
