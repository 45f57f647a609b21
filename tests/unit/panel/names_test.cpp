#include "panel/names.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <set>

#include "mgr_err.h"

namespace {

using brisq_panel::ParseAddress;
using testing::HasSubstr;
using testing::Not;

const std::string kAccepted = "accepted";

// "OBJECT: RULE" of the refusal.
std::string RuleOf(const std::function<void()>& check) {
  try {
    check();
  } catch (const mgr_err::Error& error) {
    EXPECT_EQ("value", error.type());
    return error.object() + ": " + error.value();
  }
  return kAccepted;
}

struct Stored {
  const char* name;
  std::string text;
  std::string stored;
};

struct Refusal {
  const char* name;
  std::string text;
  const char* rule;
};

// One kind of text input: its check, a good value in three parts, between which a byte is put, and
// the bytes that it admits at the start, in the middle and at the end.
struct Input {
  const char* name;
  std::function<std::string(const std::string&)> check;
  std::string front, back;
  std::function<bool(unsigned char)> at_start, in_middle, at_end;
};

bool Letter(unsigned char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool Lower(unsigned char c) { return c >= 'a' && c <= 'z'; }
bool Digit(unsigned char c) { return c >= '0' && c <= '9'; }
bool LetterOrDigit(unsigned char c) { return Letter(c) || Digit(c); }
bool Printable(unsigned char c) { return c >= ' ' && c < 0x7f; }
std::function<bool(unsigned char)> Or(bool (*base)(unsigned char), const std::string& more) {
  return [=](unsigned char c) {
    return base(c) || (c != 0 && more.find(static_cast<char>(c)) != std::string::npos);
  };
}
std::function<bool(unsigned char)> But(bool (*base)(unsigned char), const std::string& less) {
  return [=](unsigned char c) {
    return base(c) && less.find(static_cast<char>(c)) == std::string::npos;
  };
}
bool Nothing(unsigned char) { return false; }

const std::vector<Input>& Inputs() {
  static const std::vector<Input> inputs = {
      {"local part", brisq_panel::CheckLocalPart, "bo", "b", LetterOrDigit,
       Or(LetterOrDigit, ".-_"), Or(LetterOrDigit, "-_")},
      {"domain", brisq_panel::CheckDomain, "exa", "mple", LetterOrDigit, Or(LetterOrDigit, ".-"),
       LetterOrDigit},
      {"owner name", brisq_panel::CheckOwnerName, "bo", "b", Or(Lower, "_"),
       [](unsigned char c) { return Lower(c) || Digit(c) || c == '-' || c == '_'; },
       [](unsigned char c) { return Lower(c) || Digit(c) || c == '-' || c == '_'; }},
      {"home", brisq_panel::CheckHome, "/home/b", "ob", Nothing, But(Printable, ":%$"),
       But(Printable, ":%$/")},
      {"quota",
       [](const std::string& text) { return std::to_string(brisq_panel::ParseQuota(text)); }, "5",
       "0", Digit, Digit, Or(Digit, "MG")},
      {"password",
       [](const std::string& text) {
         brisq_panel::CheckPassword(text, "SHA512-CRYPT");
         return text;
       },
       "pass", "word", Printable, Printable, Printable},
      {"password in the clear",
       [](const std::string& text) {
         brisq_panel::CheckPassword(text, "PLAIN");
         return text;
       },
       "pass", "word", But(Printable, ": "), But(Printable, ":"), But(Printable, ": ")},
  };
  return inputs;
}

void ExpectByte(const Input& input, const std::string& text, bool admitted) {
  const std::string rule = RuleOf([&] { input.check(text); });
  EXPECT_EQ(admitted, rule == kAccepted) << rule;
}

TEST(Names, EveryByteAtEveryPlaceOfEveryInputIsDecidedOn) {
  for (const Input& input : Inputs()) {
    for (int value = 0; value < 256; ++value) {
      const auto byte = static_cast<unsigned char>(value);
      const std::string one(1, static_cast<char>(byte));
      SCOPED_TRACE(std::string(input.name) + ", byte " + std::to_string(value));
      ExpectByte(input, one + input.front + input.back, input.at_start(byte));
      ExpectByte(input, input.front + one + input.back, input.in_middle(byte));
      ExpectByte(input, input.front + input.back + one, input.at_end(byte));
    }
  }
}

TEST(Names, EveryByteAtEveryPlaceOfAnAddressIsDecidedOn) {
  for (int value = 0; value < 256; ++value) {
    const auto byte = static_cast<unsigned char>(value);
    const std::string one(1, static_cast<char>(byte));
    SCOPED_TRACE("byte " + std::to_string(value));
    const auto accepted = [](const std::string& text) {
      return RuleOf([&] { ParseAddress(text); }) == kAccepted;
    };
    EXPECT_EQ(LetterOrDigit(byte), accepted(one + "bob@example.org"));
    EXPECT_EQ(Or(LetterOrDigit, ".-_")(byte), accepted("bo" + one + "b@example.org"));
    EXPECT_EQ(Or(LetterOrDigit, "-_")(byte), accepted("bob" + one + "@example.org"));
    EXPECT_EQ(LetterOrDigit(byte), accepted("bob@" + one + "example.org"));
    EXPECT_EQ(LetterOrDigit(byte), accepted("bob@example.org" + one));
  }
}

TEST(Names, RefusedTextNeverStandsInTheError) {
  for (const Input& input : Inputs()) {
    SCOPED_TRACE(input.name);
    EXPECT_THAT(RuleOf([&] { input.check("canary\n"); }), Not(HasSubstr("canary")));
    EXPECT_THAT(RuleOf([&] { input.check("canary\x80"); }), Not(HasSubstr("canary")));
  }
}

TEST(Names, SpecialBytesAreRefusedInWordsOfTheirOwn) {
  const Refusal refusals[] = {
      {"line feed", "a\nb", "line break not allowed"},
      {"carriage return", "a\rb", "line break not allowed"},
      {"NUL", std::string("a\0b", 3), "NUL not allowed"},
      {"tab", "a\tb", "control character not allowed"},
      {"escape", "a\x1b[31mb", "control character not allowed"},
      {"DEL", "a\x7f", "control character not allowed"},
      {"next line (C1)", "a\xc2\x85z", "control character not allowed"},
      {"CSI (C1)", "a\xc2\x9bz", "control character not allowed"},
      {"lone continuation byte", "a\x80", "not valid UTF-8"},
      {"cut sequence", "a\xe2\x82", "not valid UTF-8"},
      {"overlong slash", "a\xc0\xaf", "not valid UTF-8"},
      {"overlong in three bytes", "a\xe0\x80\xaf", "not valid UTF-8"},
      {"surrogate", "a\xed\xa0\x80", "not valid UTF-8"},
      {"beyond Unicode", "a\xf4\x90\x80\x80", "not valid UTF-8"},
      {"byte FF", "a\xff", "not valid UTF-8"},
  };
  const std::map<std::string, std::function<void(const std::string&)>> checks = {
      {"mailbox name", [](const std::string& t) { brisq_panel::CheckLocalPart(t); }},
      {"domain", [](const std::string& t) { brisq_panel::CheckDomain(t); }},
      {"owner name", [](const std::string& t) { brisq_panel::CheckOwnerName(t); }},
      {"home", [](const std::string& t) { brisq_panel::CheckHome("/" + t); }},
      {"quota", [](const std::string& t) { brisq_panel::ParseQuota(t); }},
      {"password", [](const std::string& t) { brisq_panel::CheckPassword(t, ""); }},
  };
  for (const Refusal& refusal : refusals) {
    for (const auto& check : checks) {
      SCOPED_TRACE(check.first + ", " + refusal.name);
      EXPECT_EQ(check.first + ": " + refusal.rule, RuleOf([&] { check.second(refusal.text); }));
    }
  }
}

TEST(Names, LocalPartsHaveOneStoredForm) {
  const Stored good[] = {
      {"plain", "bob", "bob"},
      {"upper case", "Bob.SMITH", "bob.smith"},
      {"one character", "b", "b"},
      {"digits", "2024", "2024"},
      {"all signs", "a.b-c_d", "a.b-c_d"},
      {"dash at the end", "a-", "a-"},
      {"two dashes", "a--b", "a--b"},
      {"longest", std::string(64, 'a'), std::string(64, 'a')},
  };
  for (const Stored& c : good) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(c.stored, brisq_panel::CheckLocalPart(c.text));
  }
}

TEST(Names, BadLocalPartsAreRefused) {
  const Refusal bad[] = {
      {"empty", "", "must not be empty"},
      {"colon", "a:b", "':' not allowed"},
      {"percent", "a%ub", "'%' not allowed"},
      {"slash", "a/b", "'/' not allowed"},
      {"comment sign", "#bob", "must start with a letter or digit"},
      {"blank first", " bob", "must start with a letter or digit"},
      {"option", "-t", "must start with a letter or digit"},
      {"long option", "--help", "must start with a letter or digit"},
      {"dot first", ".bob", "must start with a letter or digit"},
      {"parent", "..", "must start with a letter or digit"},
      {"underscore first", "_bob", "must start with a letter or digit"},
      {"dot last", "bob.", "'.' not allowed at the end or beside another '.'"},
      {"two dots", "b..ob", "'.' not allowed at the end or beside another '.'"},
      {"plus", "bob+list", "only letters, digits, '.', '-' and '_' allowed"},
      {"blank", "bob nopassword=y", "only letters, digits, '.', '-' and '_' allowed"},
      {"dollar", "bob$x", "only letters, digits, '.', '-' and '_' allowed"},
      {"shell", "bob;reboot", "only letters, digits, '.', '-' and '_' allowed"},
      {"quote", "bob'--", "only letters, digits, '.', '-' and '_' allowed"},
      {"Cyrillic look-alike",
       "b\xd0\xbe"
       "b",
       "only letters, digits, '.', '-' and '_' allowed"},
      {"full-width letter", "\xef\xbd\x82ob", "only letters, digits, '.', '-' and '_' allowed"},
      {"umlaut",
       "b\xc3\xb6"
       "b",
       "only letters, digits, '.', '-' and '_' allowed"},
      {"too long", std::string(65, 'a'), "too long (max 64 bytes)"},
  };
  for (const Refusal& c : bad) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(std::string("mailbox name: ") + c.rule,
              RuleOf([&] { brisq_panel::CheckLocalPart(c.text); }));
  }
}

