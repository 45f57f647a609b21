#include "framework/module_registry.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

namespace {

using brisq_api::BaseRegisterModule;
using brisq_api::BuildModules;
using brisq_api::Module;
using brisq_api::ModuleRegistry;
using brisq_api::PluginReport;
using brisq_api::RegisterModule;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

constexpr char kCategory[] = "test_interface";

int alive = 0;

class GoodModule : public Module {
 public:
  GoodModule() : Module("registry_good") { ++alive; }
  ~GoodModule() override { --alive; }
};

class ThrowingModule : public Module {
 public:
  ThrowingModule() : Module("registry_throwing") { throw std::runtime_error("no doveadm"); }
};

std::vector<std::string> ErrorsOf(const std::vector<PluginReport>& reports) {
  std::vector<std::string> errors;
  for (const PluginReport& report : reports) {
    errors.push_back(report.error);
  }
  return errors;
}

TEST(ModuleRegistry, AModuleIsBuiltOnceAndGoesWithItsRegistration) {
  {
    const RegisterModule<GoodModule> registration(kCategory);
    EXPECT_EQ(0, alive) << "registering builds nothing";
    EXPECT_THAT(ErrorsOf(BuildModules(kCategory)), ElementsAre(""));
    EXPECT_EQ(1, alive);
    EXPECT_THAT(brisq_api::Modules(), Contains("registry_good"));
    EXPECT_THAT(BuildModules(kCategory), IsEmpty());
    EXPECT_EQ(1, alive);
  }
  EXPECT_EQ(0, alive);
  EXPECT_THAT(BuildModules(kCategory), IsEmpty());
}

TEST(ModuleRegistry, OnlyTheAskedCategoryIsBuilt) {
  const RegisterModule<GoodModule> registration(kCategory);
  EXPECT_THAT(BuildModules("other_interface"), IsEmpty());
  EXPECT_EQ(0, alive);
}

TEST(ModuleRegistry, AConstructorThatThrowsIsReportedAndNotCalledAgain) {
  const RegisterModule<ThrowingModule> bad(kCategory);
  const RegisterModule<GoodModule> good(kCategory);
  EXPECT_THAT(ErrorsOf(BuildModules(kCategory)),
              ElementsAre("its module constructor threw: no doveadm", ""));
  EXPECT_EQ(1, alive);
  EXPECT_THAT(brisq_api::Modules(), Not(Contains("registry_throwing")));
  EXPECT_THAT(BuildModules(kCategory), IsEmpty());
}

Module* ThrowNumber() { throw 42; }
Module* MakeNothing() { return nullptr; }

TEST(ModuleRegistry, OddConstructorsAreReported) {
  BaseRegisterModule registration;
  registration.Register(kCategory, &ThrowNumber);
  registration.Register(kCategory, &MakeNothing);
  EXPECT_THAT(ErrorsOf(BuildModules(kCategory)),
              ElementsAre("its module constructor threw something that is no exception",
                          "its module constructor returned nothing"));
}

TEST(ModuleRegistry, TwoModulesOfOneNameAreReported) {
  const RegisterModule<GoodModule> first(kCategory);
  const RegisterModule<GoodModule> second(kCategory);
  EXPECT_THAT(ErrorsOf(BuildModules(kCategory)),
              ElementsAre("", "its module constructor threw: exists: module: registry_good"));
  EXPECT_EQ(1, alive);
}

TEST(ModuleRegistry, AReportNamesTheFileThatWasBeingLoaded) {
  BaseRegisterModule registration;
  {
    const ModuleRegistry::Loading loading("/lib/a.so");
    registration.Register(kCategory, &MakeNothing);
  }
  registration.Register(kCategory, &MakeNothing);
  EXPECT_TRUE(ModuleRegistry::Instance().HasRegistered("/lib/a.so"));
  EXPECT_FALSE(ModuleRegistry::Instance().HasRegistered("/lib/b.so"));
  const std::vector<PluginReport> reports = BuildModules(kCategory);
  ASSERT_EQ(2U, reports.size());
  EXPECT_EQ("/lib/a.so", reports[0].file);
  EXPECT_EQ("", reports[1].file);
}

// A module may register more while it is built, as the constructor of a host's own module does.
class Growing {
 public:
  static BaseRegisterModule& Late() {
    static BaseRegisterModule late;
    return late;
  }
  static Module* Make() {
    Late().Register(kCategory, &MakeNothing);
    return new GoodModule;
  }
};

TEST(ModuleRegistry, WhatIsRegisteredMeanwhileIsBuiltToo) {
  BaseRegisterModule registration;
  registration.Register(kCategory, &Growing::Make);
  EXPECT_THAT(ErrorsOf(BuildModules(kCategory)),
              ElementsAre("", "its module constructor returned nothing"));
}

}  // namespace
