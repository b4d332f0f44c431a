// The SQLite store of the record manager. Every statement is prepared once per
// connection and table and kept; table and index names are made from catalogue numbers
// only, never from a caller's text.
#include "rm_sqlite_backend.h"

#include <sqlite3.h>
#include <time.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "record_manager.h"
#include "rm_locks.h"
#include "rm_store_internal.h"

namespace rm {
namespace {

// A stepping cursor left idle longer than this is not continued: a fresh seek lets the
// handle see what other processes committed meanwhile.
constexpr int64_t kScanIdleLimitNs = 100'000'000;

int64_t MonotonicNs() {
  struct timespec ts;
  clock_gettime(CLOCK_MONOTONIC_COARSE, &ts);
  return static_cast<int64_t>(ts.tv_sec) * 1'000'000'000 + ts.tv_nsec;
}

Status StatusFromSqlite(int rc) {
  switch (rc & 0xff) {
    case SQLITE_OK:
    case SQLITE_ROW:
    case SQLITE_DONE:
      return kStatusOk;
    case SQLITE_CONSTRAINT:
      return rc == SQLITE_CONSTRAINT_UNIQUE || rc == SQLITE_CONSTRAINT_PRIMARYKEY
                 ? kStatusDuplicateKey
                 : kStatusIoError;
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
    // SQLite gives up on the shared-memory index with PROTOCOL when another process
    // holds it half-written for long: a writer stopped inside its commit (a debugger, a
    // suspended terminal, a paused machine). The store is busy, not damaged.
    case SQLITE_PROTOCOL:
      return kStatusFileInUse;
    case SQLITE_FULL:
      return kStatusDiskFull;
    case SQLITE_CANTOPEN:
      return kStatusFileNotFound;
    case SQLITE_READONLY:
      return kStatusReadOnly;
    default:  // CORRUPT, NOTADB, IOERR, NOMEM, ...
      return kStatusIoError;
  }
}

// How long the calling thread's current store call may still sleep waiting for another
// process. SQLite's busy handler and its own retries on the shared-memory index both sleep
// through the VFS, and the second keeps at it for about ten seconds whatever the busy
// timeout says; the VFS below ends every sleep once the call has used its wait.
struct WaitBudget {
  int64_t left_us = 0;
};
thread_local WaitBudget t_wait;

sqlite3_vfs* g_system_vfs = nullptr;
sqlite3_vfs g_vfs;  // the system's VFS with a sleep that keeps to t_wait
constexpr const char* kVfsName = "basics-rm";

int BoundedSleep(sqlite3_vfs* /*vfs*/, int us) {
  if (t_wait.left_us <= 0) return 0;
  if (us > t_wait.left_us) us = static_cast<int>(t_wait.left_us);
  t_wait.left_us -= us;
  return g_system_vfs->xSleep(g_system_vfs, us);
}

// Registers the VFS once; answers its name, or null to use the system's as it is.
const char* BoundedVfs() {
  static std::once_flag once;
  std::call_once(once, [] {
    g_system_vfs = sqlite3_vfs_find(nullptr);
    if (g_system_vfs == nullptr) return;
    g_vfs = *g_system_vfs;  // keeps the system's files, locks and app data
    g_vfs.pNext = nullptr;
    g_vfs.zName = kVfsName;
    g_vfs.xSleep = BoundedSleep;
    if (sqlite3_vfs_register(&g_vfs, 0) != SQLITE_OK) g_system_vfs = nullptr;
  });
  return g_system_vfs != nullptr ? kVfsName : nullptr;
}

// prefix followed by a number: the names of tables (f12), key columns (k0) and
// parameters (?3). Built by appending: GCC 12 warns wrongly on literal + to_string.
std::string Numbered(const char* prefix, int64_t n) {
  std::string out(prefix);
  out += std::to_string(n);
  return out;
}

// A prepared statement, finalised with its owner.
class Stmt {
 public:
  Stmt() = default;
  ~Stmt() { sqlite3_finalize(stmt_); }
  Stmt(Stmt&& other) noexcept : stmt_(other.stmt_) { other.stmt_ = nullptr; }
  Stmt(const Stmt&) = delete;
  Stmt& operator=(const Stmt&) = delete;

  sqlite3_stmt* get() const { return stmt_; }
  // Prepares sql unless already done; answers the SQLite result.
  int Prepare(sqlite3* db, const std::string& sql) {
    if (stmt_ != nullptr) return SQLITE_OK;
    return sqlite3_prepare_v3(db, sql.c_str(), static_cast<int>(sql.size()),
                              SQLITE_PREPARE_PERSISTENT, &stmt_, nullptr);
  }

 private:
  sqlite3_stmt* stmt_ = nullptr;
};

// Resets a statement on every way out of a scope, so that no read stays open.
class ResetOnExit {
 public:
  explicit ResetOnExit(sqlite3_stmt* stmt) : stmt_(stmt) {}
  ~ResetOnExit() { sqlite3_reset(stmt_); }
  ResetOnExit(const ResetOnExit&) = delete;
  ResetOnExit& operator=(const ResetOnExit&) = delete;

 private:
  sqlite3_stmt* stmt_;
};

struct SqlTable final : Table {
  explicit SqlTable(const TableShape& s) : shape(s), name(Numbered("f", s.id)) {
    size_t n = s.key_lengths.size();
    seek.resize(n);
    read_at_key.resize(n);
    for (uint32_t len : s.key_lengths) total_key_length += len;
  }
  std::string Column(int slot) const { return Numbered("k", slot); }

