#include "Platform/FileKeychain.h"

#include <fcntl.h>
#include <openssl/sha.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "Base/Hex.h"
#include "Platform/AtomicFile.h"
#include "Platform/KeychainItemFile.h"
#include "Platform/Paths.h"
#include "Platform/WholeFile.h"

namespace quorvane {

namespace {

// The SHA-256 of an over-long item name, which stands in for the name on disk.
Bytes nameDigest(std::string_view name) {
  Bytes digest(SHA256_DIGEST_LENGTH);
  SHA256(reinterpret_cast<const unsigned char*>(name.data()), name.size(), digest.data());
  return digest;
}

constexpr mode_t kFolderMode = 0700;
constexpr mode_t kItemMode = 0600;
constexpr size_t kReadableNameLimit = 200;
constexpr const char* kLockName = ".lock";

bool isPlain(unsigned char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_' ||
         c == '-' || c == '.';
}

void percentEncode(std::string_view text, bool atStart, std::string& out) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  for (size_t i = 0; i < text.size(); ++i) {
    const auto c = static_cast<unsigned char>(text[i]);
    // A leading "." would hide the file and could make it look like a temporary file.
    if (isPlain(c) && !(c == '.' && atStart && i == 0)) {
      out.push_back(static_cast<char>(c));
    } else {
      out.push_back('%');
      out.push_back(kDigits[c >> 4]);
      out.push_back(kDigits[c & 0x0F]);
    }
  }
}

bool withinLimits(std::string_view service, std::string_view account) {
  return service.size() <= KeychainItemFile::kNameLimit &&
         account.size() <= KeychainItemFile::kNameLimit;
}

// Holds the keychain's exclusive lock for its lifetime. Each holder opens the lock file itself,
// so the lock excludes threads of one process as well as other processes.
class FolderLock {
 public:
  explicit FolderLock(const std::filesystem::path& folder)
      : fd_(::open((folder / kLockName).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, kItemMode)) {
    if (fd_ < 0) throw std::system_error(errno, std::generic_category(), "open keychain lock");
    while (::flock(fd_, LOCK_EX) != 0) {
      if (errno == EINTR) continue;
      int error = errno;
      ::close(fd_);
      throw std::system_error(error, std::generic_category(), "lock keychain");
    }
  }
  ~FolderLock() { ::close(fd_); }  // closing releases the lock
  FolderLock(const FolderLock&) = delete;
  FolderLock& operator=(const FolderLock&) = delete;

 private:
  int fd_;
};

// Creates the folder, or brings an existing one back to owner-only access.
void prepareFolder(const std::filesystem::path& folder) {
  createFolders(folder, kFolderMode);
  struct stat info {};
  if (::stat(folder.c_str(), &info) != 0)
    throw std::system_error(errno, std::generic_category(), "stat keychain folder");
  if ((info.st_mode & 07777) != kFolderMode && ::chmod(folder.c_str(), kFolderMode) != 0)
    throw std::system_error(errno, std::generic_category(), "chmod keychain folder");
}

// Deletes temporary files of writers that died mid-write. Only called under the lock, when no
// live writer can own one.
void removeStaleTemporaries(const std::filesystem::path& folder) {
  std::error_code ignored;
  for (const auto& entry : std::filesystem::directory_iterator(folder, ignored))
    if (isAtomicWriteTemporary(entry.path().filename().string()))
      std::filesystem::remove(entry.path(), ignored);
}

void syncFolder(const std::filesystem::path& folder) {
  int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) throw std::system_error(errno, std::generic_category(), "open keychain folder");
  int result = ::fsync(fd);
  int error = errno;
  ::close(fd);
  if (result != 0) throw std::system_error(error, std::generic_category(), "fsync keychain");
}

}  // namespace

FileKeychain::FileKeychain() : FileKeychain(keychainFolder()) {}

FileKeychain::FileKeychain(std::filesystem::path folder) : folder_(std::move(folder)) {}

