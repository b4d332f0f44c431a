#include "byte_locks_internal.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#ifndef F_OFD_SETLK
#error "the locks need open-file-description locks (F_OFD_SETLK)"
#endif

namespace {

struct flock ByteRange(short type, int64_t byte) {
  struct flock lock = {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  lock.l_start = static_cast<off_t>(byte);
  lock.l_len = 1;
  lock.l_pid = 0;  // required for open-file-description locks
  return lock;
}

}  // namespace

int OpenByteLockFile(const std::string& path) {
  int fd;
  do {
    fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
  } while (fd < 0 && errno == EINTR);
  return fd;
}

ByteLockResult LockByte(int fd, int64_t byte, bool exclusive) {
  struct flock lock = ByteRange(exclusive ? F_WRLCK : F_RDLCK, byte);
  while (::fcntl(fd, F_OFD_SETLK, &lock) != 0) {
    if (errno == EINTR) continue;
    return errno == EAGAIN || errno == EACCES ? ByteLockResult::kConflict : ByteLockResult::kError;
  }
  return ByteLockResult::kGranted;
}

void UnlockByte(int fd, int64_t byte) {
  struct flock lock = ByteRange(F_UNLCK, byte);
  while (::fcntl(fd, F_OFD_SETLK, &lock) != 0 && errno == EINTR) {
  }
}

bool ByteHeldByOther(int fd, int64_t byte) {
  struct flock lock = ByteRange(F_WRLCK, byte);
  if (::fcntl(fd, F_OFD_GETLK, &lock) != 0) return false;
  return lock.l_type != F_UNLCK;
}