TEST(Names, DomainsHaveOneStoredForm) {
  const std::string label63(63, 'a');
  const Stored good[] = {
      {"plain", "example.org", "example.org"},
      {"upper case", "EXAMPLE.Org", "example.org"},
      {"one label", "localhost", "localhost"},
      {"address of a machine", "192.0.2.10", "192.0.2.10"},
      {"umlaut",
       "b\xc3\xbc"
       "cher.example",
       "xn--bcher-kva.example"},
      {"upper-case umlaut",
       "B\xc3\x9c"
       "CHER.example",
       "xn--bcher-kva.example"},
      {"decomposed umlaut",
       "bu\xcc\x88"
       "cher.example",
       "xn--bcher-kva.example"},
      {"A-label", "xn--bcher-kva.example", "xn--bcher-kva.example"},
      {"upper-case A-label", "XN--Bcher-KVA.example", "xn--bcher-kva.example"},
      {"sharp s",
       "stra\xc3\x9f"
       "e.example",
       "xn--strae-oqa.example"},
      {"full-width letters", "\xef\xbd\x85xample.org", "example.org"},
      {"ideographic full stop", "example\xe3\x80\x82org", "example.org"},
      {"Chinese", "\xe4\xbe\x8b\xe5\xad\x90.test", "xn--fsqu00a.test"},
      {"longest label", label63 + ".org", label63 + ".org"},
      {"dash inside", "a-b.org", "a-b.org"},
  };
  for (const Stored& c : good) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(c.stored, brisq_panel::CheckDomain(c.text));
    EXPECT_EQ(c.stored, brisq_panel::CheckDomain(c.stored)) << "the stored form is stable";
  }
}

