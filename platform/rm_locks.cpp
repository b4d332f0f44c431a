// Open-file-description locks on the lock file beside a store.
#include "rm_locks.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <new>

#include "record_manager.h"

namespace rm {

Status LockFile::Open(const std::string& directory, bool read_only,
                      std::unique_ptr<LockFile>* out) {
  const std::string path = directory + "/" + kLockFileName;
  int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
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

LockResult LockFile::Set(short type, int64_t byte) {
  struct flock lock = {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  lock.l_start = static_cast<off_t>(byte);
  lock.l_len = 1;
  lock.l_pid = 0;  // required for open-file-description locks
  while (::fcntl(fd_, F_OFD_SETLK, &lock) != 0) {
    if (errno == EINTR) continue;
    return errno == EAGAIN || errno == EACCES ? LockResult::kConflict : LockResult::kError;
  }
  return LockResult::kGranted;
}

LockResult LockFile::TryShared(int64_t byte) { return Set(F_RDLCK, byte); }

LockResult LockFile::TryExclusive(int64_t byte) {
  if (!writable_) return LockResult::kGranted;  // see Open: nothing can be locked
  return Set(F_WRLCK, byte);
}

void LockFile::Unlock(int64_t byte) { Set(F_UNLCK, byte); }

}  // namespace rm
