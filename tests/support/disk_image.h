#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/temp_dir.h"

namespace support {

/// The bytes of a disk at one moment, holes left out.
class DiskState {
 public:
  bool operator==(const DiskState&) const = default;

 private:
  friend class DiskImage;
  std::vector<std::pair<std::int64_t, std::string>> pieces_;  // place and bytes
};

/// A small file system in a file, mounted through a loop device: what it has not been told to sync
/// is not in the file, so that the file is the disk as a power cut would leave it.
///
/// From construction on the process sees mounts of its own; the kernel takes them back, with their
/// loop devices, when the process ends in whatever way. One at a time, for root.
class DiskImage {
 public:
  /// @param type  "ext4", "xfs" or "btrfs"
  explicit DiskImage(std::string type);
  ~DiskImage();
  DiskImage(const DiskImage&) = delete;
  DiskImage& operator=(const DiskImage&) = delete;

  /// Why there is no file system, in words; empty when there is one. Nothing else may be called
  /// then.
  const std::string& why_not() const noexcept { return why_not_; }

  /// Mounts the disk as it is. A failure fails the running test and gives false.
  bool Mount();
  void Unmount();
  /// Where the file system is seen.
  const std::string& folder() const noexcept { return folder_; }

  /// The disk at this moment; may be called while it is mounted.
  DiskState Take() const;
  /// Makes the disk what it was. To be called while it is not mounted.
  void Put(const DiskState& state) const;

 private:
  void Make();

  const std::string type_;
  std::string why_not_;
  TempDir dir_;
  std::string store_;  // holds the image, in memory
  std::string image_;
  std::string folder_;
  bool mounted_ = false;
};

}  // namespace support
