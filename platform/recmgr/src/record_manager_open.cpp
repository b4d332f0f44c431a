// The record manager's opens, closes, creation and deletion of files, the handle list
// for diagnostics, and the settings.
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <vector>

#include "record_manager.h"
#include "rm_store_internal.h"
#include "utility.h"

using rm::FileEntry;
using rm::LockFile;
using rm::LockHolder;
using rm::LockResult;
using rm::Status;
using State = BtrvFile::State;

// The one place that makes and destroys handles (their constructor is private).
struct BtrvFileFactory {
  static BtrvFile* Make(State* state) { return new (std::nothrow) BtrvFile(state); }
  static void Destroy(BtrvFile* f) { delete f; }
};

BtrvFile::~BtrvFile() { delete state_; }

namespace {

// The status of this thread's last failed open or creation (GetErrorCode(nullptr)).
thread_local uint16_t t_last_open_status = kStatusNotOpen;

struct HandleList {
  std::mutex mu;
  std::vector<BtrvFile*> handles;
};

HandleList& Handles() {
  static HandleList* list = new HandleList;  // outlives handles closed at exit
  return *list;
}

std::atomic<uint64_t> g_next_handle_id{1};

rm::TableShape ShapeOf(const rm::KeySet& keys, int64_t id) {
  rm::TableShape shape;
  shape.id = id;
  shape.record_length = keys.record_length();
  for (size_t i = 0; i < keys.size(); ++i) {
    const rm::KeyDef& key = keys.key(static_cast<int>(i));
    shape.key_lengths.push_back(key.length);
    shape.unique.push_back(key.unique);
    shape.modifiable.push_back(key.modifiable);
  }
  return shape;
}

// A file created with an owner name must be opened with it; read-only opens may omit it.
Status CheckOwner(const std::string& file_owner, const char* given, uint16_t mode) {
  if (file_owner.empty()) return kStatusOk;
  if (given == nullptr || *given == '\0') {
    return mode == kOpenModeReadOnly ? kStatusOk : kStatusBadOwner;
  }
  return file_owner == given ? kStatusOk : kStatusBadOwner;
}

Status Fail(rm::Store* store, Status st) {
  rm::ReleaseStore(store);
  return st;
}

// One attempt to open; fills *out with a new handle's state.
Status OpenOnce(const rm::FileName& fn, uint16_t mode, const char* owner,
                std::unique_ptr<State>* out) {
  rm::Store* store = nullptr;
  Status st = rm::AcquireStore(fn.directory, false, &store);
  if (st != kStatusOk) return st;
  std::unique_ptr<State> s(new (std::nothrow) State);
  if (s == nullptr) return Fail(store, kStatusIoError);
  std::unique_lock<std::mutex> guard(store->mu);
  FileEntry entry;
  st = store->Call().FindFile(fn.base, &entry);
  if (st != kStatusOk) {
    guard.unlock();
    return Fail(store, st);
  }
  FileSpec spec;
  rm::KeySet keys;
  if (!rm::ParseSpec(entry.spec.data(), entry.spec.size(), &spec) ||
      rm::KeySet::Build(spec, &keys) != kStatusOk) {
    guard.unlock();
    return Fail(store, kStatusIoError);  // a catalogue row nobody could have written
  }
  st = CheckOwner(entry.owner, owner, mode);
  if (st == kStatusOk) {
    st = store->backend->OpenLocks(rm::LockSpace::kFiles, mode == kOpenModeReadOnly, &s->locks);
  }
  if (st == kStatusOk) {
    // Every handle holds its file's open byte shared; an exclusive open holds it alone.
    const int64_t byte = LockFile::OpenByte(entry.id);
    LockResult r =
        mode == kOpenModeExclusive ? s->locks->TryExclusive(byte) : s->locks->TryShared(byte);
    st = r == LockResult::kGranted    ? kStatusOk
         : r == LockResult::kConflict ? kStatusFileInUse
                                      : kStatusIoError;
  }
  if (st == kStatusOk) {
    // The file may have been deleted or replaced between the look-up and the lock.
    FileEntry again;
    st = store->Call().FindFile(fn.base, &again);
    if (st == kStatusOk && again.id != entry.id) st = kStatusFileNotFound;
  }
  if (st != kStatusOk) {
    s->locks.reset();
    guard.unlock();
    return Fail(store, st);
  }
  auto it = store->files.find(entry.id);
  if (it == store->files.end()) {
    auto file = std::make_unique<rm::OpenFile>();
    file->entry = std::move(entry);
    file->keys = std::move(keys);
    file->shape = ShapeOf(file->keys, file->entry.id);
    file->table = store->Call().AttachTable(file->shape);
    it = store->files.emplace(file->entry.id, std::move(file)).first;
  }
  rm::OpenFile* file = it->second.get();
  ++file->handles;
  uint32_t max_key = 1;
  for (size_t i = 0; i < file->keys.size(); ++i) {
    max_key = std::max(max_key, file->keys.key(static_cast<int>(i)).length);
  }
  s->store = store;
  s->file = file;
  s->path_key.assign(max_key, 0);
  s->next_key.assign(max_key, 0);
  s->search_key.assign(max_key, 0);
  s->record.assign(file->keys.record_length(), 0);
  s->keys.assign(std::max<uint32_t>(file->keys.total_key_length(), 1), 0);
  *out = std::move(s);
  return kStatusOk;
}

// Lets go of what an open handle holds: its file, its locks, its store.
void LetGo(State* s) {
  rm::Store* store = s->store;
  {
    std::lock_guard<std::mutex> guard(store->mu);
    // The handle's stepping cursor, if it has one, must not keep a read open.
    store->Call().EndCursor(s->id);
    // A file written in an open batch stays attached until the batch ends: abandoning a
    // nested batch may still have to put its records back.
    if (--s->file->handles == 0 && store->batch_depth == 0) {
      store->Call().DetachTable(s->file->table);
      store->files.erase(s->file->entry.id);
    }
    s->locks.reset();  // drops the record lock and the open byte
  }
  s->file = nullptr;
  rm::ReleaseStore(store);
  s->store = nullptr;
}

// Removes a file's table while nobody has it open (85 otherwise). mu held, inside a
// write transaction; lock keeps the file's open byte until the transaction ends.
Status DropExisting(rm::Store* store, int64_t id, std::unique_ptr<LockHolder>* lock) {
  Status st = store->backend->OpenLocks(rm::LockSpace::kFiles, false, lock);
  if (st != kStatusOk) return st;
  LockResult r = (*lock)->TryExclusive(LockFile::OpenByte(id));
  if (r == LockResult::kConflict) return kStatusFileInUse;
  if (r == LockResult::kError) return kStatusIoError;
  st = store->Call().DropFile(id);
  if (st == kStatusOk) store->files.erase(id);
  return st;
}

// Runs a catalogue change in a transaction of its own, or inside the batch open on the
// store. mu held.
template <typename Change>
Status InTransaction(rm::Store* store, Change change) {
  const bool own = store->batch_depth == 0;
  if (own) {
    Status st = store->Call().Begin();
    if (st != kStatusOk) {
      if (store->Call().InTransaction()) store->Call().Rollback();
      return st;
    }
  }
  Status st = own ? Status{kStatusOk} : rm::MarkNestedBatches(store);
  if (st != kStatusOk) return st;
  st = change();
  if (own) {
    if (st == kStatusOk) st = store->Call().Commit();
    if (st != kStatusOk) store->Call().Rollback();
  } else if (st != kStatusOk && !store->Call().InTransaction()) {
    store->batch_failure = st;
  }
  return st;
}

Status CreateFile(const FileSpec* spec, int flags, const char* name, const char* owner) {
  if (spec == nullptr) return kStatusBadFileSpec;
  rm::KeySet keys;
  Status st = rm::KeySet::Build(*spec, &keys);
  if (st != kStatusOk) return st;
  rm::FileName fn;
  st = rm::ResolveName(name, &fn);
  if (st != kStatusOk) return st;
  rm::Store* store = nullptr;
  st = rm::AcquireStore(fn.directory, true, &store);
  if (st != kStatusOk) return st;
  {
    std::lock_guard<std::mutex> guard(store->mu);
    std::unique_ptr<LockHolder> old_lock;
    st = InTransaction(store, [&]() -> Status {
      FileEntry existing;
      Status found = store->Call().FindFile(fn.base, &existing);
      if (found == kStatusOk) {
        if ((flags & kCreateReplace) == 0) return kStatusFileExists;
        found = DropExisting(store, existing.id, &old_lock);
        if (found != kStatusOk) return found;
      } else if (found != kStatusFileNotFound) {
        return found;
      }
      FileEntry entry;
      entry.name = fn.base;
      entry.owner = owner != nullptr ? owner : "";
      entry.record_length = spec->recordLength;
      entry.page_size = spec->pageSize;
      entry.spec = rm::SerializeSpec(*spec);
      int64_t id = 0;
      return store->Call().CreateFile(entry, ShapeOf(keys, 0), &id);
    });
  }
  rm::ReleaseStore(store);
  return st;
}

}  // namespace

