#include "framework/shared_library.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "mgr_err.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr const char* kMath = "libm.so.6";

TEST(SharedLibrary, FunctionsAreFoundByTheirNames) {
  double (*root)(double) = nullptr;
  const SharedLibrary library(kMath);
  library.Find("sqrt", root);
  EXPECT_EQ(3.0, root(9.0));
  double (*again)(double) = nullptr;
  SharedLibrary(kMath).Find("sqrt", again);
  EXPECT_EQ(root, again);
}

TEST(SharedLibrary, WhatIsMissingIsNamed) {
  double (*function)(double) = nullptr;
  struct {
    const char* name;
    const char* library;
    const char* function;
    const char* why;
  } const cases[] = {
      {"the library", "libm.so.0", "sqrt", "cannot open shared object file"},
      {"a function", kMath, "no_such_root", "undefined symbol: no_such_root"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    try {
      SharedLibrary(c.library).Find(c.function, function);
      ADD_FAILURE() << "was found";
    } catch (const mgr_err::Error& error) {
      EXPECT_EQ("file", error.type());
      EXPECT_EQ(c.library, error.object());
      EXPECT_THAT(error.value(), AllOf(HasSubstr(c.why), Not(StartsWith(c.library))));
    }
    EXPECT_EQ(nullptr, function);
  }
}

}  // namespace
