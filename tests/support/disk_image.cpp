#include "tests/support/disk_image.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <map>

#include "framework/descriptor.h"

namespace support {
namespace {

struct Type {
  const char* make;     // command, to be followed by the image
  off_t bytes;          // as small as the tool makes one
  const char* options;  // of mount(8)
};

// Without auto_da_alloc ext4 does what POSIX asks for and no more: nothing is written ahead of a
// rename for those who forget to sync.
const std::map<std::string, Type>& Types() {
  static const std::map<std::string, Type> types = {
      {"ext4", {"mkfs.ext4 -q -F", off_t{24} << 20, "loop,noauto_da_alloc"}},
      {"xfs", {"mkfs.xfs -q -f", off_t{320} << 20, "loop,nouuid"}},
      {"btrfs", {"mkfs.btrfs -q -f", off_t{128} << 20, "loop"}},
  };
  return types;
}

// True when the shell command succeeds; what it says is added to `text` when it does not.
bool Runs(const std::string& command, std::string& text) {
  std::array<char, 512> line{};
  FILE* pipe = ::popen((command + " 2>&1").c_str(), "re");
  if (pipe == nullptr) return false;
  std::string said;
  while (::fgets(line.data(), line.size(), pipe) != nullptr) said += line.data();
  const bool well = ::pclose(pipe) == 0;
  if (!well) text += said;
  return well;
}

std::string Quoted(const std::string& path) { return "'" + path + "'"; }

}  // namespace

DiskImage::DiskImage(std::string type)
    : type_(std::move(type)),
      store_(dir_.MakeFolder("store")),
      image_(store_ + "/image"),
      folder_(dir_.MakeFolder("mounted")) {
  Make();
}

DiskImage::~DiskImage() {
  if (mounted_) Unmount();
  ::umount2(store_.c_str(), MNT_DETACH);
}

void DiskImage::Make() {
  if (::geteuid() != 0) {
    why_not_ = "only root can mount";
    return;
  }
  if (::unshare(CLONE_NEWNS) != 0 ||
      ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
      ::mount("none", store_.c_str(), "tmpfs", 0, "mode=0700") != 0) {
    why_not_ = std::string("mounting is refused: ") + std::strerror(errno);
    return;
  }
  const Type& type = Types().at(type_);
  const Descriptor file(::open(image_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  if (!file || ::ftruncate(file.get(), type.bytes) != 0 ||
      !Runs(std::string(type.make) + " " + Quoted(image_), why_not_)) {
    why_not_ = "no " + type_ + " can be made: " + why_not_;
    return;
  }
  if (!Runs(std::string("mount -o ") + type.options + " " + Quoted(image_) + " " + Quoted(folder_),
            why_not_)) {
    why_not_ = "no loop device: " + why_not_;
    return;
  }
  mounted_ = true;
  Unmount();
}

bool DiskImage::Mount() {
  std::string said;
  // The kernel keeps in mind which device it saw a btrfs on, and refuses an older state of it.
  if (type_ == "btrfs") Runs("btrfs device scan --forget", said);
  mounted_ = Runs(std::string("mount -o ") + Types().at(type_).options + " " + Quoted(image_) +
                      " " + Quoted(folder_),
                  said);
  EXPECT_TRUE(mounted_) << said;
  return mounted_;
}

void DiskImage::Unmount() {
  EXPECT_EQ(0, ::umount(folder_.c_str())) << std::strerror(errno);
  mounted_ = false;
}

DiskState DiskImage::Take() const {
  DiskState state;
  const Descriptor file(::open(image_.c_str(), O_RDONLY | O_CLOEXEC));
  for (off_t at = 0;;) {
    const off_t begin = ::lseek(file.get(), at, SEEK_DATA);
    if (begin < 0) break;
    at = ::lseek(file.get(), begin, SEEK_HOLE);
    std::string bytes(static_cast<std::size_t>(at - begin), '\0');
    EXPECT_EQ(::pread(file.get(), bytes.data(), bytes.size(), begin),
              static_cast<ssize_t>(bytes.size()));
    state.pieces_.emplace_back(begin, std::move(bytes));
  }
  return state;
}

void DiskImage::Put(const DiskState& state) const {
  const Descriptor file(::open(image_.c_str(), O_RDWR | O_CLOEXEC));
  EXPECT_EQ(0, ::ftruncate(file.get(), 0));
  EXPECT_EQ(0, ::ftruncate(file.get(), Types().at(type_).bytes));
  for (const auto& [at, bytes] : state.pieces_) {
    EXPECT_EQ(::pwrite(file.get(), bytes.data(), bytes.size(), at),
              static_cast<ssize_t>(bytes.size()));
  }
}

}  // namespace support
