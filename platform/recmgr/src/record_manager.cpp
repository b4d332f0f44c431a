// The record manager's operations on open handles: keyed and positioned reads with
// currency and record locks, inserts, updates and deletes, batches, and statuses.
#include "record_manager.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "rm_store_internal.h"
#include "utility.h"

using rm::LockFile;
using rm::LockResult;
using rm::RowOut;
using rm::SeekOp;
using rm::Status;
using State = BtrvFile::State;

namespace {

enum class ReadOp { kEqual, kGE, kGreater, kLess, kLE, kLowest, kHighest, kNext, kPrevious };

SeekOp SeekOf(ReadOp op) {
  switch (op) {
    case ReadOp::kEqual:
      return SeekOp::kEqual;
    case ReadOp::kGE:
      return SeekOp::kGreaterOrEqual;
    case ReadOp::kGreater:
      return SeekOp::kGreater;
    case ReadOp::kLess:
      return SeekOp::kLess;
    case ReadOp::kLE:
      return SeekOp::kLessOrEqual;
    case ReadOp::kLowest:
      return SeekOp::kFirst;
    case ReadOp::kHighest:
      return SeekOp::kLast;
    case ReadOp::kNext:
      return SeekOp::kAfter;
    case ReadOp::kPrevious:
      return SeekOp::kBefore;
  }
  return SeekOp::kEqual;
}

bool TakesKeyValue(ReadOp op) {
  return op == ReadOp::kEqual || op == ReadOp::kGE || op == ReadOp::kGreater ||
         op == ReadOp::kLess || op == ReadOp::kLE;
}

// A lock bias: 0 plain, 50 key only, 200 with a single no-wait record lock. The other
// lock biases of the family (100, 300, 400) lock the same way here.
struct Bias {
  bool locked;
  bool key_only;
};
Bias ParseBias(uint16_t lock) { return Bias{lock >= 100, lock % 100 == 50}; }

// A handle made by this process (a child of a fork must open its own). Every call on a
// handle starts here, and so takes up a NoLockMessageOnNextCall: it holds for this call
// alone, also when the call is one that never prompts.
State* Usable(BtrvFile* f) {
  if (f == nullptr || f->state() == nullptr) return nullptr;
  State* s = f->state();
  s->prompt_suppressed = s->no_lock_message;
  s->no_lock_message = false;
  if (s->pid != rm::ThisProcess()) {
    s->status = kStatusNotOpen;
    return nullptr;
  }
  return s;
}

// Runs op, and again while the user answers Retry to the record-in-use / file-in-use
// prompt (unless NoLockMessageOnNextCall suppressed it for this call). The prompt is
// shown with no store locked, so that the host may do anything while it is up.
template <typename Op>
Status RunWithPrompt(State* s, Op op) {
  const bool suppressed = s->prompt_suppressed;
  Status st;
  for (;;) {
    st = op();
    if ((st != kStatusRecordInUse && st != kStatusFileInUse) || suppressed) break;
    if (MessageWithString(MB_RETRYCANCEL | MB_ICONEXCLAMATION, 20000 + st, s->name.c_str()) !=
        IDRETRY) {
      break;
    }
  }
  s->status = st;
  return st;
}

int64_t FileId(const State* s) { return s->file->entry.id; }

// Takes the single-record lock on pos for a locked read, dropping the handle's previous
// one. Answers 0, 84 when another handle holds it, 2 when the lock file fails.
Status LockForRead(State* s, int32_t pos) {
  if (s->locked_pos == pos) return kStatusOk;
  switch (s->locks->TryExclusive(LockFile::RecordByte(FileId(s), pos))) {
    case LockResult::kGranted:
      break;
    case LockResult::kConflict:
      return kStatusRecordInUse;
    case LockResult::kError:
      return kStatusIoError;
  }
  if (s->locked_pos != 0) s->locks->Unlock(LockFile::RecordByte(FileId(s), s->locked_pos));
  s->locked_pos = pos;
  return kStatusOk;
}

void DropLock(State* s) {
  if (s->locked_pos != 0) s->locks->Unlock(LockFile::RecordByte(FileId(s), s->locked_pos));
  s->locked_pos = 0;
}

// Before an update or delete of the current record: the handle's own lock will do;
// otherwise it must be free of every other handle's lock, and is held for the write.
Status LockForWrite(State* s, bool* temporary) {
  *temporary = false;
  if (s->locked_pos == s->pos) return kStatusOk;
  switch (s->locks->TryExclusive(LockFile::RecordByte(FileId(s), s->pos))) {
    case LockResult::kGranted:
      *temporary = true;
      return kStatusOk;
    case LockResult::kConflict:
      return kStatusRecordInUse;
    case LockResult::kError:
      return kStatusIoError;
  }
  return kStatusIoError;
}

void SetPath(State* s, int slot, const uint8_t* key_bytes) {
  s->path_slot = slot;
  if (slot >= 0) {
    std::memcpy(s->path_key.data(), key_bytes, s->file->keys.key(slot).length);
  }
}

// Reads one record (op, or the record at position when direct), with currency and locks.
// The first record after every record of the current record's key on key path slot, for a
// plain greater read from the current record: steps of the handle's walk, read into the
// handle's scratch, so that a read that finds nothing leaves the caller's buffer alone.
// After a few records of the same key, or at the end of the file, it searches instead: a
// key with many duplicates is passed faster by the index, and the search gives the status
// of nothing found. store.mu held.
Status StepPastCurrentKey(State* s, int slot, RowOut* row) {
  constexpr int kSteps = 4;
  const rm::KeySet& keys = s->file->keys;
  const uint32_t key_length = keys.key(slot).length;
  RowOut step;
  step.key = s->next_key.data();
  step.data = s->record.data();
  int32_t from = s->pos;
  for (int i = 0; i < kSteps; ++i) {
    Status st = s->store->Call().Seek(s->file->table, slot, SeekOp::kAfter, s->path_key.data(),
                                      from, s->id, &step);
    if (st == kStatusEndOfFile) break;
    if (st != kStatusOk) return st;
    if (std::memcmp(step.key, s->path_key.data(), key_length) != 0) {
      if (row->data != nullptr) std::memcpy(row->data, step.data, keys.record_length());
      row->pos = step.pos;
      row->version = step.version;
      return kStatusOk;
    }
    from = step.pos;
  }
  return s->store->Call().Seek(s->file->table, slot, SeekOp::kGreater, s->path_key.data(), 0, 0,
                               row);
}

Status DoRead(State* s, bool direct, ReadOp op, uint16_t lock, uint32_t len, uint8_t* buf,
              int16_t key, int32_t position) {
  const rm::KeySet& keys = s->file->keys;
  const Bias bias = ParseBias(lock);
  int slot = -1;
  if (!direct || key != -1) {
    slot = keys.SlotOf(key);
    if (slot < 0) return kStatusInvalidKeyNumber;
  }
  if (bias.key_only && slot < 0) return kStatusInvalidKeyNumber;
  const uint32_t want = bias.key_only ? keys.key(slot).length : uint32_t{keys.record_length()};
  if (len != want || buf == nullptr) return kStatusBadLength;
  if (direct && position <= 0) return kStatusBadPosition;

  rm::Store& store = *s->store;
  std::lock_guard<std::mutex> guard(store.mu);
  const uint8_t* search = nullptr;
  if (TakesKeyValue(op) && !direct) {
    if (bias.key_only) {
      keys.EncodeFromValue(slot, buf, s->search_key.data());
    } else {
      keys.EncodeFromRecord(slot, buf, s->search_key.data());
    }
    search = s->search_key.data();
  } else if (op == ReadOp::kNext || op == ReadOp::kPrevious) {
    if (s->pos == 0) return kStatusNoCurrency;
    if (slot != s->path_slot) {
      // Changing key path: find where the current record stands on the new key.
      if (s->deleted) return kStatusNoCurrency;
      RowOut here;
      here.key = s->path_key.data();
      Status st = store.Call().ReadAt(s->file->table, s->pos, slot, &here);
      if (st != kStatusOk) return st == kStatusBadPosition ? Status{kStatusNoCurrency} : st;
      s->path_slot = slot;
    }
    search = s->path_key.data();
  }

  // Plain reads go straight into the caller's buffer; the others go through the
  // handle's scratch so that a refused lock or a key-only read leaves buf alone.
  const bool need_record = !bias.key_only || !keys.key(slot).exact_decode;
  RowOut row;
  row.key = slot >= 0 ? s->next_key.data() : nullptr;
  row.data = !need_record ? nullptr : (bias.key_only || bias.locked ? s->record.data() : buf);
  Status st;
  if (direct) {
    st = store.Call().ReadAt(s->file->table, position, slot, &row);
  } else if (op == ReadOp::kGreater && !bias.locked && !bias.key_only && s->pos != 0 &&
             !s->deleted && slot == s->path_slot &&
             std::memcmp(search, s->path_key.data(), keys.key(slot).length) == 0) {
    // Greater than the handle's own current key: the handle's walk reaches it in a step or
    // a few (past the key's other records), where a search would start a new walk.
    st = StepPastCurrentKey(s, slot, &row);
  } else {
    const bool stepping = op == ReadOp::kNext || op == ReadOp::kPrevious;
    st = store.Call().Seek(s->file->table, slot, SeekOf(op), search, s->pos, stepping ? s->id : 0,
                           &row);
  }
  if (st != kStatusOk) return st;

  if (bias.locked && s->locks->writable() && row.pos != s->locked_pos) {
    st = LockForRead(s, row.pos);
    if (st != kStatusOk) return st;
    // Another handle may have changed the record between the read and the lock: read
    // it again now that nobody else can.
    st = store.Call().ReadAt(s->file->table, row.pos, slot, &row);
    if (st != kStatusOk) {
      DropLock(s);
      return direct ? kStatusBadPosition : kStatusKeyNotFound;
    }
  }

  s->pos = row.pos;
  s->version = row.version;
  s->deleted = false;
  if (slot >= 0) {
    s->path_slot = slot;
    std::swap(s->path_key, s->next_key);
  } else {
    s->path_slot = -1;
  }
  if (bias.key_only) {
    if (!keys.Decode(slot, s->path_key.data(), buf))
      keys.ExtractFields(slot, s->record.data(), buf);
  } else if (row.data != buf) {
    std::memcpy(buf, row.data, keys.record_length());
  }
  return kStatusOk;
}

uint8_t Read(BtrvFile* f, ReadOp op, uint16_t lock, uint32_t len, void* buf, int16_t key) {
  State* s = Usable(f);
  if (s == nullptr) return 0;
  Status st = RunWithPrompt(
      s, [&] { return DoRead(s, false, op, lock, len, static_cast<uint8_t*>(buf), key, 0); });
  return st == kStatusOk;
}

// Fills auto-increment fields that are 0 with the highest value in the file + 1.
Status AssignAutoIncrements(State* s, uint8_t* record) {
  const rm::KeySet& keys = s->file->keys;
  for (int slot : keys.auto_increment_slots()) {
    const rm::Segment& seg = keys.key(slot).segments.front();
    if (rm::ReadSignedLE(record + seg.offset, seg.length) != 0) continue;
    RowOut top;
    top.key = s->next_key.data();
    Status st = s->store->Call().Seek(
        s->file->table, slot, seg.descending ? SeekOp::kFirst : SeekOp::kLast, nullptr, 0, 0, &top);
    int64_t highest = 0;
    if (st == kStatusOk) {
      highest = keys.LeadingInteger(slot, s->next_key.data());
    } else if (st != kStatusEndOfFile) {
      return st;
    }
    rm::WriteSignedLE(record + seg.offset, seg.length, std::max<int64_t>(highest, 0) + 1);
  }
  return kStatusOk;
}

// Inside a nested batch: the current record as it is before a write, so that abandoning
// the batch can put it back. mu held.
Status OldImage(State* s, rm::UndoEntry::Kind kind, rm::UndoEntry* entry) {
  const rm::KeySet& keys = s->file->keys;
  entry->kind = kind;
  entry->file_id = FileId(s);
  entry->pos = s->pos;
  entry->data.resize(keys.record_length());
  entry->keys.resize(std::max<uint32_t>(keys.total_key_length(), 1));
  RowOut row;
  row.data = entry->data.data();
  Status st = s->store->Call().ReadAt(s->file->table, s->pos, -1, &row);
  if (st == kStatusBadPosition) return kStatusConflict;  // gone since this handle read it
  if (st != kStatusOk) return st;
  entry->version = row.version;
  keys.EncodeAll(entry->data.data(), entry->keys.data());
  return kStatusOk;
}

Status DoInsert(State* s, uint32_t len, uint8_t* buf, bool by_key, uint16_t key) {
  const rm::KeySet& keys = s->file->keys;
  if (s->mode == kOpenModeReadOnly) return kStatusReadOnly;
  if (len != keys.record_length() || buf == nullptr) return kStatusBadLength;
  int slot = s->path_slot;
  if (by_key) {
    slot = key == kNoKeyCurrency ? -1 : keys.SlotOf(key);
    if (slot < 0 && key != kNoKeyCurrency) return kStatusInvalidKeyNumber;
  }
  rm::Store& store = *s->store;
  std::lock_guard<std::mutex> guard(store.mu);
  rm::WriteScope scope(&store, FileId(s));
  Status st = scope.Begin();
  if (st != kStatusOk) return st;
  uint8_t* record = s->record.data();
  std::memcpy(record, buf, len);
  st = AssignAutoIncrements(s, record);
  int32_t pos = 0;
  if (st == kStatusOk) {
    keys.EncodeAll(record, s->keys.data());
    st = store.Call().Insert(s->file->table, record, s->keys.data(), &pos);
  }
  if (st == kStatusOk) {
    rm::UndoEntry undo;
    undo.kind = rm::UndoEntry::kErase;
    undo.file_id = FileId(s);
    undo.pos = pos;
    store.LogUndo(std::move(undo));
  }
  st = scope.End(st);
  if (st != kStatusOk) return st;
  std::memcpy(buf, record, len);  // the auto-increment values
  s->pos = pos;
  s->version = 1;
  s->deleted = false;
  SetPath(s, slot, slot >= 0 ? s->keys.data() + keys.key_offset(slot) : nullptr);
  return kStatusOk;
}

Status DoUpdate(State* s, uint32_t len, const uint8_t* buf, int16_t key) {
  const rm::KeySet& keys = s->file->keys;
  if (s->mode == kOpenModeReadOnly) return kStatusReadOnly;
  if (len != keys.record_length() || buf == nullptr) return kStatusBadLength;
  int slot = -1;
  if (key != -1) {
    slot = keys.SlotOf(key);
    if (slot < 0) return kStatusInvalidKeyNumber;
  }
  if (s->pos == 0 || s->deleted) return kStatusNoCurrency;
  rm::Store& store = *s->store;
  std::lock_guard<std::mutex> guard(store.mu);
  bool temporary = false;
  Status st = LockForWrite(s, &temporary);
  if (st != kStatusOk) return st;
  rm::WriteScope scope(&store, FileId(s));
  st = scope.Begin();
  int64_t version = 0;
  rm::UndoEntry undo;
  if (st == kStatusOk && !store.nested.empty()) st = OldImage(s, rm::UndoEntry::kRewrite, &undo);
  if (st == kStatusOk) {
    keys.EncodeAll(buf, s->keys.data());
    st = store.Call().Update(s->file->table, s->pos, s->version, buf, s->keys.data(), &version);
    if (st == kStatusOk) store.LogUndo(std::move(undo));
  }
  st = scope.End(st);
  if (temporary) s->locks->Unlock(LockFile::RecordByte(FileId(s), s->pos));
  if (st != kStatusOk) return st;
  if (s->locked_pos == s->pos) DropLock(s);
  s->version = version;
  SetPath(s, slot, slot >= 0 ? s->keys.data() + keys.key_offset(slot) : nullptr);
  return kStatusOk;
}

Status DoDelete(State* s, AMCallbackRecordInfo* info) {
  if (s->mode == kOpenModeReadOnly) return kStatusReadOnly;
  if (s->pos == 0 || s->deleted) return kStatusNoCurrency;
  rm::Store& store = *s->store;
  std::lock_guard<std::mutex> guard(store.mu);
  bool temporary = false;
  Status st = LockForWrite(s, &temporary);
  if (st != kStatusOk) return st;
  rm::WriteScope scope(&store, FileId(s));
  st = scope.Begin();
  rm::UndoEntry undo;
  if (st == kStatusOk && !store.nested.empty()) st = OldImage(s, rm::UndoEntry::kReinsert, &undo);
  if (st == kStatusOk) {
    st = store.Call().Delete(s->file->table, s->pos, s->version);
    if (st == kStatusOk) store.LogUndo(std::move(undo));
  }
  st = scope.End(st);
  if (temporary) s->locks->Unlock(LockFile::RecordByte(FileId(s), s->pos));
  if (st != kStatusOk) return st;
  if (s->locked_pos == s->pos) DropLock(s);
  // The place stays for Next and Previous; the record is no longer current.
  s->deleted = true;
  if (info != nullptr) {
    info->recordNumber = s->pos;
    info->fileNumber = s->file_number;
  }
  return kStatusOk;
}

Status DoStep(State* s, uint32_t len, uint8_t* buf) {
  const rm::KeySet& keys = s->file->keys;
  if (len != keys.record_length() || buf == nullptr) return kStatusBadLength;
  rm::Store& store = *s->store;
  std::lock_guard<std::mutex> guard(store.mu);
  RowOut row;
  row.data = buf;
  Status st = store.Call().Step(s->file->table, s->pos, true, &row);
  if (st != kStatusOk) return st;
  s->pos = row.pos;
  s->version = row.version;
  s->deleted = false;
  if (s->path_slot >= 0) keys.EncodeFromRecord(s->path_slot, buf, s->path_key.data());
  return kStatusOk;
}

}  // namespace

