#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "brisq_export.h"
#include "framework/conf_stamp.h"
#include "framework/descriptor.h"
#include "framework/sys.h"

/// Replacing a file as a whole, so that readers see the old content or the new one and a crash
/// leaves one of them.
namespace safe_replace {

/// Where a file lies when all symbolic links at its path have been followed.
struct BRISQ_API Target {
  /// Follows the links at `path` itself; the file need not exist, its directory must.
  /// @throws mgr_err::Error "file", also for a directory that everybody may write to: there anybody
  /// could put something else in the file's place
  static Target Resolve(const std::string& path);

  Descriptor directory;
  std::string name;  // in the directory
  std::string path;  // for messages
};

/// The next content of a file, in a temporary file beside it that goes with the object.
///
/// One replacement of a file at a time: the holder of the file's lock. The temporary's name is
/// always the same, so that what a killed process left goes with the next save.
class BRISQ_API Replacement {
 public:
  /// Which of two names the temporary gets.
  enum class Slot { kFirst, kSecond };
  enum class Outcome {
    kDone,       // the target is the new file, and there was no old one or it is gone
    kExchanged,  // the target is the new file; the temporary's name leads to what it was before
    kChanged     // the target is not what was expected; nothing happened
  };

  /// Makes the temporary, with the metadata of the file that it will replace.
  /// @param old  the file that is to be replaced; no descriptor when there is none
  /// @throws mgr_err::Error "file", also for a file with more than one name (hard links)
  Replacement(const Target& target, Slot slot, int old, const struct stat& old_info);
  ~Replacement();
  Replacement(const Replacement&) = delete;
  Replacement& operator=(const Replacement&) = delete;

  /// Appends to the content.
  /// @param written  called now and then with the number of bytes that are written
  void Write(const std::vector<std::string_view>& pieces,
             const std::function<void(std::size_t)>& written = {});
  /// Has the disk begin with what was written. Seal makes it durable, whatever comes of this.
  void StartWriteBack() noexcept;
  /// Makes the content durable. Its whole-second time of modification is later than that of `old`:
  /// mail servers know a changed file by that alone.
  void Seal(const ConfStamp& old);
  /// Puts the file in its place.
  /// @param old  stamp of the file that is expected there
  Outcome Publish(const ConfStamp& old);

  /// Puts back what Publish has exchanged for the new file. False when that is not possible: what
  /// is at the temporary's name then stays there.
  bool TakeBack() noexcept;
  /// Leaves what Publish has pushed out where it is, for the next save to judge.
  void LeaveOld() noexcept { exists_ = false; }

  /// Stamp of the new file as it was last written.
  const ConfStamp& stamp() const noexcept { return stamp_; }
  /// Name of the temporary in the target's directory.
  const std::string& name() const noexcept { return name_; }

 private:
  void Create();
  std::size_t WriteSome(std::vector<struct iovec>& pieces, std::size_t& first);
  bool TargetIs(const ConfStamp& old) const;
  Outcome PublishByName(const ConfStamp& old);

  const Target& target_;
  std::string name_;
  bool replaces_;
  bool exists_ = false;
  Descriptor file_;
  ConfStamp stamp_;
};

/// Name of a temporary in its target's directory.
BRISQ_API std::string TemporaryName(const std::string& name, Replacement::Slot slot);

/// Gives a file at a temporary's name one that nobody uses, "NAME.edited-N", and returns its path.
/// @throws mgr_err::Error "file"
BRISQ_API std::string KeepAside(const Target& target, Replacement::Slot slot);

/// Removes a file that killed processes may have left at a temporary's name.
/// @throws mgr_err::Error "file"
BRISQ_API void Sweep(const Target& target, Replacement::Slot slot);

/// Makes the directory's names durable; nothing to do on a file system that can't.
/// @throws mgr_err::Error "doubt": the change was made and may be lost on a power failure
BRISQ_API void SyncDirectory(const Target& target);

}  // namespace safe_replace
