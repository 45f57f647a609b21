// Thousands of values that somebody might try, through the commands as they are called: each is
// refused with the rule that it breaks, before anything is touched.

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <random>
#include <sstream>

#include "brisq/command_line.h"
#include "brisq/exit_codes.h"
#include "brisq/output.h"
#include "framework/config_file.h"
#include "panel/instance.h"
#include "tests/support/sanitized.h"
#include "tests/unit/brisq/instance_fixture.h"

namespace brisq {
namespace {

namespace fs = std::filesystem;
using Texts = std::vector<std::string>;

constexpr int kVariants = support::kSanitized ? 1 : 6;
constexpr int kWanted = support::kSanitized ? 1000 : 10000;

// Where a text is given, with a good text to spoil and what an error calls it.
struct Input {
  const char* name;
  const char* object;
  std::string good;
  Texts words;  // of the command; TEXT stands for the value
};

// Pieces that spoil a text, and the rules of which one is named, by kind of input.
struct Spoiler {
  const char* name;
  Texts pieces;
  Texts local_part, domain, home, owner, quota;
  Texts path = {};
};

const Texts kControl = {"control character not allowed"};
const Texts kBreak = {"line break not allowed"};
const Texts kNul = {"NUL not allowed"};
const Texts kEncoding = {"not valid UTF-8"};
const std::string kFirst = "must start with a letter or digit";
const std::string kFirstOfOwner = "must start with a lower-case letter or '_'";
const Texts kLocalSet = {"only letters, digits, '.', '-' and '_' allowed", kFirst};
const Texts kOwnerSet = {"only lower-case letters, digits, '-' and '_' allowed", kFirstOfOwner};
const Texts kId = {"must be 1 to 2147483647", "0 not allowed"};
const Texts kOnOff = {"must be on or off"};
const Texts kNumber = {"must be a whole number of megabytes, like 500, 500M or 2G, or none"};
const std::string kNoDomain = "not a valid domain name (";
const Texts kDomainSet = {kNoDomain,
                          kFirst,
                          "' ' not allowed",
                          "'/' not allowed",
                          "'%' not allowed",
                          "'.' not allowed at the end",
                          "invisible character not allowed"};

Texts ControlBytes() {
  Texts bytes;
  for (char c = 1; c < 0x20; ++c) {
    if (c != '\n' && c != '\r') bytes.emplace_back(1, c);
  }
  bytes.insert(bytes.end(), {"\x7f", "\xc2\x80", "\xc2\x85", "\xc2\x9b", "\x1b[2J", "\x08\x08"});
  return bytes;
}

// A text goes to front, middle or end of a good one; empty rules: this kind of input may hold it.
const std::vector<Spoiler> kSpoilers = {
    {"control characters", ControlBytes(), kControl, kControl, kControl, kControl, kControl,
     kControl},
    {"line breaks",
     {"\n", "\r", "\r\n", "\nroot::0:0::/:"},
     kBreak,
     kBreak,
     kBreak,
     kBreak,
     kBreak,
     kBreak},
    {"NUL", {std::string(1, '\0')}, kNul, kNul, kNul, kNul, kNul, kNul},
    {"broken encodings",
     {"\x80", "\xff", "\xc0\xaf", "\xe0\x80\xaf", "\xed\xa0\x80", "\xf4\x90\x80\x80", "\xc3("},
     kEncoding,
     kEncoding,
     kEncoding,
     kEncoding,
     kEncoding,
     kEncoding},
    {"column separators",
     {":", "::", ":0:0::/:/bin/sh"},
     {"':' not allowed"},
     {"':' not allowed"},
     {"':' not allowed"},
     kOwnerSet,
     kNumber},
    {"variables",
     {"%", "%u", "%{home}"},
     {"'%' not allowed"},
     {"'%' not allowed"},
     {"'%' not allowed"},
     kOwnerSet,
     kNumber},
    {"variables of settings",
     {"$", "$ENV", "${x}"},
     kLocalSet,
     kDomainSet,
     {"'$' not allowed"},
     kOwnerSet,
     kNumber},
    {"blanks",
     {" ", "  ", " nopassword=y", " userdb_uid=0", " allow_nets=0.0.0.0/0"},
     {kLocalSet[0], kFirst, "'/' not allowed"},
     kDomainSet,
     {},
     kOwnerSet,
     kNumber},
    {"paths",
     {"/", "/etc/passwd", "../", "/..", "..%2f"},
     {"'/' not allowed", "'%' not allowed"},
     kDomainSet,
     {},
     kOwnerSet,
     kNumber},
    {"SQL",
     {"'", "\"", "';DROP TABLE mailboxes;--", "' OR '1'='1", "`", "\\"},
     kLocalSet,
     kDomainSet,
     {},
     kOwnerSet,
     kNumber},
    {"shell",
     {";reboot", "|id", "&", "`id`", "$(id)", ">x", "<x", "*", "?", "!", "~", "{a,b}"},
     kLocalSet,
     kDomainSet,
     {},
     kOwnerSet,
     kNumber},
    {"look-alikes",
     {"\xe2\x81\x84", "\xef\xbc\x8f", "\xef\xbc\x9a", "\xef\xbc\x85", "\xe2\x80\xae",
      "\xe2\x80\x8b", "\xc2\xad", "\xef\xbb\xbf", "\xef\xbf\xbd", "\xf0\x9f\x94\x93"},
     {kLocalSet[0]},
     kDomainSet,
     {},
     kOwnerSet,
     kNumber},
    {"letters of other scripts",
     {"\xd0\xb0", "\xce\xbf", "\xef\xbd\x81", "\xc3\xa9", "\xd9\xa3"},
     {kLocalSet[0]},
     {},
     {},
     kOwnerSet,
     kNumber},
    {"overlong",
     {std::string(300, 'a')},
     {"too long (max 64 bytes)"},
     {kNoDomain, "too long (max"},
     {"too long (max 255 bytes)", "must be an absolute path"},
     {"too long (max 32 bytes)"},
     kNumber},
    {"far too long",
     {std::string(70000, 'a')},
     {"too long (max 64 bytes)"},
     {"too long (max 1012 bytes)"},
     {"too long (max 1024 bytes)"},
     {"too long (max 32 bytes)"},
     kNumber},
    {"no number",
     {"x", "-", "+", ".", ",", "e9", "0x", "T", "--quota", "--help"},
     {},
     {},
     {},
     {},
     kNumber},
};

// Texts that are hostile as a whole.
struct Whole {
  const char* input;
  Texts texts;
  Texts rules;
};

const std::vector<Whole> kWholes = {
    {"uid",
     {"", "0", "-0", "-1", "+5", "00", "0x10", "1e9", "1.5", "2147483648", "4294967296",
      "4294968296", "18446744073709551616", "99999999999999999999", "1000 ", " 1000", "root"},
     kId},
    {"gid", {"", "0", "-1", "4294967295", "4294967296", "9223372036854775808"}, kId},
    {"--active", {"", "On", "ON", "1", "true", "yes", "off ", "onoff", "0"}, kOnOff},
    {"certificate",
     {"", "cert.pem", "./c", "-", "~/c"},
     {"must be an absolute", "must not be empty"}},
    {"mailbox name", {""}, {"must not be empty"}},
    {"mailbox name", {"-", "-x", "--help", "-t", "_", ".", "..", ".a", "-rf"}, {kFirst}},
    {"mailbox name",
     {"a.", "a..b", "a...", "a.b."},
     {"'.' not allowed at the end or beside another '.'"}},
    {"domain", {""}, {"must not be empty"}},
    {"domain",
     {"-x", "--config=x.org", ".", "..", ".org", "-", "_dmarc.x.org", "[::1"},
     {kFirst, "':' not allowed"}},
    {"domain",
     {"a-.org", "a.-b.org", "a..org", "a_b.org", "a.org.", "xn--", "xn--a.org", "1.2.3.4.",
      "a,b.org", "a\\b.org"},
     {kNoDomain, "'.' not allowed at the end"}},
    {"home",
     {"relative", ".", "..", "~", "~root", "-", "--home", "C"},
     {"must be an absolute path"}},
    {"home",
     {"/", "/home//x", "/home/../etc", "/home/x/..", "/./x", "/home/x/", "//"},
     {"must have no '.', '..', doubled or closing '/' in it"}},
    {"home of a mailbox",
     {"/etc", "/srv/x", "/proc/self", "/dev/shm/x"},
     {"must lie below its owner's home"}},
    {"owner name", {""}, {"must not be empty"}},
    {"owner name", {"-x", "--uid", "0", "Root", "1000", "."}, {kFirstOfOwner}},
    {"owner name", {"rOOT", "a.b", "a$", "a b"}, {kOwnerSet[0]}},
    {"quota",
     {"-1",    "1.5", "1e3", "1e9",  "0x10", "0b1",   "MB",    "1MB", "M1",
      "500Mb", "1GG", "M",   "G",    "1T",   "1K",    "5MM",   "NaN", "inf",
      "--",    "1 M", "",    "None", "NONE", "none0", "noneM", "no"},
     {kNumber[0], "must not be empty"}},
    {"quota",
     {"1073741825", "99999999999", "18446744073709551616", "18446744073709551617", "1048577G",
      "4294967296", "9223372036854775808G"},
     {"too large (max 1073741824M)"}},
};

bool IsOneOf(const Texts& rules, const std::string& rule) {
  for (const std::string& wanted : rules) {
    if (rule.starts_with(wanted)) return true;
  }
  return false;
}

// What is written when one thinks of the file's columns and lines alone.
bool IsFineToNaiveCode(const std::string& text) {
  return !text.empty() && text.size() < 256 && text.find_first_of(":\n") == std::string::npos;
}

// What became of one call of a command.
struct Answer {
  int status = 0;
  std::string error;  // as the program prints it
  std::string data;
};

// The commands in this process, on an instance with the plug-in: opened once, for a plug-in stays.
class HostileValues : public InstanceTest {
 protected:
  void SetUp() override {
    InstanceTest::SetUp();
    AddDomain();
    AddMailbox("good@example.org");
    MakeCertificate("example.org");
    instance_.emplace(mgr_cf::ReadSettings(dir_ / "brisq.toml"));
    home_ = dir_ / "home";
    AddNames();
    AddOwnersAndHomes();
    AddValues();
  }