void BtrvFile::NoLockMessageOnNextCall(bool flag) {
  if (state_ != nullptr) state_->no_lock_message = flag;
}

uint8_t GetFileEqual(BtrvFile* f, uint16_t lock, uint32_t len, void* buf, int16_t key) {
  return Read(f, ReadOp::kEqual, lock, len, buf, key);
}
uint8_t GetFileGE(BtrvFile* f, uint16_t lock, uint32_t len, void* buf, int16_t key) {
  return Read(f, ReadOp::kGE, lock, len, buf, key);
}
uint8_t GetFileGreater(BtrvFile* f, uint16_t lock, uint32_t len, void* buf, int16_t key) {
  return Read(f, ReadOp::kGreater, lock, len, buf, key);
}
uint8_t GetFileLess(BtrvFile* f, uint16_t lock, uint32_t len, void* buf, int16_t key) {
  return Read(f, ReadOp::kLess, lock, len, buf, key);
}
uint8_t GetFileLE(BtrvFile* f, uint16_t lock, uint32_t len, void* buf, int16_t key) {
  return Read(f, ReadOp::kLE, lock, len, buf, key);
}
uint8_t GetFileLowest(BtrvFile* f, uint16_t lock, uint32_t len, void* buf, int16_t key) {
  return Read(f, ReadOp::kLowest, lock, len, buf, key);
}
uint8_t GetFileHighest(BtrvFile* f, uint16_t lock, uint32_t len, void* buf, int16_t key) {
  return Read(f, ReadOp::kHighest, lock, len, buf, key);
}
uint8_t GetFileNext(BtrvFile* f, uint16_t lock, uint32_t len, void* buf, int16_t key) {
  return Read(f, ReadOp::kNext, lock, len, buf, key);
}
uint8_t GetFilePrevious(BtrvFile* f, uint16_t lock, uint32_t len, void* buf, int16_t key) {
  return Read(f, ReadOp::kPrevious, lock, len, buf, key);
}

