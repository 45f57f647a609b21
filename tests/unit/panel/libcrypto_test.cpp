#include "panel/libcrypto.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/support/places.h"
#include "tests/support/temp_dir.h"
#include "tests/unit/panel/panel_fixture.h"

namespace {

using brisq_panel::Libcrypto;
using panel_test::ErrorOf;
using testing::HasSubstr;
using testing::Not;

TEST(LibcryptoLoading, EachFunctionIsThere) {
  const Libcrypto& libcrypto = Libcrypto::Get();
#define BRISQ_EXPECT(function) EXPECT_NE(nullptr, libcrypto.function) << #function;
  BRISQ_LIBCRYPTO_FUNCTIONS(BRISQ_EXPECT)
#undef BRISQ_EXPECT
  EXPECT_EQ(&libcrypto, &Libcrypto::Get());
}

TEST(LibcryptoLoading, WhatIsMissingIsNamed) {
  struct Case {
    const char* name;
    const char* library;
    const char* why;
  };
  const Case cases[] = {
      {"the library", "libcrypto.so.0", "cannot open shared object file"},
      {"a function", "libm.so.6", "undefined symbol: ASN1_STRING_get0_data"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const mgr_err::Error error = ErrorOf([&] { Libcrypto libcrypto(c.library); });
    EXPECT_EQ("file", error.type());
    EXPECT_EQ(c.library, error.object());
    EXPECT_THAT(error.value(), HasSubstr(c.why));
  }
}

// Else each start of the program would pay for it.
TEST(LibcryptoLoading, ThePanelIsNotLinkedWithIt) {
  const support::TempDir dir;
  const std::string library = support::BuildFolder() + "/lib/libbrisqpanel.so";
  ASSERT_EQ(0, std::system(("ldd '" + library + "' > '" + (dir / "needed") + "'").c_str()));
  EXPECT_THAT(dir.Read("needed"), HasSubstr("libsodium"));
  EXPECT_THAT(dir.Read("needed"), Not(HasSubstr("libcrypto")));
}

}  // namespace
