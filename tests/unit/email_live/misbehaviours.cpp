#include "tests/unit/email_live/misbehaviours.h"

namespace live {

namespace {

const std::string kNoHash = "its answer is no hash";
const std::string kNothing = "it gave no hash of the password";
const std::string kUnfit = "its answer can't stand in a line: ";
const std::string kTooMuch = "unexpected output of more than 256 KiB, ended";
const std::string kNoAnswer = "no answer in 0.2 s, ended";

std::string Silent(const std::string& end) {
  return "ended with exit status " + end + " without a word";
}

std::string Cut(char filler, int left_out) {
  return std::string(1200, filler) + " [" + std::to_string(left_out) + " bytes left out] " +
         std::string(800, filler);
}

}  // namespace

bool Misbehaviour::IsTold(const std::string& line, const std::string& program) const {
  if (told.empty()) return line.empty();
  if (told.starts_with("...")) {
    return line.starts_with("brisq: dovecot: doveadm: ") && line.ends_with(told.substr(3));
  }
  std::string expected = told;
  if (const std::size_t at = expected.find("PROGRAM"); at != std::string::npos) {
    expected.replace(at, 7, program);
  }
  return line == "brisq: dovecot: doveadm: " + expected;
}

const std::vector<Misbehaviour>& ThatFail() {
  static const std::vector<Misbehaviour> all = {
      {"ends with 1 and no word", "exit 1", Silent("1")},
      {"ends with 127 and no word", "exit 127", Silent("127")},
      {"ends with 255 and no word", "exit 255", Silent("255")},
      {"ends with 1 and blanks", "printf ' \\n\\t\\n'; exit 1", Silent("1")},
      {"says why and ends with 75", "echo 'Fatal: Unknown scheme' >&2; exit 75",
       "Fatal: Unknown scheme"},
      {"says why on the output", "echo 'broken configuration'; exit 89", "broken configuration"},
      {"says why in many lines", "printf 'one\\n\\n two \\r\\nthree\\n' >&2; exit 1",
       "one; two; three"},
      {"says why in colours and bells", "printf 'no\\033[31m red\\007\\n' >&2; exit 1",
       "no\\x1b[31m red\\x07"},
      {"says why in bytes that are no UTF-8", "printf 'caf\\351\\377\\n' >&2; exit 1",
       "caf\\xe9\\xff"},
      {"says why with a NUL", "printf 'a\\000b\\n' >&2; exit 1", "a\\x00b"},
      {"ends with 1 after a good hash", "echo '{CRAM-MD5}good'; exit 1",
       "failed, and printed a hash all the same"},
      {"prints its input and fails", "cat; exit 1", "***; ***"},
      {"prints its input as an error", "read -r a; echo \"bad: '$a'\" >&2; exit 1", "bad: '***'"},
      {"prints its input and is killed", "cat; kill -KILL $$",
       "***; ***; ended with exit status 137 (signal 9, Killed)"},
      {"prints a little too much", "head -c 262145 ZERO | tr '\\0' x; exit 1",
       Cut('x', 262144 - 2000) + "; " + kTooMuch},
      {"floods its errors and fails", "head -c 2000000 ZERO | tr '\\0' e >&2; exit 1",
       Cut('e', 65536 - 2000)},
      {"reads nothing and fails", "exec <&-; echo 'ended early' >&2; exit 1", "ended early"},
      {"reads half and fails", "head -c 3 >/dev/null; exit 2", Silent("2")},
      {"leaves children and fails", "for i in 1 2 3; do sleep REST & done; echo no >&2; exit 1",
       "no"},
      {"crashes", "ulimit -c 0; kill -SEGV $$", Silent("139 (signal 11, Segmentation fault)")},
      {"aborts", "ulimit -c 0; kill -ABRT $$", Silent("134 (signal 6, Aborted)")},
      {"is killed", "kill -KILL $$", Silent("137 (signal 9, Killed)")},
      {"is ended after a good hash", "echo '{CRAM-MD5}good'; kill -TERM $$",
       "{CRAM-MD5}***; ended with exit status 143 (signal 15, Terminated)"},
  };
  return all;
}

const std::vector<Misbehaviour>& ThatAnswer() {
  static const std::vector<Misbehaviour> all = {
      {"prints nothing", "exit 0", kNothing},
      {"prints blank lines", "printf '\\n \\n'", kNothing},
      {"prints what crypt fails with", "echo '*0'", kNoHash},
      {"prints the same behind a scheme", "echo '{CRAM-MD5}*0'", kNoHash},
      {"prints a scheme alone", "echo '{CRAM-MD5}'", kNoHash},
      {"prints half a scheme", "echo '{CRAM'", kNoHash},
      {"prints a hash twice", "echo '{CRAM-MD5}a'; echo '{CRAM-MD5}b'",
       kUnfit + "line break not allowed"},
      {"prints colours", "printf '{CRAM-MD5}\\033[1ma\\033[0m\\n'", kNoHash},
      {"prints a NUL", "printf '{CRAM-MD5}a\\000b\\n'", kUnfit + "NUL not allowed"},
      {"prints a colon", "echo '{CRAM-MD5}a:0:0::/:/bin/sh'", kUnfit + "must not contain ':'"},
      {"prints bytes that are no UTF-8", "printf '{CRAM-MD5}a\\377\\n'", kNoHash},
      {"prints its question first", "printf 'Enter new password: {CRAM-MD5}a\\n'",
       kUnfit + "must not contain ':'"},
      {"prints a warning for a hash", "echo 'Warning, old configuration'", kNoHash},
      {"prints the password of nobody", "echo '{PLAIN}another'",
       "the password would be kept in the clear, as the scheme CRAM-MD5 is not to be had from it"},
      {"hashes the empty password", "echo '{MD5-CRYPT}$1$salt$UsdFqFVB.FsuinRDK5eE..'",
       "its answer is the hash of another password"},
      {"prints no end of line", "printf '{CRAM-MD5}good'", ""},
      {"prints an end of another system", "printf '{CRAM-MD5}good\\r\\n'", ""},
      {"prints its input for a hash", "head -n 1", kNoHash},
      {"floods the output", "exec timeout REST tr '\\0' x <ZERO", "..." + kTooMuch},
      {"floods the output with NULs", "exec timeout REST cat ZERO", kTooMuch},
      {"floods its errors and works", "head -c 2000000 ZERO >&2; echo '{CRAM-MD5}good'", ""},
      {"floods both at once", "timeout --foreground REST cat ZERO >&2 & exec timeout REST cat ZERO",
       kTooMuch},
      {"reads nothing", "exec <&-; echo '{CRAM-MD5}good'", ""},
      {"leaves a child on its output", "sleep REST & echo '{CRAM-MD5}good'", ""},
      {"leaves a grandchild on its output", "(sleep REST & ); echo '{CRAM-MD5}good'", ""},
      {"leaves one that can't be asked to end",
       "sh -c \"trap '' TERM INT HUP; sleep REST; sleep REST\" & echo '{CRAM-MD5}good'", ""},
  };
  return all;
}

const std::vector<Misbehaviour>& ThatHang() {
  static const std::vector<Misbehaviour> all = {
      {"hangs", "exec sleep REST", kNoAnswer},
      {"ignores requests to end", "trap '' TERM INT HUP; while :; do sleep REST; exit 0; done",
       kNoAnswer},
      {"hangs after a good hash", "echo '{CRAM-MD5}good'; exec sleep REST", "..." + kNoAnswer},
      {"closes everything and hangs", "exec >&- 2>&- <&-; exec sleep REST", kNoAnswer},
      {"waits for many children", "for i in 1 2 3 4 5; do sleep REST & done; wait", kNoAnswer},
      {"stops itself", "sh -c \"sleep REST; kill -CONT $$\" & kill -STOP $$; exit 1", kNoAnswer},
      {"leaves its group",
       "exec python3 -ISc 'import os, time; os.setpgid(0, os.getpgid(os.getppid())); "
       "time.sleep(REST)'",
       kNoAnswer},
      {"prints a dot now and then",
       "exec timeout REST sh -c 'while :; do printf .; sleep 0.05; done'", "..." + kNoAnswer},
      {"floods its errors for ever", "exec timeout REST cat ZERO >&2", kNoAnswer},
  };
  return all;
}

const std::vector<Misbehaviour>& ThatCannotStart() {
  static const std::vector<Misbehaviour> all = {
      {"missing", nullptr, "can't start PROGRAM: No such file or directory"},
      {"not executable", nullptr, "can't start PROGRAM: Permission denied"},
      {"a folder", nullptr, "can't start PROGRAM, a folder: Permission denied"},
      {"an empty file", nullptr, "can't start PROGRAM: Exec format error"},
      {"without an interpreter", nullptr,
       "can't start PROGRAM, whose interpreter is missing: No such file or directory"},
      {"a link to itself", nullptr, "can't start PROGRAM: Too many levels of symbolic links"},
      {"a link to nothing", nullptr, "can't start PROGRAM: No such file or directory"},
  };
  return all;
}

}  // namespace live