uint8_t GetFileDirect(BtrvFile* f, uint16_t lock, uint32_t len, void* buf, int16_t key,
                      int32_t position) {
  State* s = Usable(f);
  if (s == nullptr) return 0;
  Status st = RunWithPrompt(s, [&] {
    return DoRead(s, true, ReadOp::kEqual, lock, len, static_cast<uint8_t*>(buf), key, position);
  });
  return st == kStatusOk;
}

uint8_t StepDirect(BtrvFile* f, uint32_t len, void* buf) {
  State* s = Usable(f);
  if (s == nullptr) return 0;
  Status st = RunWithPrompt(s, [&] { return DoStep(s, len, static_cast<uint8_t*>(buf)); });
  return st == kStatusOk;
}

uint8_t InsertRecord(BtrvFile* f, uint32_t len, void* buf) {
  State* s = Usable(f);
  if (s == nullptr) return 0;
  Status st =
      RunWithPrompt(s, [&] { return DoInsert(s, len, static_cast<uint8_t*>(buf), false, 0); });
  return st == kStatusOk;
}

uint8_t InsertRecordByKey(BtrvFile* f, uint32_t len, void* buf, uint16_t key) {
  State* s = Usable(f);
  if (s == nullptr) return 0;
  Status st =
      RunWithPrompt(s, [&] { return DoInsert(s, len, static_cast<uint8_t*>(buf), true, key); });
  return st == kStatusOk;
}

