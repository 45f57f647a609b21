#include "framework/demangle.h"

#include <gtest/gtest.h>

#include <typeinfo>

namespace somewhere {
struct Thing {};
}  // namespace somewhere

namespace {

TEST(Demangle, ASymbolIsShownAsItStandsInTheSource) {
  EXPECT_EQ("somewhere::Thing", Demangled(typeid(somewhere::Thing).name()));
  EXPECT_EQ("f(int)", Demangled("_Z1fi"));
}

TEST(Demangle, WhatIsNoSymbolStaysAsItIs) {
  EXPECT_EQ("_Znothing", Demangled("_Znothing"));
  EXPECT_EQ("", Demangled(""));
}

}  // namespace
