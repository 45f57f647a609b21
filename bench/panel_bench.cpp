// The panel with its plug-in, in process.
//
// usage: panel_bench certs CONFIG FOLDER PAIRS   nanoseconds: certificate check, bare loop
//        panel_bench refresh CONFIG FILE PAIRS   nanoseconds: refresh, the same by SQLite's C API
//        panel_bench create CONFIG THREADS COUNT FIRST   seconds for COUNT mailboxes

#include <cstdio>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "bench/bare_certificates.h"
#include "bench/bare_refresh.h"
#include "bench/measure.h"
#include "bench/passwd_file.h"
#include "brisq_api.h"
#include "framework/conf_defer.h"
#include "framework/config_file.h"
#include "framework/database.h"
#include "mgr_cf.h"
#include "panel/email_module.h"
#include "panel/file_stamps.h"
#include "panel/instance.h"
#include "panel/mailboxes.h"

namespace {

void PrintPair(long ours, long peer) {
  bench::PrintPair(static_cast<double>(ours), static_cast<double>(peer));
}

void Certificates(const std::string& folder, long pairs) {
  for (long pair = 0; pair < pairs; ++pair) {
    const long ours =
        bench::Nanoseconds([] { brisq_api::InternalCall("dovecot.certs.check", ""); });
    PrintPair(ours, bench::Nanoseconds([&] { bench::CheckCertificatesBare(folder); }));
  }
}

// As panel/refresh.h does it, without the report.
void RunCache() {
  mgr_db::GroupedChanges rows;
  DeferSaves lines;
  brisq_panel::MailBackend().Cache();
  lines.Save();
  rows.Commit();
}

void Refresh(const std::string& database, const std::string& file, long pairs) {
  for (long pair = 0; pair < pairs; ++pair) {
    brisq_panel::RecordStamp(file, "another");
    const long ours = bench::Nanoseconds(RunCache);
    PrintPair(ours, bench::Nanoseconds(
                        [&] { bench::RefreshBare(database, file, static_cast<int>(pair) + 1); }));
  }
}

// Each thread takes the next number until all are done.
void Create(long threads, long count, long first) {
  std::mutex mutex;
  long next = first;
  const auto work = [&] {
    for (;;) {
      std::unique_lock lock(mutex);
      if (next == first + count) return;
      const std::string address = bench::NameOfLine(next++);
      lock.unlock();
      brisq_panel::AddMailbox(
          {.address = address, .password = "a pass phrase", .quota = "500", .home = {}});
    }
  };
  std::vector<std::thread> running;
  for (long thread = 0; thread < threads; ++thread) running.emplace_back(work);
  for (std::thread& thread : running) thread.join();
}

}  // namespace

int main(int argc, char** argv) {
  const auto is = [&](const char* verb, int count) {
    return argc == count && std::strcmp(argv[1], verb) == 0;
  };
  if (!is("certs", 5) && !is("refresh", 5) && !is("create", 6)) {
    std::fputs(
        "usage: panel_bench certs CONFIG FOLDER PAIRS | refresh CONFIG FILE PAIRS |"
        " create CONFIG THREADS COUNT FIRST\n",
        stderr);
    return 2;
  }
  const mgr_cf::Settings settings = mgr_cf::ReadSettings(argv[2]);
  const brisq_panel::Instance instance(settings);
  if (is("certs", 5)) {
    Certificates(argv[3], bench::Number(argv[4]));
  } else if (is("refresh", 5)) {
    Refresh(settings.database, argv[3], bench::Number(argv[4]));
  } else {
    const long taken = bench::Nanoseconds(
        [&] { Create(bench::Number(argv[3]), bench::Number(argv[4]), bench::Number(argv[5])); });
    std::printf("%.3f\n", static_cast<double>(taken) / 1e9);
  }
  return 0;
}
