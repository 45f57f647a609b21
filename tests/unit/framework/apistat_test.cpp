#include "apistat.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace {

TEST(Apistat, LaterCallReplacesTheImplementation) {
  apistat::ModuleInterface("apistat-test-mail", "first");
  apistat::ModuleInterface("apistat-test-mail", "second");
  apistat::ModuleInterface("apistat-test-web", "third");

  const std::map<std::string, std::string> interfaces = apistat::Interfaces();

  EXPECT_EQ("second", interfaces.at("apistat-test-mail"));
  EXPECT_EQ("third", interfaces.at("apistat-test-web"));
}

TEST(Apistat, CopyIsNotChangedByLaterRecords) {
  apistat::ModuleInterface("apistat-test-copy", "first");
  const std::map<std::string, std::string> before = apistat::Interfaces();

  apistat::ModuleInterface("apistat-test-copy", "second");

  EXPECT_EQ("first", before.at("apistat-test-copy"));
}

TEST(Apistat, ThreadsMayRecordAtTheSameTime) {
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([i] {
      for (int n = 0; n < 100; ++n) {
        apistat::ModuleInterface("apistat-test-" + std::to_string(i), std::to_string(n));
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }

  const std::map<std::string, std::string> interfaces = apistat::Interfaces();
  for (int i = 0; i < 8; ++i) {
    EXPECT_EQ("99", interfaces.at("apistat-test-" + std::to_string(i)));
  }
}

}  // namespace