  TableShape shape;
  std::string name;  // f<id>
  uint32_t total_key_length = 0;
  // [slot][op][0 with the record, 1 key only]; the stepping ops' statements belong to
  // the cursors instead.
  std::vector<std::array<std::array<Stmt, 2>, kSeekOpCount>> seek;
  std::vector<Stmt> read_at_key;  // [slot]
  Stmt read_at, step_forward, step_back, count, insert, update, check, erase, erase_pos;
  Stmt put_back, rewrite;  // undoing: a record inserted at its old position, or rewritten
};

// Binds every key's bytes, in slot order, to the parameters from first on; keys holds them
// one after another (the caller's buffer, which must outlive the step).
void BindKeys(sqlite3_stmt* s, const SqlTable* t, const uint8_t* keys, int first) {
  for (size_t i = 0; i < t->shape.key_lengths.size(); ++i) {
    const int length = static_cast<int>(t->shape.key_lengths[i]);
    sqlite3_bind_blob(s, first + static_cast<int>(i), keys, length, SQLITE_STATIC);
    keys += length;
  }
}

class SqliteBackend final : public Backend {
 public:
  SqliteBackend(sqlite3* db, const std::string& directory, int busy_ms,
                std::unique_ptr<WriterTurn> turn)
      : db_(db), directory_(directory), busy_ms_(busy_ms), turn_(std::move(turn)) {}
  ~SqliteBackend() override {
    cursors_.clear();
    stepping_.clear();
    savepoints_.clear();
    tables_.clear();
    catalogue_.reset();
    // An open transaction is undone by the close: a batch never commits half-way.
    sqlite3_close_v2(db_);
    turn_.reset();  // gives the writers' turn back, if held
  }

  Status Init(bool create);

  Status FindFile(const std::string& name, FileEntry* out) override;
  Status CreateFile(const FileEntry& entry, const TableShape& shape, int64_t* id) override;
  Status DropFile(int64_t id) override;
  Status TouchFile(int64_t id) override;
  Status OpenLocks(LockSpace space, bool read_only, std::unique_ptr<LockHolder>* out) override {
    return LockFile::Open(directory_,
                          space == LockSpace::kFiles ? kLockFileName : kCompanyLockFileName,
                          read_only, out);
  }
  Table* AttachTable(const TableShape& shape) override;
  void DetachTable(Table* table) override;
  Status Begin() override;
  Status Commit() override;
  void Rollback() override;
  Status Savepoint(int level) override;
  Status ReleaseSavepoint(int level) override;
  Status RollbackToSavepoint(int level) override;
  bool InTransaction() override { return sqlite3_get_autocommit(db_) == 0; }
  void SetBusyWait(int ms) override {
    busy_ms_ = ms;
    sqlite3_busy_timeout(db_, ms);
  }
  void Quiesce() override { EndScans(); }
  Status Seek(Table* table, int slot, SeekOp op, const uint8_t* key, int32_t pos,
              uint64_t scan_owner, RowOut* out) override;
  void EndCursor(uint64_t scan_owner) override;
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
  // Catalogue and transaction statements.
  struct Catalogue {
    Stmt find, insert, erase, touch, begin, commit, rollback;
  };
  // One owner's (one handle's) walk along a key of its table. It keeps its own
  // statements, so that the walk goes on whatever other handles read between two steps;
  // all of them read in the one snapshot that the connection holds while any cursor
  // steps.
  struct Cursor {
    SqlTable* table = nullptr;
    // By slot, direction and key-only: [0] the rest of one key's duplicates, [1] the
    // keys beyond it.
    std::map<int, std::array<Stmt, 2>> stmts;
    sqlite3_stmt* active = nullptr;  // the statement stepping now; null at rest
    int slot = 0;
    SeekOp op = SeekOp::kAfter;
    bool key_only = false;
    bool in_duplicates = false;  // stepping the rest of one key's duplicates
    int32_t last_pos = 0;
    int64_t last_ns = 0;
  };

  // Every call starts here: it may wait for other processes as long as the busy wait,
  // and a cursor left idle gives its snapshot up.
  void StartCall() {
    t_wait.left_us = static_cast<int64_t>(busy_ms_) * 1000;
    if (!stepping_.empty()) EndIdleScans();
  }
  void StopCursor(Cursor* c);
  void EndScans();
  void EndIdleScans();
  // Forgets the cursors whose statements read t.
  void DropCursorsOf(const SqlTable* t);
  // Statements answer SQLite's extended result code directly.
  Status Fail(int rc) const { return StatusFromSqlite(rc); }
  Status LastFailure() const { return StatusFromSqlite(sqlite3_extended_errcode(db_)); }
  Status Exec(const std::string& sql);
  Status RunStatement(Stmt& stmt, const std::string& sql);
  std::string SeekSql(const SqlTable* t, int slot, SeekOp op, bool key_only) const;
  sqlite3_stmt* SeekStatement(SqlTable* t, int slot, SeekOp op, bool key_only);
  // The cursor's statement for its current walk: the duplicates or the keys beyond.
  sqlite3_stmt* CursorStatement(Cursor* c, bool duplicates);
  // Copies the current row of stmt (pos, ver, key, [record]) into out.
  Status FillRow(SqlTable* t, int slot, sqlite3_stmt* stmt, RowOut* out);
  // Steps stmt once: 0 with a row filled, end_status when there is none.
  Status StepRow(SqlTable* t, int slot, sqlite3_stmt* stmt, RowOut* out, Status end_status);
  Status CursorStep(Cursor* c, const uint8_t* key, RowOut* out);

