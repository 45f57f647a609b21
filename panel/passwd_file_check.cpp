#include "panel/passwd_file_check.h"

#include <fcntl.h>
#include <grp.h>
#include <linux/fs.h>
#include <pwd.h>
#include <sys/fsuid.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>

#include "framework/conf_stamp.h"
#include "framework/descriptor.h"
#include "framework/file_error.h"
#include "mgr_cf.h"
#include "panel/mailboxes.h"
#include "panel/passwd_lines.h"
#include "panel/password_line.h"
#include "panel/shell_word.h"

namespace brisq_panel {

namespace {

// The user as which Dovecot's auth process reads the file.
constexpr const char* kReader = "dovecot";

struct Reader {
  uid_t uid;
  gid_t gid;
  std::vector<gid_t> groups;
};

std::optional<Reader> FindReader() {
  std::array<char, 16384> buffer;
  struct passwd entry {};
  struct passwd* found = nullptr;
  ::getpwnam_r(kReader, &entry, buffer.data(), buffer.size(), &found);
  if (found == nullptr) return std::nullopt;
  std::vector<gid_t> groups(256);
  int count = static_cast<int>(groups.size());
  ::getgrouplist(kReader, found->pw_gid, groups.data(), &count);
  groups.resize(static_cast<std::size_t>(std::clamp(count, 0, 256)));
  return Reader{found->pw_uid, found->pw_gid, std::move(groups)};
}

std::string UserName(uid_t uid) {
  std::array<char, 16384> buffer;
  struct passwd entry {};
  struct passwd* found = nullptr;
  ::getpwuid_r(uid, &entry, buffer.data(), buffer.size(), &found);
  return found == nullptr ? "uid " + std::to_string(uid) : found->pw_name;
}

enum class Reach { kReads, kFileRefuses, kWayRefuses };

// To be called on a thread of its own: it does not get its rights back.
Reach TryAs(const Reader& reader, const std::string& path) noexcept {
  // The system's own calls, which change this thread alone; those of the library change all.
  const std::size_t groups = reader.groups.size();
  if (::syscall(SYS_setgroups, groups, reader.groups.data()) != 0) return Reach::kReads;
  ::setfsgid(reader.gid);
  ::setfsuid(reader.uid);
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  if (file || errno != EACCES) return Reach::kReads;
  struct stat info {};
  return ::stat(path.c_str(), &info) == 0 ? Reach::kFileRefuses : Reach::kWayRefuses;
}

Reach ReachOf(const Reader& reader, const std::string& path) {
  Reach reach = Reach::kReads;
  std::thread([&] { reach = TryAs(reader, path); }).join();
  return reach;
}

// As Dovecot's user, where that can be asked.
Reach ReachOfDovecot(const std::string& path) {
  const auto reader = ::geteuid() == 0 ? FindReader() : std::nullopt;
  return reader ? ReachOf(*reader, path) : Reach::kReads;
}

bool IsImmutable(const std::string& path) {
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  int flags = 0;
  return file && ::ioctl(file.get(), FS_IOC_GETFLAGS, &flags) == 0 &&
         (flags & FS_IMMUTABLE_FL) != 0;
}

bool IsMounted(const std::string& path) {
  struct statx info {};
  const int result = ::statx(AT_FDCWD, path.c_str(), 0, STATX_BASIC_STATS, &info);
  return result == 0 && (info.stx_attributes_mask & STATX_ATTR_MOUNT_ROOT) != 0 &&
         (info.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
}

std::string KindOf(const struct stat& info) {
  if (S_ISDIR(info.st_mode)) return "a directory";
  if (S_ISFIFO(info.st_mode)) return "a FIFO";
  if (S_ISSOCK(info.st_mode)) return "a socket";
  return "a device";
}

/// The checks of one regular file.
class FileChecks {
 public:
  /// @param path  with its links followed
  FileChecks(std::string path, const struct stat& info)
      : path_(std::move(path)), word_(ShellWord(path_)), info_(info) {}

  std::vector<Finding> All() {
    CheckReader();
    CheckMode();
    CheckOwner();
    CheckDirectory();
    CheckReplaceable();
    return std::move(findings_);
  }

 private:
  void Add(const char* code, Severity severity, std::string text, std::string fix) {
    findings_.push_back({code, severity, path_, std::move(text), std::move(fix)});
  }

  void CheckReader() {
    const Reach reach = ReachOfDovecot(path_);
    if (reach == Reach::kFileRefuses) {
      Add("PASSWD-UNREADABLE", Severity::kError,
          "Dovecot, which reads it as user dovecot, may not, so every login is refused",
          "chgrp dovecot " + word_ + " && chmod 0640 " + word_);
    } else if (reach == Reach::kWayRefuses) {
      Add("PASSWD-UNREADABLE", Severity::kError,
          "a directory above it keeps user dovecot out, so every login is refused",
          "namei -l " + word_ + ", which shows it: let the group dovecot search it");
    }
  }

  void CheckMode() {
    if ((info_.st_mode & S_IWOTH) != 0) {
      Add("PASSWD-WRITABLE", Severity::kError, "everybody may change it", "chmod 0640 " + word_);
    } else if ((info_.st_mode & S_IROTH) != 0) {
      Add("PASSWD-READABLE", Severity::kWarning, "everybody may read it, hashes included",
          "chmod o= " + word_);
    }
  }

  void CheckOwner() {
    if (info_.st_uid == 0 || info_.st_uid == ::geteuid()) return;
    Add("PASSWD-OWNER", Severity::kWarning,
        UserName(info_.st_uid) + " owns it and may change every mailbox's password",
        "chown root " + word_);
  }

  void CheckDirectory() {
    const std::string folder = std::filesystem::path(path_).parent_path();
    struct stat info {};
    if (::stat(folder.c_str(), &info) != 0) throw mgr_file::FileError(folder, "stat");
    if ((info.st_mode & S_IWOTH) == 0 || (info.st_mode & S_ISVTX) != 0) return;
    Add("PASSWD-DIRECTORY", Severity::kError, "everybody may replace it, because of its directory",
        "chmod o-w " + ShellWord(folder));
  }

  void CheckReplaceable() {
    if (info_.st_nlink > 1) {
      Add("PASSWD-LINKS", Severity::kError,
          "it has " + std::to_string(info_.st_nlink) + " names (hard links), so it is not changed",
          "find / -xdev -samefile " + word_ + ", which tells its names: keep one");
    }
    if (IsImmutable(path_)) {
      Add("PASSWD-IMMUTABLE", Severity::kError, "it is immutable, so it can't be changed",
          "chattr -i " + word_);
    }
    if (IsMounted(path_)) {
      Add("PASSWD-MOUNT", Severity::kError, "it is mounted by itself, so it can't be replaced",
          "mount its directory instead");
    }
  }

  const std::string path_;
  const std::string word_;  // for commands
  const struct stat info_;
  std::vector<Finding> findings_;
};

std::vector<Finding> CheckMissing(const std::string& path) {
  std::error_code error;
  if (!std::filesystem::is_symlink(path, error)) return {};
  const std::string target = std::filesystem::read_symlink(path, error);
  return {{"PASSWD-DANGLING", Severity::kError, path,
           "a symbolic link to " + target + ", which does not exist",
           "put the file back there, or remove the link"}};
}

bool HasFinding(const std::vector<Finding>& findings, const char* code) {
  for (const Finding& finding : findings) {
    if (finding.code == code) return true;
  }
  return false;
}

void Append(std::vector<Finding>& findings, const std::vector<Finding>& more) {
  findings.insert(findings.end(), more.begin(), more.end());
}

}  // namespace

std::vector<Finding> CheckFileItself(const std::string& path) {
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0) {
    if (errno == ENOENT) return CheckMissing(path);
    throw mgr_file::FileError(path, "stat");
  }
  if (!S_ISREG(info.st_mode)) {
    return {{"PASSWD-KIND", Severity::kError, path, KindOf(info) + ", not a regular file",
             "put the file there, or set another path for dovecot-passwd"}};
  }
  return FileChecks(std::filesystem::canonical(path), info).All();
}

bool FileKeepsDovecotOut(const std::string& path) {
  return ReachOfDovecot(path) == Reach::kFileRefuses;
}

std::vector<Finding> CheckPasswdFile() {
  const std::string path = mgr_cf::GetPath("dovecot-passwd");
  if (path.empty()) return {};
  std::vector<std::string> active;
  std::vector<std::string> inactive;
  for (const MailboxInfo& mailbox : ListMailboxes()) {
    (mailbox.active ? active : inactive).push_back(mailbox.address);
  }
  std::vector<Finding> findings = CheckFileItself(path);
  if (HasFinding(findings, "PASSWD-KIND")) return findings;
  if (!StampAt(path).exists) {
    if (!active.empty()) {
      findings.push_back({"PASSWD-MISSING", Severity::kError, path,
                          "does not exist, so nobody can log in; active mailboxes: " +
                              std::to_string(active.size()),
                          "brisq sync, or put it back from a backup"});
    }
    return findings;
  }
  const std::string content = PasswdFileText(path);
  Append(findings, CheckPasswdLines(path, content, &active));
  Append(findings, ComparePasswdNames(path, content, active, inactive));
  return findings;
}

}  // namespace brisq_panel