uint8_t UpdateFile(BtrvFile* f, uint32_t len, void* buf, int16_t key) {
  State* s = Usable(f);
  if (s == nullptr) return 0;
  Status st =
      RunWithPrompt(s, [&] { return DoUpdate(s, len, static_cast<const uint8_t*>(buf), key); });
  return st == kStatusOk;
}

uint8_t DeleteRecord(BtrvFile* f, uint32_t len, void* buf) {
  return DeleteRecord(f, len, buf, nullptr);
}

uint8_t DeleteRecord(BtrvFile* f, uint32_t /*len*/, void* /*buf*/, AMCallbackRecordInfo* info) {
  State* s = Usable(f);
  if (s == nullptr) return 0;
  Status st = RunWithPrompt(s, [&] { return DoDelete(s, info); });
  return st == kStatusOk;
}

int32_t PhysicalPosition(BtrvFile* f) {
  State* s = Usable(f);
  if (s == nullptr) return 0;
  if (s->pos == 0 || s->deleted) {
    s->status = kStatusNoCurrency;
    return 0;
  }
  s->status = kStatusOk;
  return s->pos;
}

int32_t NumRecsInFile(BtrvFile* f) {
  State* s = Usable(f);
  if (s == nullptr) return -1;
  int64_t count = 0;
  {
    std::lock_guard<std::mutex> guard(s->store->mu);
    s->status = s->store->Call().Count(s->file->table, &count);
  }
  if (s->status != kStatusOk) return -1;
  return static_cast<int32_t>(std::min<int64_t>(count, INT32_MAX));
}

