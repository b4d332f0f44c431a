// The SQLite store of the record manager. Every statement is prepared once per
// connection and table and kept; table and index names are made from catalogue numbers
// only, never from a caller's text.
#include "rm_sqlite_backend.h"

#include <sqlite3.h>
#include <time.h>

#include <array>
#include <cstring>
#include <string>
#include <vector>

#include "record_manager.h"

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
    dups_after.resize(n);
    dups_before.resize(n);
    read_at_key.resize(n);
    for (uint32_t len : s.key_lengths) total_key_length += len;
  }
  std::string Column(int slot) const { return Numbered("k", slot); }

  TableShape shape;
  std::string name;  // f<id>
  uint32_t total_key_length = 0;
  // [slot][op][0 with the record, 1 key only]
  std::vector<std::array<std::array<Stmt, 2>, kSeekOpCount>> seek;
  // The rest of a run of duplicates after / before a position: [slot][key only]
  std::vector<std::array<Stmt, 2>> dups_after;
  std::vector<std::array<Stmt, 2>> dups_before;
  std::vector<Stmt> read_at_key;  // [slot]
  Stmt read_at, step_forward, step_back, count, insert, update, check, erase, erase_pos;
};

class SqliteBackend final : public Backend {
 public:
  SqliteBackend(sqlite3* db, int busy_ms) : db_(db), busy_ms_(busy_ms) {}
  ~SqliteBackend() override {
    EndScan();
    tables_.clear();
    catalogue_.reset();
    // An open transaction is undone by the close: a batch never commits half-way.
    sqlite3_close_v2(db_);
  }

  Status Init(bool create);

  Status FindFile(const std::string& name, FileEntry* out) override;
  Status CreateFile(const FileEntry& entry, const TableShape& shape, int64_t* id) override;
  Status DropFile(int64_t id) override;
  Status TouchFile(int64_t id, int64_t changed_ns) override;
  Table* AttachTable(const TableShape& shape) override;
  void DetachTable(Table* table) override;
  Status Begin() override;
  Status Commit() override;
  void Rollback() override;
  bool InTransaction() override { return sqlite3_get_autocommit(db_) == 0; }
  void SetBusyWait(int ms) override {
    busy_ms_ = ms;
    sqlite3_busy_timeout(db_, ms);
  }
  void Quiesce() override { EndScan(); }
  Status Seek(Table* table, int slot, SeekOp op, const uint8_t* key, int32_t pos,
              uint64_t scan_owner, RowOut* out) override;
  Status ReadAt(Table* table, int32_t pos, int slot, RowOut* out) override;
  Status Step(Table* table, int32_t pos, bool forward, RowOut* out) override;
  Status Count(Table* table, int64_t* count) override;
  Status Insert(Table* table, const uint8_t* data, const uint8_t* keys, int32_t* pos) override;
  Status Update(Table* table, int32_t pos, int64_t version, const uint8_t* data,
                const uint8_t* keys, int64_t* new_version) override;
  Status Delete(Table* table, int32_t pos, int64_t version) override;

 private:
  // Catalogue and transaction statements.
  struct Catalogue {
    Stmt find, insert, erase, touch, begin, commit, rollback;
  };
  // The one stepping cursor of this connection.
  struct Scan {
    sqlite3_stmt* stmt = nullptr;
    SqlTable* table = nullptr;
    int slot = 0;
    SeekOp op = SeekOp::kAfter;
    bool key_only = false;
    bool in_duplicates = false;  // stepping the rest of one key's duplicates
    uint64_t owner = 0;
    int32_t last_pos = 0;
    int64_t last_ns = 0;
  };

