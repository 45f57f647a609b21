// Taking in the used space of all mailboxes: quota_bench FILE RUNS
//
// FILE holds what awk leaves of Dovecot's quota listing. Prints nanoseconds, one line a run.

#include <cstdio>

#include "bench/measure.h"
#include "email/used_space.h"
#include "mgr_file.h"

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fputs("usage: quota_bench FILE RUNS\n", stderr);
    return 2;
  }
  const std::string rows = mgr_file::ReadE(argv[1]);
  for (long run = 0; run < bench::Number(argv[2]); ++run) {
    brisqpriv_email_dovecot::UsedSpace used;
    const long taken =
        bench::Nanoseconds([&] { brisqpriv_email_dovecot::EnterUsedSpace(rows, used); });
    std::printf("%ld\n", taken);
  }
  return 0;
}
