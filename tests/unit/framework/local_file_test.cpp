#include "framework/local_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>

#include "framework/descriptor.h"

namespace {

TEST(LocalFile, IsOneOfAFileSystemOfThisMachineAlone) {
  const struct {
    const char* name;
    Descriptor file;
    bool local;
  } cases[] = {
      {"in memory", Descriptor(::memfd_create("local", MFD_CLOEXEC)), true},
      {"made up by the system", Descriptor(::open("/proc/self/status", O_RDONLY | O_CLOEXEC)),
       false},
      {"none", Descriptor(), false},
  };
  for (const auto& [name, file, local] : cases) {
    SCOPED_TRACE(name);
    EXPECT_EQ(IsLocalFile(file.get()), local);
  }
}

}  // namespace
