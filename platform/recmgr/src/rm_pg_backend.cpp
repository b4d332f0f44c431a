// The server store of the record manager. Every statement is prepared once per connection
// and kept; table and index names are made from catalogue numbers and the schema's quoted
// name only, never from a caller's text. Results come back in binary form, so that keys
// and records arrive as the bytes they were written as.
#include "rm_pg_backend.h"

#include <endian.h>
#include <libpq-fe.h>
#include <time.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "record_manager.h"
#include "rm_store_internal.h"

namespace rm {
namespace {

// A walk left idle longer than this is not continued from its page: a fresh read lets the
// handle see what other processes committed meanwhile.
constexpr int64_t kScanIdleLimitNs = 100'000'000;
// A walk's first page is small (a look-up is often followed by a step or two); each
// further page is larger, up to a few thousand rows per round trip.
constexpr int kFirstPageRows = 16;
constexpr int kMaxPageRows = 4096;
// How long a refused lock is asked for again (see PgBackend::Acquire).
constexpr int64_t kLockGraceNs = 30'000'000;

int64_t MonotonicNs() {
  struct timespec ts;
  clock_gettime(CLOCK_MONOTONIC_COARSE, &ts);
  return static_cast<int64_t>(ts.tv_sec) * 1'000'000'000 + ts.tv_nsec;
}

// The server's reasons as the record manager's statuses.
Status StatusFromSqlState(const char* state) {
  if (state == nullptr) return kStatusIoError;
  const std::string s(state);
  if (s == "23505") return kStatusDuplicateKey;
  // A lock not granted within lock_timeout, a serialisation failure, a deadlock, and a
  // statement cancelled: the store is busy.
  if (s == "55P03" || s == "40001" || s == "40P01" || s == "57014") return kStatusFileInUse;
  if (s == "53100") return kStatusDiskFull;
  // A table's positions are 32-bit numbers: one that used them all up is full.
  if (s == "2200H" || s == "22003") return kStatusDiskFull;
  return kStatusIoError;
}

std::string Numbered(const char* prefix, int64_t n) {
  std::string out(prefix);
  out += std::to_string(n);
  return out;
}

int32_t Int4At(const PGresult* r, int row, int col) {
  uint32_t v;
  std::memcpy(&v, PQgetvalue(r, row, col), 4);
  return static_cast<int32_t>(be32toh(v));
}
int64_t Int8At(const PGresult* r, int row, int col) {
  uint64_t v;
  std::memcpy(&v, PQgetvalue(r, row, col), 8);
  return static_cast<int64_t>(be64toh(v));
}

struct ResultDeleter {
  void operator()(PGresult* r) const { PQclear(r); }
};
using Result = std::unique_ptr<PGresult, ResultDeleter>;

// The parameters of one statement: numbers as text, bytes as binary. The bytes are the
// caller's and must outlive the call.
class Params {
 public:
  Params() = default;
  // The values point into the object itself: it stays where it was made.
  Params(const Params&) = delete;
  Params& operator=(const Params&) = delete;

  // Room for n parameters, so that a statement with many keys grows its lists once.
  void Reserve(size_t n) {
    values_.reserve(n);
    lengths_.reserve(n);
    formats_.reserve(n);
  }
  Params& Int(int64_t v) {
    std::array<char, 24>& buf = numbers_[used_++];
    auto [end, ec] = std::to_chars(buf.data(), buf.data() + buf.size() - 1, v);
    (void)ec;
    *end = '\0';
    values_.push_back(buf.data());
    lengths_.push_back(0);
    formats_.push_back(0);
    return *this;
  }
  Params& Text(const std::string& s) {
    values_.push_back(s.c_str());
    lengths_.push_back(0);
    formats_.push_back(0);
    return *this;
  }
  Params& Bytes(const void* p, size_t n) {
    // A zero-length value must not be mistaken for SQL NULL.
    static const char kEmpty = 0;
    values_.push_back(n == 0 ? &kEmpty : static_cast<const char*>(p));
    lengths_.push_back(static_cast<int>(n));
    formats_.push_back(1);
    return *this;
  }
  int size() const { return static_cast<int>(values_.size()); }
  const char* const* values() const { return values_.data(); }
  const int* lengths() const { return lengths_.data(); }
  const int* formats() const { return formats_.data(); }

 private:
  std::array<std::array<char, 24>, 6> numbers_;  // no statement here takes more numbers
  int used_ = 0;
  std::vector<const char*> values_;
  std::vector<int> lengths_;
  std::vector<int> formats_;
};

// A statement prepared on the connection under a name of its own.
struct Prepared {
  std::string name;  // empty until prepared
};

// The server's clock, in nanoseconds since the epoch: the change time of files, the same
// for every machine that serves the company.
constexpr const char* kServerNowNs = "(extract(epoch FROM clock_timestamp()) * 1000000000)::bigint";

struct PgTable final : Table {
  explicit PgTable(const TableShape& s) : shape(s) {
    seek.resize(s.key_lengths.size());
    page.resize(s.key_lengths.size());
    read_at_key.resize(s.key_lengths.size());
  }
  TableShape shape;
  std::string name;  // "schema".f<id>
  // [slot][op][0 with the record, 1 key only]
  std::vector<std::array<std::array<Prepared, 2>, kSeekOpCount>> seek;
  // Pages of a walk: [slot][0 forward, 1 back][0 with the record, 1 key only]
  std::vector<std::array<std::array<Prepared, 2>, 2>> page;
  std::vector<Prepared> read_at_key;
  Prepared read_at, step_forward, step_back, count, insert, update, check, erase, erase_pos;
  Prepared put_back, rewrite;
};

// Rows fetched ahead for one walk, kept as the server sent them (pos, ver, [key], [record]).
struct Page {
  Result rows;
  int count = 0;
  int next = 0;
  bool last = false;  // the server had no more rows that way
  bool used_up() const { return next >= count; }
  int32_t LastPos() const { return Int4At(rows.get(), count - 1, 0); }
  // The last row's key bytes (the third column of a walk along a key).
  const uint8_t* LastKey() const {
    return reinterpret_cast<const uint8_t*>(PQgetvalue(rows.get(), count - 1, 2));
  }
};

struct Cursor {
  PgTable* table = nullptr;
  int slot = 0;  // -1: physical order
  SeekOp op = SeekOp::kAfter;
  bool key_only = false;
  uint64_t generation = 0;
  int32_t last_pos = 0;
  int64_t last_ns = 0;
  int limit = kFirstPageRows;
  Page page;
};

class PgBackend final : public Backend {
 public:
  PgBackend(PGconn* conn, int busy_ms) : conn_(conn), busy_ms_(busy_ms) {}
  ~PgBackend() override {
    // Closing the connection undoes an open transaction and drops the session's locks.
    PQfinish(conn_);
  }

  Status Init(const std::string& schema, bool create);

  Status FindFile(const std::string& name, FileEntry* out) override;
  Status CreateFile(const FileEntry& entry, const TableShape& shape, int64_t* id) override;
  Status DropFile(int64_t id) override;
  Status TouchFile(int64_t id) override;
  Status OpenLocks(LockSpace space, bool read_only, std::unique_ptr<LockHolder>* out) override;

