// Reading a passwd-file through libbrisqapi.
//
// usage: lines_bench load FILE           loads and indexes it, and ends
//        lines_bench walk FILE           and reads all fields of all lines through a cursor
//        lines_bench find FILE N         N random finds; prints nanoseconds for each
//        lines_bench memory FILE         prints bytes a line beside the bytes of the file

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <random>
#include <vector>

#include "bench/measure.h"
#include "bench/passwd_file.h"
#include "framework/conf_document.h"
#include "framework/conf_stamp.h"

namespace {

using bench::Passwd;
using bench::PasswdConfig;

std::size_t Walk(const char* file) {
  const auto line = PasswdConfig::Open(file);
  std::size_t bytes = 0;
  for (line->First(); !line->Eof(); line->Next()) {
    for (const std::string_view column : line->Stored()) bytes += column.size();
  }
  return bytes;
}

ConfDocument Load(const char* file) {
  return {ReadAt(AT_FDCWD, file, file).bytes, *UnixConfParams()};
}

long Lines(const ConfDocument& document) {
  const std::string_view text = document.Unchanged(0);
  return std::count(text.begin(), text.end(), '\n');
}

// Of the document, as a request's finds are: a cursor's find looks at the file's stamp besides.
double FindNanoseconds(const char* file, long finds) {
  const ConfDocument document = Load(file);
  std::mt19937 random(1);
  document.Index();
  std::uniform_int_distribution<long> any(0, Lines(document) - 1);
  std::vector<std::string> names;
  for (long at = 0; at < finds; ++at) names.push_back(bench::NameOfLine(any(random)));
  long missed = 0;
  const long taken = bench::Nanoseconds([&] {
    for (const std::string& name : names) {
      missed += document.FindRecord(name, 9) == ConfDocument::kNone ? 1 : 0;
    }
  });
  if (missed > 0) std::fprintf(stderr, "%ld names were not found\n", missed);
  return missed > 0 ? 1e9 : static_cast<double>(taken) / static_cast<double>(finds);
}

double BytesALine(const char* file) {
  struct stat info {};
  if (::stat(file, &info) != 0) bench::Fail("stat");
  const long before = bench::ResidentKilobytes();
  const ConfDocument document = Load(file);
  document.Index();
  const long taken = (bench::ResidentKilobytes() - before) * 1024;
  return static_cast<double>(taken - info.st_size) / static_cast<double>(Lines(document));
}

}  // namespace

int main(int argc, char** argv) {
  const auto is = [&](const char* verb, int count) {
    return argc == count && std::strcmp(argv[1], verb) == 0;
  };
  if (is("load", 3)) {
    Load(argv[2]).Index();
  } else if (is("walk", 3)) {
    std::printf("%zu\n", Walk(argv[2]));
  } else if (is("find", 4)) {
    std::printf("%.1f\n", FindNanoseconds(argv[2], bench::Number(argv[3])));
  } else if (is("memory", 3)) {
    std::printf("%.2f\n", BytesALine(argv[2]));
  } else {
    std::fputs("usage: lines_bench load|walk|memory FILE | find FILE N\n", stderr);
    return 2;
  }
  return 0;
}
