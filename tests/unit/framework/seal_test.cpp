#include "framework/seal.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <set>
#include <thread>
#include <vector>

#include "mgr_err.h"
#include "tests/support/sys_fault.h"
#include "tests/support/temp_dir.h"

namespace {

using testing::HasSubstr;
using testing::Not;

class SealTest : public testing::Test {
 protected:
  SealTest() { mgr_seal::SetKeyFile(key_); }
  ~SealTest() override { mgr_seal::SetKeyFile({}); }

  std::string ErrorOf(const std::string& sealed) {
    try {
      mgr_seal::Open(sealed);
    } catch (const mgr_err::Error& error) {
      return error.type();
    }
    return "none";
  }

  support::TempDir dir_;
  const std::string key_ = dir_ / "seal.key";
};

mode_t ModeOf(const std::string& path) {
  struct stat state {};
  EXPECT_EQ(0, ::lstat(path.c_str(), &state));
  return state.st_mode & 07777u;
}

TEST_F(SealTest, WhatWasSealedOpensAgain) {
  struct Case {
    const char* name;
    std::string clear;
  };
  const Case cases[] = {
      {"empty", ""},
      {"plain", "secret"},
      {"with NUL", std::string("a\0b", 3)},
      {"all bytes",
       [] {
         std::string all;
         for (int i = 0; i < 256; ++i) {
           all += static_cast<char>(i);
         }
         return all;
       }()},
      {"long", std::string(100000, 'x')},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string sealed = mgr_seal::Seal(c.clear);
    EXPECT_EQ(c.clear, mgr_seal::Open(sealed));
    if (c.clear.size() > 3) {
      EXPECT_THAT(sealed, Not(HasSubstr(c.clear)));
    }
  }
}

TEST_F(SealTest, AKeyIsMadeWhereDirectoriesCannotBeSynced) {
  support::SysFault fault;
  fault.FailCall("fsync", EINVAL);
  EXPECT_EQ("secret", mgr_seal::Open(mgr_seal::Seal("secret")));
  EXPECT_TRUE(fault.Failed());
}

TEST_F(SealTest, SealedTextIsPrintable) {
  for (const char c : mgr_seal::Seal(std::string(300, '\xff'))) {
    EXPECT_TRUE(c > ' ' && c < '\x7f');
  }
}

TEST_F(SealTest, NoTwoSealedTextsAreEqual) {
  std::set<std::string> sealed;
  for (int i = 0; i < 100; ++i) {
    sealed.insert(mgr_seal::Seal("same"));
  }
  EXPECT_EQ(100u, sealed.size());
}

TEST_F(SealTest, KeyFileIsMadeOnFirstNeedForItsOwnerOnly) {
  EXPECT_FALSE(std::filesystem::exists(key_));
  const mode_t before = ::umask(0);
  mgr_seal::Seal("x");
  ::umask(before);
  EXPECT_EQ(0600u, ModeOf(key_));
  EXPECT_EQ(32u, std::filesystem::file_size(key_));
  EXPECT_EQ(1, std::distance(std::filesystem::directory_iterator(dir_.path()), {}))
      << "the temporary is gone";
}

TEST_F(SealTest, KeyIsReadAgainByTheNextProcess) {
  const std::string sealed = mgr_seal::Seal("secret");
  mgr_seal::SetKeyFile(key_);  // forgets the key
  EXPECT_EQ("secret", mgr_seal::Open(sealed));
}

TEST_F(SealTest, AnotherKeyDoesNotOpen) {
  const std::string sealed = mgr_seal::Seal("secret");
  mgr_seal::SetKeyFile(dir_ / "other.key");
  mgr_seal::Seal("x");
  EXPECT_EQ("db", ErrorOf(sealed));
}

TEST_F(SealTest, AChangedByteAnywhereIsNoticed) {
  const std::string sealed = mgr_seal::Seal("secret");
  for (std::size_t at = 0; at < sealed.size(); ++at) {
    SCOPED_TRACE("byte " + std::to_string(at));
    std::string changed = sealed;
    changed[at] = changed[at] == 'A' ? 'B' : 'A';
    EXPECT_EQ("db", ErrorOf(changed));
  }
}

TEST_F(SealTest, EveryPrefixIsRefused) {
  const std::string sealed = mgr_seal::Seal("secret");
  for (std::size_t cut = 0; cut < sealed.size(); ++cut) {
    SCOPED_TRACE("cut after byte " + std::to_string(cut));
    EXPECT_EQ("db", ErrorOf(sealed.substr(0, cut)));
  }
}

TEST_F(SealTest, ErrorsNeverHoldTheText) {
  try {
    mgr_seal::Open("a canary");
    FAIL() << "opened";
  } catch (const mgr_err::Error& error) {
    EXPECT_THAT(error.what(), Not(HasSubstr("canary")));
  }
}

TEST_F(SealTest, UnfitKeyFilesAreRefused) {
  struct Case {
    const char* name;
    std::string content;
    mode_t mode;
    const char* words;
  };
  const Case cases[] = {
      {"empty", "", 0600, "32 bytes"},
      {"short", std::string(31, 'k'), 0600, "32 bytes"},
      {"long", std::string(33, 'k'), 0600, "32 bytes"},
      {"group can read it", std::string(32, 'k'), 0640, "0600"},
      {"all can read it", std::string(32, 'k'), 0604, "0600"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    dir_.Write("bad.key", c.content);
    ASSERT_EQ(0, ::chmod((dir_ / "bad.key").c_str(), c.mode));
    mgr_seal::SetKeyFile(dir_ / "bad.key");
    try {
      mgr_seal::Seal("x");
      ADD_FAILURE() << "sealed";
    } catch (const mgr_err::Error& error) {
      EXPECT_EQ("file", error.type());
      EXPECT_THAT(error.value(), HasSubstr(c.words));
    }
  }
}

TEST_F(SealTest, ALinkInPlaceOfTheKeyIsNotFollowed) {
  dir_.Write("elsewhere", std::string(32, 'k'));
  ASSERT_EQ(0, ::chmod((dir_ / "elsewhere").c_str(), 0600));
  std::filesystem::create_symlink(dir_ / "elsewhere", key_);
  EXPECT_THROW(mgr_seal::Seal("x"), mgr_err::Error);
}

TEST_F(SealTest, MissingFolderIsAFileError) {
  mgr_seal::SetKeyFile(dir_ / "missing/seal.key");
  try {
    mgr_seal::Seal("x");
    FAIL() << "sealed";
  } catch (const mgr_err::Error& error) {
    EXPECT_EQ("file", error.type());
  }
}

TEST_F(SealTest, ALostKeyIsNeverReplacedWhileSealedTextsAreKept) {
  const std::string sealed = mgr_seal::Seal("secret");
  const auto lose = [this](bool kept) {
    std::filesystem::remove(key_);
    mgr_seal::SetKeyFile(key_, [kept] { return kept; });
  };
  const std::string lost =
      "file: " + key_ +
      ": is missing; nothing that was sealed can be opened without it: put it back";
  lose(true);
  for (const char* name : {"seal", "open"}) {
    SCOPED_TRACE(name);
    try {
      name == std::string("seal") ? mgr_seal::Seal("other") : mgr_seal::Open(sealed);
      ADD_FAILURE() << "went on";
    } catch (const mgr_err::Error& error) {
      EXPECT_EQ(lost, error.what());
    }
    EXPECT_FALSE(std::filesystem::exists(key_));
  }
  lose(false);
  EXPECT_EQ("other", mgr_seal::Open(mgr_seal::Seal("other")));
}

TEST_F(SealTest, ALostKeyThatIsPutBackOpensAgain) {
  const std::string sealed = mgr_seal::Seal("secret");
  std::filesystem::rename(key_, dir_ / "backup");
  mgr_seal::SetKeyFile(key_, [] { return true; });
  EXPECT_EQ("file", ErrorOf(sealed));
  std::filesystem::rename(dir_ / "backup", key_);
  EXPECT_EQ("secret", mgr_seal::Open(sealed));
}

TEST_F(SealTest, OpeningMakesNoKey) {
  const std::string sealed = mgr_seal::Seal("secret");
  mgr_seal::SetKeyFile(dir_ / "fresh.key");
  EXPECT_EQ("file", ErrorOf(sealed));
  EXPECT_FALSE(std::filesystem::exists(dir_ / "fresh.key"));
}

TEST_F(SealTest, WithoutAKeyFileNothingIsSealed) {
  mgr_seal::SetKeyFile({});
  try {
    mgr_seal::Seal("x");
    FAIL() << "sealed";
  } catch (const mgr_err::Error& error) {
    EXPECT_EQ("internal", error.type());
  }
}

TEST_F(SealTest, ThreadsThatSealFirstAtOnceUseOneKey) {
  std::vector<std::string> sealed(8);
  {
    std::vector<std::jthread> threads;
    for (std::string& text : sealed) {
      threads.emplace_back([&text] { text = mgr_seal::Seal("secret"); });
    }
  }
  for (const std::string& text : sealed) {
    EXPECT_EQ("secret", mgr_seal::Open(text));
  }
}

TEST_F(SealTest, ProcessesThatSealFirstAtOnceUseOneKey) {
  // The first sealing in each child: none has the key yet.
  std::vector<pid_t> children;
  for (int i = 0; i < 8; ++i) {
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      int exit_code = 1;
      try {
        std::ofstream(dir_ / std::to_string(i)) << mgr_seal::Seal("secret");
        exit_code = 0;
      } catch (const mgr_err::Error&) {
      }
      ::_exit(exit_code);
    }
    children.push_back(child);
  }
  for (std::size_t i = 0; i < children.size(); ++i) {
    int status = -1;
    ASSERT_EQ(children[i], ::waitpid(children[i], &status, 0));
    EXPECT_EQ(0, status);
    EXPECT_EQ("secret", mgr_seal::Open(dir_.Read(std::to_string(i))));
  }
}

TEST(Wipe, OverwritesTheWholeBuffer) {
  std::string secret(200, 's');
  char* const memory = secret.data();
  secret.resize(3);
  mgr_seal::Wipe(secret);
  EXPECT_EQ("", secret);
  for (std::size_t i = 0; i < 200; ++i) {
    EXPECT_EQ('\0', memory[i]) << i;
  }
}

}  // namespace