TEST(Names, BadDomainsAreRefused) {
  const std::string label63(63, 'a');
  const std::string four = label63 + "." + label63 + "." + label63 + "." + label63;
  const Refusal bad[] = {
      {"empty", "", "must not be empty"},
      {"colon", "example.org:x", "':' not allowed"},
      {"percent", "%d.org", "'%' not allowed"},
      {"slash", "../etc", "'/' not allowed"},
      {"blank", "exam ple.org", "' ' not allowed"},
      {"option", "-x.org", "must start with a letter or digit"},
      {"dot first", ".org", "must start with a letter or digit"},
      {"parent", "..", "must start with a letter or digit"},
      {"dot last", "example.org.", "'.' not allowed at the end"},
      {"whole too long", four, "not a valid domain name"},
      {"far too long", std::string(2000, 'a'), "too long (max 1012 bytes)"},
      {"label too long", label63 + "a.org", "not a valid domain name"},
      {"two dots", "example..org", "not a valid domain name"},
      {"dash at a label's end", "example-.org", "not a valid domain name"},
      {"dash at a label's start", "a.-b.org", "not a valid domain name"},
      {"underscore", "a_b.org", "not a valid domain name"},
      {"quote", "a'b.org", "not a valid domain name"},
      {"at sign", "a@b.org", "not a valid domain name"},
      {"full-width slash",
       "a\xef\xbc\x8f"
       "b.org",
       "not a valid domain name"},
      {"full-width percent",
       "a\xef\xbc\x85"
       "b.org",
       "not a valid domain name"},
      {"account-of sign, which maps to a/c", "a\xe2\x84\x80.org", "not a valid domain name"},
      {"zero-width joiner",
       "a\xe2\x80\x8d"
       "b.org",
       "not a valid domain name"},
      {"A-label of nothing", "xn--0.org", "not a valid domain name"},
      {"A-label of an ASCII name", "xn--example-.org", "not a valid domain name"},
      {"A-label of an upper-case umlaut", "xn--Bcher-kva0a.org", "not a valid domain name"},
      {"heart", "\xe2\x99\xa5-.org", "not a valid domain name"},
      {"heart with a selector",
       "\xe2\x99\xa5"
       "\xef\xb8\x8f-.org",
       "invisible character not allowed"},
      {"space of no width",
       "a\xe2\x80\x8b"
       "b.org",
       "invisible character not allowed"},
  };
  for (const Refusal& c : bad) {
    SCOPED_TRACE(c.name);
    EXPECT_THAT(RuleOf([&] { brisq_panel::CheckDomain(c.text); }),
                HasSubstr(std::string("domain: ") + c.rule));
  }
}

