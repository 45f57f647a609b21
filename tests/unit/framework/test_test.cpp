#include "test.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

TEST(TestNumeric, IsTrueForDecimalDigitsOnly) {
  struct Case {
    const char* name;
    std::string value;
    bool expected;
  };
  const std::vector<Case> cases = {
      {"nothing", "", false},
      {"one digit", "0", true},
      {"all digits", "0123456789", true},
      {"more than any number type holds", std::string(1000, '9'), true},
      {"leading zeros", "0007", true},
      {"a letter", "1a1", false},
      {"a sign", "-1", false},
      {"a plus", "+1", false},
      {"a point", "1.0", false},
      {"hexadecimal", "0x10", false},
      {"white space in front", " 1", false},
      {"white space behind", "1 ", false},
      {"a line feed behind", "1\n", false},
      {"NUL behind", std::string("1\0", 2), false},
      {"a digit of another script", "\xd9\xa1", false},
      {"the character below zero", "/", false},
      {"the character above nine", ":", false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    std::string value = c.value;
    EXPECT_EQ(c.expected, test::Numeric(value));
    EXPECT_EQ(c.value, value) << "must never change";
  }
}

TEST(TestNumeric, AcceptsTenOfTheBytes) {
  for (int byte = 0; byte < 256; ++byte) {
    SCOPED_TRACE("byte " + std::to_string(byte));
    std::string value(1, static_cast<char>(byte));
    EXPECT_EQ(byte >= '0' && byte <= '9', test::Numeric(value));
  }
}

struct Address {
  const char* name;
  std::string value;
  std::string canonical;
};

TEST(TestIp, PutsAnAddressIntoItsCanonicalForm) {
  const std::vector<Address> cases = {
      {"IPv4", "192.0.2.1", "192.0.2.1"},
      {"lowest IPv4", "0.0.0.0", "0.0.0.0"},
      {"highest IPv4", "255.255.255.255", "255.255.255.255"},
      {"IPv6", "2001:db8::1", "2001:db8::1"},
      {"upper case", "2001:DB8::ABCD", "2001:db8::abcd"},
      {"written out", "2001:0db8:0000:0000:0000:0000:0000:0001", "2001:db8::1"},
      {"the longer run of zeros is cut", "2001:0:0:1:0:0:0:1", "2001:0:0:1::1"},
      {"the first of equal runs is cut", "2001:db8:0:0:1:0:0:1", "2001:db8::1:0:0:1"},
      {"a single zero is not cut", "2001:db8:0:1:1:1:1:1", "2001:db8:0:1:1:1:1:1"},
      {"any address", "::", "::"},
      {"loopback", "0:0:0:0:0:0:0:1", "::1"},
      {"IPv4 within", "::FFFF:192.0.2.1", "::ffff:192.0.2.1"},
      {"IPv4 within, in hexadecimal", "::ffff:c000:201", "::ffff:192.0.2.1"},
  };
  for (const Address& c : cases) {
    SCOPED_TRACE(c.name);
    std::string value = c.value;
    EXPECT_TRUE(test::Ip(value));
    EXPECT_EQ(c.canonical, value);
    EXPECT_TRUE(test::Ip(value)) << "the canonical form is an address";
    EXPECT_EQ(c.canonical, value);
  }
}

TEST(TestIp, RefusesAndKeepsWhatIsNoAddress) {
  const std::vector<Address> cases = {
      {"nothing", "", ""},
      {"a name", "example.org", ""},
      {"a name of hexadecimal digits", "cafe.beef", ""},
      {"three numbers", "192.0.2", ""},
      {"five numbers", "192.0.2.1.1", ""},
      {"one number", "3221225985", ""},
      {"a number above 255", "192.0.2.256", ""},
      {"a leading zero", "192.0.2.01", ""},
      {"hexadecimal IPv4", "0xc0.0.2.1", ""},
      {"a point behind", "192.0.2.1.", ""},
      {"an empty number", "192..2.1", ""},
      {"a sign", "192.0.2.-1", ""},
      {"white space in front", " 192.0.2.1", ""},
      {"white space behind", "192.0.2.1 ", ""},
      {"a line feed behind", "192.0.2.1\n", ""},
      {"a port", "192.0.2.1:25", ""},
      {"a net", "192.0.2.0/24", ""},
      {"NUL behind", std::string("192.0.2.1\0", 10), ""},
      {"NUL and more behind", std::string("192.0.2.1\0.evil.org", 19), ""},
      {"brackets", "[2001:db8::1]", ""},
      {"zone", "fe80::1%eth0", ""},
      {"seven groups", "1:2:3:4:5:6:7", ""},
      {"nine groups", "1:2:3:4:5:6:7:8:9", ""},
      {"two cuts", "2001::db8::1", ""},
      {"three colons", "2001:::1", ""},
      {"five digits", "2001:00db8::1", ""},
      {"no hexadecimal digit", "2001:dg8::1", ""},
      {"a colon behind", "2001:db8::1:", ""},
      {"a colon", ":", ""},
      {"IPv6 net", "2001:db8::/32", ""},
      {"bad IPv4 within", "::ffff:192.0.2.256", ""},
      {"IPv6 with white space", "2001:db8::1 ", ""},
  };
  for (const Address& c : cases) {
    SCOPED_TRACE(c.name);
    std::string value = c.value;
    EXPECT_FALSE(test::Ip(value));
    EXPECT_EQ(c.value, value);
  }
}

TEST(TestTrim, ChecksTheTrimmedValueAndKeepsIt) {
  struct Case {
    const char* name;
    std::string value;
    bool expected;
    std::string left;
  };
  const std::vector<Case> cases = {
      {"blanks around digits", "  1000 \t", true, "1000"},
      {"bare digits", "1000", true, "1000"},
      {"a letter among them", " 10a0 ", false, "10a0"},
      {"white space inside", " 10 00 ", false, "10 00"},
      {"white space only", " \n ", false, ""},
      {"nothing", "", false, ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    std::string value = c.value;
    EXPECT_EQ(c.expected, test::Trim<&test::Numeric>(value));
    EXPECT_EQ(c.left, value);
  }
}

TEST(TestTrim, LeavesTheCanonicalFormToTheCheck) {
  std::string value = " 2001:DB8::1\n";
  EXPECT_TRUE(test::Trim<&test::Ip>(value));
  EXPECT_EQ("2001:db8::1", value);
}

}  // namespace
