// Open-file-description locks on the lock file beside a store.
#include "rm_locks.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <new>

#include "byte_locks_internal.h"
#include "record_manager.h"

namespace rm {

Status LockFile::Open(const std::string& directory, bool read_only,
                      std::unique_ptr<LockFile>* out) {
  const std::string path = directory + "/" + kLockFileName;
  int fd = OpenByteLockFile(path);
  bool writable = true;
  if (fd < 0 && read_only && (errno == EACCES || errno == EROFS)) {
    fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    writable = false;
  }
  if (fd < 0) {
    out->reset();
    return errno == ENOENT ? kStatusFileNotFound : kStatusIoError;
  }
  out->reset(new (std::nothrow) LockFile(fd, writable));
  if (*out == nullptr) {
    ::close(fd);
    return kStatusIoError;
  }
  return kStatusOk;
}

LockFile::~LockFile() { ::close(fd_); }

LockResult LockFile::TryShared(int64_t byte) { return LockByte(fd_, byte, false); }

LockResult LockFile::TryExclusive(int64_t byte) {
  if (!writable_) return LockResult::kGranted;  // see Open: nothing can be locked
  return LockByte(fd_, byte, true);
}

void LockFile::Unlock(int64_t byte) { UnlockByte(fd_, byte); }

}  // namespace rm
