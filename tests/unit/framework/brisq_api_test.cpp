#include "brisq_api.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include "framework/modules.h"
#include "mgr_err.h"

namespace {

using brisq_api::Action;
using brisq_api::Module;
using brisq_api::Session;
using testing::Contains;
using testing::ElementsAre;
using testing::Not;

std::string ErrorOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const std::exception& error) {
    return error.what();
  }
  return "nothing was thrown";
}

class EchoAction : public Action {
 public:
  explicit EchoAction(const std::string& name, std::uint32_t access = 0,
                      const Action* parent = nullptr)
      : Action(name, access, parent) {}
  void Validate(Session& session) const override {
    if (session.Param("bad") == "on") {
      throw mgr_err::Error("value", "bad", "not allowed");
    }
  }
  void Execute(Session& session) const override {
    session.Answer() = session.Param("a") + "|" + session.Param("b");
  }
};

TEST(Session, ReadsItsParameters) {
  struct Case {
    const char* name;
    const char* params;
    const char* a;
    const char* b;
  };
  const Case cases[] = {
      {"none", "", "", ""},
      {"one", "a=1", "1", ""},
      {"two", "a=1&b=2", "1", "2"},
      {"empty value", "a=&b=2", "", "2"},
      {"no equals sign", "a&b=2", "", "2"},
      {"equals sign in the value", "a=x=y&b=", "x=y", ""},
      {"encoded", "a=%26%3D%25&b=%e2%82%AC", "&=%", "\xE2\x82\xAC"},
      {"encoded name", "%61=1", "1", ""},
      {"plus stays", "a=1+1", "1+1", ""},
      {"a percent sign alone", "a=100%&b=%4", "100%", "%4"},
      {"no hexadecimal digits", "a=%zz&b=%4g", "%zz", "%4g"},
      {"last one wins", "a=1&a=2", "2", ""},
      {"empty pairs", "&&a=1&&b=2&", "1", "2"},
      {"no name", "=x&a=1", "1", ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const Session session(c.params);
    EXPECT_EQ(c.a, session.Param("a"));
    EXPECT_EQ(c.b, session.Param("b"));
  }
}

TEST(Session, StartsWithAnEmptyAnswerAndTheGivenRights) {
  EXPECT_EQ("", Session().Answer());
  EXPECT_EQ(Session::kAdministrator, Session().access());
  EXPECT_EQ(5U, Session("", 5).access());
}

TEST(Module, HasANameOfItsOwn) {
  {
    const Module module("test_module");
    EXPECT_EQ("test_module", module.name());
    EXPECT_THAT(brisq_api::Modules(), Contains("test_module"));
    EXPECT_EQ("exists: module: test_module", ErrorOf([] { Module second("test_module"); }));
    EXPECT_THAT(brisq_api::Modules(), Contains("test_module")) << "the first one stays";
  }
  EXPECT_THAT(brisq_api::Modules(), Not(Contains("test_module")));
}

TEST(Action, StandsInTheTableWhileItLives) {
  {
    const EchoAction action("test.echo");
    EXPECT_EQ(&action, brisq_api::FindAction("test.echo"));
    EXPECT_EQ("exists: action: test.echo", ErrorOf([] { EchoAction second("test.echo"); }));
    EXPECT_EQ(&action, brisq_api::FindAction("test.echo"));
  }
  EXPECT_EQ(nullptr, brisq_api::FindAction("test.echo"));
}

class UnfinishedAction : public EchoAction {
 public:
  UnfinishedAction() : EchoAction("test.unfinished") { throw std::runtime_error("no more"); }
};

TEST(Action, LeavesTheTableWhenItsConstructionFails) {
  EXPECT_EQ("no more", ErrorOf([] { UnfinishedAction action; }));
  EXPECT_EQ(nullptr, brisq_api::FindAction("test.unfinished"));
}

TEST(Action, IsListedInNameOrder) {
  const EchoAction b("test.list.b");
  const EchoAction a("test.list.a");
  std::vector<const Action*> listed;
  for (const Action* action : brisq_api::Actions()) {
    if (action->name().starts_with("test.list.")) {
      listed.push_back(action);
    }
  }
  EXPECT_THAT(listed, ElementsAre(&a, &b));
}

TEST(Action, AnswersTheQuestionsThatItDoesNotOverride) {
  const EchoAction action("test.echo", 0xE0000000);
  Session session;
  EXPECT_EQ(0xE0000000U, action.access());
  EXPECT_EQ("action", action.type());
  EXPECT_TRUE(action.IsModify(session));
  EXPECT_FALSE(action.IsInMenu(session));
  EXPECT_EQ("test.echo", action.FlowId(session));
  action.set_flow_flags(session);
  EXPECT_EQ("", session.Answer());
  EXPECT_TRUE(action.AuthorizeBySession(session));
}

TEST(Action, AdmitsWhoHoldsAllRightsOfItsMaskAndItsParents) {
  struct Case {
    const char* name;
    std::uint32_t mask;
    std::uint32_t parent_mask;
    std::uint32_t held;
    bool admitted;
  };
  const Case cases[] = {
      {"no rights needed", 0, 0, 0, true},
      {"all of the mask", 0xE0000000, 0, 0xE0000000, true},
      {"one bit missing", 0xE0000000, 0, 0xC0000000, false},
      {"others do not help", 0xE0000000, 0, 0x1FFFFFFF, false},
      {"administrator", 0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF, true},
      {"parent refuses", 1, 2, 1, false},
      {"parent admits", 1, 2, 3, true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const EchoAction parent("test.parent", c.parent_mask);
    const EchoAction action("test.child", c.mask, &parent);
    const Session session("", c.held);
    EXPECT_EQ(c.admitted, action.Authorize(session));
    EXPECT_EQ(c.admitted ? "nothing was thrown" : "access: action: test.child",
              ErrorOf([&] { action.CheckAccess(session); }));
  }
}

class ClosedAction : public EchoAction {
 public:
  ClosedAction() : EchoAction("test.closed") {}
  bool AuthorizeBySession(const Session&) const override { return false; }
};

TEST(Action, MayRefuseASessionBeyondTheMask) {
  const ClosedAction action;
  EXPECT_EQ("access: action: test.closed", ErrorOf([&] { action.CheckAccess(Session()); }));
  EXPECT_EQ("access: action: test.closed",
            ErrorOf([] { brisq_api::InternalCall("test.closed", ""); }));
}

TEST(InternalCall, RunsTheActionWithAllRightsAndReturnsItsAnswer) {
  const EchoAction action("test.echo", 0xFFFFFFFF);
  EXPECT_EQ("1|x y", brisq_api::InternalCall("test.echo", "a=1&b=x%20y"));
  EXPECT_EQ("|", brisq_api::InternalCall("test.echo", ""));
}

TEST(InternalCall, RefusesParametersBeforeAnythingIsDone) {
  const EchoAction action("test.echo");
  EXPECT_EQ("value: bad: not allowed",
            ErrorOf([] { brisq_api::InternalCall("test.echo", "bad=on"); }));
}

TEST(InternalCall, NamesAnActionThatDoesNotExist) {
  EXPECT_EQ("missed: action: test.none", ErrorOf([] { brisq_api::InternalCall("test.none", ""); }));
}

class ThrowingAction : public EchoAction {
 public:
  ThrowingAction() : EchoAction("test.throw") {}
  void Execute(Session&) const override { throw mgr_err::Error("email", "doveadm", "failed"); }
};

TEST(InternalCall, PassesOnWhatTheActionThrows) {
  const ThrowingAction action;
  EXPECT_EQ("email: doveadm: failed", ErrorOf([] { brisq_api::InternalCall("test.throw", ""); }));
}

TEST(InternalCall, MayBeMadeByManyThreadsWhileActionsComeAndGo) {
  const EchoAction action("test.echo");
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t] {
      const std::string number = std::to_string(t);
      for (int i = 0; i < 500; ++i) {
        const EchoAction own("test.own." + number);
        ASSERT_EQ(number + "|", brisq_api::InternalCall("test.own." + number, "a=" + number));
        ASSERT_EQ(number + "|", brisq_api::InternalCall("test.echo", "a=" + number));
        ASSERT_FALSE(brisq_api::Actions().empty());
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

}  // namespace
