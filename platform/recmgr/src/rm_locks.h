// The embedded store's cross-process locks: records.lck beside each store (company.lck for
// the company's markers), one descriptor per holder, and open-file-description byte-range
// locks on it (a byte per record, an "open" byte per file) that conflict between handles
// and processes alike and die with the process. Builds on fcntl(F_OFD_SETLK). A LockFile
// belongs to one holder; not thread-safe.
#ifndef BASICS_PLATFORM_RM_LOCKS_H_
#define BASICS_PLATFORM_RM_LOCKS_H_

#include <cstdint>
#include <memory>
#include <string>

#include "byte_locks_internal.h"
#include "rm_backend.h"

namespace rm {

constexpr const char* kLockFileName = "records.lck";
// The company's markers, shared with the utility library's single-user access.
constexpr const char* kCompanyLockFileName = "company.lck";

class LockFile final : public LockHolder {
 public:
  // Opens the lock file name in directory, making it when missing. A lock file that cannot
  // be written (a read-only directory) is opened for reading when read_only is set: shared
  // locks still work, record locks are then skipped. Answers 0, or 2 with out null.
  static Status Open(const std::string& directory, const char* name, bool read_only,
                     std::unique_ptr<LockHolder>* out);
  ~LockFile() override;
  LockFile(const LockFile&) = delete;
  LockFile& operator=(const LockFile&) = delete;

  // Byte of a file's open marker and of one of its records. File ids are below 2^31 and
  // positions are positive 32-bit numbers, so the bytes of two files never meet.
  static int64_t OpenByte(int64_t file_id) { return file_id << 32; }
  static int64_t RecordByte(int64_t file_id, int32_t pos) { return (file_id << 32) | pos; }

  // No-wait locks on one byte; taking a lock this descriptor holds already is granted.
  LockResult TryShared(int64_t byte) override;
  LockResult TryExclusive(int64_t byte) override;
  void Unlock(int64_t byte) override;
  bool writable() const override { return writable_; }
  bool HeldByOther(int64_t byte) override;

 private:
  LockFile(int fd, bool writable) : fd_(fd), writable_(writable) {}

  int fd_;
  bool writable_;
};

// The turn of the store's writers. A writer holds the queue byte while it waits for the
// writer byte, and lets the queue byte go once it has the writer byte, so a writer that
// has just committed finds the next one already queued and must wait behind it: nobody
// who commits back to back keeps the others out. Held from a transaction's begin to its
// end; the system drops both bytes with a process that dies. Bytes 1 and 2 of the lock
// file, below every file's bytes. One object per store connection; not thread-safe.
class WriterTurn {
 public:
  // Opens directory's lock file for the turn; null when it cannot be written (a
  // read-only directory takes no writes anyway).
  static std::unique_ptr<WriterTurn> Open(const std::string& directory);
  ~WriterTurn();
  WriterTurn(const WriterTurn&) = delete;
  WriterTurn& operator=(const WriterTurn&) = delete;

  // Waits up to wait_ms for the turn. Answers 0 with the turn held, 85 when the wait ran
  // out (nothing held), 2 when the lock file fails.
  Status Take(int wait_ms);
  // Gives the turn back; a no-op when it is not held.
  void Give();
  bool held() const { return held_; }

 private:
  explicit WriterTurn(int fd) : fd_(fd) {}

  int fd_;
  bool held_ = false;
};

}  // namespace rm

#endif  // BASICS_PLATFORM_RM_LOCKS_H_
