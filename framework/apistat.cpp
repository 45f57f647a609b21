#include "apistat.h"

#include <mutex>

namespace apistat {

namespace {

struct Record {
  std::mutex mutex;
  std::map<std::string, std::string> implementations;
};

// Never destroyed: plug-ins may still call while the process ends.
Record& TheRecord() {
  static Record& record = *new Record;
  return record;
}

}  // namespace

void ModuleInterface(const std::string& interface, const std::string& implementation) {
  Record& record = TheRecord();
  const std::lock_guard lock(record.mutex);
  record.implementations[interface] = implementation;
}

std::map<std::string, std::string> Interfaces() {
  Record& record = TheRecord();
  const std::lock_guard lock(record.mutex);
  return record.implementations;
}

}  // namespace apistat
