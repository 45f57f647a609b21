#include "panel/mail_line.h"

#include <functional>

#include "email.h"
#include "panel/email_module.h"
#include "panel/line_saves.h"
#include "panel/password_line.h"
#include "panel/stored_password.h"

namespace brisq_panel {

namespace {

// The back-end's words where they name its own columns.
void InPlainWords(const Mailbox& mailbox, const std::function<void()>& calls) {
  try {
    calls();
  } catch (const mgr_err::Error& error) {
    if (error.type() == "exists") {
      throw mgr_err::Error(
          "exists", "mailbox",
          email::GetEmailName(mailbox) + " stands in the mail server's list of users already");
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
    MailBackend().Update(mailbox);
    return !present->empty();
  }
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

void ChangeLine(Mailbox& mailbox) { MailBackend().Update(mailbox); }

std::string TakeLineOut(Mailbox& mailbox) {
  const std::string address = email::GetEmailName(mailbox);
  std::string hash = StoredHash(address).value_or("");
  MailBackend().Delete(mailbox);
  if (email::PasswdInterface* passwords = PasswordBackend()) {
    passwords->Delete(address);
  }
  return hash;
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