std::filesystem::path FileKeychain::itemPath(std::string_view service,
                                             std::string_view account) const {
  std::string name;
  percentEncode(service, true, name);
  name.push_back(',');
  percentEncode(account, false, name);
  name += ".item";
  if (name.size() > kReadableNameLimit) name = "~" + hexEncode(nameDigest(name));
  return folder_ / name;
}

KeychainReadResult FileKeychain::read(std::string_view service, std::string_view account) {
  if (!withinLimits(service, account)) return {kKeychainParameterError, {}};
  WholeFile file = readWholeFile(itemPath(service, account), KeychainItemFile::kFileLimit);
  switch (file.status) {
    case WholeFile::Status::ok: break;
    case WholeFile::Status::notFound: return {kKeychainItemNotFound, {}};
    case WholeFile::Status::tooLarge: return {kKeychainDecodeError, {}};
    case WholeFile::Status::failed: return {kKeychainIOError, {}};
  }
  try {
    KeychainItemFile item = KeychainItemFile::decode(file.contents.view());
    if (item.service != service || item.account != account) return {kKeychainDecodeError, {}};
    return {kKeychainSuccess, std::move(item.data)};
  } catch (const KeychainItemError&) {
    return {kKeychainDecodeError, {}};
  }
}

std::optional<KeychainItemVersion> FileKeychain::version(std::string_view service,
                                                         std::string_view account) {
  if (!withinLimits(service, account)) return std::nullopt;
  struct stat info {};
  if (::stat(itemPath(service, account).c_str(), &info) != 0)
    return errno == ENOENT ? std::optional(KeychainItemVersion{}) : std::nullopt;
  auto nanoseconds = [](const timespec& time) {
    return static_cast<uint64_t>(time.tv_sec) * 1'000'000'000u +
           static_cast<uint64_t>(time.tv_nsec);
  };
  return KeychainItemVersion{{static_cast<uint64_t>(info.st_ino), nanoseconds(info.st_ctim),
                              nanoseconds(info.st_mtim), static_cast<uint64_t>(info.st_size)}};
}

KeychainStatus FileKeychain::add(std::string_view service, std::string_view account,
                                 ByteView data) {
  return write(service, account, data, WriteMode::add);
}

KeychainStatus FileKeychain::update(std::string_view service, std::string_view account,
                                    ByteView data) {
  return write(service, account, data, WriteMode::update);
}

KeychainStatus FileKeychain::write(std::string_view service, std::string_view account,
                                   ByteView data, WriteMode mode) {
  if (!withinLimits(service, account) || data.size() > KeychainItemFile::kDataLimit)
    return kKeychainParameterError;
  const std::filesystem::path path = itemPath(service, account);
  const SecureBytes contents =
      KeychainItemFile{std::string(service), std::string(account), SecureBytes(data)}.encode();
  try {
    prepareFolder(folder_);
    FolderLock lock(folder_);
    removeStaleTemporaries(folder_);
    struct stat info {};
    const bool exists = ::lstat(path.c_str(), &info) == 0;
    if (!exists && errno != ENOENT) return kKeychainIOError;
    if (mode == WriteMode::add && exists) return kKeychainDuplicateItem;
    if (mode == WriteMode::update && !exists) return kKeychainItemNotFound;
    writeFileAtomically(path, contents.view(), kItemMode);
    return kKeychainSuccess;
  } catch (const std::system_error&) {
    return kKeychainIOError;
  }
}

KeychainStatus FileKeychain::remove(std::string_view service, std::string_view account) {
  if (!withinLimits(service, account)) return kKeychainParameterError;
  const std::filesystem::path path = itemPath(service, account);
  try {
    struct stat info {};
    if (::stat(folder_.c_str(), &info) != 0)
      return errno == ENOENT ? kKeychainItemNotFound : kKeychainIOError;
    FolderLock lock(folder_);
    if (::unlink(path.c_str()) != 0)
      return errno == ENOENT ? kKeychainItemNotFound : kKeychainIOError;
    syncFolder(folder_);
    return kKeychainSuccess;
  } catch (const std::system_error&) {
    return kKeychainIOError;
  }
}

}  // namespace quorvane