  void EndScan() {
    if (scan_.stmt != nullptr) sqlite3_reset(scan_.stmt);
    scan_.stmt = nullptr;
  }
  // Statements answer SQLite's extended result code directly.
  Status Fail(int rc) const { return StatusFromSqlite(rc); }
  Status LastFailure() const { return StatusFromSqlite(sqlite3_extended_errcode(db_)); }
  Status Exec(const std::string& sql);
  sqlite3_stmt* SeekStatement(SqlTable* t, int slot, SeekOp op, bool key_only);
  sqlite3_stmt* DuplicatesStatement(SqlTable* t, int slot, bool after, bool key_only);
  // Copies the current row of stmt (pos, ver, key, [record]) into out.
  Status FillRow(SqlTable* t, int slot, sqlite3_stmt* stmt, RowOut* out);
  // Steps stmt once: 0 with a row filled, end_status when there is none.
  Status StepRow(SqlTable* t, int slot, sqlite3_stmt* stmt, RowOut* out, Status end_status);
  Status ScanStep(SqlTable* t, int slot, SeekOp op, const uint8_t* key, RowOut* out);

  sqlite3* db_;
  int busy_ms_;
  std::unique_ptr<Catalogue> catalogue_ = std::make_unique<Catalogue>();
  std::vector<std::unique_ptr<SqlTable>> tables_;
  Scan scan_;
};

Status SqliteBackend::Exec(const std::string& sql) {
  int rc = sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, nullptr);
  return rc == SQLITE_OK ? Status{kStatusOk} : Fail(rc);
}