  void AddNames() {
    const std::string cert = beside_ / "example.org.pem";
    const std::string key = beside_ / "example.org.key.pem";
    inputs_ = {
        {"local part",
         "mailbox name",
         "good1",
         {"mailbox", "add", "--generate", "--", "TEXT@example.org"}},
        {"local part that is looked for",
         "mailbox name",
         "good",
         {"mailbox", "show", "--", "TEXT@example.org"}},
        {"one local part of two",
         "mailbox name",
         "good1",
         {"mailbox", "set", "--quota=7", "--", "good@example.org", "TEXT@example.org"}},
        {"local part to delete",
         "mailbox name",
         "good1",
         {"mailbox", "delete", "--yes", "--", "TEXT@example.org"}},
        {"domain", "domain", "example1.org", {"domain", "add", "--owner=demo", "--", "TEXT"}},
        {"domain to switch off",
         "domain",
         "example1.org",
         {"domain", "set", "--active=off", "--", "TEXT"}},
        {"domain of an address",
         "domain",
         "example.org",
         {"mailbox", "passwd", "--generate", "--", "good@TEXT"}},
        {"domain of a certificate",
         "domain",
         "example.org",
         {"tls", "set", "--cert=" + cert, "--key=" + key, "--", "TEXT"}},
    };
  }

