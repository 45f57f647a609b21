#include "framework/conf_merge.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace {

ConfDocument Parse(const std::string& text) {
  return ConfDocument(std::make_shared<ConfBytes>(text), mgr_token::Params{});
}

TEST(MergeEdit, DoesToOneDocumentWhatWasDoneToAnother) {
  const struct {
    const char* name;
    const char* target;
    const char* from;
    const char* to;
    const char* want;
  } cases[] = {
      {"nothing", "a:1:x\n", "a:0:x\n", "a:0:x\n", "a:1:x\n"},
      {"line added", "a:1:x\n", "a:0:x\n", "a:0:x\nb:2:\n", "a:1:x\nb:2:\n"},
      {"comment added", "a:1:x\n", "a:0:x\n", "# hi\na:0:x\n", "a:1:x\n# hi\n"},
      {"line added behind no end", "a:1:x", "", "b:2:\n", "a:1:x\nb:2:\n"},
      {"line removed", "a:1:x\nb::\n", "a:0:x\nb::\n", "a:0:x\n", "a:1:x\n"},
      {"comment removed", "#\na:1:x\n", "a:0:x\n#\n", "a:0:x\n", "a:1:x\n"},
      {"changed line removed", "a:1:x\n", "a:0:x\n", "", "a:1:x\n"},
      {"removed line changed", "b::\n", "a:0:x\nb::\n", "a:9:x\nb::\n", "b::\n"},
      {"same line, other columns", "a:1:x\n", "a:0:x\n", "a:0:y\n", "a:1:y\n"},
      {"same line, same column", "a:1:x\n", "a:0:x\n", "a:2:x\n", "a:2:x\n"},
      {"text that ends in CR", "a:1:x\n", "a:1:x\n", "a:1:y\r\r\n", "a:1:y\r\r\n"},
      {"text that ends in CR at no end", "a:1:x", "a:1:x", "a:1:y\r\r\nb::\n", "a:1:y\r\r\nb::\n"},
      {"same line, other shape", "a:1:x\n", "a:0:x\n", "a:0\n", "a:0\n"},
      {"line end kept", "a:1:x\r\n", "a:0:x\n", "a:0:y\n", "a:1:y\r\n"},
      {"one of two equal lines removed", "#\n#\na:1:\n", "#\n#\na:0:\n", "#\na:0:\n", "#\na:1:\n"},
      {"lines moved", "a:1:\nb:1:\n", "a:0:\nb:0:\n", "b:0:\na:0:\n", "a:1:\nb:1:\n"},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    ConfDocument target = Parse(test.target);
    MergeEdit(target, Parse(test.from), Parse(test.to));
    EXPECT_EQ(target.Print(), test.want);
  }
}

TEST(MergeEdit, WhatBothHaveChangedIsAConflict) {
  const struct {
    const char* name;
    const char* target;
    const char* from;
    const char* to;
    const char* names;
  } cases[] = {
      {"only one side", "a:1:x\nb:0:y\n", "a:0:x\nb:0:y\n", "a:0:x\nb:9:y\n", ""},
      {"other columns", "a:1:x\n", "a:0:x\n", "a:0:y\n", ""},
      {"same column", "a:1:x\n", "a:0:x\n", "a:2:x\n", "a"},
      {"same column, same value", "a:1:x\n", "a:0:x\n", "a:1:x\n", ""},
      {"other shape", "a:1:x\n", "a:0:x\n", "a:0\n", "a"},
      {"changed and removed", "a:1:x\n", "a:0:x\n", "", "a"},
      {"removed and changed", "", "a:0:x\n", "a:1:x\n", "a"},
      {"removed by both", "", "a:0:x\n", "", ""},
      {"added by both", "a:1:x\n", "", "a:2:x\n", "a"},
      {"added by both alike", "a:1:x\n", "", "a:1:x\n", "a"},
      {"comments", "# one\n", "# none\n", "# two\n", ""},
      {"many", "a:1\nb:1\nc:1\nd:1\ne:1\nf:1\n", "a:0\nb:0\nc:0\nd:0\ne:0\nf:0\n",
       "a:2\nb:2\nc:2\nd:2\ne:2\nf:2\n", "a, b, c, d, e, ..."},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    EXPECT_EQ(EditConflicts(Parse(test.target), Parse(test.from), Parse(test.to)), test.names);
  }
}

}  // namespace
