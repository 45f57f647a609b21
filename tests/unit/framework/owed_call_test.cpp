#include "framework/owed_call.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "brisq_api.h"
#include "framework/config_file.h"
#include "framework/reload_queue.h"
#include "tests/support/log_capture.h"

namespace {

using reloader::Queue;

// Asks for a reload, and throws what it is told to.
class AskingAction : public brisq_api::Action {
 public:
  AskingAction() : Action("test.owed", 0, nullptr) {}
  void Execute(brisq_api::Session& session) const override {
    Queue::OfProcess().Ask("g", "a", session.Param("hard") == "on");
    if (!session.Param("fail").empty()) {
      throw mgr_err::Error(session.Param("fail"), "thing", "refused");
    }
  }
};

class BreakableStore : public reloader::MemoryReloadStore {
 public:
  void Add(const reloader::ReloadRequest& request) override {
    if (broken) {
      throw mgr_err::Error("locked", "database", "held");
    }
    added.push_back(request.hard);
    MemoryReloadStore::Add(request);
  }
  bool broken = false;
  std::vector<bool> added;
};

class OwedCallTest : public testing::Test {
 protected:
  OwedCallTest() { Queue::OfProcess().SetStore(store_); }
  ~OwedCallTest() override {
    Queue::OfProcess().SetStore(nullptr);
    mgr_cf::Reset();
  }

  static std::string ErrorOf(const std::string& params) {
    try {
      owed_call::Make("test.owed", params);
    } catch (const mgr_err::Error& error) {
      return error.what();
    }
    return "none";
  }

  support::LogCapture log_;
  const AskingAction action_;
  const std::shared_ptr<BreakableStore> store_ = std::make_shared<BreakableStore>();
};

TEST_F(OwedCallTest, TheActionIsCalledWithItsParameters) {
  EXPECT_EQ("none", ErrorOf("hard=on"));
  EXPECT_EQ(std::vector<bool>{true}, store_->added);
}

TEST_F(OwedCallTest, WhatTheActionThrowsIsThrown) {
  EXPECT_EQ("email: thing: refused", ErrorOf("fail=email"));
}

// It would be lost with the process that made it.
TEST_F(OwedCallTest, AReloadThatCantBeStoredIsNoCallThatWasMade) {
  store_->broken = true;
  EXPECT_EQ("later: request of a: can't be stored", ErrorOf("hard=on"));
  log_.ExpectError("request of a not stored yet");
  log_.ExpectError("request of a not stored yet");
  store_->broken = false;
  EXPECT_EQ("none", ErrorOf(""));
  EXPECT_EQ((std::vector<bool>{false, true}), store_->added) << "the one that was kept too";
}

TEST_F(OwedCallTest, OnlyAnErrorOfItsOwnWordsEndsWhatIsOwed) {
  struct Case {
    const char* type;
    bool later;
  };
  for (const Case& c :
       {Case{"file", true}, Case{"db", true}, Case{"locked", true}, Case{"later", true},
        Case{"email", true}, Case{"internal", true}, Case{"missed", false}, Case{"value", false},
        Case{"exists", false}, Case{"usage", false}}) {
    SCOPED_TRACE(c.type);
    EXPECT_EQ(c.later, owed_call::MayWorkLater(mgr_err::Error(c.type, "thing", "refused")));
  }
}

}  // namespace
