#include "panel/mail_line.h"

#include <functional>

#include "email.h"
#include "mgr_cf.h"
#include "panel/email_module.h"
#include "panel/line_saves.h"
#include "panel/lost_file.h"
#include "panel/password_line.h"
#include "panel/short_lines.h"
#include "panel/stored_password.h"

namespace brisq_panel {

namespace {

std::string ListOfUsers() {
  const std::string path = mgr_cf::GetPath("dovecot-passwd");
  return path.empty() ? "the mail server's list of users" : path;
}

// The back-end's words where they name its own columns.
void InPlainWords(const Mailbox& mailbox, const std::function<void()>& calls) {
  try {
    calls();
  } catch (const mgr_err::Error& error) {
    const std::string address = email::GetEmailName(mailbox);
    const bool exists = error.type() == "exists";
    const bool missed = error.type() == "missed" && error.object() == "name";
    if (exists || missed) {
      RefuseShortLine(address);
    }
    if (exists) {
      throw mgr_err::Error("exists", "mailbox",
                           address + " stands in " + ListOfUsers() + " already");
    }
    if (missed) {
      throw mgr_err::Error("missed", "mailbox",
                           address + " has no line in " + ListOfUsers() +
                               "; brisq sync writes what is missing there");
    }
    if (const std::string unfit = UnfitAnswer(error); !unfit.empty()) {
      throw email::Fail("doveadm", unfit);
    }
    throw;
  }
}

bool PanelKeepsPassword(const Mailbox& mailbox) {
  return PasswordBackend() == nullptr && !mailbox->password.Stored().empty();
}

// The mail back-end writes the password of the row into the line when this flag is on.
void UpdateWithPassword(Mailbox& mailbox) {
  mailbox->pwupdate = true;
  mailbox->Post();
  MailBackend().Update(mailbox);
  mailbox->pwupdate = false;
  mailbox->Post();
  CheckStoredPassword(email::GetEmailName(mailbox), mailbox->password);
}

}  // namespace

void MakeLine(Mailbox& mailbox, const std::string& password) {
  RefuseFirstLine(mailbox->id);
  InPlainWords(mailbox, [&] {
    MailBackend().Create(mailbox);
    if (email::PasswdInterface* passwords = PasswordBackend()) {
      passwords->Create(email::GetEmailName(mailbox), password);
    }
    CheckStoredPassword(email::GetEmailName(mailbox), password);
  });
}

bool BringLineBack(Mailbox& mailbox, const std::string& hash) {
  const std::string address = email::GetEmailName(mailbox);
  const std::optional<std::string> present = StoredHash(address);
  if (present && PanelKeepsPassword(mailbox)) {
    InPlainWords(mailbox, [&] { UpdateWithPassword(mailbox); });
    return true;
  }
  if (present) {
    ChangeLine(mailbox);
    return !present->empty();
  }
  RefuseFirstLine(mailbox->id);
  InPlainWords(mailbox, [&] {
    MailBackend().Create(mailbox);
    if (PanelKeepsPassword(mailbox)) {
      CheckStoredPassword(address, mailbox->password);
    }
  });
  if (!PanelKeepsPassword(mailbox) && !hash.empty()) {
    LineSaves::WhenSaved([=] { StoreHash(address, hash); });
  }
  return PanelKeepsPassword(mailbox) || !hash.empty();
}

void ChangeLine(Mailbox& mailbox) {
  InPlainWords(mailbox, [&] { MailBackend().Update(mailbox); });
}

std::string TakeLineOut(Mailbox& mailbox) {
  const std::string address = email::GetEmailName(mailbox);
  const std::optional<std::string> hash = StoredHash(address);
  if (!hash) {
    RefuseShortLine(address);  // it would stay, and let its user in
  }
  MailBackend().Delete(mailbox);
  if (email::PasswdInterface* passwords = PasswordBackend()) {
    passwords->Delete(address);
  }
  return hash.value_or("");
}

void SetLinePassword(Mailbox& mailbox, const std::string& password) {
  InPlainWords(mailbox, [&] {
    if (email::PasswdInterface* passwords = PasswordBackend()) {
      mailbox->password = "";
      mailbox->Post();
      passwords->Update(email::GetEmailName(mailbox), password);
      CheckStoredPassword(email::GetEmailName(mailbox), password);
      return;
    }
    mailbox->password = password;
    UpdateWithPassword(mailbox);
  });
}

}  // namespace brisq_panel
