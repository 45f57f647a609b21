#include "panel/tls_state.h"

#include <filesystem>

#include "framework/config_file.h"
#include "tests/unit/panel/panel_fixture.h"

namespace {

namespace fs = std::filesystem;
using brisq_panel::MissingFileOf;
using brisq_panel::PlaceFindings;
using brisq_panel::PlacesOf;
using testing::ElementsAre;
using testing::IsEmpty;
using Kind = brisq_panel::PlaceFinding::Kind;

testing::Matcher<brisq_panel::PlaceFinding> Is(const std::string& path, Kind kind,
                                               const std::string& text) {
  using brisq_panel::PlaceFinding;
  return testing::AllOf(testing::Field(&PlaceFinding::path, path),
                        testing::Field(&PlaceFinding::kind, kind),
                        testing::Field(&PlaceFinding::text, text));
}

class TlsState : public testing::Test {
 protected:
  TlsState() {
    mgr_cf::Reset();
    mgr_cf::SetPath("dovecot-ssl-certs", dir_.MakeFolder("ssl"));
    mgr_cf::SetPath("dovecot-certconf", dir_.MakeFolder("conf"));
  }
  ~TlsState() override { mgr_cf::Reset(); }

  void Install(const std::string& domain, const std::string& keyword) {
    fs::create_symlink("/c.pem", dir_ / ("ssl/" + domain + ".crt"));
    fs::create_symlink("/k.pem", dir_ / ("ssl/" + domain + ".key"));
    dir_.Write("conf/" + domain + ".conf",
               keyword + " " + domain + " {\n\tssl_cert = <" + (dir_ / ("ssl/" + domain + ".crt")) +
                   "\n\tssl_key = <" + (dir_ / ("ssl/" + domain + ".key")) + "\n}\n");
  }

  support::TempDir dir_;
};

TEST_F(TlsState, PlacesAreNamedAfterTheDomain) {
  const auto places = PlacesOf("example.org");
  EXPECT_EQ(dir_ / "ssl/example.org.crt", places.cert_link);
  EXPECT_EQ(dir_ / "ssl/example.org.key", places.key_link);
  EXPECT_EQ(dir_ / "conf/example.org.conf", places.snippet);
}

TEST_F(TlsState, PathKeysThatAreNotSetAreNamed) {
  for (const char* key : {"dovecot-ssl-certs", "dovecot-certconf"}) {
    for (const char* value : {"", "relative/path"}) {
      SCOPED_TRACE(std::string(key) + "=" + value);
      const std::string good = dir_ / "conf";
      mgr_cf::SetPath("dovecot-ssl-certs", good);
      mgr_cf::SetPath("dovecot-certconf", good);
      mgr_cf::SetPath(key, value);
      const auto error = panel_test::ErrorOf([] { PlacesOf("example.org"); });
      EXPECT_EQ("config", error.type());
      EXPECT_EQ(key, error.object());
    }
  }
}

TEST_F(TlsState, WhatIsAsItShouldBeGivesNoFinding) {
  Install("example.org", "local_name");
  EXPECT_THAT(PlaceFindings("example.org", "/c.pem", "/k.pem"), IsEmpty());
  Install("192.0.2.1", "local");
  EXPECT_THAT(PlaceFindings("192.0.2.1", "/c.pem", "/k.pem"), IsEmpty());
}

TEST_F(TlsState, EachThingThatIsWrongIsNamedByItsPathAsAWhole) {
  // A blank in a path ends nothing.
  mgr_cf::SetPath("dovecot-ssl-certs", dir_.MakeFolder("my ssl"));
  mgr_cf::SetPath("dovecot-certconf", dir_.MakeFolder("my conf"));
  const auto places = PlacesOf("example.org");
  EXPECT_THAT(PlaceFindings("example.org", "/c.pem", "/k.pem"),
              ElementsAre(Is(places.cert_link, Kind::kWrongLink, "is no link"),
                          Is(places.key_link, Kind::kWrongLink, "is no link"),
                          Is(places.snippet, Kind::kNoSnippet, "is missing")));
  fs::create_symlink("/c.pem", places.cert_link);
  fs::create_symlink("/k.pem", places.key_link);
  dir_.Write("my conf/example.org.conf", "mine");
  EXPECT_THAT(PlaceFindings("example.org", "/other.pem", "/k.pem"),
              ElementsAre(Is(places.cert_link, Kind::kWrongLink, "does not lead to /other.pem"),
                          Is(places.snippet, Kind::kEditedSnippet, "was changed by hand")));
}

TEST_F(TlsState, AMissingFileOfASnippetIsFound) {
  const std::string there = dir_.Write("there", "");
  fs::create_symlink("/nowhere at all", dir_ / "dangling");
  struct Case {
    const char* name;
    std::string cert_line, key_line;
    std::string missing;
  };
  const Case cases[] = {
      {"both there", "\tssl_cert = <" + there, "\tssl_key = <" + there, ""},
      {"no certificate", "\tssl_cert = </no", "\tssl_key = <" + there, "/no"},
      {"no key", "\tssl_cert = <" + there, "\tssl_key = </no", "/no"},
      {"dangling link", "\tssl_cert = <" + (dir_ / "dangling"), "\tssl_key = <" + there,
       dir_ / "dangling"},
      {"empty path", "\tssl_cert = <", "\tssl_key = <" + there, ""},
      {"other lines", "\tssl_cert=</no", "ssl_key = </no", ""},
      {"a path that holds the mark", "\tssl_cert = </no = <" + there, "\tssl_key = <" + there, ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    dir_.Write("x.conf", "local_name x {\n" + c.cert_line + "\n" + c.key_line + "\n}\n");
    EXPECT_EQ(c.missing, MissingFileOf(dir_ / "x.conf"));
  }
  dir_.Write("x.conf", "");
  EXPECT_EQ("", MissingFileOf(dir_ / "x.conf"));
}

}  // namespace
