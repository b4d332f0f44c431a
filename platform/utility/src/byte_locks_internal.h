// No-wait locks on single bytes of a lock file: open-file-description locks, so they
// conflict between descriptors of one process as between processes, and vanish when the
// process dies. The record manager's records.lck and the company's company.lck both
// build on them. Thread-safe (each call is one system call on the caller's descriptor).
#ifndef BASICS_PLATFORM_BYTE_LOCKS_INTERNAL_H_
#define BASICS_PLATFORM_BYTE_LOCKS_INTERNAL_H_

#include <cstdint>
#include <string>

enum class ByteLockResult { kGranted, kConflict, kError };

// Opens (and makes, when missing) a lock file for reading and writing; -1 on failure,
// with errno telling why.
int OpenByteLockFile(const std::string& path);
// Takes a shared or exclusive lock on one byte without waiting; a lock this descriptor
// holds already is granted again.
ByteLockResult LockByte(int fd, int64_t byte, bool exclusive);
void UnlockByte(int fd, int64_t byte);
// Whether a descriptor other than fd holds a lock on the byte.
bool ByteHeldByOther(int fd, int64_t byte);

#endif  // BASICS_PLATFORM_BYTE_LOCKS_INTERNAL_H_
