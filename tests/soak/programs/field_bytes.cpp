// field_bytes engine|naive FILE: puts every byte at the start, in the middle and at the end of
// every field of a new line in the passwd-file FILE, each line under a name of its own, as far as
// the writer takes it. Prints how many values were tried and refused, and then the names that the
// file must have, in hexadecimal digits, one a line.

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <map>
#include <set>
#include <string>
#include <string_view>

#include "framework/conf_defer.h"
#include "mgr_err.h"
#include "tests/unit/framework/conf_fixture.h"

namespace {

using conf_fixture::Users;
using conf_fixture::UsersConfig;

constexpr unsigned long kColumns = 9;

// What a mailbox's line has in the columns that are not tried.
std::map<unsigned long, std::string> Usual(const std::string& name) {
  return {{1, name},
          {3, "1000"},
          {4, "1000"},
          {6, "/home/u"},
          {9, "maildir:~/.maildir userdb_quota_rule=*:bytes=0M"}};
}

struct Result {
  int tried = 0;
  int refused = 0;
  std::set<std::string> names;
};

// Calls `write` with the columns of each line.
template <class Write>
void ForEachLine(Write write) {
  int number = 0;
  for (unsigned long column = 1; column <= kColumns; ++column) {
    for (int byte = 0; byte < 256; ++byte) {
      for (const std::size_t half : {0U, 1U, 2U}) {
        std::map<unsigned long, std::string> columns = Usual("u" + std::to_string(++number));
        // Numbers that Dovecot takes, and elsewhere ten digits of this line's own, so that no two
        // names are the same.
        const bool is_id = column == 3 || column == 4;
        std::string value = is_id ? "1000" : std::to_string(1'000'000'000 + number);
        const std::size_t place = value.size() * half / 2;
        value.insert(place, 1, static_cast<char>(byte));
        columns[column] = value;
        write(columns);
      }
    }
  }
}

Result ByEngine(const std::string& path) {
  Result result;
  const auto users = UsersConfig::Open(path);
  DeferSaves scope;
  ForEachLine([&](const std::map<unsigned long, std::string>& columns) {
    ++result.tried;
    try {
      users->New();
      for (const auto& [column, value] : columns) users->Fields()[column - 1]->Set(value);
      users->Post("");
    } catch (const mgr_err::Error& error) {
      if (error.type() != "value") throw;
      ++result.refused;
    }
  });
  scope.Save();
  for (users->First(); !users->Eof(); users->Next()) result.names.insert(users->name.Str());
  return result;
}

// The control: writes what it is given.
Result ByPrinting(const std::string& path) {
  Result result;
  std::ofstream file(path, std::ios::app | std::ios::binary);
  ForEachLine([&](const std::map<unsigned long, std::string>& columns) {
    ++result.tried;
    for (unsigned long column = 1; column <= kColumns; ++column) {
      const auto value = columns.find(column);
      file << (value == columns.end() ? "" : value->second) << (column < kColumns ? ":" : "\n");
    }
    result.names.insert(columns.at(1));
  });
  return result;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  const Result result =
      std::string_view(argv[1]) == "engine" ? ByEngine(argv[2]) : ByPrinting(argv[2]);
  std::printf("tried %d refused %d\n", result.tried, result.refused);
  for (const std::string& name : result.names) {
    for (const char byte : name) std::printf("%02x", static_cast<unsigned char>(byte));
    std::printf("\n");
  }
  return 0;
}
