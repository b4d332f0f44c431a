// The registry of stores, file-name resolution and the write bracket.
#include "rm_store_internal.h"

#include <limits.h>
#include <pthread.h>
#include <stdlib.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <system_error>

#include "record_manager_internal.h"
#include "rm_pg_backend.h"
#include "rm_sqlite_backend.h"

namespace rm {

std::atomic<uint64_t> g_store_calls{0};
std::atomic<int> g_batch_wait_ms{10000};

int64_t WallClockNs() {
  struct timespec ts;
  clock_gettime(CLOCK_REALTIME, &ts);
  return static_cast<int64_t>(ts.tv_sec) * 1'000'000'000 + ts.tv_nsec;
}

namespace {

struct Registry {
  std::mutex mu;
  std::map<std::string, std::unique_ptr<Store>> stores;
  BackendFactory factory;
  BackendDecorator decorator;
  std::map<std::string, ServedStore> served;  // by canonical directory
};

void ForkPrepare();
void ForkParent();
void ForkChild();

Registry& TheRegistry() {
  // Never destroyed: handles still open when the process exits must not find it gone.
  static Registry* registry = [] {
    pthread_atfork(ForkPrepare, ForkParent, ForkChild);
    return new Registry;
  }();
  return *registry;
}

// Before a fork, no store may be in the middle of a call, and none should hold a read
// open: the child inherits the memory of every connection, which it leaves alone.
void ForkPrepare() {
  Registry& r = TheRegistry();
  r.mu.lock();
  const pid_t self = ThisProcess();
  for (auto& [dir, store] : r.stores) {
    if (store->pid == self && store->mu.try_lock()) {
      store->backend->Quiesce();
      store->mu.unlock();
    }
  }
}
void ForkParent() { TheRegistry().mu.unlock(); }

// This process's id, kept because getpid is a system call and every call on a handle
// asks for it; a forked child sets its own at once.
std::atomic<pid_t> g_pid{0};

void ForkChild() {
  g_pid.store(getpid(), std::memory_order_relaxed);
  TheRegistry().mu.unlock();
}

}  // namespace

pid_t ThisProcess() {
  pid_t pid = g_pid.load(std::memory_order_relaxed);
  if (pid == 0) {
    TheRegistry();  // registers the fork handler that keeps it right in a child
    pid = getpid();
    g_pid.store(pid, std::memory_order_relaxed);
  }
  return pid;
}

Status AcquireStore(const std::string& directory, bool create, Store** out) {
  *out = nullptr;
  Registry& r = TheRegistry();
  std::lock_guard<std::mutex> lock(r.mu);
  auto it = r.stores.find(directory);
  if (it != r.stores.end()) {
    if (it->second->pid == ThisProcess()) {
      ++it->second->refs;
      *out = it->second.get();
      return kStatusOk;
    }
    // A store inherited through fork: its connection belongs to the parent. The child
    // must neither use nor close it, so it is left as it is and a fresh one opened.
    (void)it->second.release();
    r.stores.erase(it);
  }
  Status status = kStatusOk;
  std::unique_ptr<Backend> backend;
  auto served = r.served.find(directory);
  if (served != r.served.end()) {
    backend = OpenPgBackend(served->second.conninfo, served->second.schema, create, &status);
  } else if (r.factory) {
    backend = r.factory(directory, create, &status);
  } else {
    backend = OpenSqliteBackend(directory, create, &status);
  }
  if (backend == nullptr) return status != kStatusOk ? status : Status{kStatusIoError};
  if (r.decorator) backend = r.decorator(std::move(backend));
  backend->SetBusyWait(g_batch_wait_ms.load());
  auto store = std::make_unique<Store>();
  store->directory = directory;
  store->pid = ThisProcess();
  store->backend = std::move(backend);
  store->refs = 1;
  *out = store.get();
  r.stores.emplace(directory, std::move(store));
  return kStatusOk;
}

void ReleaseStore(Store* store) {
  if (store == nullptr || store->pid != ThisProcess()) return;
  Registry& r = TheRegistry();
  std::unique_ptr<Store> closing;
  {
    std::lock_guard<std::mutex> lock(r.mu);
    if (--store->refs > 0) return;
    auto it = r.stores.find(store->directory);
    if (it != r.stores.end() && it->second.get() == store) {
      closing = std::move(it->second);
      r.stores.erase(it);
    }
  }
  // Closing the connection undoes a batch still open: nothing of it was meant to last
  // without its end.
  closing.reset();
}

size_t OpenStoreCount() {
  Registry& r = TheRegistry();
  std::lock_guard<std::mutex> lock(r.mu);
  const pid_t self = ThisProcess();
  return static_cast<size_t>(std::count_if(
      r.stores.begin(), r.stores.end(), [self](const auto& e) { return e.second->pid == self; }));
}

void SetBackendFactory(BackendFactory factory) {
  Registry& r = TheRegistry();
  std::lock_guard<std::mutex> lock(r.mu);
  r.factory = std::move(factory);
}

void SetBackendDecorator(BackendDecorator decorator) {
  Registry& r = TheRegistry();
  std::lock_guard<std::mutex> lock(r.mu);
  r.decorator = std::move(decorator);
}

void ServeDirectory(const std::string& directory, const ServedStore& where) {
  Registry& r = TheRegistry();
  std::lock_guard<std::mutex> lock(r.mu);
  r.served[directory] = where;
}

void StopServing(const std::string& directory) {
  Registry& r = TheRegistry();
  std::lock_guard<std::mutex> lock(r.mu);
  r.served.erase(directory);
}

void SetAllBusyWaits(int ms) {
  Registry& r = TheRegistry();
  std::lock_guard<std::mutex> lock(r.mu);
  const pid_t self = ThisProcess();
  for (auto& [dir, store] : r.stores) {
    if (store->pid != self) continue;
    std::lock_guard<std::mutex> store_lock(store->mu);
    store->backend->SetBusyWait(ms);
  }
}

Status ResolveName(const char* name, FileName* out) {
  if (name == nullptr || *name == '\0') return kStatusFileNotFound;
  std::string path(name);
  std::replace(path.begin(), path.end(), '\\', '/');
  const size_t slash = path.rfind('/');
  std::string dir;
  if (slash == std::string::npos) {
    dir = ".";
    out->base = path;
  } else {
    dir = slash == 0 ? "/" : path.substr(0, slash);
    out->base = path.substr(slash + 1);
  }
  if (out->base.empty()) return kStatusFileNotFound;
  for (char& c : out->base) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  const std::string lexical = LexicalDirectory(dir);
  if (ServedFrom(lexical, nullptr)) {
    out->directory = lexical;
    return kStatusOk;
  }
  char resolved[PATH_MAX];
  if (::realpath(dir.c_str(), resolved) == nullptr) return kStatusFileNotFound;
  out->directory = resolved;
  return kStatusOk;
}

std::string LexicalDirectory(const std::string& directory) {
  std::filesystem::path path(directory.empty() ? std::string(".") : directory);
  if (path.is_relative()) {
    std::error_code ignored;
    path = std::filesystem::current_path(ignored) / path;
  }
  std::string out = path.lexically_normal().string();
  while (out.size() > 1 && out.back() == '/') out.pop_back();
  return out;
}

bool ServedFrom(const std::string& directory, ServedStore* out) {
  Registry& r = TheRegistry();
  std::lock_guard<std::mutex> lock(r.mu);
  auto it = r.served.find(directory);
  if (it == r.served.end()) return false;
  if (out != nullptr) *out = it->second;
  return true;
}

Status MarkNestedBatches(Store* store) {
  // Batches without a savepoint are the innermost ones (a savepoint is made for all of
  // them at once), so one made now nests inside every earlier one.
  if (store->nested.empty() || store->nested.back().savepoint != 0) return kStatusOk;
  Status st = store->Call().Savepoint(store->savepoints + 1);
  if (st != kStatusOk) {
    if (!store->Call().InTransaction()) store->batch_failure = st;
    return st;
  }
  ++store->savepoints;
  for (auto it = store->nested.rbegin(); it != store->nested.rend() && it->savepoint == 0; ++it) {
    it->savepoint = store->savepoints;
    it->undo_before_savepoint = it->undo.size();
  }
  return kStatusOk;
}

Status CompanyLocks::Open(const std::string& directory, std::unique_ptr<CompanyLocks>* out) {
  out->reset();
  std::unique_ptr<CompanyLocks> locks(new CompanyLocks);
  // The company's schema is made here when missing, as an embedded company's lock file is.
  Status st = AcquireStore(directory, true, &locks->store_);
  if (st != kStatusOk) return st;
  {
    std::lock_guard<std::mutex> guard(locks->store_->mu);
    st = locks->store_->backend->OpenLocks(LockSpace::kCompany, false, &locks->holder_);
  }
  if (st != kStatusOk) return st;  // the destructor lets go of the store
  *out = std::move(locks);
  return kStatusOk;
}

CompanyLocks::~CompanyLocks() {
  if (store_ == nullptr) return;
  if (holder_ != nullptr) {
    std::lock_guard<std::mutex> guard(store_->mu);
    holder_.reset();
  }
  ReleaseStore(store_);
}

LockResult CompanyLocks::TryExclusive(int64_t byte) {
  std::lock_guard<std::mutex> guard(store_->mu);
  return holder_->TryExclusive(byte);
}

void CompanyLocks::Unlock(int64_t byte) {
  std::lock_guard<std::mutex> guard(store_->mu);
  holder_->Unlock(byte);
}

int CompanyLocks::CountHeldByOthers(int64_t first, int count) {
  std::lock_guard<std::mutex> guard(store_->mu);
  return holder_->CountHeldByOthers(first, count);
}

void CompanyLocks::Abandon() {
  (void)holder_.release();
  store_ = nullptr;
}

void Store::EndBatches() {
  batch_depth = 0;
  batch_failure = kStatusOk;
  touched.clear();
  nested.clear();
  savepoints = 0;
  for (auto it = files.begin(); it != files.end();) {
    if (it->second->handles == 0) {
      Call().DetachTable(it->second->table);
      it = files.erase(it);
    } else {
      ++it;
    }
  }
}

WriteScope::~WriteScope() {
  if (open_ && own_) store_->Call().Rollback();
}

Status WriteScope::Begin() {
  if (store_->batch_depth > 0) {
    // A batch the store undid by itself (disk full, I/O error) takes no more writes:
    // they would commit one by one and leave the batch's other half missing.
    if (store_->batch_failure != kStatusOk) return store_->batch_failure;
    own_ = false;
    open_ = true;
    return kStatusOk;
  }
  Status st = store_->Call().BeginForOneWrite();
  if (st != kStatusOk) {
    if (store_->Call().InTransaction()) store_->Call().Rollback();
    return st;
  }
  own_ = true;
  open_ = true;
  return kStatusOk;
}

Status WriteScope::End(Status status) {
  if (!open_) return status;
  open_ = false;
  Backend& backend = store_->Call();
  if (!own_) {
    if (status == kStatusOk) {
      if (std::find(store_->touched.begin(), store_->touched.end(), file_id_) ==
          store_->touched.end()) {
        store_->touched.push_back(file_id_);
      }
    } else if (!backend.InTransaction()) {
      store_->batch_failure = status;
    }
    return status;
  }
  if (status == kStatusOk) status = store_->Call().TouchFile(file_id_);
  if (status == kStatusOk) status = store_->Call().Commit();
  if (status != kStatusOk) store_->Call().Rollback();
  return status;
}

}  // namespace rm

uint16_t ZORServeDirectoryFromServer(const char* directory, const char* conninfo,
                                     const char* schema, std::string* error) {
  if (error != nullptr) error->clear();
  if (directory == nullptr || conninfo == nullptr || schema == nullptr || *schema == '\0') {
    if (error != nullptr) *error = "a directory, a connection string and a schema are needed";
    return kStatusIoError;
  }
  std::string reason;
  if (rm::ProbePgServer(conninfo, &reason) != kStatusOk) {
    if (error != nullptr) *error = reason;
    return kStatusIoError;
  }
  rm::ServeDirectory(rm::LexicalDirectory(directory), rm::ServedStore{conninfo, schema});
  return kStatusOk;
}

void ZORStopServingDirectory(const char* directory) {
  if (directory == nullptr) return;
  rm::StopServing(rm::LexicalDirectory(directory));
}