  void AddOwnersAndHomes() {
    const std::vector<Input> more = {
        {"home of a mailbox",
         "home",
         home_ + "/mail/x",
         {"mailbox", "add", "--generate", "--home=TEXT", "fresh@example.org"}},
        {"changed home of a mailbox",
         "home",
         home_ + "/mail/y",
         {"mailbox", "set", "--home=TEXT", "good@example.org"}},
        {"owner name",
         "owner name",
         "owner1",
         {"owner", "add", "--uid=2000", "--gid=2000", "--home=" + (dir_ / "o1"), "--", "TEXT"}},
        {"owner of a domain",
         "owner name",
         "demo",
         {"domain", "add", "--owner=TEXT", "example2.org"}},
        {"another owner of a domain",
         "owner name",
         "demo",
         {"domain", "set", "--owner=TEXT", "example.org"}},
        {"owner's home",
         "home",
         dir_ / "o2",
         {"owner", "add", "--uid=2001", "--gid=2001", "--home=TEXT", "fresh"}},
    };
    inputs_.insert(inputs_.end(), more.begin(), more.end());
  }

  void AddValues() {
    const std::string cert = beside_ / "example.org.pem";
    const std::string key = beside_ / "example.org.key.pem";
    const std::vector<Input> more = {
        {"quota",
         "quota",
         "500",
         {"mailbox", "add", "--generate", "--quota=TEXT", "fresh2@example.org"}},
        {"changed quota", "quota", "500", {"mailbox", "set", "--quota=TEXT", "good@example.org"}},
        {"uid",
         "uid",
         "2002",
         {"owner", "add", "--uid=TEXT", "--gid=2002", "--home=" + (dir_ / "o3"), "fresh2"}},
        {"gid",
         "gid",
         "2003",
         {"owner", "add", "--gid=TEXT", "--uid=2003", "--home=" + (dir_ / "o4"), "fresh3"}},
        {"on or off", "--active", "on", {"mailbox", "set", "--active=TEXT", "good@example.org"}},
        {"certificate file",
         "certificate",
         cert,
         {"tls", "set", "--cert=TEXT", "--key=" + key, "example.org"}},
    };
    inputs_.insert(inputs_.end(), more.begin(), more.end());
  }

  static Texts Replaced(Texts words, const std::string& text) {
    for (std::string& word : words) {
      const std::size_t at = word.find("TEXT");
      if (at != std::string::npos) word.replace(at, 4, text);
    }
    return words;
  }