uint8_t UnlockOneRecord(BtrvFile* f) {
  State* s = Usable(f);
  if (s == nullptr) return 0;
  std::lock_guard<std::mutex> guard(s->store->mu);
  DropLock(s);
  s->status = kStatusOk;
  return 1;
}

int bBeginBatchUpdate(BtrvFile* f) {
  State* s = Usable(f);
  if (s == nullptr) return 0;
  Status st = RunWithPrompt(s, [&]() -> Status {
    rm::Store& store = *s->store;
    std::lock_guard<std::mutex> guard(store.mu);
    if (store.batch_depth == 0) {
      Status begun = store.Call().Begin();
      if (begun != kStatusOk) {
        if (store.Call().InTransaction()) store.Call().Rollback();
        return begun;
      }
      store.EndBatches();
    } else {
      // A batch inside a batch can be abandoned alone: it keeps an undo log of its writes.
      if (store.batch_failure != kStatusOk) return store.batch_failure;
      store.nested.emplace_back();
      store.nested.back().touched_mark = store.touched.size();
    }
    ++store.batch_depth;
    return kStatusOk;
  });
  return st == kStatusOk;
}

namespace {

// Puts back what one write of a nested batch changed. mu held.
Status Undo(rm::Store& store, const rm::UndoEntry& entry) {
  auto it = store.files.find(entry.file_id);
  if (it == store.files.end()) return kStatusIoError;  // the file is gone: cannot put back
  rm::Table* table = it->second->table;
  if (entry.kind == rm::UndoEntry::kErase) return store.Call().Erase(table, entry.pos);
  return store.Call().Restore(table, entry.pos, entry.version, entry.data.data(), entry.keys.data(),
                              entry.kind == rm::UndoEntry::kRewrite);
}

// Closes the innermost nested batch, keeping (an end) or undoing (an abandon, or an end
// that fails) what it wrote. Kept writes join the enclosing batch's undo log; undone ones
// are put back from the log, newest first, or rolled back to the batch's savepoint where
// a catalogue change made one. mu held.
Status CloseNestedLevel(rm::Store& store, bool keep) {
  rm::NestedBatch level = std::move(store.nested.back());
  store.nested.pop_back();
  const bool shared = level.savepoint != 0 && !store.nested.empty() &&
                      store.nested.back().savepoint == level.savepoint;
  Status st = store.batch_failure;
  if (st == kStatusOk && keep) {
    if (level.savepoint != 0 && !shared) {
      st = store.Call().ReleaseSavepoint(level.savepoint);
      if (st == kStatusOk) {
        --store.savepoints;
      } else {
        keep = false;  // an end that fails undoes its own batch, as the outermost end does
      }
    }
    if (keep && !store.nested.empty()) {
      std::vector<rm::UndoEntry>& outer = store.nested.back().undo;
      outer.insert(outer.end(), std::make_move_iterator(level.undo.begin()),
                   std::make_move_iterator(level.undo.end()));
    }
  }
  if (!keep && store.batch_failure == kStatusOk) {
    Status undone = kStatusOk;
    size_t logged = level.undo.size();
    if (level.savepoint != 0) {
      undone = store.Call().RollbackToSavepoint(level.savepoint);
      if (undone == kStatusOk && !shared) {
        undone = store.Call().ReleaseSavepoint(level.savepoint);
        if (undone == kStatusOk) --store.savepoints;
      }
      logged = level.undo_before_savepoint;  // the rollback undid the rest
    }
    for (size_t i = logged; undone == kStatusOk && i-- > 0;) undone = Undo(store, level.undo[i]);
    if (undone != kStatusOk) {
      store.batch_failure = undone;  // what it wrote may still be there: nothing may commit
      if (st == kStatusOk) st = undone;
    }
  }
  --store.batch_depth;
  if (!keep) store.touched.resize(level.touched_mark);
  return st;
}

}  // namespace