TEST(Names, AddressesAreTakenApart) {
  const brisq_panel::Address address = ParseAddress(
      "Bob.Smith@B\xc3\xbc"
      "cher.Example");
  EXPECT_EQ("bob.smith", address.local);
  EXPECT_EQ("xn--bcher-kva.example", address.domain);
  EXPECT_EQ("bob.smith@xn--bcher-kva.example", address.Full());
  for (const char* text : {"", "bob", "a@b@example.org", "@@"}) {
    SCOPED_TRACE(text);
    EXPECT_EQ("address: must be LOCALPART@DOMAIN", RuleOf([&] { ParseAddress(text); }));
  }
  EXPECT_EQ("mailbox name: must not be empty", RuleOf([] { ParseAddress("@example.org"); }));
  EXPECT_EQ("domain: must not be empty", RuleOf([] { ParseAddress("bob@"); }));
}

// A name that a mail server would take for a mailbox's must not be another spelling of it.
TEST(Names, AStoredAddressIsItsOwnStoredForm) {
  for (const char* text : {"a@example.org", "A.B@EXAMPLE.org",
                           "x@b\xc3\xbc"
                           "cher.example"}) {
    const std::string stored = ParseAddress(text).Full();
    EXPECT_EQ(stored, ParseAddress(stored).Full());
  }
}

TEST(Names, OwnerNamesAreThoseOfSystemUsers) {
  for (const char* text : {"bob", "_mail", "www-data", "a1", "user_name"}) {
    EXPECT_EQ(text, brisq_panel::CheckOwnerName(text));
  }
  const Refusal bad[] = {
      {"empty", "", "must not be empty"},
      {"digit first", "1a", "must start with a lower-case letter or '_'"},
      {"dash first", "-a", "must start with a lower-case letter or '_'"},
      {"upper case", "Bob", "must start with a lower-case letter or '_'"},
      {"upper case inside", "bOb", "only lower-case letters, digits, '-' and '_' allowed"},
      {"dot", "a.b", "only lower-case letters, digits, '-' and '_' allowed"},
      {"colon", "a:b", "only lower-case letters, digits, '-' and '_' allowed"},
      {"too long", std::string(33, 'a'), "too long (max 32 bytes)"},
  };
  for (const Refusal& c : bad) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(std::string("owner name: ") + c.rule,
              RuleOf([&] { brisq_panel::CheckOwnerName(c.text); }));
  }
}

