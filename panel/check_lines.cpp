#include "panel/check_lines.h"

#include <grp.h>

#include <map>

#include "framework/conf_line.h"
#include "panel/mend_jobs.h"
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

void CompareValues(Drifts& drifts) {
  const std::vector<std::string> diff = PlanSync().diff;
  for (std::size_t i = 1; i < diff.size(); ++i) {
    const std::string name = diff[i].substr(1, diff[i].find(':') - 1);
    if (diff[i][0] == '+' && diff[i - 1].starts_with("-" + name + ":")) {
      drifts.Warning("LINE-DIFFERS", name, Differences(diff[i - 1].substr(1), diff[i].substr(1)),
                     "brisq sync, or brisq mailbox set " + name + " to keep what the file has");
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
