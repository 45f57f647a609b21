#include "framework/secret_text.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(SecretText, AMaskedSecretComesBackAsItWas) {
  std::string every;
  for (int byte = 0; byte < 256; ++byte) {
    every += static_cast<char>(byte);
  }
  for (const std::string& secret : {std::string(), std::string("word\nword\n"), every}) {
    const mgr_proc::MaskedSecret masked(secret);
    mgr_proc::SecretBuffer revealed;
    masked.Reveal(revealed);
    EXPECT_EQ(secret, revealed.Text());
  }
}

TEST(SecretText, AMaskedSecretIsItselfAndNoOther) {
  const mgr_proc::MaskedSecret masked("word\nword\n");
  EXPECT_TRUE(masked.Is("word\nword\n"));
  for (const char* other :
       {"", "word\nword", "word\nword\n\n", "Word\nword\n", "word\nworD\n", "word\nword\0"}) {
    SCOPED_TRACE(other);
    EXPECT_FALSE(masked.Is(other));
  }
  EXPECT_FALSE(masked.Is(std::string_view("word\nword\0", 10)));
  EXPECT_TRUE(mgr_proc::MaskedSecret("").Is(""));
  EXPECT_FALSE(mgr_proc::MaskedSecret("").Is("a"));
}

// What it holds is looked at as bytes, wherever its members keep them.
TEST(SecretText, AMaskedSecretDoesNotShowIt) {
  // Short enough to lie inside of the object.
  const std::string secret = "Nachtigall";
  const mgr_proc::MaskedSecret masked(secret);
  const std::string bytes(reinterpret_cast<const char*>(&masked), sizeof masked);
  EXPECT_EQ(std::string::npos, bytes.find(secret.substr(0, 4)));
}

TEST(SecretText, LinesOfTheSecretAreBlanked) {
  struct Case {
    const char* name;
    const char* text;
    const char* secrets;
    const char* blanked;
  };
  const Case cases[] = {
      {"none", "Fatal: no luck\n", "", "Fatal: no luck\n"},
      {"not there", "Fatal: no luck\n", "s3cret\n", "Fatal: no luck\n"},
      {"there", "bad: s3cret!\n", "s3cret\n", "bad: ***!\n"},
      {"inside of a word", "xs3cretx", "s3cret\n", "x***x"},
      {"often", "s3crets3cret s3cret", "s3cret\ns3cret\n", "****** ***"},
      {"without an end of line", "s3cret", "s3cret", "***"},
      {"several", "one: 4711, two: 4712", "4711\n4712\n", "one: ***, two: ***"},
      {"with blanks", "got \"a b c d\"", "a b c d\n", "got \"***\""},
      {"a short one alone", "got x, expected xy", "x\nx\n", "got ***, expected xy"},
      {"a short one at both ends", "ab cab abc ab", "ab\n", "*** cab abc ***"},
      {"a short one of a letter's bytes", "z\xc3\xa4z \xc3\xa4", "\xc3\xa4\n", "z\xc3\xa4z ***"},
      {"the blank itself", "a *** b", "***\n***\n", "a *** b"},
      {"empty lines only", "abc", "\n\n", "abc"},
      {"nothing to look at", "", "s3cret\n", ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(c.blanked, mgr_proc::WithoutSecrets(c.text, c.secrets));
  }
}

TEST(SecretText, AnEndWithWhichASecretBeginsIsBlanked) {
  struct Case {
    const char* name;
    const char* text;
    const char* secrets;
    const char* blanked;
  };
  const Case cases[] = {
      {"half of it", "got s3cr", "s3cret\ns3cret\n", "got ***"},
      {"all of it", "got s3cret", "s3cret\n", "got ***"},
      {"four bytes", "s3cr", "s3cret", "***"},
      {"three bytes", "s3c", "s3cret", "s3c"},
      {"in the middle", "s3cr and on", "s3cret", "s3cr and on"},
      {"its end", "3cret", "s3cret", "3cret"},
      {"of the second", "a bcde", "first\nbcdef\n", "a ***"},
      {"the longest", "abababab", "abababxx", "ab***"},
      {"no secret", "words", "", "words"},
      {"no text", "", "s3cret", ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(c.blanked, mgr_proc::WithoutTornSecret(c.text, c.secrets));
  }
}

}  // namespace