Status SqliteBackend::Init(bool create) {
  sqlite3_extended_result_codes(db_, 1);
  sqlite3_busy_timeout(db_, busy_ms_);
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
  Status st = Exec("PRAGMA synchronous=FULL; PRAGMA cache_size=-32768");
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
  EndScan();
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
  EndScan();
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
    sqlite3_bind_int64(s, 6, entry.changed_ns);
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
  EndScan();
  // Statements prepared on the table would keep it busy.
  for (auto it = tables_.begin(); it != tables_.end();) {
    it = (*it)->shape.id == id ? tables_.erase(it) : it + 1;
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

Status SqliteBackend::TouchFile(int64_t id, int64_t changed_ns) {
  EndScan();
  int rc = catalogue_->touch.Prepare(db_, "UPDATE _files SET changed_ns=?2 WHERE id=?1");
  if (rc != SQLITE_OK) return Fail(rc);
  sqlite3_stmt* s = catalogue_->touch.get();
  ResetOnExit reset(s);
  sqlite3_bind_int64(s, 1, id);
  sqlite3_bind_int64(s, 2, changed_ns);
  rc = sqlite3_step(s);
  return rc == SQLITE_DONE ? Status{kStatusOk} : Fail(rc);
}

Table* SqliteBackend::AttachTable(const TableShape& shape) {
  EndScan();
  tables_.push_back(std::make_unique<SqlTable>(shape));
  return tables_.back().get();
}

void SqliteBackend::DetachTable(Table* table) {
  EndScan();
  for (auto it = tables_.begin(); it != tables_.end(); ++it) {
    if (it->get() == table) {
      tables_.erase(it);
      return;
    }
  }
}

Status SqliteBackend::Begin() {
  EndScan();
  int rc = catalogue_->begin.Prepare(db_, "BEGIN IMMEDIATE");
  if (rc != SQLITE_OK) return Fail(rc);
  sqlite3_stmt* s = catalogue_->begin.get();
  ResetOnExit reset(s);
  rc = sqlite3_step(s);
  return rc == SQLITE_DONE ? Status{kStatusOk} : Fail(rc);
}

Status SqliteBackend::Commit() {
  EndScan();
  int rc = catalogue_->commit.Prepare(db_, "COMMIT");
  if (rc != SQLITE_OK) return Fail(rc);
  sqlite3_stmt* s = catalogue_->commit.get();
  ResetOnExit reset(s);
  rc = sqlite3_step(s);
  return rc == SQLITE_DONE ? Status{kStatusOk} : Fail(rc);
}

void SqliteBackend::Rollback() {
  EndScan();
  if (sqlite3_get_autocommit(db_)) return;
  if (catalogue_->rollback.Prepare(db_, "ROLLBACK") != SQLITE_OK) {
    sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
    return;
  }
  sqlite3_stmt* s = catalogue_->rollback.get();
  ResetOnExit reset(s);
  sqlite3_step(s);
}

sqlite3_stmt* SqliteBackend::SeekStatement(SqlTable* t, int slot, SeekOp op, bool key_only) {
  Stmt& stmt = t->seek[static_cast<size_t>(slot)][static_cast<size_t>(op)][key_only ? 1 : 0];
  if (stmt.get() != nullptr) return stmt.get();
  const std::string k = t->Column(slot);
  std::string sql = "SELECT pos, ver, " + k + (key_only ? "" : ", data") + " FROM " + t->name;
  const std::string up = " ORDER BY " + k + ", pos";
  const std::string down = " ORDER BY " + k + " DESC, pos DESC";
  switch (op) {
    case SeekOp::kEqual:
      sql += " WHERE " + k + "=?1" + up + " LIMIT 1";
      break;
    case SeekOp::kGreaterOrEqual:
      sql += " WHERE " + k + ">=?1" + up + " LIMIT 1";
      break;
    case SeekOp::kGreater:
      sql += " WHERE " + k + ">?1" + up + " LIMIT 1";
      break;
    case SeekOp::kLess:
      sql += " WHERE " + k + "<?1" + down + " LIMIT 1";
      break;
    case SeekOp::kLessOrEqual:
      sql += " WHERE " + k + "<=?1" + down + " LIMIT 1";
      break;
    case SeekOp::kFirst:
      sql += up + " LIMIT 1";
      break;
    case SeekOp::kLast:
      sql += down + " LIMIT 1";
      break;
    // The cursors of Next and Previous: every key after / before the current one (the
    // current key's remaining duplicates come from DuplicatesStatement first).
    case SeekOp::kAfter:
      sql += " WHERE " + k + ">?1" + up;
      break;
    case SeekOp::kBefore:
      sql += " WHERE " + k + "<?1" + down;
      break;
  }
  if (stmt.Prepare(db_, sql) != SQLITE_OK) return nullptr;
  return stmt.get();
}

sqlite3_stmt* SqliteBackend::DuplicatesStatement(SqlTable* t, int slot, bool after, bool key_only) {
  Stmt& stmt = (after ? t->dups_after : t->dups_before)[static_cast<size_t>(slot)][key_only];
  if (stmt.get() != nullptr) return stmt.get();
  const std::string k = t->Column(slot);
  // (key, pos) > (?1, ?2) as one row-value range would not use the index's position
  // column, and a long run of duplicates would be walked from its start on every seek.
  std::string sql = "SELECT pos, ver, " + k + (key_only ? "" : ", data") + " FROM " + t->name +
                    " WHERE " + k + "=?1 AND pos" + (after ? ">" : "<") + "?2 ORDER BY pos" +
                    (after ? "" : " DESC");
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
    const void* data = sqlite3_column_blob(stmt, column);
    if (data == nullptr ||
        static_cast<uint32_t>(sqlite3_column_bytes(stmt, column)) != t->shape.record_length) {
      return kStatusIoError;
    }
    std::memcpy(out->data, data, t->shape.record_length);
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
  SqlTable* t = static_cast<SqlTable*>(table);
  const bool key_only = out->data == nullptr;
  const int key_len = static_cast<int>(t->shape.key_lengths[static_cast<size_t>(slot)]);
  if (op == SeekOp::kAfter || op == SeekOp::kBefore) {
    const int64_t now = MonotonicNs();
    if (scan_.stmt != nullptr && scan_owner != 0 && scan_.owner == scan_owner && scan_.table == t &&
        scan_.slot == slot && scan_.op == op && scan_.key_only == key_only &&
        scan_.last_pos == pos && now - scan_.last_ns < kScanIdleLimitNs) {
      // Nothing else happened on this connection since the cursor returned the handle's
      // current record: its next row is the answer.
      scan_.last_ns = now;
      return ScanStep(t, slot, op, key, out);
    }
    EndScan();
    scan_ = Scan();
    scan_.table = t;
    scan_.slot = slot;
    scan_.op = op;
    scan_.key_only = key_only;
    scan_.owner = scan_owner;
    scan_.last_ns = now;
    if (!t->shape.unique[static_cast<size_t>(slot)]) {
      sqlite3_stmt* s = DuplicatesStatement(t, slot, op == SeekOp::kAfter, key_only);
      if (s == nullptr) return LastFailure();
      // The cursor outlives this call and key is the handle's buffer: SQLite keeps a copy.
      sqlite3_bind_blob(s, 1, key, key_len, SQLITE_TRANSIENT);
      sqlite3_bind_int64(s, 2, pos);
      scan_.stmt = s;
      scan_.in_duplicates = true;
    } else {
      sqlite3_stmt* s = SeekStatement(t, slot, op, key_only);
      if (s == nullptr) return LastFailure();
      sqlite3_bind_blob(s, 1, key, key_len, SQLITE_TRANSIENT);
      scan_.stmt = s;
    }
    Status st = ScanStep(t, slot, op, key, out);
    if (scan_owner == 0) EndScan();
    return st;
  }

  EndScan();
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

Status SqliteBackend::ScanStep(SqlTable* t, int slot, SeekOp op, const uint8_t* key, RowOut* out) {
  int rc = sqlite3_step(scan_.stmt);
  if (rc == SQLITE_DONE && scan_.in_duplicates) {
    // The current key has no more duplicates that way: go on with the keys beyond it.
    // key is the handle's current key, the same one the duplicates had.
    sqlite3_reset(scan_.stmt);
    scan_.in_duplicates = false;
    scan_.stmt = SeekStatement(t, slot, op, scan_.key_only);
    if (scan_.stmt == nullptr) return LastFailure();
    sqlite3_bind_blob(scan_.stmt, 1, key,
                      static_cast<int>(t->shape.key_lengths[static_cast<size_t>(slot)]),
                      SQLITE_TRANSIENT);
    rc = sqlite3_step(scan_.stmt);
  }
  if (rc == SQLITE_ROW) {
    Status st = FillRow(t, slot, scan_.stmt, out);
    if (st != kStatusOk) {
      EndScan();
      return st;
    }
    scan_.last_pos = out->pos;
    return kStatusOk;
  }
  EndScan();
  return rc == SQLITE_DONE ? Status{kStatusEndOfFile} : Fail(rc);
}

Status SqliteBackend::ReadAt(Table* table, int32_t pos, int slot, RowOut* out) {
  EndScan();
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
  EndScan();
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
  EndScan();
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

Status SqliteBackend::Insert(Table* table, const uint8_t* data, const uint8_t* keys, int32_t* pos) {
  EndScan();
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
    const uint8_t* k = keys;
    for (size_t i = 0; i < n; ++i) {
      sqlite3_bind_blob(s, static_cast<int>(i + 1), k, static_cast<int>(t->shape.key_lengths[i]),
                        SQLITE_STATIC);
      k += t->shape.key_lengths[i];
    }
    sqlite3_bind_blob(s, static_cast<int>(n + 1), data, static_cast<int>(t->shape.record_length),
                      SQLITE_STATIC);
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
  EndScan();
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
    sqlite3_bind_blob(s, 3, data, static_cast<int>(t->shape.record_length), SQLITE_STATIC);
    const uint8_t* k = keys;
    for (size_t i = 0; i < n; ++i) {
      sqlite3_bind_blob(s, static_cast<int>(i + 4), k, static_cast<int>(t->shape.key_lengths[i]),
                        SQLITE_STATIC);
      k += t->shape.key_lengths[i];
    }
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
  EndScan();
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

}  // namespace

std::unique_ptr<Backend> OpenSqliteBackend(const std::string& directory, bool create,
                                           Status* status) {
  const std::string path = directory + "/" + kStoreFileName;
  sqlite3* db = nullptr;
  int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE;
  if (create) flags |= SQLITE_OPEN_CREATE;
  int rc = sqlite3_open_v2(path.c_str(), &db, flags, nullptr);
  if (rc != SQLITE_OK) {
    *status = (rc & 0xff) == SQLITE_CANTOPEN ? Status{kStatusFileNotFound} : StatusFromSqlite(rc);
    sqlite3_close_v2(db);
    return nullptr;
  }
  auto backend = std::make_unique<SqliteBackend>(db, 10000);
  *status = backend->Init(create);
  if (*status != kStatusOk) return nullptr;
  return backend;
}

}  // namespace rm