int RealOpenBFileOwner(BtrvFile** f, const char* name, uint16_t mode, uint16_t file_number,
                       const char* owner, const char* src_file, int src_line) {
  if (f == nullptr) {
    t_last_open_status = kStatusNotOpen;
    return 0;
  }
  *f = nullptr;
  rm::FileName fn;
  Status st = rm::ResolveName(name, &fn);
  std::unique_ptr<State> s;
  if (st == kStatusOk) {
    for (;;) {
      st = OpenOnce(fn, mode, owner, &s);
      // No handle yet to suppress it: an open always asks when the file is in use.
      if (st != kStatusFileInUse ||
          MessageWithString(MB_RETRYCANCEL | MB_ICONEXCLAMATION, 20000 + st, name) != IDRETRY) {
        break;
      }
    }
  }
  if (st != kStatusOk) {
    t_last_open_status = st;
    return 0;
  }
  s->id = g_next_handle_id.fetch_add(1);
  s->pid = rm::ThisProcess();
  s->mode = mode;
  s->file_number = file_number;
  s->name = name;
  s->src_file = src_file != nullptr ? src_file : "";
  s->src_line = src_line;
  s->status = kStatusOk;
  BtrvFile* handle = BtrvFileFactory::Make(s.get());
  if (handle == nullptr) {
    LetGo(s.get());
    t_last_open_status = kStatusIoError;
    return 0;
  }
  (void)s.release();  // the handle owns it now
  {
    HandleList& list = Handles();
    std::lock_guard<std::mutex> lock(list.mu);
    list.handles.push_back(handle);
  }
  *f = handle;
  return 1;
}