  // The locks of this process's holders. The session holds each lock once on the server
  // (session-level advisory locks, which die with the connection); the owner table says
  // which holders of this process have it, so that they exclude each other too.
  LockResult Acquire(LockSpace space, int64_t byte, bool exclusive, const LockHolder* holder);
  void Release(LockSpace space, int64_t byte, bool exclusive);
  bool HeldByOther(LockSpace space, int64_t byte, const LockHolder* holder, bool holds_shared);
  // Whether another holder of this process holds byte.
  bool HeldLocally(LockSpace space, int64_t byte, const LockHolder* holder,
                   bool holds_shared) const;
  // How many of count bytes from first other sessions hold (one round trip).
  int CountHeldByOtherSessions(LockSpace space, int64_t first, int count);
  Table* AttachTable(const TableShape& shape) override;
  void DetachTable(Table* table) override;
  Status Begin() override;
  Status Commit() override;
  void Rollback() override;
  Status Savepoint(int level) override;
  Status ReleaseSavepoint(int level) override;
  Status RollbackToSavepoint(int level) override;
  Status BeginForOneWrite() override;
  bool InTransaction() override {
    if (begin_pending_) return true;
    const PGTransactionStatusType t = PQtransactionStatus(conn_);
    return t == PQTRANS_INTRANS || t == PQTRANS_INERROR || t == PQTRANS_ACTIVE;
  }
  void SetBusyWait(int ms) override;
  void Quiesce() override { cursors_.clear(); }
  Status Seek(Table* table, int slot, SeekOp op, const uint8_t* key, int32_t pos,
              uint64_t scan_owner, RowOut* out) override;
  void EndCursor(uint64_t scan_owner) override { cursors_.erase(scan_owner); }
  Status ReadAt(Table* table, int32_t pos, int slot, RowOut* out) override;
  Status Step(Table* table, int32_t pos, bool forward, RowOut* out) override;
  Status Count(Table* table, int64_t* count) override;
  Status Insert(Table* table, const uint8_t* data, const uint8_t* keys, int32_t* pos) override;
  Status Update(Table* table, int32_t pos, int64_t version, const uint8_t* data,
                const uint8_t* keys, int64_t* new_version) override;
  Status Delete(Table* table, int32_t pos, int64_t version) override;
  Status Restore(Table* table, int32_t pos, int64_t version, const uint8_t* data,
                 const uint8_t* keys, bool exists) override;
  Status Erase(Table* table, int32_t pos) override;

 private:
  // Prepares p from sql unless done; answers 0 or the failure.
  Status Prepare(Prepared* p, const std::string& sql);
  // Runs a prepared statement (prepared from sql first when it is not yet; p null: sql run
  // once as the unnamed statement); answers 0 with *out holding its rows, or the failure
  // (see Failure).
  Status Run(Prepared* p, const std::string& sql, const Params& params, Result* out);
  // Several statements sent together and answered in one round trip (libpq's pipeline);
  // answers 0, or the first one's failure (a transaction it aborted is rolled back).
  struct Piped {
    Prepared* stmt;
    const std::string& sql;
    const Params* params;
  };
  // last, when not null, receives the last statement's rows.
  Status RunPiped(const Piped* steps, size_t n, Result* last = nullptr);
  // Begins the transaction put off by BeginForOneWrite together with statement p.
  Status RunAfterBegin(Prepared* p, const std::string& sql, const Params& params, Result* out);
  // Stamps every file of a list ("{3,4}") at once.
  std::string TouchSql() const {
    return "UPDATE " + schema_ + "._files SET changed_ns = " + kServerNowNs +
           " WHERE id = ANY($1::bigint[])";
  }
  Status RunSql(Prepared* p, const std::string& sql, const Params& params) {
    Result ignored;
    return Run(p, sql, params, &ignored);
  }
  // The status of a failed call. A lost connection leaves the store unusable (every later
  // call answers 2); a transaction the failure aborted is rolled back at once, so that
  // InTransaction tells the caller it is gone.
  Status Failure(const PGresult* r);
  // Something changed: every walk's pages are stale.
  void Changed() { ++generation_; }
  Status ApplyBusyWait();
  // Copies row of r (pos, ver, key, [record]) into out.
  Status FillRow(const PgTable* t, int slot, const PGresult* r, int row, RowOut* out) const;
  Status FetchPage(Cursor* c, const uint8_t* key, int32_t pos);
  Status TakeRow(Cursor* c, RowOut* out);
  std::string KeyColumn(int slot) const { return Numbered("k", slot); }
  std::string Cols(const PgTable* t, int slot, bool key_only) const;

  PGconn* conn_;
  int busy_ms_;
  bool broken_ = false;
  bool busy_pending_ = false;  // the busy wait changed inside a transaction
  std::string schema_;         // quoted
  int32_t company_key_ = 0;    // the schema's number, mixed into every lock key
  uint64_t generation_ = 1;
  std::vector<int64_t> pending_touches_;  // files to stamp at the commit
  bool begin_pending_ = false;            // BeginForOneWrite's begin, not yet sent
  int next_statement_ = 0;
  struct Catalogue {
    Prepared find, insert, erase, touch, begin, commit, rollback, writer, timeout;
  } cat_;
  std::vector<std::array<Prepared, 3>> savepoints_;  // by level - 1: begin, release, undo
  // The tables attached now or before, by file id: a file opened again finds its
  // statements prepared, and the session's prepared statements do not grow with every open.
  std::unordered_map<int64_t, std::unique_ptr<PgTable>> tables_;
  std::unordered_map<uint64_t, Cursor> cursors_;

  struct Owners {
    const LockHolder* exclusive = nullptr;
    int shared = 0;  // holders of this process that share it
  };
  // The server's two-number key of a lock byte: the first number mixes the company with the
  // data file (0 for the company itself), the second is the record's position (0 for a
  // file's open marker) or the company marker's byte.
  std::pair<int32_t, int32_t> LockKey(LockSpace space, int64_t byte) const;
  std::unordered_map<int64_t, Owners> owners_[2];  // by space
  struct LockStatements {
    Prepared exclusive, shared, unlock, unlock_shared, others, count_others;
  } locks_;
};

// The locks of one handle or marker: what it holds, exclusive or shared.
class PgLocks final : public LockHolder {
 public:
  PgLocks(PgBackend* backend, LockSpace space) : backend_(backend), space_(space) {}
  ~PgLocks() override {
    for (const auto& [byte, exclusive] : held_) backend_->Release(space_, byte, exclusive);
  }
  LockResult TryShared(int64_t byte) override {
    if (held_.count(byte) != 0) return LockResult::kGranted;
    const LockResult r = backend_->Acquire(space_, byte, false, this);
    if (r == LockResult::kGranted) held_[byte] = false;
    return r;
  }
  LockResult TryExclusive(int64_t byte) override {
    auto it = held_.find(byte);
    if (it != held_.end()) {
      if (it->second) return LockResult::kGranted;
      // Held shared: it becomes exclusive when nobody else shares it.
      if (backend_->HeldByOther(space_, byte, this, true)) return LockResult::kConflict;
      backend_->Release(space_, byte, false);
      held_.erase(it);
      const LockResult r = backend_->Acquire(space_, byte, true, this);
      if (r == LockResult::kGranted) {
        held_[byte] = true;
      } else if (backend_->Acquire(space_, byte, false, this) == LockResult::kGranted) {
        held_[byte] = false;  // kept as it was
      }
      return r;
    }
    const LockResult r = backend_->Acquire(space_, byte, true, this);
    if (r == LockResult::kGranted) held_[byte] = true;
    return r;
  }
  void Unlock(int64_t byte) override {
    auto it = held_.find(byte);
    if (it == held_.end()) return;
    backend_->Release(space_, byte, it->second);
    held_.erase(it);
  }
  bool writable() const override { return true; }
  bool HeldByOther(int64_t byte) override {
    auto it = held_.find(byte);
    return backend_->HeldByOther(space_, byte, this, it != held_.end() && !it->second);
  }
  int CountHeldByOthers(int64_t first, int count) override {
    // Other sessions are asked once for the whole range; this process's other holders
    // come from the owner table.
    return backend_->CountHeldByOtherSessions(space_, first, count) + LocalOthers(first, count);
  }
  int LocalOthers(int64_t first, int count) const;

