#include "panel/check_lines.h"

#include <grp.h>

#include <map>
#include <optional>

#include "framework/conf_line.h"
#include "mgr_err.h"
#include "panel/mend_jobs.h"
#include "panel/names.h"
#include "panel/passwd_file_check.h"
#include "panel/state_at.h"
#include "panel/sync.h"

namespace brisq_panel {

namespace {

using Mend = std::function<void()>;

// The rights of a passwd-file that a save makes where there is none.
constexpr mode_t kMost = 0640;

mode_t ModeOf(const std::string& path) {
  const auto state = StateAt(path, Links::kFollow);
  return state ? state->st_mode & 07777 : kMost;
}

// The group that reads it has no need to write, whatever gave both rights away.
Mend ShutOut(const Finding& finding) {
  return [path = finding.object] { new SetAccess(path, ModeOf(path) & kMost); };
}

// Only the file's own group and mode: the folders above are somebody's choice.
Mend LetDovecotIn(const Finding& finding) {
  const struct group* const dovecot = ::getgrnam("dovecot");
  if (dovecot == nullptr || !FileKeepsDovecotOut(finding.object)) {
    return {};
  }
  return [path = finding.object, gid = dovecot->gr_gid] {
    new SetAccess(path, kMost, SetAccess::kSame, gid);
  };
}

Mend GiveToRoot(const Finding& finding) {
  return [path = finding.object] { new SetAccess(path, ModeOf(path), 0); };
}

Mend MendOf(const Finding& finding) {
  static const std::map<std::string, Mend (*)(const Finding&)> mends = {
      {"PASSWD-WRITABLE", ShutOut},
      {"PASSWD-READABLE", ShutOut},
      {"PASSWD-UNREADABLE", LetDovecotIn},
      {"PASSWD-OWNER", GiveToRoot},
  };
  const auto mend = mends.find(finding.code);
  return mend == mends.end() ? Mend() : mend->second(finding);
}

struct Column {
  const char* name;
  unsigned long number;
};

constexpr Column kColumns[] = {{"uid", 3}, {"gid", 4}, {"home", 6}, {"maildir", 9}};

std::string Differences(const std::string& in_file, const std::string& in_table) {
  std::string text;
  for (const Column& column : kColumns) {
    const auto old = conf_line::Column(in_file, ':', 9, column.number);
    const auto wanted = conf_line::Column(in_table, ':', 9, column.number);
    if (old != wanted) {
      text += (text.empty() ? "" : "; ") + std::string(column.name) + " is " + std::string(old) +
              " in the file, " + std::string(wanted) + " by the panel's table";
    }
  }
  return text;
}

// The quota of a mail location as `mailbox set` takes it; nothing for one that the panel does not
// write.
std::optional<std::string> QuotaOf(std::string_view maildir) {
  constexpr std::string_view kFront = "maildir:~/.maildir userdb_quota_rule=*:bytes=";
  if (!maildir.starts_with(kFront) || !maildir.ends_with('M')) {
    return std::nullopt;
  }
  const std::string quota(maildir.substr(kFront.size()));
  try {
    const int megabytes = ParseQuota(quota);
    return megabytes == 0 ? "none" : std::to_string(megabytes);
  } catch (const mgr_err::Error&) {
    return std::nullopt;
  }
}

// The command that takes over what the file has; empty when none does. Uid and gid are the owner's.
std::string TakeOver(const std::string& name, const std::string& in_file,
                     const std::string& in_table) {
  const auto column = [](const std::string& line, unsigned long number) {
    return std::string(conf_line::Column(line, ':', 9, number));
  };
  const auto differs = [&](unsigned long number) {
    return column(in_file, number) != column(in_table, number);
  };
  const std::optional<std::string> quota = QuotaOf(column(in_file, 9));
  // A home may be taken or out of place, which the command says better.
  if (differs(3) || differs(4) || differs(6) || !quota) {
    return {};
  }
  return ", or brisq mailbox set " + name + " --quota " + *quota +
         ", which keeps what the file has";
}

void CompareValues(Drifts& drifts) {
  const std::vector<std::string> diff = PlanSync().diff;
  for (std::size_t i = 1; i < diff.size(); ++i) {
    const std::string name = diff[i].substr(1, diff[i].find(':') - 1);
    if (diff[i][0] == '+' && diff[i - 1].starts_with("-" + name + ":")) {
      drifts.Warning("LINE-DIFFERS", name, Differences(diff[i - 1].substr(1), diff[i].substr(1)),
                     "brisq sync" + TakeOver(name, diff[i - 1].substr(1), diff[i].substr(1)));
    }
  }
}

}  // namespace

void CheckLines(Drifts& drifts) {
  for (Finding& finding : CheckPasswdFile()) {
    Mend mend = MendOf(finding);
    drifts.Add({std::move(finding), std::move(mend)});
  }
  CompareValues(drifts);
}

}  // namespace brisq_panel
