#include "tests/soak/ledger.h"

namespace soak {

void Ledger::Differs(const std::string& name, const std::string& expected,
                     const std::string& found) {
  out_ << "differs " << name << ' ' << expected << ' ' << found << std::endl;
}

void Ledger::PutBack(const std::string& name, const std::string& newer,
                     const std::string& written) {
  out_ << "put_back " << name << ' ' << newer << ' ' << written << std::endl;
}

void Ledger::OpenedRemoved(const std::string& name) {
  out_ << "opened_removed " << name << " - -" << std::endl;
}

void Ledger::Final(const std::string& name, const std::string& value) {
  out_ << "final " << name << ' ' << value << " -" << std::endl;
}

Account::Account(const std::vector<std::string>& ledgers) {
  for (const std::string& path : ledgers) {
    std::ifstream in(path);
    std::string kind;
    Difference row;
    while (in >> kind >> row.name >> row.expected >> row.found) {
      if (kind == "differs") differences.push_back(row);
      if (kind == "final") finals.push_back(row);
      if (kind == "put_back") put_back.emplace(row.name, row.expected, row.found);
      if (kind == "opened_removed") opened_removed.insert(row.name);
    }
  }
}

void Account::Compare(const Passwords& file) {
  for (Difference final : finals) {
    final.found = ValueOf(file, final.name);
    if (final.found != final.expected) differences.push_back(final);
  }
}

bool Account::DoneByEditor(const Difference& difference) const {
  return put_back.contains({difference.name, difference.expected, difference.found});
}

}  // namespace soak
