#include "panel/hash_mask.h"

#include <gtest/gtest.h>

namespace {

using brisq_panel::FailureOfTool;
using brisq_panel::WithoutHashes;

TEST(HashMask, WhatFollowsASchemeIsMaskedUpToTheNextBlank) {
  const struct {
    const char* name;
    const char* text;
    const char* masked;
  } cases[] = {
      {"nothing", "", ""},
      {"words", "Fatal: no such file", "Fatal: no such file"},
      {"a hash", "{CRAM-MD5}cd3ba7", "{CRAM-MD5}***"},
      {"a hash and a line feed", "{SHA512-CRYPT}$6$a$b\n", "{SHA512-CRYPT}***\n"},
      {"a hash in a sentence", "made {SHA256.hex}00ff for ann", "made {SHA256.hex}*** for ann"},
      {"two hashes", "{A}b\n{C}d", "{A}***\n{C}***"},
      {"a hash behind a hash", "{A}{B}c", "{A}***"},
      {"bytes above ASCII", "{A}\xc3\xa4\xff x", "{A}*** x"},
      {"a scheme alone", "Unknown scheme {FOO}", "Unknown scheme {FOO}"},
      {"a scheme before a blank", "{FOO} is unknown", "{FOO} is unknown"},
      {"an open brace", "{FOO", "{FOO"},
      {"empty braces", "{}hash", "{}hash"},
      {"no scheme inside", "{a b}c {a_b}c", "{a b}c {a_b}c"},
      {"a brace behind an open one", "{{A}b", "{{A}***"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(c.masked, WithoutHashes(c.text));
  }
}

TEST(HashMask, AFailureIsToldInWords) {
  const struct {
    const char* printed;
    const char* told;
  } cases[] = {
      {"Fatal: no\n", "Fatal: no\n"},
      {"", ""},
      {"***", "***"},
      {"{CRAM-MD5}hash\n", "failed, and printed a hash all the same"},
      {"{CRAM-MD5}hash\nended with exit status 143 (signal 15, Terminated)",
       "{CRAM-MD5}***\nended with exit status 143 (signal 15, Terminated)"},
      {"{A}b {C}d", "{A}*** {C}***"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.printed);
    EXPECT_EQ(c.told, FailureOfTool(c.printed));
  }
}

}  // namespace
