// The stores and handles this process holds: one Store per directory (one backend
// connection shared by its handles, reference counted), its open files, each handle's
// state, and file-name resolution. Builds on the backend, codec and locks. The registry
// is thread-safe; a Store's contents are guarded by Store::mu.
#ifndef BASICS_PLATFORM_RM_STORE_INTERNAL_H_
#define BASICS_PLATFORM_RM_STORE_INTERNAL_H_

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "record_manager.h"
#include "rm_backend.h"
#include "rm_key_codec.h"
#include "rm_locks.h"

namespace rm {

// Backend calls made by every store of the process (StoreCallCount).
extern std::atomic<uint64_t> g_store_calls;
// How long a writer waits for another process's batch (SetBatchWaitMilliseconds).
extern std::atomic<int> g_batch_wait_ms;

// This process's id (cheap; right in a forked child too).
pid_t ThisProcess();

// Wall-clock time in nanoseconds since the epoch: the change time of files.
int64_t WallClockNs();

// A file as this process has it open in a store: its catalogue entry, keys and table.
// Shared by the handles open on it; guarded by the store's mutex.
struct OpenFile {
  FileEntry entry;
  KeySet keys;
  TableShape shape;
  Table* table = nullptr;
  int handles = 0;
};

// How to undo one write of a nested batch: remove a record it inserted, rewrite one it
// updated, or insert again one it deleted, at its old position with its old version.
struct UndoEntry {
  enum Kind : uint8_t { kErase, kRewrite, kReinsert };
  Kind kind = kErase;
  int64_t file_id = 0;
  int32_t pos = 0;
  int64_t version = 0;
  std::vector<uint8_t> data;  // the record and its keys as they were (kRewrite, kReinsert)
  std::vector<uint8_t> keys;
};

// A batch begun inside another one.
struct NestedBatch {
  std::vector<UndoEntry> undo;
  int savepoint = 0;                 // made by a catalogue change inside it; 0 when none
  size_t undo_before_savepoint = 0;  // entries the savepoint's rollback does not undo
  size_t touched_mark = 0;           // touched's size when it began
};

struct Store {
  // Every use of the backend goes through here, so that StoreCallCount sees it.
  Backend& Call() {
    g_store_calls.fetch_add(1, std::memory_order_relaxed);
    return *backend;
  }

  std::string directory;  // canonical
  pid_t pid = 0;          // the process that opened it; a forked child opens its own
  std::mutex mu;
  std::unique_ptr<Backend> backend;
  int refs = 0;  // guarded by the registry

  // Guarded by mu.
  std::map<int64_t, std::unique_ptr<OpenFile>> files;
  // Batches: the outermost is the store's write transaction. Each batch inside it keeps an
  // undo log of its writes (what puts each record back), so that it can be abandoned alone
  // at the cost of a few record copies; a catalogue change inside one (a file made or
  // removed) cannot be undone that way and makes a savepoint for every open nested batch
  // instead, shared by those that start at the same place.
  int batch_depth = 0;
  Status batch_failure = 0;         // the store undid the batch by itself: it can only fail
  std::vector<int64_t> touched;     // files changed in the open batch
  std::vector<NestedBatch> nested;  // batch_depth - 1 of them, innermost last
  int savepoints = 0;               // savepoints open in the transaction