TEST(Names, HomesAreNormalisedAbsolutePaths) {
  for (const std::string text : {"/home/bob", "/h", "/srv/with blank/x",
                                 "/srv/b\xc3\xbc"
                                 "cher",
                                 "/srv/...", "/srv/.mail", "/srv/~bob"}) {
    EXPECT_EQ(text, brisq_panel::CheckHome(text));
  }
  const char* const unclean = "must have no '.', '..', doubled or closing '/' in it";
  const std::string long_name(256, 'a');
  std::string long_path;
  while (long_path.size() <= 1024) {
    long_path += "/abcdefghi";
  }
  const Refusal bad[] = {
      {"empty", "", "must not be empty"},
      {"relative", "home/bob", "must be an absolute path"},
      {"home sign", "~/bob", "must be an absolute path"},
      {"root", "/", unclean},
      {"slash at the end", "/home/bob/", unclean},
      {"two slashes", "/home//bob", unclean},
      {"two slashes first", "//home", unclean},
      {"dot", "/home/./bob", unclean},
      {"dot at the end", "/home/.", unclean},
      {"parent", "/home/../etc", unclean},
      {"parent at the end", "/home/..", unclean},
      {"colon", "/home/a:b", "':' not allowed"},
      {"expanded by Dovecot", "/home/%u", "'%' not allowed"},
      {"variable", "/home/$USER", "'$' not allowed"},
      {"long name", "/" + long_name, "too long (max 255 bytes)"},
      {"long path", long_path, "too long (max 1024 bytes)"},
  };
  for (const Refusal& c : bad) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(std::string("home: ") + c.rule, RuleOf([&] { brisq_panel::CheckHome(c.text); }));
  }
}

TEST(Names, AMailboxLivesBelowItsOwnersHome) {
  struct Case {
    const char* name;
    const char* home;
    bool below;
  };
  const Case cases[] = {
      {"below", "/home/bob/mail", true},    {"far below", "/home/bob/a/b/c", true},
      {"the same", "/home/bob", false},     {"a sibling", "/home/alice", false},
      {"the parent", "/home", false},       {"a longer name", "/home/bobby", false},
      {"the start of it", "/home/b", false}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(c.below,
              RuleOf([&] { brisq_panel::CheckHomeBelow(c.home, "/home/bob"); }) == kAccepted);
  }
}

TEST(Names, QuotasAreWholeMegabytes) {
  struct Case {
    const char* text;
    int megabytes;
  };
  const Case good[] = {{"none", 0},
                       {"0", 0},
                       {"00", 0},
                       {"0M", 0},
                       {"0G", 0},
                       {"1", 1},
                       {"500", 500},
                       {"500M", 500},
                       {"2G", 2048},
                       {"007", 7},
                       {"00000000000000000000005", 5},
                       {"1048576G", 1 << 30},
                       {"1073741824", 1 << 30}};
  for (const Case& c : good) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(c.megabytes, brisq_panel::ParseQuota(c.text));
  }
  const char* const form = "must be a whole number of megabytes, like 500, 500M or 2G, or none";
  const char* const large = "too large (max 1073741824M)";
  const Refusal bad[] = {
      {"empty", "", "must not be empty"},
      {"unit alone", "M", "must not be empty"},
      {"another spelling", "None", form},
      {"none with a unit", "noneM", form},
      {"a blank behind", "none ", form},
      {"negative", "-1", form},
      {"sign", "+1", form},
      {"fraction", "1.5G", form},
      {"blank", "500 M", form},
      {"other unit", "5T", form},
      {"lower case", "5g", form},
      {"two units", "5MM", form},
      {"hexadecimal", "0x10", form},
      {"expanded by Dovecot", "%u", form},
      {"smuggled field", "5 nopassword", form},
      {"one too many", "1073741825", large},
      {"too many gigabytes", "1048577G", large},
      {"would wrap around 32 bits", "4294967296", large},
      {"would wrap around 64 bits", "18446744073709551616", large},
      {"would wrap around 64 bits as bytes of its unit", "18014398509481984G", large},
  };
  for (const Refusal& c : bad) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(std::string("quota: ") + c.rule, RuleOf([&] { brisq_panel::ParseQuota(c.text); }));
  }
}