 private:
  PgBackend* backend_;
  LockSpace space_;
  std::unordered_map<int64_t, bool> held_;  // byte -> exclusive
};

uint64_t Mix64(uint64_t x) {
  x += 0x9e3779b97f4a7c15ULL;
  x = (x ^ (x >> 30)) * 0xbf58476d1ce4e5b9ULL;
  x = (x ^ (x >> 27)) * 0x94d049bb133111ebULL;
  return x ^ (x >> 31);
}

std::pair<int32_t, int32_t> PgBackend::LockKey(LockSpace space, int64_t byte) const {
  // Two files (or companies) share a first number only when 32 bits of a hash collide; the
  // price is a lock refused that need not have been, never one granted twice.
  const int64_t file = space == LockSpace::kFiles ? byte >> 32 : -1;
  const uint64_t mixed = Mix64((static_cast<uint64_t>(static_cast<uint32_t>(company_key_)) << 32) ^
                               static_cast<uint64_t>(file));
  return {static_cast<int32_t>(static_cast<uint32_t>(mixed)),
          static_cast<int32_t>(static_cast<uint32_t>(byte & 0xffffffff))};
}

Status PgBackend::OpenLocks(LockSpace space, bool /*read_only*/, std::unique_ptr<LockHolder>* out) {
  if (broken_) {
    out->reset();
    return kStatusIoError;
  }
  *out = std::make_unique<PgLocks>(this, space);
  return kStatusOk;
}

LockResult PgBackend::Acquire(LockSpace space, int64_t byte, bool exclusive,
                              const LockHolder* holder) {
  auto& owners = owners_[space == LockSpace::kFiles ? 0 : 1];
  Owners& o = owners[byte];
  if (o.exclusive != nullptr || (exclusive && o.shared > 0)) return LockResult::kConflict;
  if (!exclusive && o.shared > 0) {
    ++o.shared;
    return LockResult::kGranted;
  }
  const auto [k1, k2] = LockKey(space, byte);
  // A process killed a moment ago still holds its locks until its server process has seen
  // the connection close, which takes a few milliseconds: a refusal is asked again for a
  // short while before it stands.
  LockResult result = LockResult::kError;
  const int64_t give_up = MonotonicNs() + kLockGraceNs;
  for (int64_t pause_us = 200;; pause_us = std::min<int64_t>(pause_us * 2, 4000)) {
    Result r;
    Status st =
        exclusive
            ? Run(&locks_.exclusive, "SELECT pg_try_advisory_lock($1::integer, $2::integer)",
                  Params().Int(k1).Int(k2), &r)
            : Run(&locks_.shared, "SELECT pg_try_advisory_lock_shared($1::integer, $2::integer)",
                  Params().Int(k1).Int(k2), &r);
    result = LockResult::kError;
    if (st == kStatusOk && PQntuples(r.get()) == 1) {
      result = *PQgetvalue(r.get(), 0, 0) != 0 ? LockResult::kGranted : LockResult::kConflict;
    }
    if (result != LockResult::kConflict || MonotonicNs() >= give_up) break;
    struct timespec nap = {0, static_cast<long>(pause_us) * 1000};
    nanosleep(&nap, nullptr);
  }
  if (result == LockResult::kGranted) {
    if (exclusive) {
      o.exclusive = holder;
    } else {
      o.shared = 1;
    }
  } else {
    owners.erase(byte);
  }
  return result;
}

void PgBackend::Release(LockSpace space, int64_t byte, bool exclusive) {
  auto& owners = owners_[space == LockSpace::kFiles ? 0 : 1];
  auto it = owners.find(byte);
  if (it == owners.end()) return;
  if (exclusive) {
    it->second.exclusive = nullptr;
  } else if (--it->second.shared > 0) {
    return;
  }
  if (it->second.exclusive == nullptr && it->second.shared <= 0) owners.erase(it);
  if (broken_) return;  // the server let go of everything with the connection
  const auto [k1, k2] = LockKey(space, byte);
  Result r;
  if (exclusive) {
    Run(&locks_.unlock, "SELECT pg_advisory_unlock($1::integer, $2::integer)",
        Params().Int(k1).Int(k2), &r);
  } else {
    Run(&locks_.unlock_shared, "SELECT pg_advisory_unlock_shared($1::integer, $2::integer)",
        Params().Int(k1).Int(k2), &r);
  }
}

bool PgBackend::HeldLocally(LockSpace space, int64_t byte, const LockHolder* holder,
                            bool holds_shared) const {
  const auto& owners = owners_[space == LockSpace::kFiles ? 0 : 1];
  auto it = owners.find(byte);
  if (it == owners.end()) return false;
  const Owners& o = it->second;
  return (o.exclusive != nullptr && o.exclusive != holder) || o.shared > (holds_shared ? 1 : 0);
}

bool PgBackend::HeldByOther(LockSpace space, int64_t byte, const LockHolder* holder,
                            bool holds_shared) {
  if (HeldLocally(space, byte, holder, holds_shared)) return true;
  const auto [k1, k2] = LockKey(space, byte);
  Result r;
  Status st = Run(&locks_.others,
                  "SELECT EXISTS (SELECT 1 FROM pg_catalog.pg_locks WHERE locktype = 'advisory' "
                  "AND database = (SELECT oid FROM pg_catalog.pg_database "
                  "WHERE datname = current_database()) AND classid = $1::integer::oid "
                  "AND objid = $2::integer::oid AND objsubid = 2 AND granted "
                  "AND pid <> pg_backend_pid())",
                  Params().Int(k1).Int(k2), &r);
  return st == kStatusOk && PQntuples(r.get()) == 1 && *PQgetvalue(r.get(), 0, 0) != 0;
}

int PgBackend::CountHeldByOtherSessions(LockSpace space, int64_t first, int count) {
  if (count <= 0) return 0;
  // One range of bytes shares its first number when it lies in one file's (or the
  // company's) span, as the company's markers do.
  const auto [k1, lo] = LockKey(space, first);
  const auto [k1_last, hi] = LockKey(space, first + count - 1);
  if (k1 != k1_last) return 0;
  Result r;
  Status st = Run(&locks_.count_others,
                  "SELECT count(DISTINCT objid) FROM pg_catalog.pg_locks WHERE locktype = "
                  "'advisory' AND database = (SELECT oid FROM pg_catalog.pg_database "
                  "WHERE datname = current_database()) AND classid = $1::integer::oid "
                  "AND objid BETWEEN $2::integer::oid AND $3::integer::oid AND objsubid = 2 "
                  "AND granted AND pid <> pg_backend_pid()",
                  Params().Int(k1).Int(lo).Int(hi), &r);
  if (st != kStatusOk || PQntuples(r.get()) != 1) return 0;
  return static_cast<int>(Int8At(r.get(), 0, 0));
}

int PgLocks::LocalOthers(int64_t first, int count) const {
  int held = 0;
  for (int64_t byte = first; byte < first + count; ++byte) {
    auto it = held_.find(byte);
    if (backend_->HeldLocally(space_, byte, this, it != held_.end() && !it->second)) ++held;
  }
  return held;
}

Status PgBackend::Failure(const PGresult* r) {
  if (broken_ || PQstatus(conn_) == CONNECTION_BAD) {
    broken_ = true;
    cursors_.clear();
    return kStatusIoError;
  }
  const Status st =
      StatusFromSqlState(r != nullptr ? PQresultErrorField(r, PG_DIAG_SQLSTATE) : nullptr);
  if (PQtransactionStatus(conn_) == PQTRANS_INERROR) Rollback();
  return st;
}

Status PgBackend::Prepare(Prepared* p, const std::string& sql) {
  if (!p->name.empty()) return kStatusOk;
  if (broken_) return kStatusIoError;
  std::string name = Numbered("s", ++next_statement_);
  Result r(PQprepare(conn_, name.c_str(), sql.c_str(), 0, nullptr));
  if (PQresultStatus(r.get()) != PGRES_COMMAND_OK) return Failure(r.get());
  p->name = std::move(name);
  return kStatusOk;
}

Status PgBackend::Run(Prepared* p, const std::string& sql, const Params& params, Result* out) {
  if (broken_) return kStatusIoError;
  if (begin_pending_) return RunAfterBegin(p, sql, params, out);
  if (p == nullptr) {
    // A statement run once (the making and dropping of tables): the unnamed one, which
    // the server forgets at the next.
    out->reset(PQexecParams(conn_, sql.c_str(), params.size(), nullptr, params.values(),
                            params.lengths(), params.formats(), 1));
  } else {
    Status st = Prepare(p, sql);
    if (st != kStatusOk) return st;
    out->reset(PQexecPrepared(conn_, p->name.c_str(), params.size(), params.values(),
                              params.lengths(), params.formats(), 1));
  }
  const ExecStatusType status = PQresultStatus(out->get());
  if (status != PGRES_COMMAND_OK && status != PGRES_TUPLES_OK) return Failure(out->get());
  return kStatusOk;
}

Status PgBackend::ApplyBusyWait() {
  std::string value = std::to_string(busy_ms_ > 0 ? busy_ms_ : 1) + "ms";
  busy_pending_ = false;
  return RunSql(&cat_.timeout, "SELECT set_config('lock_timeout', $1, false)",
                Params().Text(value));
}

void PgBackend::SetBusyWait(int ms) {
  busy_ms_ = ms;
  // A session setting made inside a transaction goes with the transaction's rollback: it
  // is made again once the transaction ends.
  if (InTransaction()) {
    busy_pending_ = true;
  } else {
    ApplyBusyWait();
  }
}

Status PgBackend::Init(const std::string& schema, bool create) {
  char* quoted = PQescapeIdentifier(conn_, schema.c_str(), schema.size());
  if (quoted == nullptr) return kStatusIoError;
  schema_ = quoted;
  PQfreemem(quoted);
  Status st = ApplyBusyWait();
  if (st != kStatusOk) return st;
  const std::string find_schema = "SELECT oid FROM pg_catalog.pg_namespace WHERE nspname = $1";
  Result r;
  st = Run(nullptr, find_schema, Params().Text(schema), &r);
  if (st != kStatusOk) return st;
  if (PQntuples(r.get()) == 0) {
    if (!create) return kStatusFileNotFound;
    // Two processes may make the same company at once: the loser's CREATE fails on the
    // name, and the schema is there all the same.
    st = RunSql(nullptr, "CREATE SCHEMA IF NOT EXISTS " + schema_, Params());
    if (st != kStatusOk && st != kStatusDuplicateKey) return st;
    st = Run(nullptr, find_schema, Params().Text(schema), &r);
    if (st != kStatusOk) return st;
    if (PQntuples(r.get()) == 0) return kStatusIoError;
  }
  // Oids are unsigned 32-bit numbers; the lock keys take them as they are.
  uint32_t oid;
  std::memcpy(&oid, PQgetvalue(r.get(), 0, 0), 4);
  company_key_ = static_cast<int32_t>(be32toh(oid));
  if (create) {
    st = RunSql(nullptr,
                "CREATE TABLE IF NOT EXISTS " + schema_ +
                    "._files(id bigserial PRIMARY KEY, name text NOT NULL UNIQUE, "
                    "record_length integer NOT NULL, page_size integer NOT NULL, "
                    "owner text NOT NULL, spec bytea NOT NULL, changed_ns bigint NOT NULL)",
                Params());
    if (st == kStatusDuplicateKey) st = kStatusOk;  // made by another process meanwhile
  }
  return st;
}

Status PgBackend::FindFile(const std::string& name, FileEntry* out) {
  Result r;
  Status st = Run(&cat_.find,
                  "SELECT id, owner, spec, changed_ns, record_length, page_size FROM " + schema_ +
                      "._files WHERE name = $1",
                  Params().Text(name), &r);
  if (st != kStatusOk) return st;
  if (PQntuples(r.get()) == 0) return kStatusFileNotFound;
  const PGresult* res = r.get();
  out->id = Int8At(res, 0, 0);
  out->owner.assign(PQgetvalue(res, 0, 1), static_cast<size_t>(PQgetlength(res, 0, 1)));
  const uint8_t* spec = reinterpret_cast<const uint8_t*>(PQgetvalue(res, 0, 2));
  out->spec.assign(spec, spec + PQgetlength(res, 0, 2));
  out->changed_ns = Int8At(res, 0, 3);
  out->record_length = static_cast<uint16_t>(Int4At(res, 0, 4));
  out->page_size = static_cast<uint16_t>(Int4At(res, 0, 5));
  out->name = name;
  return kStatusOk;
}

Status PgBackend::CreateFile(const FileEntry& entry, const TableShape& shape, int64_t* id) {
  Changed();
  Result r;
  Status st = Run(&cat_.insert,
                  "INSERT INTO " + schema_ +
                      "._files(name, record_length, page_size, owner, spec, changed_ns) "
                      "VALUES($1, $2, $3, $4, $5, " +
                      kServerNowNs + ") ON CONFLICT (name) DO NOTHING RETURNING id",
                  Params()
                      .Text(entry.name)
                      .Int(entry.record_length)
                      .Int(entry.page_size)
                      .Text(entry.owner)
                      .Bytes(entry.spec.data(), entry.spec.size()),
                  &r);
  if (st != kStatusOk) return st;
  if (PQntuples(r.get()) == 0) return kStatusFileExists;
  *id = Int8At(r.get(), 0, 0);
  const std::string table = schema_ + Numbered(".f", *id);
  std::string sql = "CREATE TABLE " + table +
                    "(pos integer GENERATED BY DEFAULT AS IDENTITY PRIMARY KEY, "
                    "ver bigint NOT NULL";
  for (size_t i = 0; i < shape.key_lengths.size(); ++i) {
    sql += Numbered(", k", static_cast<int64_t>(i)) + " bytea NOT NULL";
  }
  sql += ", data bytea NOT NULL)";
  st = RunSql(nullptr, sql, Params());
  for (size_t i = 0; st == kStatusOk && i < shape.key_lengths.size(); ++i) {
    // Ordered by the key's bytes and then the position, so duplicates come in insertion
    // order; a unique key's index is on its bytes alone, so that it refuses repeats.
    const std::string column = Numbered("k", static_cast<int64_t>(i));
    st = RunSql(nullptr,
                std::string("CREATE ") + (shape.unique[i] ? "UNIQUE " : "") + "INDEX " +
                    Numbered("f", *id) + "_" + column + " ON " + table + "(" + column +
                    (shape.unique[i] ? ")" : ", pos)"),
                Params());
  }
  return st;
}

Status PgBackend::DropFile(int64_t id) {
  Changed();
  auto it = tables_.find(id);
  if (it != tables_.end()) {
    for (auto c = cursors_.begin(); c != cursors_.end();) {
      c = c->second.table == it->second.get() ? cursors_.erase(c) : std::next(c);
    }
    // Its statements stay prepared in the session, unused: dropping a file is rare.
    tables_.erase(it);
  }
  Status st = RunSql(nullptr, "DROP TABLE IF EXISTS " + schema_ + Numbered(".f", id), Params());
  if (st != kStatusOk) return st;
  return RunSql(&cat_.erase, "DELETE FROM " + schema_ + "._files WHERE id = $1", Params().Int(id));
}

Status PgBackend::TouchFile(int64_t id) {
  // The time is the server's: the machines that share a company need not agree on theirs.
  // Inside a transaction the stamps go to the server with its commit, in one round trip.
  Changed();
  if (InTransaction()) {
    if (std::find(pending_touches_.begin(), pending_touches_.end(), id) == pending_touches_.end()) {
      pending_touches_.push_back(id);
    }
    return kStatusOk;
  }
  const std::string ids = "{" + std::to_string(id) + "}";
  return RunSql(&cat_.touch, TouchSql(), Params().Text(ids));
}

Status PgBackend::RunPiped(const Piped* steps, size_t n, Result* last) {
  if (broken_) return kStatusIoError;
  for (size_t i = 0; i < n; ++i) {
    Status st = Prepare(steps[i].stmt, steps[i].sql);
    if (st != kStatusOk) return st;
  }
  if (PQenterPipelineMode(conn_) != 1) {
    // Not possible here (nothing else is under way): one statement after another.
    for (size_t i = 0; i < n; ++i) {
      Status st = RunSql(steps[i].stmt, steps[i].sql, *steps[i].params);
      if (st != kStatusOk) return st;
    }
    return kStatusOk;
  }
  bool sent = true;
  for (size_t i = 0; sent && i < n; ++i) {
    const Params& p = *steps[i].params;
    sent = PQsendQueryPrepared(conn_, steps[i].stmt->name.c_str(), p.size(), p.values(),
                               p.lengths(), p.formats(), 1) == 1;
  }
  sent = sent && PQpipelineSync(conn_) == 1;
  Status first = kStatusOk;
  // Every statement's result, each followed by a null, then the sync's.
  for (size_t i = 0; sent && i < n; ++i) {
    Result r(PQgetResult(conn_));
    if (r == nullptr) {
      sent = false;
      break;
    }
    const ExecStatusType status = PQresultStatus(r.get());
    if (status == PGRES_FATAL_ERROR && first == kStatusOk) {
      first = StatusFromSqlState(PQresultErrorField(r.get(), PG_DIAG_SQLSTATE));
    }
    if (last != nullptr && i == n - 1) *last = std::move(r);
    while (Result(PQgetResult(conn_)) != nullptr) {
    }
  }
  if (sent) {
    Result sync(PQgetResult(conn_));
    sent = sync != nullptr && PQresultStatus(sync.get()) == PGRES_PIPELINE_SYNC;
  }
  if (!sent || PQexitPipelineMode(conn_) != 1 || PQstatus(conn_) == CONNECTION_BAD) {
    broken_ = true;
    cursors_.clear();
    return kStatusIoError;
  }
  if (first != kStatusOk && PQtransactionStatus(conn_) == PQTRANS_INERROR) Rollback();
  return first;
}

Table* PgBackend::AttachTable(const TableShape& shape) {
  std::unique_ptr<PgTable>& table = tables_[shape.id];
  if (table == nullptr) {
    table = std::make_unique<PgTable>(shape);
    table->name = schema_ + Numbered(".f", shape.id);
  }
  return table.get();
}

void PgBackend::DetachTable(Table* table) {
  // The table stays known with its statements (a file's id is never reused).
  for (auto c = cursors_.begin(); c != cursors_.end();) {
    c = c->second.table == table ? cursors_.erase(c) : std::next(c);
  }
}

Status PgBackend::Begin() {
  Changed();
  if (broken_) return kStatusIoError;
  if (busy_pending_) ApplyBusyWait();
  pending_touches_.clear();
  // Writers of a company take turns, as the library reads "highest + 1" inside its batches;
  // the server queues them in the order they asked and gives up after lock_timeout. The
  // begin and the turn go to the server together.
  const auto [k1, k2] = LockKey(LockSpace::kFiles, 0);
  Params none, key;
  key.Int(k1).Int(k2);
  const std::string begin = "BEGIN";
  const std::string lock = "SELECT pg_advisory_xact_lock($1::integer, $2::integer)";
  const Piped steps[] = {{&cat_.begin, begin, &none}, {&cat_.writer, lock, &key}};
  Status st = RunPiped(steps, 2);
  if (st != kStatusOk && InTransaction()) Rollback();
  return st;
}

Status PgBackend::BeginForOneWrite() {
  Changed();
  if (broken_) return kStatusIoError;
  if (busy_pending_) ApplyBusyWait();
  pending_touches_.clear();
  begin_pending_ = true;
  return kStatusOk;
}

Status PgBackend::RunAfterBegin(Prepared* p, const std::string& sql, const Params& params,
                                Result* out) {
  begin_pending_ = false;
  if (p == nullptr) {
    // Statements run once are not sent ahead: the begin goes first on its own.
    Status st = Begin();
    return st != kStatusOk ? st : Run(p, sql, params, out);
  }
  const auto [k1, k2] = LockKey(LockSpace::kFiles, 0);
  Params none, key;
  key.Int(k1).Int(k2);
  const std::string begin = "BEGIN";
  const std::string lock = "SELECT pg_advisory_xact_lock($1::integer, $2::integer)";
  const Piped steps[] = {
      {&cat_.begin, begin, &none}, {&cat_.writer, lock, &key}, {p, sql, &params}};
  Status st = RunPiped(steps, 3, out);
  if (st != kStatusOk && InTransaction()) Rollback();
  return st;
}

Status PgBackend::Commit() {
  Changed();
  if (begin_pending_) {
    // Nothing was written: there is nothing to commit.
    begin_pending_ = false;
    pending_touches_.clear();
    return kStatusOk;
  }
  // The files' change stamps (one statement for all of them) and the commit in one round
  // trip.
  std::string list = "{";
  for (int64_t id : pending_touches_) {
    if (list.size() > 1) list += ',';
    list += std::to_string(id);
  }
  list += '}';
  const std::string touch = TouchSql();
  const std::string commit = "COMMIT";
  Params ids, none;
  ids.Text(list);
  const Piped steps[] = {{&cat_.touch, touch, &ids}, {&cat_.commit, commit, &none}};
  const bool any = !pending_touches_.empty();
  pending_touches_.clear();
  Status st = RunPiped(any ? steps : steps + 1, any ? 2 : 1);
  if (busy_pending_ && !InTransaction()) ApplyBusyWait();
  return st;
}

void PgBackend::Rollback() {
  Changed();
  pending_touches_.clear();
  begin_pending_ = false;
  if (broken_ || PQtransactionStatus(conn_) == PQTRANS_IDLE) return;
  if (cat_.rollback.name.empty() && Prepare(&cat_.rollback, "ROLLBACK") != kStatusOk) {
    Result r(PQexec(conn_, "ROLLBACK"));  // an aborted transaction refuses the Parse
  } else {
    Result r(PQexecPrepared(conn_, cat_.rollback.name.c_str(), 0, nullptr, nullptr, nullptr, 1));
  }
  if (PQstatus(conn_) == CONNECTION_BAD) broken_ = true;
  if (busy_pending_ && !broken_) ApplyBusyWait();
}

Status PgBackend::Savepoint(int level) {
  Changed();
  if (savepoints_.size() < static_cast<size_t>(level)) savepoints_.resize(level);
  return RunSql(&savepoints_[level - 1][0], Numbered("SAVEPOINT s", level), Params());
}

Status PgBackend::ReleaseSavepoint(int level) {
  Changed();
  if (savepoints_.size() < static_cast<size_t>(level)) savepoints_.resize(level);
  return RunSql(&savepoints_[level - 1][1], Numbered("RELEASE SAVEPOINT s", level), Params());
}

Status PgBackend::RollbackToSavepoint(int level) {
  Changed();
  if (savepoints_.size() < static_cast<size_t>(level)) savepoints_.resize(level);
  return RunSql(&savepoints_[level - 1][2], Numbered("ROLLBACK TO SAVEPOINT s", level), Params());
}

std::string PgBackend::Cols(const PgTable* /*t*/, int slot, bool key_only) const {
  std::string cols = "pos, ver";
  if (slot >= 0) cols += ", " + KeyColumn(slot);
  if (!key_only) cols += ", data";
  return cols;
}

Status PgBackend::FillRow(const PgTable* t, int slot, const PGresult* r, int row,
                          RowOut* out) const {
  const int32_t pos = Int4At(r, row, 0);
  if (pos <= 0) return kStatusIoError;
  int col = 2;
  if (slot >= 0) {
    const uint32_t len = t->shape.key_lengths[static_cast<size_t>(slot)];
    if (static_cast<uint32_t>(PQgetlength(r, row, col)) != len) return kStatusIoError;
    if (out->key != nullptr) std::memcpy(out->key, PQgetvalue(r, row, col), len);
    ++col;
  }
  if (out->data != nullptr) {
    if (col >= PQnfields(r) ||
        static_cast<uint32_t>(PQgetlength(r, row, col)) != t->shape.record_length) {
      return kStatusIoError;  // a damaged row: never hand out a short record
    }
    std::memcpy(out->data, PQgetvalue(r, row, col), t->shape.record_length);
  }
  out->pos = pos;
  out->version = Int8At(r, row, 1);
  return kStatusOk;
}

Status PgBackend::Seek(Table* table, int slot, SeekOp op, const uint8_t* key, int32_t pos,
                       uint64_t scan_owner, RowOut* out) {
  PgTable* t = static_cast<PgTable*>(table);
  const bool key_only = out->data == nullptr;
  const size_t key_len = t->shape.key_lengths[static_cast<size_t>(slot)];
  if (op == SeekOp::kAfter || op == SeekOp::kBefore) {
    const int64_t now = MonotonicNs();
    Cursor scratch;
    Cursor* c = scan_owner != 0 ? &cursors_[scan_owner] : &scratch;
    const bool go_on = scan_owner != 0 && c->table == t && c->slot == slot && c->op == op &&
                       c->key_only == key_only && c->generation == generation_ &&
                       c->last_pos == pos && now - c->last_ns < kScanIdleLimitNs;
    if (!go_on) {
      c->table = t;
      c->slot = slot;
      c->op = op;
      c->key_only = key_only;
      c->generation = generation_;
      c->limit = scan_owner != 0 ? kFirstPageRows : 1;
      Status st = FetchPage(c, key, pos);
      if (st != kStatusOk) {
        cursors_.erase(scan_owner);
        return st;
      }
    } else if (c->page.used_up()) {
      if (c->page.last) return kStatusEndOfFile;
      // The next page starts after the last row of this one, whose bytes stay alive until
      // the next page has come.
      c->limit = std::min(c->limit * 4, kMaxPageRows);
      Status st = FetchPage(c, c->page.LastKey(), c->page.LastPos());
      if (st != kStatusOk) {
        cursors_.erase(scan_owner);
        return st;
      }
    }
    c->last_ns = now;
    return TakeRow(c, out);
  }

  const bool unique = t->shape.unique[static_cast<size_t>(slot)];
  Prepared& stmt = t->seek[static_cast<size_t>(slot)][static_cast<size_t>(op)][key_only ? 1 : 0];
  std::string sql;
  if (stmt.name.empty()) {
    const std::string k = KeyColumn(slot);
    const std::string up = unique ? " ORDER BY " + k : " ORDER BY " + k + ", pos";
    const std::string down =
        unique ? " ORDER BY " + k + " DESC" : " ORDER BY " + k + " DESC, pos DESC";
    sql = "SELECT " + Cols(t, slot, key_only) + " FROM " + t->name;
    switch (op) {
      case SeekOp::kEqual:
        sql += " WHERE " + k + " = $1" + up;
        break;
      case SeekOp::kGreaterOrEqual:
        sql += " WHERE " + k + " >= $1" + up;
        break;
      case SeekOp::kGreater:
        sql += " WHERE " + k + " > $1" + up;
        break;
      case SeekOp::kLess:
        sql += " WHERE " + k + " < $1" + down;
        break;
      case SeekOp::kLessOrEqual:
        sql += " WHERE " + k + " <= $1" + down;
        break;
      case SeekOp::kFirst:
        sql += up;
        break;
      case SeekOp::kLast:
      default:
        sql += down;
        break;
    }
    sql += " LIMIT 1";
  }
  Params params;
  if (op != SeekOp::kFirst && op != SeekOp::kLast) params.Bytes(key, key_len);
  Result r;
  Status st = Run(&stmt, sql, params, &r);
  if (st != kStatusOk) return st;
  if (PQntuples(r.get()) == 0) {
    return op == SeekOp::kFirst || op == SeekOp::kLast ? kStatusEndOfFile : kStatusKeyNotFound;
  }
  return FillRow(t, slot, r.get(), 0, out);
}

Status PgBackend::FetchPage(Cursor* c, const uint8_t* key, int32_t pos) {
  PgTable* t = c->table;
  const bool forward = c->op == SeekOp::kAfter;
  Prepared* stmt;
  std::string sql;
  Params params;
  if (c->slot < 0) {
    stmt = forward ? &t->step_forward : &t->step_back;
    if (stmt->name.empty()) {
      sql = "SELECT pos, ver, data FROM " + t->name +
            (forward ? " WHERE pos > $1 ORDER BY pos LIMIT $2"
                     : " WHERE pos < $1 ORDER BY pos DESC LIMIT $2");
    }
    params.Int(pos).Int(c->limit);
  } else {
    const size_t slot = static_cast<size_t>(c->slot);
    const bool unique = t->shape.unique[slot];
    stmt = &t->page[slot][forward ? 0 : 1][c->key_only ? 1 : 0];
    if (stmt->name.empty()) {
      const std::string k = KeyColumn(c->slot);
      sql = "SELECT " + Cols(t, c->slot, c->key_only) + " FROM " + t->name + " WHERE ";
      if (unique) {
        sql +=
            k + (forward ? " > $1 ORDER BY " + k : " < $1 ORDER BY " + k + " DESC") + " LIMIT $2";
      } else {
        // A row comparison the index on (key, pos) answers directly, also in the middle of
        // a long run of duplicates.
        sql += "(" + k + ", pos) " +
               (forward ? "> ($1, $2) ORDER BY " + k + ", pos"
                        : "< ($1, $2) ORDER BY " + k + " DESC, pos DESC") +
               " LIMIT $3";
      }
    }
    params.Bytes(key, t->shape.key_lengths[slot]);
    if (!unique) params.Int(pos);
    params.Int(c->limit);
  }
  Result r;
  Status st = Run(stmt, sql, params, &r);
  if (st != kStatusOk) return st;
  Page& page = c->page;
  page.rows = std::move(r);
  page.count = PQntuples(page.rows.get());
  page.next = 0;
  page.last = page.count < c->limit;
  return kStatusOk;
}

Status PgBackend::TakeRow(Cursor* c, RowOut* out) {
  Page& page = c->page;
  if (page.used_up()) return kStatusEndOfFile;
  Status st = FillRow(c->table, c->slot, page.rows.get(), page.next++, out);
  if (st != kStatusOk) return st;
  c->last_pos = out->pos;
  return kStatusOk;
}

Status PgBackend::ReadAt(Table* table, int32_t pos, int slot, RowOut* out) {
  PgTable* t = static_cast<PgTable*>(table);
  const bool with_key = out->key != nullptr && slot >= 0;
  Prepared& stmt = with_key ? t->read_at_key[static_cast<size_t>(slot)] : t->read_at;
  std::string sql;
  if (stmt.name.empty()) {
    sql = "SELECT " + Cols(t, with_key ? slot : -1, false) + " FROM " + t->name + " WHERE pos = $1";
  }
  Result r;
  Status st = Run(&stmt, sql, Params().Int(pos), &r);
  if (st != kStatusOk) return st;
  if (PQntuples(r.get()) == 0) return kStatusBadPosition;
  return FillRow(t, with_key ? slot : -1, r.get(), 0, out);
}

Status PgBackend::Step(Table* table, int32_t pos, bool forward, RowOut* out) {
  // Physical order walks page ahead like key walks, one walk per table and direction.
  PgTable* t = static_cast<PgTable*>(table);
  const uint64_t owner = (reinterpret_cast<uintptr_t>(t) << 1) | (forward ? 1 : 0);
  const uint64_t key = owner | (uint64_t{1} << 63);
  const int64_t now = MonotonicNs();
  Cursor* c = &cursors_[key];
  const SeekOp op = forward ? SeekOp::kAfter : SeekOp::kBefore;
  const bool go_on = c->table == t && c->slot == -1 && c->op == op &&
                     c->generation == generation_ && c->last_pos == pos &&
                     now - c->last_ns < kScanIdleLimitNs;
  Status st = kStatusOk;
  if (!go_on) {
    c->table = t;
    c->slot = -1;
    c->op = op;
    c->key_only = false;
    c->generation = generation_;
    c->limit = kFirstPageRows;
    st = FetchPage(c, nullptr, pos);
  } else if (c->page.used_up() && !c->page.last) {
    c->limit = std::min(c->limit * 4, kMaxPageRows);
    st = FetchPage(c, nullptr, c->page.LastPos());
  }
  if (st != kStatusOk) {
    cursors_.erase(key);
    return st;
  }
  c->last_ns = now;
  RowOut row;
  row.data = out->data;
  st = TakeRow(c, &row);
  if (st == kStatusOk) {
    out->pos = row.pos;
    out->version = row.version;
  }
  return st;
}

Status PgBackend::Count(Table* table, int64_t* count) {
  PgTable* t = static_cast<PgTable*>(table);
  Result r;
  Status st = Run(&t->count, "SELECT count(*) FROM " + t->name, Params(), &r);
  if (st != kStatusOk) return st;
  *count = Int8At(r.get(), 0, 0);
  return kStatusOk;
}

// Binds every key's bytes, in slot order; keys holds them one after another.
void BindKeys(Params* params, const PgTable* t, const uint8_t* keys) {
  for (uint32_t len : t->shape.key_lengths) {
    params->Bytes(keys, len);
    keys += len;
  }
}

Status PgBackend::Insert(Table* table, const uint8_t* data, const uint8_t* keys, int32_t* pos) {
  Changed();
  PgTable* t = static_cast<PgTable*>(table);
  const size_t n = t->shape.key_lengths.size();
  std::string sql;
  if (t->insert.name.empty()) {
    // A repeat on a unique key inserts nothing instead of failing: a failed statement
    // would abort the whole transaction, and a batch goes on after a duplicate. The
    // statement looks each unique key up first; writers take turns, so nobody can make
    // the repeat between the look-up and the insert (and the index refuses it if anyone
    // did). Positions come from the table's own sequence and never repeat.
    sql = "INSERT INTO " + t->name + "(ver, data";
    std::string values = " SELECT 1, $1";
    std::string repeats;
    for (size_t i = 0; i < n; ++i) {
      const std::string k = Numbered("k", static_cast<int64_t>(i));
      const std::string p = Numbered("$", static_cast<int64_t>(i + 2));
      sql += ", " + k;
      values += ", " + p;
      if (t->shape.unique[i]) {
        repeats += std::string(repeats.empty() ? " WHERE " : " AND ") +
                   "NOT EXISTS (SELECT 1 FROM " + t->name + " WHERE " + k + " = " + p + ")";
      }
    }
    sql += ")" + values + repeats + " RETURNING pos";
  }
  Params params;
  params.Reserve(n + 1);
  params.Bytes(data, t->shape.record_length);
  BindKeys(&params, t, keys);
  Result r;
  Status st = Run(&t->insert, sql, params, &r);
  if (st != kStatusOk) return st;
  if (PQntuples(r.get()) == 0) return kStatusDuplicateKey;
  *pos = Int4At(r.get(), 0, 0);
  return kStatusOk;
}

Status PgBackend::Update(Table* table, int32_t pos, int64_t version, const uint8_t* data,
                         const uint8_t* keys, int64_t* new_version) {
  Changed();
  PgTable* t = static_cast<PgTable*>(table);
  const size_t n = t->shape.key_lengths.size();
  // Parameters: $1 pos, $2 version, $3 record, $4.. the keys in slot order. Keys that may
  // not change are compared instead of written; a unique key that changes is checked for a
  // repeat in the same statement, so that a duplicate fails without aborting a batch
  // (writers take turns, so nobody else can make the repeat meanwhile).
  std::string sql, check_sql;
  if (t->update.name.empty()) {
    std::string set = "UPDATE " + t->name + " AS r SET ver = ver + 1, data = $3";
    std::string where = " WHERE r.pos = $1 AND r.ver = $2";
    for (size_t i = 0; i < n; ++i) {
      const std::string k = Numbered("k", static_cast<int64_t>(i));
      const std::string p = Numbered("$", static_cast<int64_t>(i + 4));
      if (t->shape.modifiable[i]) {
        set += ", " + k + " = " + p;
        if (t->shape.unique[i]) {
          where += " AND NOT EXISTS (SELECT 1 FROM " + t->name + " AS o WHERE o." + k + " = " + p +
                   " AND o.pos <> $1)";
        }
      } else {
        where += " AND r." + k + " = " + p;
      }
    }
    sql = set + where + " RETURNING ver";
  }
  if (t->check.name.empty()) {
    check_sql = "SELECT ver";
    for (size_t i = 0; i < n; ++i) check_sql += Numbered(", k", static_cast<int64_t>(i));
    check_sql += " FROM " + t->name + " WHERE pos = $1";
  }
  Params params;
  params.Reserve(n + 3);
  params.Int(pos).Int(version).Bytes(data, t->shape.record_length);
  BindKeys(&params, t, keys);
  Result r;
  Status st = Run(&t->update, sql, params, &r);
  if (st != kStatusOk) return st;
  if (PQntuples(r.get()) == 1) {
    *new_version = Int8At(r.get(), 0, 0);
    return kStatusOk;
  }
  // Nothing matched: a record changed or gone, a key that may not change, or a repeat.
  Result c;
  st = Run(&t->check, check_sql, Params().Int(pos), &c);
  if (st != kStatusOk) return st;
  if (PQntuples(c.get()) == 0 || Int8At(c.get(), 0, 0) != version) return kStatusConflict;
  const uint8_t* key = keys;
  for (size_t i = 0; i < n; ++i) {
    const uint32_t len = t->shape.key_lengths[i];
    if (!t->shape.modifiable[i] &&
        (static_cast<uint32_t>(PQgetlength(c.get(), 0, static_cast<int>(i + 1))) != len ||
         std::memcmp(PQgetvalue(c.get(), 0, static_cast<int>(i + 1)), key, len) != 0)) {
      return kStatusKeyNotModifiable;
    }
    key += len;
  }
  return kStatusDuplicateKey;
}

Status PgBackend::Delete(Table* table, int32_t pos, int64_t version) {
  Changed();
  PgTable* t = static_cast<PgTable*>(table);
  Result r;
  Status st = Run(&t->erase, "DELETE FROM " + t->name + " WHERE pos = $1 AND ver = $2",
                  Params().Int(pos).Int(version), &r);
  if (st != kStatusOk) return st;
  return std::strcmp(PQcmdTuples(r.get()), "1") == 0 ? Status{kStatusOk} : Status{kStatusConflict};
}

Status PgBackend::Restore(Table* table, int32_t pos, int64_t version, const uint8_t* data,
                          const uint8_t* keys, bool exists) {
  Changed();
  PgTable* t = static_cast<PgTable*>(table);
  const size_t n = t->shape.key_lengths.size();
  Prepared& stmt = exists ? t->rewrite : t->put_back;
  std::string sql;
  if (stmt.name.empty()) {
    if (exists) {
      sql = "UPDATE " + t->name + " SET ver = $2, data = $3";
      for (size_t i = 0; i < n; ++i) {
        sql += Numbered(", k", static_cast<int64_t>(i)) +
               Numbered(" = $", static_cast<int64_t>(i + 4));
      }
      sql += " WHERE pos = $1";
    } else {
      std::string values = "VALUES($1, $2, $3";
      sql = "INSERT INTO " + t->name + "(pos, ver, data";
      for (size_t i = 0; i < n; ++i) {
        sql += Numbered(", k", static_cast<int64_t>(i));
        values += Numbered(", $", static_cast<int64_t>(i + 4));
      }
      sql += ") " + values + ")";
    }
  }
  Params params;
  params.Reserve(n + 3);
  params.Int(pos).Int(version).Bytes(data, t->shape.record_length);
  BindKeys(&params, t, keys);
  Result r;
  Status st = Run(&stmt, sql, params, &r);
  if (st != kStatusOk) return st;
  return std::strcmp(PQcmdTuples(r.get()), "1") == 0 ? Status{kStatusOk} : Status{kStatusIoError};
}

Status PgBackend::Erase(Table* table, int32_t pos) {
  Changed();
  PgTable* t = static_cast<PgTable*>(table);
  Result r;
  Status st =
      Run(&t->erase_pos, "DELETE FROM " + t->name + " WHERE pos = $1", Params().Int(pos), &r);
  if (st != kStatusOk) return st;
  return std::strcmp(PQcmdTuples(r.get()), "1") == 0 ? Status{kStatusOk} : Status{kStatusIoError};
}

// A connection, or null with the server's reason.
// The server's notices ("already exists, skipping") are for people at a terminal.
void IgnoreNotice(void* /*arg*/, const char* /*message*/) {}

PGconn* Connect(const std::string& conninfo, std::string* reason) {
  PGconn* conn = PQconnectdb(conninfo.c_str());
  if (conn != nullptr && PQstatus(conn) == CONNECTION_OK) {
    PQsetNoticeProcessor(conn, IgnoreNotice, nullptr);
    return conn;
  }
  if (reason != nullptr) {
    *reason = conn != nullptr ? PQerrorMessage(conn) : "out of memory";
    while (!reason->empty() && (reason->back() == '\n' || reason->back() == ' ')) {
      reason->pop_back();
    }
  }
  PQfinish(conn);
  return nullptr;
}

}  // namespace

std::unique_ptr<Backend> OpenPgBackend(const std::string& conninfo, const std::string& schema,
                                       bool create, Status* status, std::string* reason) {
  PGconn* conn = Connect(conninfo, reason);
  if (conn == nullptr) {
    *status = kStatusIoError;
    return nullptr;
  }
  auto backend = std::make_unique<PgBackend>(conn, g_batch_wait_ms.load());
  *status = backend->Init(schema, create);
  if (*status != kStatusOk) return nullptr;
  return backend;
}

Status ProbePgServer(const std::string& conninfo, std::string* reason) {
  PGconn* conn = Connect(conninfo, reason);
  if (conn == nullptr) return kStatusIoError;
  PQfinish(conn);
  return kStatusOk;
}

Status CheckPgSchema(const std::string& conninfo, const std::string& schema, int max_problems,
                     std::vector<std::string>* problems) {
  problems->clear();
  std::string reason;
  PGconn* conn = Connect(conninfo, &reason);
  if (conn == nullptr) {
    problems->push_back(reason);
    return kStatusIoError;
  }
  // Every file the catalogue names must have its table, and every table as many indexes
  // besides its primary key as its description has keys.
  const char* values[1] = {schema.c_str()};
  Result r(PQexecParams(conn, "SELECT oid FROM pg_catalog.pg_namespace WHERE nspname = $1", 1,
                        nullptr, values, nullptr, nullptr, 0));
  if (PQresultStatus(r.get()) != PGRES_TUPLES_OK) {
    problems->push_back(PQresultErrorMessage(r.get()));
    PQfinish(conn);
    return kStatusIoError;
  }
  if (PQntuples(r.get()) == 0) {
    PQfinish(conn);
    return kStatusFileNotFound;
  }
  const std::string nsp = PQgetvalue(r.get(), 0, 0);
  const char* nvalues[1] = {nsp.c_str()};
  Result tables(
      PQexecParams(conn,
                   "SELECT c.relname, c.oid, (SELECT count(*) FROM pg_catalog.pg_index i "
                   "WHERE i.indrelid = c.oid AND NOT i.indisprimary) "
                   "FROM pg_catalog.pg_class c WHERE c.relnamespace = $1::oid AND c.relkind = 'r'",
                   1, nullptr, nvalues, nullptr, nullptr, 0));
  if (PQresultStatus(tables.get()) != PGRES_TUPLES_OK) {
    problems->push_back(PQresultErrorMessage(tables.get()));
    PQfinish(conn);
    return kStatusIoError;
  }
  std::unordered_map<std::string, int> indexes;
  bool has_catalogue = false;
  for (int i = 0; i < PQntuples(tables.get()); ++i) {
    const std::string name = PQgetvalue(tables.get(), i, 0);
    if (name == "_files") has_catalogue = true;
    indexes[name] = std::atoi(PQgetvalue(tables.get(), i, 2));
  }
  if (!has_catalogue) {
    PQfinish(conn);
    return kStatusOk;  // a company with no data files yet
  }
  char* quoted = PQescapeIdentifier(conn, schema.c_str(), schema.size());
  const std::string catalogue = std::string(quoted != nullptr ? quoted : "\"\"") + "._files";
  PQfreemem(quoted);
  Result rows(PQexecParams(conn, ("SELECT id, name, spec FROM " + catalogue).c_str(), 0, nullptr,
                           nullptr, nullptr, nullptr, 1));
  if (PQresultStatus(rows.get()) != PGRES_TUPLES_OK) {
    problems->push_back(PQresultErrorMessage(rows.get()));
    PQfinish(conn);
    return kStatusIoError;
  }
  const int limit = max_problems > 0 ? max_problems : 1;
  for (int i = 0; i < PQntuples(rows.get()) && static_cast<int>(problems->size()) < limit; ++i) {
    const int64_t id = Int8At(rows.get(), i, 0);
    const std::string name(PQgetvalue(rows.get(), i, 1),
                           static_cast<size_t>(PQgetlength(rows.get(), i, 1)));
    FileSpec spec;
    KeySet keys;
    const uint8_t* bytes = reinterpret_cast<const uint8_t*>(PQgetvalue(rows.get(), i, 2));
    if (!ParseSpec(bytes, static_cast<size_t>(PQgetlength(rows.get(), i, 2)), &spec) ||
        KeySet::Build(spec, &keys) != kStatusOk) {
      problems->push_back("file " + name + ": its description cannot be read");
      continue;
    }
    auto it = indexes.find(Numbered("f", id));
    if (it == indexes.end()) {
      problems->push_back("file " + name + ": its table " + Numbered("f", id) + " is missing");
    } else if (static_cast<size_t>(it->second) != keys.size()) {
      problems->push_back("file " + name + ": " + std::to_string(it->second) + " of " +
                          std::to_string(keys.size()) + " key indexes present");
    }
  }
  PQfinish(conn);
  return problems->empty() ? kStatusOk : kStatusIoError;
}

}  // namespace rm
