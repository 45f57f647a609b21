#include "tests/support/doveadm_stand_in.h"

#include <algorithm>

#include "tests/support/stub_program.h"

namespace support {

DoveadmStandIn::DoveadmStandIn(const TempDir& dir) : dir_(dir) {
  path_ = WriteStub(dir / "doveadm", "cd '" + dir.path() +
                                         "' || exit 99\n"
                                         "case \"$1 $2\" in\n"
                                         "'pw -l') cat listing; exit $(cat listing.status);;\n"
                                         "'quota get') cat figures; exit 0;;\n"
                                         "'reload ') exit 0;;\n"
                                         "esac\n"
                                         "echo call >> calls\n"
                                         "printf '[%s]' \"$@\" > argv\n"
                                         "cat > input\n"
                                         "cat answer\n"
                                         "cat trouble >&2\n"
                                         "exit $(cat answer.status)\n");
  Lists("CRAM-MD5 \n");
  Answers("{CRAM-MD5}hash\n");
  Reports("");
}

void DoveadmStandIn::Lists(std::string_view listing, int status) {
  dir_.Write("listing", listing);
  dir_.Write("listing.status", std::to_string(status));
}

void DoveadmStandIn::Answers(std::string_view output, int status, std::string_view trouble) {
  dir_.Write("answer", output);
  dir_.Write("answer.status", std::to_string(status));
  dir_.Write("trouble", trouble);
  dir_.Write("calls", "");
}

void DoveadmStandIn::Reports(std::string_view figures) { dir_.Write("figures", figures); }

int DoveadmStandIn::Calls() const {
  const std::string calls = dir_.Read("calls");
  return static_cast<int>(std::count(calls.begin(), calls.end(), '\n'));
}

}  // namespace support