TEST(Names, QuotaTextsOfTheTableAreReadBack) {
  EXPECT_EQ("", brisq_panel::QuotaText(0));
  EXPECT_EQ("500", brisq_panel::QuotaText(500));
  EXPECT_EQ(2048, brisq_panel::ParseQuota(brisq_panel::QuotaText(2048)));
}

TEST(Names, UserAndGroupNumbersAreNeverRoots) {
  for (const long long number : {1LL, 1000LL, 2147483647LL}) {
    EXPECT_EQ(number, brisq_panel::CheckId("uid", number));
  }
  EXPECT_EQ("uid: 0 not allowed", RuleOf([] { brisq_panel::CheckId("uid", 0); }));
  for (const long long number : {-1LL, 2147483648LL, 4294967296LL, 4294967297LL}) {
    EXPECT_EQ("gid: must be 1 to 2147483647", RuleOf([&] { brisq_panel::CheckId("gid", number); }));
  }
}

TEST(Names, PasswordLimitsFollowTheScheme) {
  struct Case {
    const char* scheme;
    std::size_t most;
  };
  const Case cases[] = {{"", 511},         {"SHA512-CRYPT", 511}, {"CRAM-MD5", 511},
                        {"BLF-CRYPT", 72}, {"blf-crypt", 72},     {"BLF-CRYPT.b64", 72},
                        {"ARGON2ID", 511}, {"PLAIN", 511}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.scheme);
    EXPECT_EQ(kAccepted,
              RuleOf([&] { brisq_panel::CheckPassword(std::string(c.most, 'x'), c.scheme); }));
    EXPECT_EQ("password: too long (max " + std::to_string(c.most) + " bytes)",
              RuleOf([&] { brisq_panel::CheckPassword(std::string(c.most + 1, 'x'), c.scheme); }));
  }
}

TEST(Names, PasswordsOfTheSchemesInTheClearFitTheirColumn) {
  const char* const colon = "password: ':' not allowed with a scheme that keeps the clear text";
  const char* const blank =
      "password: blank not allowed at an end with a scheme that keeps the clear text";
  for (const char* scheme : {"PLAIN", "plain", "CLEARTEXT", "PLAIN-TRUNC"}) {
    SCOPED_TRACE(scheme);
    EXPECT_EQ(colon, RuleOf([&] { brisq_panel::CheckPassword("a:b", scheme); }));
    EXPECT_EQ(blank, RuleOf([&] { brisq_panel::CheckPassword(" ab", scheme); }));
    EXPECT_EQ(blank, RuleOf([&] { brisq_panel::CheckPassword("ab ", scheme); }));
    EXPECT_EQ(kAccepted, RuleOf([&] { brisq_panel::CheckPassword("a b", scheme); }));
  }
  for (const char* scheme : {"PLAIN.b64", "SHA512-CRYPT", ""}) {
    SCOPED_TRACE(scheme);
    EXPECT_EQ(kAccepted, RuleOf([&] { brisq_panel::CheckPassword(" a:b ", scheme); }));
  }
}

TEST(Names, PasswordsMayHoldAnyWrittenText) {
  EXPECT_EQ("password: must not be empty", RuleOf([] { brisq_panel::CheckPassword("", ""); }));
  for (const char* text :
       {"p\xc3\xa4ss w\xc3\xb6rd", "\xe2\x82\xac\xf0\x9f\x98\x80", "';--\"$(id)", "\xc2\xa0"}) {
    EXPECT_EQ(kAccepted, RuleOf([&] { brisq_panel::CheckPassword(text, ""); }));
  }
}

TEST(Names, GeneratedPasswordsAreLongDifferentAndFitEverywhere) {
  std::set<std::string> passwords;
  std::set<char> letters;
  for (int i = 0; i < 500; ++i) {
    const std::string password = brisq_panel::GeneratePassword();
    EXPECT_EQ(24u, password.size());
    brisq_panel::CheckPassword(password, "BLF-CRYPT");
    brisq_panel::CheckPassword(password, "PLAIN");
    EXPECT_EQ(std::string::npos, password.find_first_of("0O1lI:"));
    passwords.insert(password);
    letters.insert(password.begin(), password.end());
  }
  EXPECT_EQ(500u, passwords.size());
  EXPECT_EQ(57u, letters.size());
}

}  // namespace
