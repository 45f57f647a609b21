// doveadm for "dovecot-doveadm": runs the distribution's doveadm with the option -O before "pw".
//
// Every doveadm call reads Dovecot's whole configuration, certificates included, also "pw", which
// needs none of it. With thousands of certificate snippets that takes seconds and hundreds of
// megabytes for each password; -O leaves the configuration out. All other commands need it and get
// no option.

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

namespace {

constexpr char kDoveadm[] = "/usr/bin/doveadm";
constexpr int kCantStart = 127;

}  // namespace

int main(int argc, char** argv) {
  // The program's name, -O, all words and the end.
  char** words = static_cast<char**>(calloc(static_cast<size_t>(argc) + 3, sizeof *words));
  if (!words) return kCantStart;
  static char name[] = "doveadm";
  static char without_configuration[] = "-O";
  int count = 0;
  words[count++] = name;
  if (argc > 1 && strcmp(argv[1], "pw") == 0) words[count++] = without_configuration;
  for (int i = 1; i < argc; ++i) words[count++] = argv[i];
  execv(kDoveadm, words);
  fprintf(stderr, "%s: %s\n", kDoveadm, strerror(errno));
  return kCantStart;
}
