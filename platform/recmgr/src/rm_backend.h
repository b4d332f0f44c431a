// The record manager's narrow store interface (a catalogue, one table of fixed-length
// records per file with a byte-ordered index per key, write transactions and the writers'
// turn, positioned reads, change stamps, and the record, open and company locks, which
// must die with the process or its connection); currency, batches and key encoding stay
// above it. Builds on nothing.
// A Backend serves one store and is not thread-safe: its store's mutex guards it.
#ifndef BASICS_PLATFORM_RM_BACKEND_H_
#define BASICS_PLATFORM_RM_BACKEND_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace rm {

// Statuses are the record manager's own codes (record_manager.h), 0 for success.
using Status = uint16_t;

// One catalogue entry: what the store knows of a file.
struct FileEntry {
  int64_t id = 0;     // the store's number of the file; never reused
  std::string name;   // lower-cased base name
  std::string owner;  // empty when the file has none
  uint16_t record_length = 0;
  uint16_t page_size = 0;     // kept for the description's sake; no meaning here
  std::vector<uint8_t> spec;  // the creation description (SerializeSpec)
  int64_t changed_ns = 0;     // time of the last committed change; CreateFile sets its own
};

// What a backend must know of a file's table to read and write it.
struct TableShape {
  int64_t id = 0;
  uint32_t record_length = 0;
  std::vector<uint32_t> key_lengths;  // per key slot
  std::vector<bool> unique;           // per key slot
  std::vector<bool> modifiable;       // per key slot; others must keep their bytes
};

// Positioned reads along one key's index, ordered by (key bytes, position).
enum class SeekOp : uint8_t {
  kEqual,           // the first record whose key equals
  kGreaterOrEqual,  // the first at or after the key
  kGreater,         // the first after every record of the key
  kLess,            // the last before every record of the key
  kLessOrEqual,     // the last at or before the key
  kFirst,
  kLast,
  kAfter,   // the first after (key, position): Next
  kBefore,  // the last before (key, position): Previous
};
constexpr int kSeekOpCount = 9;

// Where a read puts what it found. data receives the record (record_length bytes) and
// key the key's bytes, each only when not null; on failure nothing is written.
struct RowOut {
  int32_t pos = 0;
  int64_t version = 0;
  uint8_t* data = nullptr;
  uint8_t* key = nullptr;
};

// No-wait locks that one holder keeps in a store, each on a numbered byte: a file's open
// marker and its records (LockFile::OpenByte, RecordByte), or the company's single-user
// and open markers. They conflict between holders of one process as between processes, a
// holder taking again what it holds is granted, and they die with the process (the
// embedded store) or its connection (the server). Destroying the holder lets go of all it
// holds. Used under its store's mutex, by the process that opened it only.
enum class LockResult : uint8_t { kGranted, kConflict, kError };
class LockHolder {
 public:
  virtual ~LockHolder() = default;
  virtual LockResult TryShared(int64_t byte) = 0;
  virtual LockResult TryExclusive(int64_t byte) = 0;
  virtual void Unlock(int64_t byte) = 0;
  // False when exclusive locks cannot be taken here (a read-only directory): they are then
  // granted without effect, as nobody can write either.
  virtual bool writable() const = 0;
  // Whether some other holder, in this process or another, holds the byte.
  virtual bool HeldByOther(int64_t byte) = 0;
  // How many of count bytes from first some other holder holds.
  virtual int CountHeldByOthers(int64_t first, int count) {
    int held = 0;
    for (int i = 0; i < count; ++i) held += HeldByOther(first + i) ? 1 : 0;
    return held;
  }
};

// Which set of bytes a holder locks: the data files' (records.lck beside an embedded
// store) or the company's markers (company.lck).
enum class LockSpace : uint8_t { kFiles, kCompany };

// A backend's state for one table (prepared statements and such); opaque above it.
class Table {
 public:
  virtual ~Table() = default;
};

class Backend {
 public:
  virtual ~Backend() = default;

  // --- Catalogue (writes only inside a transaction) ---
  // Fills out for a base name; 12 when the store has no such file.
  virtual Status FindFile(const std::string& name, FileEntry* out) = 0;
  // Adds entry (its id is ignored) and its empty table; fills id. 59 when the name exists.
  virtual Status CreateFile(const FileEntry& entry, const TableShape& shape, int64_t* id) = 0;
  // Removes a file and its records.
  virtual Status DropFile(int64_t id) = 0;
  // Stamps a file as changed now. The time is the store's: the machine's clock for the
  // embedded store, the server's for a served company (machines' clocks differ).
  virtual Status TouchFile(int64_t id) = 0;

  // --- Locks ---
  // A new holder of locks in space for one handle or marker (read_only: the directory may
  // refuse writing its lock file, see LockHolder::writable). Answers 0 with *out the
  // caller's, or 2 (12 when the lock file's directory is gone) with *out null.
  virtual Status OpenLocks(LockSpace space, bool read_only, std::unique_ptr<LockHolder>* out) = 0;

