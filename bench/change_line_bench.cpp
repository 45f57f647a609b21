// One changed line, stored safely, as a whole process: change_line_bench FILE NAME PASSWD

#include <cstdio>

#include "bench/passwd_file.h"

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fputs("usage: change_line_bench FILE NAME PASSWD\n", stderr);
    return 2;
  }
  const auto line = bench::PasswdConfig::Open(argv[1]);
  line->Assert(argv[2]);
  line->passwd.Set(argv[3]);
  line->Post("");
  return 0;
}
