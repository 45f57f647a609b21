#include "brisq/mailbox_records.h"

namespace brisq {

Record RecordOf(const brisq_panel::MailboxInfo& mailbox) {
  return {{"address", mailbox.address},   {"owner", mailbox.owner},     {"home", mailbox.home},
          {"quota_mb", mailbox.quota_mb}, {"used_mb", mailbox.used_mb}, {"active", mailbox.active}};
}

std::string Joined(const std::vector<std::string>& addresses) {
  std::string all;
  for (const std::string& address : addresses) all += (all.empty() ? "" : ", ") + address;
  return all;
}

}  // namespace brisq