  // --- Tables ---
  // State for reading and writing a file's table; owned by the backend, valid until
  // DetachTable or the backend's end. Never fails: problems show on first use.
  virtual Table* AttachTable(const TableShape& shape) = 0;
  virtual void DetachTable(Table* table) = 0;

  // --- Transactions ---
  // Begins a write transaction. Writers of the whole store (the company) take turns, since
  // the library reads "highest + 1" inside its batches (and auto-increment keys are the
  // highest + 1 read inside the transaction): they queue in about the order they asked,
  // and one that waits longer than the busy wait gets 85.
  virtual Status Begin() = 0;
  // Begins the transaction of one write outside any batch. A backend may put the begin off
  // until the write's first statement, so that both travel together; a begin that fails
  // then shows as that statement's failure (85 for a writer kept waiting).
  virtual Status BeginForOneWrite() { return Begin(); }
  virtual Status Commit() = 0;
  // Undoes the open transaction with every savepoint in it; a no-op when none is open.
  virtual void Rollback() = 0;
  // Savepoints inside the open transaction, numbered from 1 outwards in: Savepoint(n)
  // marks the store as it is now; ReleaseSavepoint(n) ends savepoint n (and any inside it)
  // keeping what was written since; RollbackToSavepoint(n) undoes what was written since
  // mark n and keeps the mark, ended by a release.
  virtual Status Savepoint(int level) = 0;
  virtual Status ReleaseSavepoint(int level) = 0;
  virtual Status RollbackToSavepoint(int level) = 0;
  // True while a write transaction is open (false again after the store undid one by
  // itself, e.g. after a disk-full error).
  virtual bool InTransaction() = 0;
  // How long a call may wait for another process (a writer's turn, a store that another
  // process is stalled inside) before it answers 85.
  virtual void SetBusyWait(int ms) = 0;
  // Lets go of every open read (every stepping cursor's snapshot), e.g. before a fork.
  virtual void Quiesce() = 0;

  // --- Reads ---
  // A record by key slot. key holds the key bytes for the ops that take a key, pos the
  // position for kAfter/kBefore. scan_owner names a stepping cursor (a handle): when not
  // 0, consecutive kAfter (or kBefore) calls of one owner continue its cursor instead of
  // seeking again, whatever other owners read in between. Writes, transaction boundaries
  // and catalogue changes end every cursor; a cursor left idle for a while is not
  // continued. 4 not found, 9 end of file.
  virtual Status Seek(Table* table, int slot, SeekOp op, const uint8_t* key, int32_t pos,
                      uint64_t scan_owner, RowOut* out) = 0;
  // Forgets an owner's cursor (its handle is closing).
  virtual void EndCursor(uint64_t scan_owner) = 0;
  // The record at a position; out->key, when asked for, receives key slot's bytes.
  // 43 when no record is there.
  virtual Status ReadAt(Table* table, int32_t pos, int slot, RowOut* out) = 0;
  // The next record in position order after pos (forward) or before it; 9 at the end.
  virtual Status Step(Table* table, int32_t pos, bool forward, RowOut* out) = 0;
  virtual Status Count(Table* table, int64_t* count) = 0;

  // --- Writes (inside a transaction; a failed write leaves nothing of itself) ---
  // keys holds every key's bytes one after another in slot order; a new record has
  // version 1 and a position never used before in the file. 5 on a duplicate.
  virtual Status Insert(Table* table, const uint8_t* data, const uint8_t* keys, int32_t* pos) = 0;
  // Rewrites the record at pos if it still has version; fills its new version.
  // 80 when it is gone or changed, 10 when a non-modifiable key's bytes differ, 5.
  virtual Status Update(Table* table, int32_t pos, int64_t version, const uint8_t* data,
                        const uint8_t* keys, int64_t* new_version) = 0;
  // Removes the record at pos if it still has version; 80 when it is gone or changed.
  virtual Status Delete(Table* table, int32_t pos, int64_t version) = 0;

  // --- Undoing writes inside the open transaction ---
  // Puts a record back exactly as it was (position, version, record, keys): rewrites the
  // one at pos when exists, else inserts it at pos. Removes the record at pos whatever its
  // version. Used to abandon a nested batch without a savepoint.
  virtual Status Restore(Table* table, int32_t pos, int64_t version, const uint8_t* data,
                         const uint8_t* keys, bool exists) = 0;
  virtual Status Erase(Table* table, int32_t pos) = 0;
};

// Opens the store of a directory (create: make it when missing). Answers null with
// status set (12 when missing and not to be made, 2 when damaged).
using BackendFactory = std::function<std::unique_ptr<Backend>(const std::string& directory,
                                                              bool create, Status* status)>;

}  // namespace rm

#endif  // BASICS_PLATFORM_RM_BACKEND_H_
