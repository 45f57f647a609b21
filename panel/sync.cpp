#include "panel/sync.h"

#include <memory>
#include <optional>
#include <set>

#include "conf_dataset.h"
#include "email.h"
#include "framework/conf_document.h"
#include "framework/conf_line.h"
#include "framework/rehearsal.h"
#include "mgr_cf.h"
#include "panel/archive.h"
#include "panel/email_module.h"
#include "panel/held_signals.h"
#include "panel/job_log.h"
#include "panel/line_diff.h"
#include "panel/line_saves.h"
#include "panel/mail_line.h"
#include "panel/maildir.h"
#include "panel/names.h"
#include "panel/password_line.h"
#include "panel/records.h"
#include "panel/run_request.h"
#include "panel/short_lines.h"
#include "panel/stored_password.h"

namespace brisq_panel {

namespace {

constexpr unsigned long kColumns = 9;

/// The lines of one content of the passwd-file.
class Lines {
 public:
  explicit Lines(const std::string& content)
      : document_(std::make_shared<ConfBytes>(content), *UnixConfParams()) {}

  /// True when the mail server serves a mailbox of this name.
  bool Has(const std::string& name) const { return Find(name) != ConfDocument::kNone; }
  bool HasPassword(const std::string& name) const {
    const ConfDocument::Line line = Find(name);
    return line != ConfDocument::kNone &&
           !conf_line::Column(document_.Text(line), ':', kColumns, 2).empty();
  }
  /// A line of this name that is none for the mail server's mailbox, in its place.
  std::optional<ShortLine> Short(const std::string& path, const std::string& name) const {
    return FindShortLine(path, document_, name);
  }
  std::size_t Count(const std::string& name) const { return document_.AllNamed(name).size(); }
  std::vector<std::string> Strangers(const std::set<std::string>& known) const {
    std::vector<std::string> names;
    ForEach([&](const std::string& name, const LineValues&) {
      if (known.count(name) == 0) {
        names.push_back(name);
      }
    });
    return names;
  }
  /// The line that the mail server uses; empty for none.
  LineValues Values(const std::string& name) const {
    const ConfDocument::Line line = Find(name);
    return line == ConfDocument::kNone ? LineValues() : ValuesOfLine(document_.Text(line));
  }
  template <class Look>
  void ForEach(const Look& look) const {
    for (auto line = document_.NextRecord(0, kColumns); line != ConfDocument::kNone;
         line = document_.NextRecord(line + 1, kColumns)) {
      const std::string name(document_.Name(line));
      if (Find(name) == line) {
        look(name, ValuesOfLine(document_.Text(line)));
      }
    }
  }

 private:
  ConfDocument::Line Find(const std::string& name) const {
    return document_.FindRecord(name, kColumns);
  }

  ConfDocument document_;
};

enum class Passwords { kLeave, kHash, kGenerate };

/// The steps of one request.
class Work {
 public:
  Work(Passwords passwords, SyncReport& report)
      : passwords_(passwords), report_(report), lines_(PasswdFileText(report.path)) {}

  void Do() {
    std::set<std::string> names;
    const auto walk = Table<brisq_db::EmailTable>();
    for (walk->DbSelect(); !walk->Eof(); walk->Next()) {
      // Many passwords take long to hash, and until the file is saved all is easily given up.
      HeldSignals::GiveUpIfOneWaits("sync");
      Mailbox mailbox = Table<brisq_db::EmailTable>();
      mailbox->Assert(walk->id);
      const std::string name = email::GetEmailName(mailbox);
      names.insert(name);
      const bool has_line = lines_.Has(name);
      if (!has_line && LeaveShortLine(name)) {
        continue;
      }
      if (mailbox->active) {
        Serve(mailbox, name);
      } else if (has_line) {
        TakeOut(mailbox, name);
      }
    }
    report_.strangers = lines_.Strangers(names);
  }

 private:
  // True when a line of this name that only a person can complete stands in the mailbox's place.
  bool LeaveShortLine(const std::string& name) {
    const auto line = lines_.Short(report_.path, name);
    if (line) {
      report_.unsafe.push_back(line->place + ": " + line->problem + "; " + kShortLineFix);
    }
    return line.has_value();
  }

