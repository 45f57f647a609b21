#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "brisq_export.h"
#include "panel/findings.h"

/// What the lines of Dovecot's passwd-file show by themselves. Nothing is read or changed. No
/// finding holds a password or a hash.
namespace brisq_panel {

/// One finding for each thing that is wrong with a line, in file order:
///
/// | code | severity | the line |
/// |---|---|---|
/// | PASSWD-SHORT | error | has fewer than nine columns, but is a user for Dovecot |
/// | PASSWD-DUPLICATE | error | has a name that an earlier line has |
/// | PASSWD-ROOT | error | has the uid or gid 0 |
/// | PASSWD-ID | error | has a uid or gid that is no number |
/// | PASSWD-HOME | error | has no absolute home |
/// | PASSWD-NOPASSWORD | error | lets every password in |
/// | PASSWD-OPEN | error | may let the empty password in: a scheme without a hash |
/// | PASSWD-BYTES | error | holds control characters or is no UTF-8 |
/// | PASSWD-NAME | warning | has a name that nobody can log in with |
/// | PASSWD-NO-HASH | warning | has no password |
/// | PASSWD-PERCENT | warning | has "%" in its extra fields, which Dovecot expands |
///
/// @param path    names the file in the findings: "PATH, line N"
/// @param active  full addresses of the panel's active mailboxes: what ends a finding is told as a
/// command then. Null: as what to write, for who has the file in an editor
BRISQ_API std::vector<Finding> CheckPasswdLines(const std::string& path, std::string_view content,
                                                const std::vector<std::string>* active = nullptr);

/// Those findings of `after` that `before` did not have already, for a line of the same text.
BRISQ_API std::vector<Finding> NewPasswdFindings(const std::string& path, std::string_view before,
                                                 std::string_view after);

/// Compares the file's names with the panel's mailboxes:
///
/// | code | severity | |
/// |---|---|---|
/// | PASSWD-STRANGER | warning | a line without a mailbox |
/// | PASSWD-INACTIVE | error | a line of a mailbox that is switched off |
/// | PASSWD-NO-LINE | error | an active mailbox without a line: nobody can log in |
///
/// @param active, inactive  full addresses
BRISQ_API std::vector<Finding> ComparePasswdNames(const std::string& path, std::string_view content,
                                                  const std::vector<std::string>& active,
                                                  const std::vector<std::string>& inactive);

}  // namespace brisq_panel
