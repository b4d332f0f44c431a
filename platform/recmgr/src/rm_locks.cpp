// Open-file-description locks on the lock file beside a store.
#include "rm_locks.h"

#include <errno.h>
#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <new>

#include "byte_locks_internal.h"
#include "record_manager.h"

namespace rm {

namespace {

LockResult FromByteLock(ByteLockResult r) {
  switch (r) {
    case ByteLockResult::kGranted:
      return LockResult::kGranted;
    case ByteLockResult::kConflict:
      return LockResult::kConflict;
    case ByteLockResult::kError:
      break;
  }
  return LockResult::kError;
}

}  // namespace

Status LockFile::Open(const std::string& directory, const char* name, bool read_only,
                      std::unique_ptr<LockHolder>* out) {
  const std::string path = directory + "/" + name;
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

LockResult LockFile::TryShared(int64_t byte) { return FromByteLock(LockByte(fd_, byte, false)); }

LockResult LockFile::TryExclusive(int64_t byte) {
  if (!writable_) return LockResult::kGranted;  // see Open: nothing can be locked
  return FromByteLock(LockByte(fd_, byte, true));
}

void LockFile::Unlock(int64_t byte) { UnlockByte(fd_, byte); }

bool LockFile::HeldByOther(int64_t byte) { return ByteHeldByOther(fd_, byte); }

namespace {

constexpr int64_t kQueueByte = 1;
constexpr int64_t kWriterByte = 2;

int64_t MonotonicUs() {
  struct timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<int64_t>(ts.tv_sec) * 1'000'000 + ts.tv_nsec / 1000;
}

// Tries the byte until deadline, sleeping a little longer after each refusal (up to a
// millisecond, short beside any batch that holds the store).
ByteLockResult LockByteUntil(int fd, int64_t byte, int64_t deadline_us) {
  int64_t pause_us = 20;
  for (;;) {
    ByteLockResult r = LockByte(fd, byte, true);
    if (r != ByteLockResult::kConflict) return r;
    const int64_t left = deadline_us - MonotonicUs();
    if (left <= 0) return ByteLockResult::kConflict;
    const int64_t nap = std::min(pause_us, left);
    struct timespec ts = {static_cast<time_t>(nap / 1'000'000),
                          static_cast<long>(nap % 1'000'000) * 1000};
    nanosleep(&ts, nullptr);
    pause_us = std::min<int64_t>(pause_us * 2, 1000);
  }
}

}  // namespace

std::unique_ptr<WriterTurn> WriterTurn::Open(const std::string& directory) {
  int fd = OpenByteLockFile(directory + "/" + kLockFileName);
  if (fd < 0) return nullptr;
  std::unique_ptr<WriterTurn> turn(new (std::nothrow) WriterTurn(fd));
  if (turn == nullptr) ::close(fd);
  return turn;
}

WriterTurn::~WriterTurn() {
  Give();
  ::close(fd_);
}

Status WriterTurn::Take(int wait_ms) {
  if (held_) return kStatusOk;
  const int64_t deadline = MonotonicUs() + static_cast<int64_t>(std::max(wait_ms, 0)) * 1000;
  ByteLockResult r = LockByteUntil(fd_, kQueueByte, deadline);
  if (r == ByteLockResult::kGranted) {
    r = LockByteUntil(fd_, kWriterByte, deadline);
    UnlockByte(fd_, kQueueByte);
  }
  if (r != ByteLockResult::kGranted) {
    return r == ByteLockResult::kConflict ? kStatusFileInUse : kStatusIoError;
  }
  held_ = true;
  return kStatusOk;
}

void WriterTurn::Give() {
  if (!held_) return;
  UnlockByte(fd_, kWriterByte);
  held_ = false;
}

}  // namespace rm
