#include "panel/spared_mailboxes.h"

#include <memory>

#include "conf_dataset.h"
#include "email.h"
#include "panel/archive.h"
#include "panel/password_line.h"
#include "panel/records.h"
#include "panel/refresh_watch.h"
#include "panel/short_lines.h"

namespace brisq_panel {

std::string SparedMailboxes(const std::string& condition) {
  const auto mailbox = Table<brisq_db::EmailTable>();
  const auto domain = Table<brisq_db::EmailDomainTable>();
  std::string ids;
  for (const std::string& path : RefreshWatch::PathsSeen()) {
    const ConfDocument document(std::make_shared<ConfBytes>(PasswdFileText(path)),
                                *UnixConfParams());
    for (const ShortLine& line : ShortLines(path, document)) {
      if (!email::FindByEmailName(line.name, mailbox, domain) ||
          !IsAnyMailbox("(" + condition + ") AND id = " + mailbox->id.AsString())) {
        continue;
      }
      ids += (ids.empty() ? "" : ", ") + mailbox->id.AsString();
      RefreshWatch::SawSpared(line.place + ": " + line.problem + "; " + kShortLineFix);
    }
  }
  return ids.empty() ? ids : " AND id NOT IN (" + ids + ")";
}

}  // namespace brisq_panel