int RealOpenBFile(BtrvFile** f, const char* name, uint16_t mode, uint16_t file_number,
                  const char* src_file, int src_line) {
  return RealOpenBFileOwner(f, name, mode, file_number, nullptr, src_file, src_line);
}

int RealCloseFile(BtrvFile** f, const char* /*src_file*/, int /*src_line*/) {
  if (f == nullptr || *f == nullptr) return 1;
  BtrvFile* handle = *f;
  *f = nullptr;
  {
    HandleList& list = Handles();
    std::lock_guard<std::mutex> lock(list.mu);
    auto it = std::find(list.handles.begin(), list.handles.end(), handle);
    if (it != list.handles.end()) list.handles.erase(it);
  }
  State* s = handle->state();
  // A handle inherited through fork shares its locks with the parent, whose locks stay:
  // closing the child's copy releases nothing of them. A served store's locks live in the
  // parent's connection, which the child must not touch, so they are forgotten unreleased.
  if (s != nullptr && s->pid == rm::ThisProcess()) {
    LetGo(s);
  } else if (s != nullptr) {
    (void)s->locks.release();
  }
  BtrvFileFactory::Destroy(handle);
  return 1;
}

int ZORCreateFile(const FileSpec* spec, int flags, const char* name) {
  return ZORCreateFileWithOwner(spec, flags, name, nullptr);
}

int ZORCreateFileWithOwner(const FileSpec* spec, int flags, const char* name, const char* owner) {
  Status st = CreateFile(spec, flags, name, owner);
  if (st != kStatusOk) {
    t_last_open_status = st;
    return 0;
  }
  return 1;
}

uint16_t ZORDeleteFile(const char* name) {
  rm::FileName fn;
  Status st = rm::ResolveName(name, &fn);
  if (st != kStatusOk) return st;
  rm::Store* store = nullptr;
  st = rm::AcquireStore(fn.directory, false, &store);
  if (st != kStatusOk) return st;
  {
    std::lock_guard<std::mutex> guard(store->mu);
    std::unique_ptr<LockHolder> lock;
    st = InTransaction(store, [&]() -> Status {
      FileEntry existing;
      Status found = store->Call().FindFile(fn.base, &existing);
      if (found != kStatusOk) return found;
      return DropExisting(store, existing.id, &lock);
    });
  }
  rm::ReleaseStore(store);
  return st;
}

bool ZORDataFileExists(const char* name, int64_t* changed_ns) {
  rm::FileName fn;
  if (rm::ResolveName(name, &fn) != kStatusOk) return false;
  rm::Store* store = nullptr;
  if (rm::AcquireStore(fn.directory, false, &store) != kStatusOk) return false;
  FileEntry entry;
  Status st;
  {
    std::lock_guard<std::mutex> guard(store->mu);
    st = store->Call().FindFile(fn.base, &entry);
  }
  rm::ReleaseStore(store);
  if (st != kStatusOk) return false;
  if (changed_ns != nullptr) *changed_ns = entry.changed_ns;
  return true;
}

uint16_t GetErrorCode(BtrvFile* f) {
  if (f == nullptr || f->state() == nullptr) return t_last_open_status;
  return f->state()->status;
}

std::vector<OpenHandleInfo> ListOpenHandles() {
  std::vector<OpenHandleInfo> out;
  HandleList& list = Handles();
  std::lock_guard<std::mutex> lock(list.mu);
  const pid_t self = rm::ThisProcess();
  for (BtrvFile* handle : list.handles) {
    const State* s = handle->state();
    if (s->pid != self) continue;
    out.push_back(OpenHandleInfo{s->name, s->file_number, s->mode, s->src_file, s->src_line});
  }
  return out;
}

size_t OpenHandleCount() { return ListOpenHandles().size(); }

void SetBatchWaitMilliseconds(int ms) {
  if (ms < 0) ms = 0;
  rm::g_batch_wait_ms = ms;
  rm::SetAllBusyWaits(ms);
}

uint64_t StoreCallCount() { return rm::g_store_calls.load(std::memory_order_relaxed); }
