#include "periodic.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "framework/scheduler.h"

namespace {

class Periodic : public ::testing::Test {
 protected:
  Periodic() { periodic::Reset(); }
  ~Periodic() override { periodic::Reset(); }

  static std::string List() {
    std::string list;
    for (const periodic::Entry& entry : periodic::Registered()) {
      list += entry.action + "(" + entry.params + ") by " + entry.period_param + "; ";
    }
    return list;
  }
};

TEST_F(Periodic, RegistrationsAreKeptByActionAndParameters) {
  periodic::RegisterAction("b", "", "P");
  periodic::RegisterAction("a", "x=1", "P");
  periodic::RegisterAction("a", "", "Q");
  EXPECT_EQ("a() by Q; a(x=1) by P; b() by P; ", List());
}

TEST_F(Periodic, SameRegistrationReplacesTheEarlierOne) {
  periodic::RegisterAction("a", "", "P");
  periodic::RegisterAction("a", "", "Q");
  EXPECT_EQ("a() by Q; ", List());
}

TEST_F(Periodic, ThreadsMayRegisterAtOnce) {
  std::vector<std::thread> threads;
  for (int number = 0; number < 4; ++number) {
    threads.emplace_back([number] {
      for (int count = 0; count < 100; ++count) {
        periodic::RegisterAction("a" + std::to_string(count), std::to_string(number), "P");
        periodic::Registered();
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(400u, periodic::Registered().size());
}

}  // namespace
