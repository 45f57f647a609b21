#pragma once

#include <map>
#include <string>

namespace brisqpriv_email_dovecot {

/// Used space in megabytes by full address.
using UsedSpace = std::map<std::string, int>;

/// Enters rows of "NAME KILOBYTES" as awk leaves them of Dovecot's quota listing. The last row of a
/// name counts, also against what the map held before; names that are in no row keep what they had.
/// What is no number counts as 0. Time grows with the rows as that of sorting them does.
void EnterUsedSpace(const std::string& rows, UsedSpace& used);

}  // namespace brisqpriv_email_dovecot