int bEndBatchUpdate(BtrvFile* f) {
  State* s = Usable(f);
  if (s == nullptr) return 0;
  rm::Store& store = *s->store;
  std::lock_guard<std::mutex> guard(store.mu);
  if (store.batch_depth == 0) {
    s->status = kStatusNoBatch;
    return 0;
  }
  if (store.batch_depth > 1) {
    // An inner batch's writes become the outer one's; they commit with it.
    s->status = CloseNestedLevel(store, /*keep=*/true);
    return s->status == kStatusOk;
  }
  // The last end: the change times of the files written, then the commit, so that the
  // batch's records and the times other processes go by appear together.
  Status st = store.batch_failure;
  for (size_t i = 0; st == kStatusOk && i < store.touched.size(); ++i) {
    st = store.Call().TouchFile(store.touched[i]);
  }
  if (st == kStatusOk) st = store.Call().Commit();
  if (st != kStatusOk) store.Call().Rollback();
  store.EndBatches();
  s->status = st;
  return st == kStatusOk;
}

int bAbortBatchUpdate(BtrvFile* f) {
  State* s = Usable(f);
  if (s == nullptr) return 0;
  rm::Store& store = *s->store;
  std::lock_guard<std::mutex> guard(store.mu);
  if (store.batch_depth == 0) {
    s->status = kStatusNoBatch;
    return 0;
  }
  if (store.batch_depth > 1) {
    // Undoes the innermost batch alone; the ones around it go on.
    CloseNestedLevel(store, /*keep=*/false);
    s->status = kStatusOk;
    return 1;
  }
  store.Call().Rollback();
  store.EndBatches();
  s->status = kStatusOk;
  return 1;
}
