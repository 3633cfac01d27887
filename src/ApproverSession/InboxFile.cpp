#include "ApproverSession/InboxFile.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

#include "KeyStore/SealedFile.h"
#include "Platform/FileDescriptor.h"

namespace quorvane {
namespace {

// An exclusive flock on the inbox's lock file for the life of this object.
class InboxLock {
 public:
  explicit InboxLock(const std::filesystem::path& folder) {
    std::filesystem::create_directories(folder);
    const std::filesystem::path path = folder / kApproverInboxLockFile;
    fd_.reset(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    if (!fd_) throw std::system_error(errno, std::generic_category(), "open " + path.string());
    while (::flock(fd_.get(), LOCK_EX) != 0)
      if (errno != EINTR)
        throw std::system_error(errno, std::generic_category(), "lock " + path.string());
  }

 private:
  FileDescriptor fd_;  // closing it releases the lock
};

ApproverInbox readLocked(const SupportState& support) {
  try {
    return SealedFile::read(support.folder / kApproverInboxFile, kApproverInboxPurpose,
                            *support.sealing, decodeApproverInbox);
  } catch (const SealedFileError&) {
    return {};
  }
}

}  // namespace

ApproverInbox readInbox(const SupportState& support) {
  InboxLock lock(support.folder);
  return readLocked(support);
}

void updateInbox(const SupportState& support, const std::function<void(ApproverInbox&)>& change) {
  InboxLock lock(support.folder);
  ApproverInbox inbox = readLocked(support);
  const ApproverInbox before = inbox;
  change(inbox);
  if (inbox == before) return;  // most polls bring nothing: no write
  SealedFile::write(toJSON(inbox), support.folder / kApproverInboxFile, kApproverInboxPurpose,
                    *support.sealing);
}

}  // namespace quorvane
