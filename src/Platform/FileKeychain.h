#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include "Platform/Keychain.h"

namespace quorvane {

// The keychain of Linux: a folder (0700, made on the first write) with one file (0600) per
// (service, account), in the item file format of KeychainItemFile.
//
// File names are readable where they can be: the service and the account percent-encoded
// (everything but A-Z a-z 0-9 "_" "-" and a "." that does not begin the name becomes %XX), joined
// by "," and ending in ".item". A name that would be longer than 200 bytes is "~" followed by the
// hex SHA-256 of the readable name instead. Either way no account string can point outside the
// folder, and since each file also names its own item, a file copied onto another name reads as
// kKeychainDecodeError.
//
// Every change (add, update, remove) holds an exclusive flock on "<folder>/.lock" while it checks
// whether the item exists and writes, so `add` is create-if-absent across threads and processes:
// of two racing adds exactly one succeeds and the other gets kKeychainDuplicateItem. Writes are
// atomic (temporary file, fsync, rename, fsync of the folder), so readers take no lock and see the
// old or the new item, never a mix. Temporary files of writers that died are deleted under the
// lock.
//
// Statuses: kKeychainItemNotFound, kKeychainDuplicateItem as the interface says;
// kKeychainParameterError for a service or account over KeychainItemFile::kNameLimit bytes or
// data over kDataLimit; kKeychainDecodeError for a damaged file or one of another item;
// kKeychainIOError when the file system fails.
class FileKeychain final : public Keychain {
 public:
  // A keychain in `folder`; by default keychainFolder(), read from the environment here (which
  // throws std::runtime_error when there is no home folder).
  FileKeychain();
  explicit FileKeychain(std::filesystem::path folder);

  const std::filesystem::path& folder() const { return folder_; }

  // The file that holds (service, account), whether or not it exists.
  std::filesystem::path itemPath(std::string_view service, std::string_view account) const;

  KeychainReadResult read(std::string_view service, std::string_view account) override;
  // The item file's inode, change and modification times and size: every write renames a new
  // file into place, and a removal leaves no file.
  std::optional<KeychainItemVersion> version(std::string_view service,
                                             std::string_view account) override;
  KeychainStatus add(std::string_view service, std::string_view account, ByteView data) override;
  KeychainStatus update(std::string_view service, std::string_view account, ByteView data) override;
  KeychainStatus remove(std::string_view service, std::string_view account) override;

 private:
  enum class WriteMode { add, update };
  KeychainStatus write(std::string_view service, std::string_view account, ByteView data,
                       WriteMode mode);

  std::filesystem::path folder_;
};

}  // namespace quorvane