  // As the program does it, but for opening the instance.
  Answer Give(const Input& input, const std::string& text) {
    std::istringstream in;
    std::ostringstream out;
    std::ostringstream err;
    const Console console{in, out, err};
    try {
      const auto line = ParseCommandLine(Replaced(input.words, text), console);
      Output output(console, line->json);
      Call call{line->arguments, output, console, dir_ / "brisq.toml"};
      line->command->run(call);
      output.Finish();
      return {call.exit_code, "", out.str()};
    } catch (const mgr_err::Error& error) {
      return {KindOf(error).exit_code, ErrorLine(error), out.str()};
    }
  }

  static const Texts& RulesFor(const Spoiler& spoiler, const std::string& object) {
    if (object == "mailbox name") return spoiler.local_part;
    if (object == "domain") return spoiler.domain;
    if (object == "home") return spoiler.home;
    if (object == "uid" || object == "gid") return kId;
    if (object == "--active") return kOnOff;
    if (object == "certificate") return spoiler.path;
    return object == "quota" ? spoiler.quota : spoiler.owner;
  }

  // Front, back or somewhere between; a path's first byte says that it is one.
  std::string Spoilt(const Input& input, const std::string& piece, int variant) {
    std::uniform_int_distribution<std::size_t> place(1, input.good.size() - 1);
    const std::size_t at = variant == 0 && input.good[0] != '/' ? 0
                           : variant == 1                       ? input.good.size()
                                                                : place(random_);
    return std::string(input.good).insert(at, piece);
  }

  // What is said of an input, perhaps behind the name of the thing that it was given for; empty
  // when nothing is.
  static std::string RuleIn(const std::string& line, const std::string& object) {
    const std::string start = "brisq: invalid-input: ";
    if (!line.starts_with(start)) return {};
    const std::string said = line.substr(start.size());
    const std::string behind = said.substr(std::min(said.find(": ") + 2, said.size()));
    for (const std::string& text : {said, behind}) {
      if (text.starts_with(object + ": ")) return text.substr(object.size() + 2);
    }
    return {};
  }

  void Try(const Input& input, const std::string& text, const Texts& rules) {
    ++tries_;
    naive_ += IsFineToNaiveCode(text) ? 1 : 0;
    const Answer answer = Give(input, text);
    const bool right = answer.status == 10 && answer.data.empty() &&
                       IsOneOf(rules, RuleIn(answer.error, input.object));
    through_ += answer.status == 0 ? 1 : 0;
    wrong_ += right ? 0 : 1;
    EXPECT_TRUE(right) << testing::PrintToString(text.substr(0, 80)) << "\n"
                       << answer.status << " " << answer.error.substr(0, 200);
  }

  void TrySpoiler(const Spoiler& spoiler) {
    for (const Input& input : inputs_) {
      const Texts& rules = RulesFor(spoiler, input.object);
      if (rules.empty()) continue;
      SCOPED_TRACE(input.name);
      for (const std::string& piece : spoiler.pieces) {
        for (int variant = 0; variant < kVariants; ++variant) {
          Try(input, Spoilt(input, piece, variant), rules);
        }
      }
    }
  }

  void TryWhole(const Whole& whole) {
    for (const Input& input : inputs_) {
      if (whole.input != std::string(input.object) && whole.input != std::string(input.name))
        continue;
      for (const std::string& text : whole.texts) Try(input, text, whole.rules);
    }
  }

  std::optional<brisq_panel::Instance> instance_;
  std::string home_;
  std::mt19937 random_{20240229};
  std::vector<Input> inputs_;
  int tries_ = 0;
  int through_ = 0;
  int wrong_ = 0;
  int naive_ = 0;
};

TEST_F(HostileValues, AreAllRefusedByTheRuleThatTheyBreakAndChangeNothing) {
  const auto before = Everything();
  for (const Spoiler& spoiler : kSpoilers) {
    SCOPED_TRACE(spoiler.name);
    TrySpoiler(spoiler);
    EXPECT_EQ("", ChangedSince(before));
  }
  for (const Whole& whole : kWholes) {
    SCOPED_TRACE(whole.input);
    TryWhole(whole);
  }
  EXPECT_EQ("", ChangedSince(before));
  std::printf("hostile values: %d, through: %d, wrong messages: %d; naive code lets through: %d\n",
              tries_, through_, wrong_, naive_);
  EXPECT_GE(tries_, kWanted);
  EXPECT_EQ(0, through_);
  EXPECT_EQ(0, wrong_);
  EXPECT_GT(naive_, kWanted / 4) << "the values are too tame";
  // The inputs do lead somewhere: what was spoilt is done as it was.
  for (const Input& input : inputs_) {
    SCOPED_TRACE(input.name);
    const Answer answer = Give(input, input.good);
    EXPECT_EQ(0, answer.status) << answer.error;
  }
  EXPECT_NE("", ChangedSince(before));
}

}  // namespace
}  // namespace brisq