  // Clears the batch bookkeeping once the transaction has ended, and lets go of the files
  // whose last handle closed while it was open (their undo entries are gone with it).
  void EndBatches();
  // Records how to undo a write in the innermost nested batch (nothing outside one).
  void LogUndo(UndoEntry entry) {
    if (!nested.empty()) nested.back().undo.push_back(std::move(entry));
  }
};

// Finds or opens the store of a canonical directory (create: make records.db when
// missing) and takes a reference. Answers 0, or a status with *out null.
Status AcquireStore(const std::string& directory, bool create, Store** out);
// Drops a reference; the last one closes the store (undoing a batch left open).
void ReleaseStore(Store* store);
// Sets the busy wait of every store open in this process.
void SetAllBusyWaits(int ms);

// A file name split into its store's canonical directory and its lower-cased base name.
struct FileName {
  std::string directory;
  std::string base;
};
// A directory served from a server (canonical: absolute and normalised lexically) resolves
// to itself whether or not it exists here; any other to its real path. Answers 0, or 12
// when the name is empty or its directory neither is served nor exists.
Status ResolveName(const char* name, FileName* out);

// Where a served directory's company lives.
struct ServedStore {
  std::string conninfo;
  std::string schema;
};
// The absolute, lexically normalised form of directory (no trailing slash but for "/").
std::string LexicalDirectory(const std::string& directory);
// Whether the canonical directory is served from a server; fills *out when it is.
bool ServedFrom(const std::string& directory, ServedStore* out);
// Serves the canonical directory from a server from now on, or stops serving it.
void ServeDirectory(const std::string& directory, const ServedStore& where);
void StopServing(const std::string& directory);

// The company's locks (single-user access, open markers) of a served directory, for the
// utility library: one holder in the directory's store, which it keeps open while it lives.
// Thread-safe.
class CompanyLocks {
 public:
  // Answers 0 with *out the caller's, or the status the store's open failed with.
  static Status Open(const std::string& directory, std::unique_ptr<CompanyLocks>* out);
  ~CompanyLocks();
  CompanyLocks(const CompanyLocks&) = delete;
  CompanyLocks& operator=(const CompanyLocks&) = delete;

  LockResult TryExclusive(int64_t byte);
  void Unlock(int64_t byte);
  // How many of count bytes from first some other holder holds.
  int CountHeldByOthers(int64_t first, int count);
  // In a forked child: forgets the parent's holder and store without touching either.
  void Abandon();

 private:
  CompanyLocks() = default;
  Store* store_ = nullptr;
  std::unique_ptr<LockHolder> holder_;
};

// Before a catalogue change inside nested batches: makes a savepoint for every open nested
// batch that has none. Answers 0, or the failed savepoint's status. mu must be held.
Status MarkNestedBatches(Store* store);

// Brackets one write: inside a batch it joins it, otherwise it is a transaction of its
// own that also sets the file's change time. End commits or undoes. mu must be held.
class WriteScope {
 public:
  WriteScope(Store* store, int64_t file_id) : store_(store), file_id_(file_id) {}
  ~WriteScope();
  WriteScope(const WriteScope&) = delete;
  WriteScope& operator=(const WriteScope&) = delete;

  Status Begin();
  // Finishes the write whose result is status; answers the final status.
  Status End(Status status);

 private:
  Store* store_;
  int64_t file_id_;
  bool own_ = false;
  bool open_ = false;
};

}  // namespace rm

// A handle's state. Used by one thread at a time (the library's rule for handles).
struct BtrvFile::State {
  rm::Store* store = nullptr;
  rm::OpenFile* file = nullptr;
  std::unique_ptr<rm::LockHolder> locks;  // used under the store's mutex
  uint64_t id = 0;                        // owner of the store's stepping cursor
  pid_t pid = 0;
  uint16_t mode = 0;
  uint16_t file_number = 0;
  std::string name;
  std::string src_file;
  int src_line = 0;

  // Currency: the current record's position and version, and where it stands on the key
  // path. After a delete the place is kept (deleted set) so that Next and Previous go on
  // from there, while Update and Delete find no current record.
  int32_t pos = 0;
  int64_t version = 0;
  bool deleted = false;
  int path_slot = -1;
  std::vector<uint8_t> path_key;

  int32_t locked_pos = 0;  // the record this handle holds locked, 0 when none
  uint16_t status = 3;
  bool no_lock_message = false;    // set by NoLockMessageOnNextCall for the next call
  bool prompt_suppressed = false;  // the current call shows no record/file-in-use prompt

  // Scratch of the handle's calls (sized at open).
  std::vector<uint8_t> search_key;
  std::vector<uint8_t> next_key;
  std::vector<uint8_t> record;
  std::vector<uint8_t> keys;
};

#endif  // BASICS_PLATFORM_RM_STORE_INTERNAL_H_
