#include "framework/seal.h"

#include <fcntl.h>
#include <sodium.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <mutex>
#include <vector>

#include "framework/descriptor.h"
#include "framework/file_error.h"
#include "framework/file_steps.h"
#include "framework/random_hex.h"
#include "mgr_err.h"
#include "mgr_file.h"

namespace mgr_seal {

namespace {

// In front of each sealed text, so that the way of sealing can change one day.
constexpr std::string_view kPrefix = "s1:";
constexpr std::size_t kKeyBytes = crypto_secretbox_KEYBYTES;
constexpr std::size_t kNonceBytes = crypto_secretbox_NONCEBYTES;
constexpr std::size_t kOverhead = kNonceBytes + crypto_secretbox_MACBYTES;
constexpr int kBase64 = sodium_base64_VARIANT_ORIGINAL;

struct FreeGuarded {
  void operator()(unsigned char* bytes) const { sodium_free(bytes); }
};
// Locked in memory, kept out of core dumps, wiped when freed.
using Key = std::shared_ptr<unsigned char>;

void InitSodium() {
  static const bool ready = sodium_init() >= 0;
  if (!ready) {
    throw mgr_err::Error("internal", "libsodium", "can't be initialised");
  }
}

Key NewKeyMemory() {
  InitSodium();
  auto* bytes = static_cast<unsigned char*>(sodium_malloc(kKeyBytes));
  if (bytes == nullptr) {
    throw mgr_err::Error("internal", "libsodium", "no memory for the key");
  }
  return Key(bytes, FreeGuarded{});
}

void RequirePrivate(const std::string& path, int fd) {
  struct stat state {};
  if (::fstat(fd, &state) != 0) {
    throw mgr_file::FileError(path, "fstat");
  }
  if (!S_ISREG(state.st_mode) || state.st_size != static_cast<off_t>(kKeyBytes)) {
    throw mgr_err::Error("file", path, "is not a key file of 32 bytes");
  }
  if ((state.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
    throw mgr_err::Error("file", path, "must have mode 0600: it is open to other users");
  }
}

// Null when the file does not exist.
Key ReadKey(const std::string& path) {
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  if (file.get() < 0) {
    if (errno == ENOENT) {
      return nullptr;
    }
    throw mgr_file::FileError(path, "open");
  }
  RequirePrivate(path, file.get());
  Key key = NewKeyMemory();
  if (::read(file.get(), key.get(), kKeyBytes) != static_cast<ssize_t>(kKeyBytes)) {
    throw mgr_file::FileError(path, "read");
  }
  return key;
}

// A file that removes itself.
class Temporary {
 public:
  explicit Temporary(std::string path)
      : path_(std::move(path)),
        file_(::open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600)) {
    if (file_.get() < 0) {
      throw mgr_file::FileError(path_, "open");
    }
  }
  ~Temporary() { ::unlink(path_.c_str()); }
  Temporary(const Temporary&) = delete;
  Temporary& operator=(const Temporary&) = delete;

  void Fill(const unsigned char* bytes, std::size_t size) {
    file_steps::WriteAll(file_.get(), {reinterpret_cast<const char*>(bytes), size}, path_);
    if (::fsync(file_.get()) != 0) {
      throw mgr_file::FileError(path_, "fsync");
    }
  }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
  Descriptor file_;
};

void MakeKey(const std::string& path) {
  const Key key = NewKeyMemory();
  crypto_secretbox_keygen(key.get());
  Temporary fresh(path + "." + RandomHex());
  fresh.Fill(key.get(), kKeyBytes);
  // A link does not replace: when another process was quicker, its key stays.
  if (::link(fresh.path().c_str(), path.c_str()) != 0 && errno != EEXIST) {
    throw mgr_file::FileError(path, "link");
  }
  // What is sealed with a key that a power cut takes away is lost.
  const std::string directory = file_steps::DirectoryOf(path);
  file_steps::SyncDirectoryAt(directory, directory);
}

struct Keeper {
  std::mutex mutex;
  std::string path;
  InUse in_use;
  Key key;
};

Keeper& TheKeeper() {
  static Keeper& keeper = *new Keeper;  // used by other static objects' destructors
  return keeper;
}

mgr_err::Error Lost(const std::string& path) {
  return mgr_err::Error(
      "file", path, "is missing; nothing that was sealed can be opened without it: put it back");
}

// With the keeper's mutex.
void MakeUnlessLost(const Keeper& keeper) {
  if (keeper.in_use && keeper.in_use()) {
    throw Lost(keeper.path);
  }
  MakeKey(keeper.path);
}

enum class Missing { kIsMade, kIsLost };

Key TheKey(Missing missing) {
  Keeper& keeper = TheKeeper();
  const std::lock_guard guard(keeper.mutex);
  if (keeper.path.empty()) {
    throw mgr_err::Error("internal", "seal", "no key file was named");
  }
  if (!keeper.key) {
    keeper.key = ReadKey(keeper.path);
  }
  if (!keeper.key && missing == Missing::kIsLost) {
    throw Lost(keeper.path);
  }
  if (!keeper.key) {
    MakeUnlessLost(keeper);
    keeper.key = ReadKey(keeper.path);
  }
  if (!keeper.key) {
    throw mgr_err::Error("file", keeper.path, "vanished while it was made");
  }
  return keeper.key;
}

std::string Base64(const std::vector<unsigned char>& bytes) {
  std::string text(sodium_base64_ENCODED_LEN(bytes.size(), kBase64), '\0');
  sodium_bin2base64(text.data(), text.size(), bytes.data(), bytes.size(), kBase64);
  text.pop_back();  // the terminating NUL
  return text;
}

// Empty when the text is not of the form that Seal makes.
std::vector<unsigned char> SealedBytes(const std::string& sealed) {
  if (sealed.compare(0, kPrefix.size(), kPrefix) != 0) {
    return {};
  }
  std::vector<unsigned char> bytes(sealed.size());
  std::size_t size = 0;
  if (sodium_base642bin(bytes.data(), bytes.size(), sealed.data() + kPrefix.size(),
                        sealed.size() - kPrefix.size(), nullptr, &size, nullptr, kBase64) != 0) {
    return {};
  }
  bytes.resize(size);
  return bytes;
}

const unsigned char* Bytes(const std::string& text) {
  return reinterpret_cast<const unsigned char*>(text.data());
}

}  // namespace

void SetKeyFile(const std::string& path, InUse in_use) {
  Keeper& keeper = TheKeeper();
  const std::lock_guard guard(keeper.mutex);
  keeper.key.reset();
  keeper.path = path;
  keeper.in_use = std::move(in_use);
}

std::string Seal(const std::string& clear) {
  const Key key = TheKey(Missing::kIsMade);
  std::vector<unsigned char> bytes(kOverhead + clear.size());
  randombytes_buf(bytes.data(), kNonceBytes);
  crypto_secretbox_easy(bytes.data() + kNonceBytes, Bytes(clear), clear.size(), bytes.data(),
                        key.get());
  return std::string(kPrefix) + Base64(bytes);
}

std::string Open(const std::string& sealed) {
  const Key key = TheKey(Missing::kIsLost);
  const std::vector<unsigned char> bytes = SealedBytes(sealed);
  std::string clear(bytes.size() < kOverhead ? 0 : bytes.size() - kOverhead, '\0');
  if (bytes.size() < kOverhead ||
      crypto_secretbox_open_easy(reinterpret_cast<unsigned char*>(clear.data()),
                                 bytes.data() + kNonceBytes, bytes.size() - kNonceBytes,
                                 bytes.data(), key.get()) != 0) {
    throw mgr_err::Error("db", "sealed text", "was not sealed with this instance's key");
  }
  return clear;
}

void Wipe(std::string& secret) noexcept {
  // The whole buffer: a longer text may have stood in it before.
  sodium_memzero(secret.data(), secret.capacity());
  secret.clear();
}

}  // namespace mgr_seal
