#include "mgr_cf.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "framework/config_file.h"

namespace {

class MgrCf : public ::testing::Test {
 protected:
  void SetUp() override { mgr_cf::Reset(); }
  void TearDown() override { mgr_cf::Reset(); }
};

TEST_F(MgrCf, UnknownKeyIsEmpty) {
  EXPECT_EQ("", mgr_cf::GetParam("POP3"));
  EXPECT_EQ("", mgr_cf::GetPath("dovecot-passwd"));
}

TEST_F(MgrCf, WhatWasDeclaredIsNamedInOrderAndWhatWasSetIsNot) {
  mgr_cf::SetParam("A", "1");
  mgr_cf::AddParam("C", "");
  mgr_cf::AddParam("B", "2");
  mgr_cf::SetPathDefault("d", "/d");
  EXPECT_EQ((std::vector<std::string>{"B", "C"}), mgr_cf::DeclaredParams());
  EXPECT_EQ(std::vector<std::string>{"d"}, mgr_cf::DeclaredPaths());
  mgr_cf::Reset();
  EXPECT_TRUE(mgr_cf::DeclaredParams().empty());
}

TEST_F(MgrCf, DefaultHoldsUntilAValueIsSet) {
  mgr_cf::AddParam("DovecotCheckPeriod", "5");
  mgr_cf::SetPathDefault("dovecot-doveadm", "/usr/bin/doveadm");
  EXPECT_EQ("5", mgr_cf::GetParam("DovecotCheckPeriod"));
  EXPECT_EQ("/usr/bin/doveadm", mgr_cf::GetPath("dovecot-doveadm"));

  mgr_cf::SetParam("DovecotCheckPeriod", "7");
  mgr_cf::SetPath("dovecot-doveadm", "/opt/doveadm");

  EXPECT_EQ("7", mgr_cf::GetParam("DovecotCheckPeriod"));
  EXPECT_EQ("/opt/doveadm", mgr_cf::GetPath("dovecot-doveadm"));
}

TEST_F(MgrCf, ValueThatWasSetBeforeIsLeftAloneByADefault) {
  mgr_cf::SetParam("DovecotPwScheme", "BLF-CRYPT");
  mgr_cf::SetPath("dovecot-passwd", "/srv/passwd");

  mgr_cf::AddParam("DovecotPwScheme", "");
  mgr_cf::SetPathDefault("dovecot-passwd", "/etc/dovecot/dovecot.passwd");

  EXPECT_EQ("BLF-CRYPT", mgr_cf::GetParam("DovecotPwScheme"));
  EXPECT_EQ("/srv/passwd", mgr_cf::GetPath("dovecot-passwd"));
}

TEST_F(MgrCf, LaterDefaultReplacesTheEarlierOne) {
  mgr_cf::AddParam("DovecotCheckPeriod", "5");
  mgr_cf::AddParam("DovecotCheckPeriod", "6");
  mgr_cf::SetPathDefault("dovecot-passwd", "/a");
  mgr_cf::SetPathDefault("dovecot-passwd", "/b");

  EXPECT_EQ("6", mgr_cf::GetParam("DovecotCheckPeriod"));
  EXPECT_EQ("/b", mgr_cf::GetPath("dovecot-passwd"));
}

TEST_F(MgrCf, ParametersAndPathsDoNotMix) {
  mgr_cf::SetParam("same", "param");
  mgr_cf::SetPathDefault("same", "path");

  EXPECT_EQ("param", mgr_cf::GetParam("same"));
  EXPECT_EQ("path", mgr_cf::GetPath("same"));
}

TEST_F(MgrCf, EmptyValueThatWasSetWins) {
  mgr_cf::AddParam("EmailAuth", "dovecot");
  mgr_cf::SetParam("EmailAuth", "");
  EXPECT_EQ("", mgr_cf::GetParam("EmailAuth"));
}

TEST_F(MgrCf, NamesAndValuesAreTakenExactly) {
  mgr_cf::SetParam("POP3", " dovecot\n");
  EXPECT_EQ(" dovecot\n", mgr_cf::GetParam("POP3"));
  EXPECT_EQ("", mgr_cf::GetParam("pop3"));
  EXPECT_EQ("", mgr_cf::GetParam("POP3 "));
}

TEST_F(MgrCf, ApplyReplacesWhatWasSetAndKeepsDefaults) {
  mgr_cf::AddParam("DovecotCheckPeriod", "5");
  mgr_cf::SetParam("Old", "1");
  mgr_cf::SetPath("old", "/old");
  mgr_cf::Settings settings;
  settings.params = {{"POP3", "dovecot"}};
  settings.paths = {{"dovecot-passwd", "/srv/passwd"}};

  mgr_cf::Apply(settings);

  EXPECT_EQ("", mgr_cf::GetParam("Old"));
  EXPECT_EQ("", mgr_cf::GetPath("old"));
  EXPECT_EQ("dovecot", mgr_cf::GetParam("POP3"));
  EXPECT_EQ("/srv/passwd", mgr_cf::GetPath("dovecot-passwd"));
  EXPECT_EQ("5", mgr_cf::GetParam("DovecotCheckPeriod"));
}

TEST_F(MgrCf, ValueSetAtRunTimeWinsOverTheFile) {
  mgr_cf::Settings settings;
  settings.params = {{"POP3", "dovecot"}};
  mgr_cf::Apply(settings);

  mgr_cf::SetParam("POP3", "other");

  EXPECT_EQ("other", mgr_cf::GetParam("POP3"));
}

TEST_F(MgrCf, ResetForgetsValuesAndDefaults) {
  mgr_cf::AddParam("a", "1");
  mgr_cf::SetParam("b", "2");
  mgr_cf::SetPathDefault("c", "3");
  mgr_cf::SetPath("d", "4");

  mgr_cf::Reset();

  EXPECT_EQ("", mgr_cf::GetParam("a") + mgr_cf::GetParam("b"));
  EXPECT_EQ("", mgr_cf::GetPath("c") + mgr_cf::GetPath("d"));
}

TEST_F(MgrCf, ReaderSeesAWholeApply) {
  const auto of = [](const std::string& value) {
    mgr_cf::Settings settings;
    settings.params = {{"a", value}, {"b", value}};
    return settings;
  };
  const mgr_cf::Settings short_values = of("x");
  const mgr_cf::Settings long_values = of(std::string(1000, 'y'));
  mgr_cf::Apply(short_values);
  std::atomic<bool> stop{false};
  std::thread writer([&] {
    while (!stop) {
      mgr_cf::Apply(long_values);
      mgr_cf::Apply(short_values);
    }
  });
  for (int i = 0; i < 5000; ++i) {
    const std::string value = mgr_cf::GetParam("a");
    EXPECT_TRUE(value == "x" || value == long_values.params.at("a"));
  }
  stop = true;
  writer.join();
}

}  // namespace
