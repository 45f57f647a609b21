#include "used_space.h"

#include <algorithm>

#include "str.h"

namespace brisqpriv_email_dovecot {

void EnterUsedSpace(const std::string& rows, UsedSpace& used) {
  // Taking each row off the front of the whole output would move the rest of it every time.
  for (std::size_t begin = 0; begin < rows.size();) {
    const std::size_t end = std::min(rows.find('\n', begin), rows.size());
    std::string row = rows.substr(begin, end - begin);
    const std::string name = str::GetWord(row);
    used[name] = str::Int(row) / 1024;
    begin = end + 1;
  }
}

}  // namespace brisqpriv_email_dovecot