  sqlite3* db_;
  std::string directory_;
  int busy_ms_;
  // The change time of the files written in the open transaction: one for all of them,
  // taken at the first stamp (0 until then).
  int64_t stamp_ns_ = 0;
  std::unique_ptr<WriterTurn> turn_;  // null when the lock file cannot be written
  std::unique_ptr<Catalogue> catalogue_ = std::make_unique<Catalogue>();
  std::vector<std::unique_ptr<SqlTable>> tables_;
  std::unordered_map<uint64_t, Cursor> cursors_;  // by owner; elements never move
  std::vector<Cursor*> stepping_;                 // the cursors with a statement stepping
  std::vector<std::array<Stmt, 3>> savepoints_;   // by level - 1: begin, release, undo
};

void SqliteBackend::StopCursor(Cursor* c) {
  if (c->active == nullptr) return;
  sqlite3_reset(c->active);
  c->active = nullptr;
  stepping_.erase(std::find(stepping_.begin(), stepping_.end(), c));
}

void SqliteBackend::EndScans() {
  for (Cursor* c : stepping_) {
    sqlite3_reset(c->active);
    c->active = nullptr;
  }
  stepping_.clear();
}

void SqliteBackend::EndIdleScans() {
  const int64_t now = MonotonicNs();
  for (size_t i = stepping_.size(); i-- > 0;) {
    if (now - stepping_[i]->last_ns >= kScanIdleLimitNs) StopCursor(stepping_[i]);
  }
}

void SqliteBackend::DropCursorsOf(const SqlTable* t) {
  for (auto it = cursors_.begin(); it != cursors_.end();) {
    if (it->second.table == t) {
      StopCursor(&it->second);
      it = cursors_.erase(it);
    } else {
      ++it;
    }
  }
}

void SqliteBackend::EndCursor(uint64_t scan_owner) {
  auto it = cursors_.find(scan_owner);
  if (it == cursors_.end()) return;
  StopCursor(&it->second);
  cursors_.erase(it);
}

Status SqliteBackend::Exec(const std::string& sql) {
  int rc = sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, nullptr);
  return rc == SQLITE_OK ? Status{kStatusOk} : Fail(rc);
}

Status SqliteBackend::Init(bool create) {
  StartCall();
  sqlite3_extended_result_codes(db_, 1);
  sqlite3_busy_timeout(db_, busy_ms_);
  // A new store takes 8 KB pages, so that a journal header (about 6 KB with its keys) lies
  // in one page instead of spilling into an overflow page on every read. An existing store
  // keeps the page size it was made with.
  if (create) {
    const Status size = Exec("PRAGMA page_size=8192");
    if (size != kStatusOk) return size;
  }
  // journal_mode answers the mode in force; anything but WAL means the store could not
  // be switched (another process holds it in another mode, or the file is no store).
  sqlite3_stmt* raw = nullptr;
  int rc = sqlite3_prepare_v2(db_, "PRAGMA journal_mode=WAL", -1, &raw, nullptr);
  if (rc != SQLITE_OK) return Fail(rc);
  rc = sqlite3_step(raw);
  bool wal =
      rc == SQLITE_ROW &&
      sqlite3_strnicmp(reinterpret_cast<const char*>(sqlite3_column_text(raw, 0)), "wal", 3) == 0;
  if (rc != SQLITE_ROW) {
    Status st = Fail(rc);
    sqlite3_finalize(raw);
    return st;
  }
  sqlite3_finalize(raw);
  if (!wal) return kStatusIoError;
  // A company's files are a few megabytes to a few hundred; SQLite's default 2 MB page
  // cache would send most reads of a lookup-heavy session to the kernel.
  // Savepoints keep their undo journals in temporary files: in memory they cost a few
  // kilobytes instead of a file written for every nested batch.
  Status st = Exec("PRAGMA synchronous=FULL; PRAGMA cache_size=-32768; PRAGMA temp_store=MEMORY");
  if (st != kStatusOk) return st;
  if (create) {
    st = Exec(
        "CREATE TABLE IF NOT EXISTS _files(id INTEGER PRIMARY KEY AUTOINCREMENT, "
        "name TEXT NOT NULL UNIQUE, record_length INTEGER NOT NULL, "
        "page_size INTEGER NOT NULL, owner TEXT NOT NULL, spec BLOB NOT NULL, "
        "changed_ns INTEGER NOT NULL)");
  }
  return st;
}

Status SqliteBackend::FindFile(const std::string& name, FileEntry* out) {
  StartCall();
  int rc = catalogue_->find.Prepare(
      db_,
      "SELECT id, owner, spec, changed_ns, record_length, page_size FROM _files "
      "WHERE name=?1");
  if (rc != SQLITE_OK) {
    // A store without a catalogue holds no data files.
    if ((rc & 0xff) == SQLITE_ERROR) return kStatusFileNotFound;
    return Fail(rc);
  }
  sqlite3_stmt* s = catalogue_->find.get();
  ResetOnExit reset(s);
  sqlite3_bind_text(s, 1, name.data(), static_cast<int>(name.size()), SQLITE_STATIC);
  rc = sqlite3_step(s);
  if (rc == SQLITE_DONE) return kStatusFileNotFound;
  if (rc != SQLITE_ROW) return Fail(rc);
  out->id = sqlite3_column_int64(s, 0);
  const char* owner = reinterpret_cast<const char*>(sqlite3_column_text(s, 1));
  out->owner = owner ? owner : "";
  const uint8_t* spec = static_cast<const uint8_t*>(sqlite3_column_blob(s, 2));
  int spec_size = sqlite3_column_bytes(s, 2);
  out->spec.assign(spec, spec + (spec ? spec_size : 0));
  out->changed_ns = sqlite3_column_int64(s, 3);
  out->record_length = static_cast<uint16_t>(sqlite3_column_int(s, 4));
  out->page_size = static_cast<uint16_t>(sqlite3_column_int(s, 5));
  out->name = name;
  return kStatusOk;
}

Status SqliteBackend::CreateFile(const FileEntry& entry, const TableShape& shape, int64_t* id) {
  StartCall();
  EndScans();
  // A store made by an older open may lack the catalogue; making it costs nothing here.
  Status st = Exec(
      "CREATE TABLE IF NOT EXISTS _files(id INTEGER PRIMARY KEY AUTOINCREMENT, "
      "name TEXT NOT NULL UNIQUE, record_length INTEGER NOT NULL, "
      "page_size INTEGER NOT NULL, owner TEXT NOT NULL, spec BLOB NOT NULL, "
      "changed_ns INTEGER NOT NULL)");
  if (st != kStatusOk) return st;
  int rc = catalogue_->insert.Prepare(
      db_,
      "INSERT INTO _files(name, record_length, page_size, owner, spec, changed_ns) "
      "VALUES(?1, ?2, ?3, ?4, ?5, ?6)");
  if (rc != SQLITE_OK) return Fail(rc);
  sqlite3_stmt* s = catalogue_->insert.get();
  {
    ResetOnExit reset(s);
    sqlite3_bind_text(s, 1, entry.name.data(), static_cast<int>(entry.name.size()), SQLITE_STATIC);
    sqlite3_bind_int(s, 2, entry.record_length);
    sqlite3_bind_int(s, 3, entry.page_size);
    sqlite3_bind_text(s, 4, entry.owner.data(), static_cast<int>(entry.owner.size()),
                      SQLITE_STATIC);
    sqlite3_bind_blob(s, 5, entry.spec.data(), static_cast<int>(entry.spec.size()), SQLITE_STATIC);
    sqlite3_bind_int64(s, 6, WallClockNs());
    rc = sqlite3_step(s);
    if (rc != SQLITE_DONE) {
      Status fail = Fail(rc);
      return fail == kStatusDuplicateKey ? Status{kStatusFileExists} : fail;
    }
  }
  *id = sqlite3_last_insert_rowid(db_);
  const std::string table = Numbered("f", *id);
  std::string sql =
      "CREATE TABLE " + table + "(pos INTEGER PRIMARY KEY AUTOINCREMENT, ver INTEGER NOT NULL";
  for (size_t i = 0; i < shape.key_lengths.size(); ++i) {
    sql += Numbered(", k", i) + " BLOB NOT NULL";
  }
  sql += ", data BLOB NOT NULL)";
  st = Exec(sql);
  for (size_t i = 0; st == kStatusOk && i < shape.key_lengths.size(); ++i) {
    // The index orders by the key's bytes and then by position (SQLite keeps the rowid
    // as the index's last column), so duplicates come in insertion order.
    std::string column = Numbered("k", i);
    st = Exec(std::string("CREATE ") + (shape.unique[i] ? "UNIQUE " : "") + "INDEX " + table + "_" +
              column + " ON " + table + "(" + column + ")");
  }
  return st;
}

Status SqliteBackend::DropFile(int64_t id) {
  StartCall();
  EndScans();
  // Statements prepared on the table would keep it busy.
  for (auto it = tables_.begin(); it != tables_.end();) {
    if ((*it)->shape.id == id) {
      DropCursorsOf(it->get());
      it = tables_.erase(it);
    } else {
      ++it;
    }
  }
  Status st = Exec(Numbered("DROP TABLE IF EXISTS f", id));
  if (st != kStatusOk) return st;
  int rc = catalogue_->erase.Prepare(db_, "DELETE FROM _files WHERE id=?1");
  if (rc != SQLITE_OK) return Fail(rc);
  sqlite3_stmt* s = catalogue_->erase.get();
  ResetOnExit reset(s);
  sqlite3_bind_int64(s, 1, id);
  rc = sqlite3_step(s);
  return rc == SQLITE_DONE ? Status{kStatusOk} : Fail(rc);
}

Status SqliteBackend::TouchFile(int64_t id) {
  StartCall();
  EndScans();
  if (stamp_ns_ == 0) stamp_ns_ = WallClockNs();
  int rc = catalogue_->touch.Prepare(db_, "UPDATE _files SET changed_ns=?2 WHERE id=?1");
  if (rc != SQLITE_OK) return Fail(rc);
  sqlite3_stmt* s = catalogue_->touch.get();
  ResetOnExit reset(s);
  sqlite3_bind_int64(s, 1, id);
  sqlite3_bind_int64(s, 2, stamp_ns_);
  rc = sqlite3_step(s);
  return rc == SQLITE_DONE ? Status{kStatusOk} : Fail(rc);
}

Table* SqliteBackend::AttachTable(const TableShape& shape) {
  tables_.push_back(std::make_unique<SqlTable>(shape));
  return tables_.back().get();
}

void SqliteBackend::DetachTable(Table* table) {
  for (auto it = tables_.begin(); it != tables_.end(); ++it) {
    if (it->get() == table) {
      DropCursorsOf(it->get());
      tables_.erase(it);
      return;
    }
  }
}

Status SqliteBackend::RunStatement(Stmt& stmt, const std::string& sql) {
  int rc = stmt.Prepare(db_, sql);
  if (rc != SQLITE_OK) return Fail(rc);
  ResetOnExit reset(stmt.get());
  rc = sqlite3_step(stmt.get());
  return rc == SQLITE_DONE ? Status{kStatusOk} : Fail(rc);
}

Status SqliteBackend::Begin() {
  StartCall();
  EndScans();
  stamp_ns_ = 0;
  if (turn_ != nullptr) {
    // The wait for the turn and SQLite's own wait for the store share the busy wait.
    const int64_t start = MonotonicNs();
    Status st = turn_->Take(busy_ms_);
    if (st != kStatusOk) return st;
    t_wait.left_us = std::max<int64_t>(0, t_wait.left_us - (MonotonicNs() - start) / 1000);
  }
  Status st = RunStatement(catalogue_->begin, "BEGIN IMMEDIATE");
  if (st != kStatusOk && !InTransaction() && turn_ != nullptr) turn_->Give();
  return st;
}

Status SqliteBackend::Commit() {
  StartCall();
  EndScans();
  Status st = RunStatement(catalogue_->commit, "COMMIT");
  // A commit that failed leaves the transaction open for the caller's rollback.
  if (!InTransaction() && turn_ != nullptr) turn_->Give();
  return st;
}

void SqliteBackend::Rollback() {
  StartCall();
  EndScans();
  if (InTransaction() && RunStatement(catalogue_->rollback, "ROLLBACK") != kStatusOk) {
    sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
  }
  if (turn_ != nullptr) turn_->Give();
}

Status SqliteBackend::Savepoint(int level) {
  StartCall();
  EndScans();
  // Outside a transaction a savepoint would begin one of its own, past the writers' turn.
  if (level < 1 || !InTransaction()) return kStatusNoBatch;
  if (savepoints_.size() < static_cast<size_t>(level)) savepoints_.resize(level);
  return RunStatement(savepoints_[level - 1][0], Numbered("SAVEPOINT b", level));
}

Status SqliteBackend::ReleaseSavepoint(int level) {
  StartCall();
  EndScans();
  if (level < 1 || !InTransaction() || savepoints_.size() < static_cast<size_t>(level)) {
    return kStatusNoBatch;
  }
  return RunStatement(savepoints_[level - 1][1], Numbered("RELEASE b", level));
}

Status SqliteBackend::RollbackToSavepoint(int level) {
  StartCall();
  EndScans();
  if (level < 1 || !InTransaction() || savepoints_.size() < static_cast<size_t>(level)) {
    return kStatusNoBatch;
  }
  return RunStatement(savepoints_[level - 1][2], Numbered("ROLLBACK TO b", level));
}

std::string SqliteBackend::SeekSql(const SqlTable* t, int slot, SeekOp op, bool key_only) const {
  const std::string k = t->Column(slot);
  std::string sql = "SELECT pos, ver, " + k + (key_only ? "" : ", data") + " FROM " + t->name;
  const std::string up = " ORDER BY " + k + ", pos";
  const std::string down = " ORDER BY " + k + " DESC, pos DESC";
  switch (op) {
    case SeekOp::kEqual:
      return sql + " WHERE " + k + "=?1" + up + " LIMIT 1";
    case SeekOp::kGreaterOrEqual:
      return sql + " WHERE " + k + ">=?1" + up + " LIMIT 1";
    case SeekOp::kGreater:
      return sql + " WHERE " + k + ">?1" + up + " LIMIT 1";
    case SeekOp::kLess:
      return sql + " WHERE " + k + "<?1" + down + " LIMIT 1";
    case SeekOp::kLessOrEqual:
      return sql + " WHERE " + k + "<=?1" + down + " LIMIT 1";
    case SeekOp::kFirst:
      return sql + up + " LIMIT 1";
    case SeekOp::kLast:
      return sql + down + " LIMIT 1";
    // The cursors of Next and Previous: every key after / before the current one (the
    // current key's remaining duplicates come from the cursor's other statement first).
    case SeekOp::kAfter:
      return sql + " WHERE " + k + ">?1" + up;
    case SeekOp::kBefore:
      return sql + " WHERE " + k + "<?1" + down;
  }
  return sql;
}

sqlite3_stmt* SqliteBackend::SeekStatement(SqlTable* t, int slot, SeekOp op, bool key_only) {
  Stmt& stmt = t->seek[static_cast<size_t>(slot)][static_cast<size_t>(op)][key_only ? 1 : 0];
  if (stmt.get() == nullptr && stmt.Prepare(db_, SeekSql(t, slot, op, key_only)) != SQLITE_OK) {
    return nullptr;
  }
  return stmt.get();
}

sqlite3_stmt* SqliteBackend::CursorStatement(Cursor* c, bool duplicates) {
  const bool after = c->op == SeekOp::kAfter;
  std::array<Stmt, 2>& pair = c->stmts[c->slot * 4 + (after ? 0 : 2) + (c->key_only ? 1 : 0)];
  Stmt& stmt = pair[duplicates ? 0 : 1];
  if (stmt.get() != nullptr) return stmt.get();
  std::string sql;
  if (duplicates) {
    // (key, pos) > (?1, ?2) as one row-value range would not use the index's position
    // column, and a long run of duplicates would be walked from its start on every seek.
    const std::string k = c->table->Column(c->slot);
    sql = "SELECT pos, ver, " + k + (c->key_only ? "" : ", data") + " FROM " + c->table->name +
          " WHERE " + k + "=?1 AND pos" + (after ? ">" : "<") + "?2 ORDER BY pos" +
          (after ? "" : " DESC");
  } else {
    sql = SeekSql(c->table, c->slot, c->op, c->key_only);
  }
  if (stmt.Prepare(db_, sql) != SQLITE_OK) return nullptr;
  return stmt.get();
}

Status SqliteBackend::FillRow(SqlTable* t, int slot, sqlite3_stmt* stmt, RowOut* out) {
  int64_t pos = sqlite3_column_int64(stmt, 0);
  if (pos <= 0 || pos > INT32_MAX) return kStatusIoError;
  if (out->key != nullptr && slot >= 0) {
    const uint32_t len = t->shape.key_lengths[static_cast<size_t>(slot)];
    const void* key = sqlite3_column_blob(stmt, 2);
    if (key == nullptr || static_cast<uint32_t>(sqlite3_column_bytes(stmt, 2)) != len) {
      return kStatusIoError;  // a damaged row: never hand out a short key
    }
    std::memcpy(out->key, key, len);
  }
  if (out->data != nullptr) {
    const int column = slot >= 0 ? 3 : 2;
    // Stored without its trailing zeros (an empty record is an empty blob, which SQLite
    // answers with a null pointer); anything longer than a record is damage.
    const void* data = sqlite3_column_blob(stmt, column);
    const uint32_t stored = static_cast<uint32_t>(sqlite3_column_bytes(stmt, column));
    if (stored > t->shape.record_length || (data == nullptr && stored != 0)) return kStatusIoError;
    if (stored != 0) std::memcpy(out->data, data, stored);
    std::memset(out->data + stored, 0, t->shape.record_length - stored);
  }
  out->pos = static_cast<int32_t>(pos);
  out->version = sqlite3_column_int64(stmt, 1);
  return kStatusOk;
}

Status SqliteBackend::StepRow(SqlTable* t, int slot, sqlite3_stmt* stmt, RowOut* out,
                              Status end_status) {
  int rc = sqlite3_step(stmt);
  if (rc == SQLITE_ROW) return FillRow(t, slot, stmt, out);
  if (rc == SQLITE_DONE) return end_status;
  return Fail(rc);
}

Status SqliteBackend::Seek(Table* table, int slot, SeekOp op, const uint8_t* key, int32_t pos,
                           uint64_t scan_owner, RowOut* out) {
  StartCall();
  SqlTable* t = static_cast<SqlTable*>(table);
  const bool key_only = out->data == nullptr;
  const int key_len = static_cast<int>(t->shape.key_lengths[static_cast<size_t>(slot)]);
  if (op == SeekOp::kAfter || op == SeekOp::kBefore) {
    Cursor* c = &cursors_[scan_owner];
    if (c->table != t) {
      StopCursor(c);
      c->stmts.clear();
      c->table = t;
    }
    const int64_t now = MonotonicNs();
    if (c->active != nullptr && scan_owner != 0 && c->slot == slot && c->op == op &&
        c->key_only == key_only && c->last_pos == pos && now - c->last_ns < kScanIdleLimitNs) {
      // The cursor last returned the handle's current record: its next row is the answer.
      c->last_ns = now;
      return CursorStep(c, key, out);
    }
    StopCursor(c);
    c->slot = slot;
    c->op = op;
    c->key_only = key_only;
    c->last_ns = now;
    c->in_duplicates = !t->shape.unique[static_cast<size_t>(slot)];
    sqlite3_stmt* s = CursorStatement(c, c->in_duplicates);
    if (s == nullptr) return LastFailure();
    // The cursor outlives this call and key is the handle's buffer: SQLite keeps a copy.
    sqlite3_bind_blob(s, 1, key, key_len, SQLITE_TRANSIENT);
    if (c->in_duplicates) sqlite3_bind_int64(s, 2, pos);
    c->active = s;
    stepping_.push_back(c);
    Status st = CursorStep(c, key, out);
    if (scan_owner == 0) StopCursor(c);
    return st;
  }

  sqlite3_stmt* s = SeekStatement(t, slot, op, key_only);
  if (s == nullptr) return LastFailure();
  ResetOnExit reset(s);
  if (op != SeekOp::kFirst && op != SeekOp::kLast) {
    sqlite3_bind_blob(s, 1, key, key_len, SQLITE_STATIC);
  }
  const Status end =
      op == SeekOp::kFirst || op == SeekOp::kLast ? kStatusEndOfFile : kStatusKeyNotFound;
  return StepRow(t, slot, s, out, end);
}

Status SqliteBackend::CursorStep(Cursor* c, const uint8_t* key, RowOut* out) {
  int rc = sqlite3_step(c->active);
  if (rc == SQLITE_DONE && c->in_duplicates) {
    // The current key has no more duplicates that way: go on with the keys beyond it.
    // key is the handle's current key, the same one the duplicates had.
    sqlite3_reset(c->active);
    c->in_duplicates = false;
    c->active = CursorStatement(c, false);
    if (c->active == nullptr) {
      stepping_.erase(std::find(stepping_.begin(), stepping_.end(), c));
      return LastFailure();
    }
    sqlite3_bind_blob(c->active, 1, key,
                      static_cast<int>(c->table->shape.key_lengths[static_cast<size_t>(c->slot)]),
                      SQLITE_TRANSIENT);
    rc = sqlite3_step(c->active);
  }
  if (rc == SQLITE_ROW) {
    Status st = FillRow(c->table, c->slot, c->active, out);
    if (st != kStatusOk) {
      StopCursor(c);
      return st;
    }
    c->last_pos = out->pos;
    return kStatusOk;
  }
  StopCursor(c);
  return rc == SQLITE_DONE ? Status{kStatusEndOfFile} : Fail(rc);
}

Status SqliteBackend::ReadAt(Table* table, int32_t pos, int slot, RowOut* out) {
  StartCall();
  SqlTable* t = static_cast<SqlTable*>(table);
  const bool with_key = out->key != nullptr && slot >= 0;
  Stmt& stmt = with_key ? t->read_at_key[static_cast<size_t>(slot)] : t->read_at;
  std::string sql = "SELECT pos, ver, " + (with_key ? t->Column(slot) + ", " : std::string()) +
                    "data FROM " + t->name + " WHERE pos=?1";
  int rc = stmt.Prepare(db_, sql);
  if (rc != SQLITE_OK) return Fail(rc);
  sqlite3_stmt* s = stmt.get();
  ResetOnExit reset(s);
  sqlite3_bind_int64(s, 1, pos);
  return StepRow(t, with_key ? slot : -1, s, out, kStatusBadPosition);
}

Status SqliteBackend::Step(Table* table, int32_t pos, bool forward, RowOut* out) {
  StartCall();
  SqlTable* t = static_cast<SqlTable*>(table);
  Stmt& stmt = forward ? t->step_forward : t->step_back;
  int rc = stmt.Prepare(db_, "SELECT pos, ver, data FROM " + t->name +
                                 (forward ? " WHERE pos>?1 ORDER BY pos LIMIT 1"
                                          : " WHERE pos<?1 ORDER BY pos DESC LIMIT 1"));
  if (rc != SQLITE_OK) return Fail(rc);
  sqlite3_stmt* s = stmt.get();
  ResetOnExit reset(s);
  sqlite3_bind_int64(s, 1, pos);
  RowOut row = *out;
  row.key = nullptr;
  Status st = StepRow(t, -1, s, &row, kStatusEndOfFile);
  if (st == kStatusOk) {
    out->pos = row.pos;
    out->version = row.version;
  }
  return st;
}

Status SqliteBackend::Count(Table* table, int64_t* count) {
  StartCall();
  SqlTable* t = static_cast<SqlTable*>(table);
  int rc = t->count.Prepare(db_, "SELECT count(*) FROM " + t->name);
  if (rc != SQLITE_OK) return Fail(rc);
  sqlite3_stmt* s = t->count.get();
  ResetOnExit reset(s);
  rc = sqlite3_step(s);
  if (rc != SQLITE_ROW) return Fail(rc);
  *count = sqlite3_column_int64(s, 0);
  return kStatusOk;
}

// A record is stored without its trailing zero bytes, which most of a large record is
// (a journal header uses a few hundred of its 5,950 bytes); a read gives them back. An
// all-zero record is an empty blob, which is not null.
int StoredLength(const uint8_t* data, uint32_t length) {
  while (length > 0 && data[length - 1] == 0) --length;
  return static_cast<int>(length);
}

Status SqliteBackend::Insert(Table* table, const uint8_t* data, const uint8_t* keys, int32_t* pos) {
  StartCall();
  EndScans();
  SqlTable* t = static_cast<SqlTable*>(table);
  const size_t n = t->shape.key_lengths.size();
  if (t->insert.get() == nullptr) {
    std::string sql = "INSERT INTO " + t->name + "(ver";
    std::string values = "VALUES(1";
    for (size_t i = 0; i < n; ++i) {
      sql += Numbered(", k", i);
      values += Numbered(", ?", i + 1);
    }
    sql += ", data) " + values + Numbered(", ?", n + 1) + ")";
    int rc = t->insert.Prepare(db_, sql);
    if (rc != SQLITE_OK) return Fail(rc);
  }
  sqlite3_stmt* s = t->insert.get();
  {
    ResetOnExit reset(s);
    BindKeys(s, t, keys, 1);
    sqlite3_bind_blob(s, static_cast<int>(n + 1), data,
                      StoredLength(data, t->shape.record_length), SQLITE_STATIC);
    int rc = sqlite3_step(s);
    if (rc != SQLITE_DONE) return Fail(rc);
  }
  int64_t rowid = sqlite3_last_insert_rowid(db_);
  if (rowid > INT32_MAX) {
    // Positions are 32-bit: a file that used them all up is full.
    int rc = t->erase_pos.Prepare(db_, "DELETE FROM " + t->name + " WHERE pos=?1");
    if (rc == SQLITE_OK) {
      ResetOnExit reset(t->erase_pos.get());
      sqlite3_bind_int64(t->erase_pos.get(), 1, rowid);
      sqlite3_step(t->erase_pos.get());
    }
    return kStatusDiskFull;
  }
  *pos = static_cast<int32_t>(rowid);
  return kStatusOk;
}

Status SqliteBackend::Update(Table* table, int32_t pos, int64_t version, const uint8_t* data,
                             const uint8_t* keys, int64_t* new_version) {
  StartCall();
  EndScans();
  SqlTable* t = static_cast<SqlTable*>(table);
  const size_t n = t->shape.key_lengths.size();
  // Parameters: ?1 pos, ?2 version, ?3 record, ?4.. the keys in slot order. Keys that may
  // not change are compared instead of written, so that one statement does the check.
  if (t->update.get() == nullptr) {
    std::string set = "UPDATE " + t->name + " SET ver=ver+1, data=?3";
    std::string where = " WHERE pos=?1 AND ver=?2";
    for (size_t i = 0; i < n; ++i) {
      const std::string k = Numbered("k", i);
      const std::string p = Numbered("?", i + 4);
      if (t->shape.modifiable[i]) {
        set += ", " + k + "=" + p;
      } else {
        where += " AND " + k + "=" + p;
      }
    }
    int rc = t->update.Prepare(db_, set + where);
    if (rc != SQLITE_OK) return Fail(rc);
    rc = t->check.Prepare(db_, "SELECT ver FROM " + t->name + " WHERE pos=?1");
    if (rc != SQLITE_OK) return Fail(rc);
  }
  sqlite3_stmt* s = t->update.get();
  {
    ResetOnExit reset(s);
    sqlite3_bind_int64(s, 1, pos);
    sqlite3_bind_int64(s, 2, version);
    sqlite3_bind_blob(s, 3, data, StoredLength(data, t->shape.record_length), SQLITE_STATIC);
    BindKeys(s, t, keys, 4);
    int rc = sqlite3_step(s);
    if (rc != SQLITE_DONE) return Fail(rc);
  }
  if (sqlite3_changes(db_) == 1) {
    *new_version = version + 1;
    return kStatusOk;
  }
  // Nothing matched: tell a record changed or gone from a key that may not change.
  sqlite3_stmt* c = t->check.get();
  ResetOnExit reset(c);
  sqlite3_bind_int64(c, 1, pos);
  int rc = sqlite3_step(c);
  if (rc == SQLITE_DONE) return kStatusConflict;
  if (rc != SQLITE_ROW) return Fail(rc);
  if (sqlite3_column_int64(c, 0) != version) return kStatusConflict;
  return kStatusKeyNotModifiable;
}

Status SqliteBackend::Delete(Table* table, int32_t pos, int64_t version) {
  StartCall();
  EndScans();
  SqlTable* t = static_cast<SqlTable*>(table);
  int rc = t->erase.Prepare(db_, "DELETE FROM " + t->name + " WHERE pos=?1 AND ver=?2");
  if (rc != SQLITE_OK) return Fail(rc);
  sqlite3_stmt* s = t->erase.get();
  ResetOnExit reset(s);
  sqlite3_bind_int64(s, 1, pos);
  sqlite3_bind_int64(s, 2, version);
  rc = sqlite3_step(s);
  if (rc != SQLITE_DONE) return Fail(rc);
  return sqlite3_changes(db_) == 1 ? kStatusOk : kStatusConflict;
}

Status SqliteBackend::Restore(Table* table, int32_t pos, int64_t version, const uint8_t* data,
                              const uint8_t* keys, bool exists) {
  StartCall();
  EndScans();
  SqlTable* t = static_cast<SqlTable*>(table);
  const size_t n = t->shape.key_lengths.size();
  // Parameters: ?1 pos, ?2 version, ?3 record, ?4.. the keys in slot order.
  Stmt& stmt = exists ? t->rewrite : t->put_back;
  if (stmt.get() == nullptr) {
    std::string sql;
    if (exists) {
      sql = "UPDATE " + t->name + " SET ver=?2, data=?3";
      for (size_t i = 0; i < n; ++i) sql += Numbered(", k", i) + Numbered("=?", i + 4);
      sql += " WHERE pos=?1";
    } else {
      std::string values = "VALUES(?1, ?2, ?3";
      sql = "INSERT INTO " + t->name + "(pos, ver, data";
      for (size_t i = 0; i < n; ++i) {
        sql += Numbered(", k", i);
        values += Numbered(", ?", i + 4);
      }
      sql += ") " + values + ")";
    }
    int rc = stmt.Prepare(db_, sql);
    if (rc != SQLITE_OK) return Fail(rc);
  }
  sqlite3_stmt* s = stmt.get();
  ResetOnExit reset(s);
  sqlite3_bind_int64(s, 1, pos);
  sqlite3_bind_int64(s, 2, version);
  sqlite3_bind_blob(s, 3, data, StoredLength(data, t->shape.record_length), SQLITE_STATIC);
  BindKeys(s, t, keys, 4);
  int rc = sqlite3_step(s);
  if (rc != SQLITE_DONE) return Fail(rc);
  return sqlite3_changes(db_) == 1 ? Status{kStatusOk} : Status{kStatusIoError};
}

Status SqliteBackend::Erase(Table* table, int32_t pos) {
  StartCall();
  EndScans();
  SqlTable* t = static_cast<SqlTable*>(table);
  int rc = t->erase_pos.Prepare(db_, "DELETE FROM " + t->name + " WHERE pos=?1");
  if (rc != SQLITE_OK) return Fail(rc);
  sqlite3_stmt* s = t->erase_pos.get();
  ResetOnExit reset(s);
  sqlite3_bind_int64(s, 1, pos);
  rc = sqlite3_step(s);
  if (rc != SQLITE_DONE) return Fail(rc);
  return sqlite3_changes(db_) == 1 ? Status{kStatusOk} : Status{kStatusIoError};
}

}  // namespace

std::unique_ptr<Backend> OpenSqliteBackend(const std::string& directory, bool create,
                                           Status* status) {
  const std::string path = directory + "/" + kStoreFileName;
  sqlite3* db = nullptr;
  int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE;
  if (create) flags |= SQLITE_OPEN_CREATE;
  int rc = sqlite3_open_v2(path.c_str(), &db, flags, BoundedVfs());
  if (rc != SQLITE_OK) {
    *status = (rc & 0xff) == SQLITE_CANTOPEN ? Status{kStatusFileNotFound} : StatusFromSqlite(rc);
    sqlite3_close_v2(db);
    return nullptr;
  }
  auto backend = std::make_unique<SqliteBackend>(db, directory, g_batch_wait_ms.load(),
                                                 WriterTurn::Open(directory));
  *status = backend->Init(create);
  if (*status != kStatusOk) return nullptr;
  return backend;
}

}  // namespace rm