  void Serve(Mailbox& mailbox, const std::string& name) {
    // One user's trap in the way must not keep all others out.
    if (!ProvideMaildir(mailbox, name) && !lines_.Has(name)) {
      return;
    }
    ProvideLine(mailbox, name);
    if (lines_.HasPassword(name)) {
      return;
    }
    if (PasswordBackend() != nullptr || mailbox->password.Stored().empty()) {
      ProvidePassword(mailbox, name);
    } else if (lines_.Has(name) && passwords_ != Passwords::kLeave) {
      SetLinePassword(mailbox, mailbox->password);
    }
  }

  void ProvideLine(Mailbox& mailbox, const std::string& name) {
    if (lines_.Has(name)) {
      return ChangeLine(mailbox);
    }
    const std::string kept = mailbox->password.Stored();
    if (passwords_ == Passwords::kLeave) {
      mailbox->password.SetStored({});  // of this object alone: it is not posted
    }
    MailBackend().Create(mailbox);
    if (passwords_ != Passwords::kLeave && PasswordBackend() == nullptr && !kept.empty()) {
      CheckStoredPassword(email::GetEmailName(mailbox), mailbox->password);
    }
    mailbox->password.SetStored(kept);
  }

  void ProvidePassword(Mailbox& mailbox, const std::string& name) {
    if (passwords_ != Passwords::kGenerate) {
      report_.passwordless.push_back(name);
      return;
    }
    if (PasswordBackend() == nullptr) {
      JobLog::Watch(kMailbox, name);  // the panel keeps it too
    }
    report_.passwords.emplace_back(name, GeneratePassword());
    SetLinePassword(mailbox, report_.passwords.back().second);
  }

  // False when it can't be reached.
  bool ProvideMaildir(const Mailbox& mailbox, const std::string& name) {
    const auto owner = email::GetEmailOwner(mailbox);
    const std::string home = mailbox->home;
    try {
      if (!IsMaildirMissing(*owner, home)) {
        return true;
      }
      const std::string path = MaildirOf(*owner, home).path();
      // The back-end makes the whole of it with a new line.
      if (lines_.Has(name) || mgr_file::Exists(path)) {
        MakeMaildir(owner, home);
      } else {
        DeclareMaildir(*owner, home);
      }
      report_.maildirs.push_back(path);
      return true;
    } catch (const mgr_err::Error& error) {
      report_.unsafe.push_back(error.object() + ": " + error.value());
      return false;
    }
  }

  // As switching it off does. A hash that was kept then is older than one in the line.
  void TakeOut(Mailbox& mailbox, const std::string& name) {
    const std::string hash = TakeLineOut(mailbox);
    // Behind the line that the mail server used lie those that it would use next.
    for (std::size_t more = lines_.Count(name); more > 1; --more) {
      TakeLineOut(mailbox);
    }
    const auto kept = FindSwitchedOff(ParseAddress(name));
    const std::string reason = kept ? std::string(kept->reason) : kSwitchedOff;
    LineValues before = lines_.Values(name);
    if (kept) {
      before[kFormerHash] = kept->hash;
    }
    JobLog::Declare({kLine, name, before, {}});
    if (kept && !hash.empty()) {
      kept->DbDelete();
    }
    if (!kept || !hash.empty()) {
      ArchiveMailbox(mailbox, reason, hash);
    }
  }

  const Passwords passwords_;
  SyncReport& report_;
  const Lines lines_;
};

// Lines that are made or changed; those that leave are declared with what is kept of them.
void DeclareLines(const Lines& before, const Lines& after) {
  after.ForEach([&](const std::string& name, const LineValues& values) {
    LineValues old = before.Values(name);
    if (old != values) {
      JobLog::Declare({kLine, name, std::move(old), values});
    }
  });
}

SyncReport Run(Passwords passwords) {
  SyncReport report;
  report.path = mgr_cf::GetPath("dovecot-passwd");
  MailBackend();
  LineSaves saves;
  DoRequest("sync", [&](Request&) {
    const std::string before = PasswdFileText(report.path);
    Work(passwords, report).Do();
    saves.Save();
    const std::string after = PasswdFileText(report.path);
    report.diff = DiffLines(before, after);
    DeclareLines(Lines(before), Lines(after));
  });
  return report;
}

}  // namespace

SyncReport Sync(bool generate) { return Run(generate ? Passwords::kGenerate : Passwords::kHash); }

SyncReport PlanSync() {
  std::optional<Rehearsal> rehearsal;
  if (Rehearsal::Current() == nullptr) {
    rehearsal.emplace();
  }
  return Run(Passwords::kLeave);
}

}  // namespace brisq_panel
