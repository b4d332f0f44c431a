// The journal store: key set-up, loading a transaction from its header and rows, the
// navigation operations on the pair, and the batched writes that leave a transaction
// whole or as it was.
#include <cstring>

#include "file_creation.h"
#include "journldb.h"
#include "journldb_internal.h"
#include "utility.h"

namespace {

typedef uint8_t (*KeyedRead)(BtrvFile*, uint16_t, uint32_t, void*, int16_t);

int16_t KeyJournal(const JournalRecord* record) {
  if (record->Key1.JournalType == SJ && record->J.Sales.Area130.Journal12) return SJ2;
  return record->Key1.JournalType;
}

// Reads a header with read (the key fields set up first when with_key), then loads the
// transaction. record is left as it was when the header read fails.
int ReadTransaction(JrnlDBFilesType files, uint16_t lock, JournalRecord* record, int16_t key,
                    KeyedRead read, bool with_key) {
  if (record == nullptr) return 0;
  JrnlHdrType hdr;
  if (with_key) {
    SetupJrnlHdr(&hdr, record, key);
  } else {
    std::memset(&hdr, 0, sizeof hdr);
  }
  if (!read(files.HdrFile, lock, sizeof hdr, &hdr, key)) return 0;
  return ConvertJrnlHdrToJrnlRec(files.RowFile, &hdr, record);
}

// Deletes every row whose key 0 (post order number) is post_order.
bool DeleteRows(BtrvFile* row_file, uint32_t post_order) {
  JrnlRowType row;
  for (;;) {
    std::memset(&row, 0, sizeof row);
    row.PostOrder = post_order;
    if (!::GetFileEqual(row_file, kLockBiasNone, sizeof row, &row, 0)) {
      return GetErrorCode(row_file) == kStatusKeyNotFound;
    }
    if (!::DeleteRecord(row_file, sizeof row, &row)) return false;
  }
}

// One batch on both files: begun on the header file, then the row file (two levels,
// savepoints inside a caller's batch). Finish commits both when ok, else abandons both,
// so that nothing written inside stays.
class PairBatch {
 public:
  explicit PairBatch(JrnlDBFilesType files) : files_(files) {
    if (!bBeginBatchUpdate(files_.HdrFile)) return;
    levels_ = 1;
    if (!bBeginBatchUpdate(files_.RowFile)) {
      bAbortBatchUpdate(files_.HdrFile);
      levels_ = 0;
      return;
    }
    levels_ = 2;
  }
  bool ok() const { return levels_ == 2; }

  // failed names the handle whose write failed: both levels are abandoned through the
  // other one, so that the failed call's status stays readable on it.
  int Finish(bool ok, BtrvFile* failed = nullptr) {
    if (levels_ != 2) return 0;
    levels_ = 0;
    if (!ok) {
      BtrvFile* other = failed == files_.HdrFile ? files_.RowFile : files_.HdrFile;
      bAbortBatchUpdate(other);
      bAbortBatchUpdate(other);
      return 0;
    }
    // An end that fails has undone its own level already; the outer level is then
    // abandoned so that the header written in it goes too.
    if (!bEndBatchUpdate(files_.HdrFile)) {
      bAbortBatchUpdate(files_.RowFile);
      return 0;
    }
    return bEndBatchUpdate(files_.RowFile) ? 1 : 0;
  }

 private:
  JrnlDBFilesType files_;
  int levels_ = 0;
};

}  // namespace

void SetupJrnlHdr(JrnlHdrType* hdr, const JournalRecord* record, int16_t key) {
  if (hdr == nullptr) return;
  std::memset(hdr, 0, sizeof *hdr);
  if (record == nullptr) return;
  auto key1 = [&] {
    hdr->Key1 = record->Key1;
    hdr->Key1.JournalType = KeyJournal(record);
  };
  auto reference = [&] { std::memcpy(hdr->Reference, record->Reference.s, sizeof hdr->Reference); };
  switch (key) {
    case 0:
      key1();
      break;
    case 1:
    case 11:
      hdr->Key2 = record->Key2;
      break;
    case 2:
      reference();
      break;
    case 3:
      hdr->Key2.Date = record->Key2.Date;
      break;
    case 5:
      hdr->PostOrder = record->PostOrder;
      break;
    case 6:
      key1();
      hdr->Key2 = record->Key2;
      break;
    case 7:
      key1();
      reference();
      break;
    case 8:
      hdr->Key8RecordNumber = record->Key8RecordNumber;
      break;
    case 9:
      hdr->Key1.JournalType = KeyJournal(record);
      hdr->Key2 = record->Key2;
      break;
    case 10:
      hdr->Guid = record->Guid;
      break;
    case 12:
      hdr->Key1.JournalType = KeyJournal(record);
      reference();
      break;
    default:
      break;  // key 4 and unknown keys: no field
  }
}

int ConvertJrnlHdrToJrnlRec(BtrvFile* row_file, const JrnlHdrType* hdr, JournalRecord* record) {
  if (hdr == nullptr || record == nullptr) return 0;
  JrnlHdrToRecord(hdr, record);
  if (row_file == nullptr) return 1;
  JrnlRowType row;
  std::memset(&row, 0, sizeof row);
  row.PostOrder = hdr->PostOrder;
  // Row key 1 is the post order number and the line number: the main row comes first,
  // then the lines in order, each followed by its counter rows as they were written.
  uint8_t ok = ::GetFileGE(row_file, kLockBiasNone, sizeof row, &row, 1);
  while (ok && row.PostOrder == hdr->PostOrder) {
    JrnlLoadRow(row, record);
    ok = ::GetFileNext(row_file, kLockBiasNone, sizeof row, &row, 1);
  }
  return 1;
}

int GetFileEqual(JrnlDBFilesType files, uint16_t lock, JournalRecord* record, int16_t key) {
  return ReadTransaction(files, lock, record, key, ::GetFileEqual, true);
}
int GetFileGE(JrnlDBFilesType files, uint16_t lock, JournalRecord* record, int16_t key) {
  return ReadTransaction(files, lock, record, key, ::GetFileGE, true);
}
int GetFileLE(JrnlDBFilesType files, uint16_t lock, JournalRecord* record, int16_t key) {
  return ReadTransaction(files, lock, record, key, ::GetFileLE, true);
}
int GetFileGreater(JrnlDBFilesType files, uint16_t lock, JournalRecord* record, int16_t key) {
  return ReadTransaction(files, lock, record, key, ::GetFileGreater, true);
}
int GetFileLess(JrnlDBFilesType files, uint16_t lock, JournalRecord* record, int16_t key) {
  return ReadTransaction(files, lock, record, key, ::GetFileLess, true);
}
int GetFileHighest(JrnlDBFilesType files, uint16_t lock, JournalRecord* record, int16_t key) {
  return ReadTransaction(files, lock, record, key, ::GetFileHighest, true);
}
int GetFileLowest(JrnlDBFilesType files, uint16_t lock, JournalRecord* record, int16_t key) {
  return ReadTransaction(files, lock, record, key, ::GetFileLowest, false);
}
int GetFileNext(JrnlDBFilesType files, uint16_t lock, JournalRecord* record, int16_t key) {
  return ReadTransaction(files, lock, record, key, ::GetFileNext, false);
}
int GetFilePrevious(JrnlDBFilesType files, uint16_t lock, JournalRecord* record, int16_t key) {
  return ReadTransaction(files, lock, record, key, ::GetFilePrevious, false);
}

int GetFileDirect(JrnlDBFilesType files, uint16_t lock, JournalRecord* record, int16_t key,
                  int32_t position) {
  if (record == nullptr) return 0;
  JrnlHdrType hdr;
  std::memset(&hdr, 0, sizeof hdr);
  if (!::GetFileDirect(files.HdrFile, lock, sizeof hdr, &hdr, key, position)) return 0;
  return ConvertJrnlHdrToJrnlRec(files.RowFile, &hdr, record);
}

int StepDirect(JrnlDBFilesType files, JournalRecord* record) {
  if (record == nullptr) return 0;
  JrnlHdrType hdr;
  std::memset(&hdr, 0, sizeof hdr);
  if (!::StepDirect(files.HdrFile, sizeof hdr, &hdr)) return 0;
  return ConvertJrnlHdrToJrnlRec(files.RowFile, &hdr, record);
}

int InsertRecord(JrnlDBFilesType files, JournalRecord* record) {
  if (record == nullptr) return 0;
  PairBatch batch(files);
  if (!batch.ok()) return 0;
  JrnlHdrType hdr;
  JrnlRecordToHdr(record, &hdr);
  if (!::InsertRecord(files.HdrFile, sizeof hdr, &hdr)) return batch.Finish(false, files.HdrFile);
  return batch.Finish(JrnlSaveRows(files.RowFile, record), files.RowFile);
}

int UpdateFile(JrnlDBFilesType files, JournalRecord* record, int16_t key) {
  if (record == nullptr) return 0;
  PairBatch batch(files);
  if (!batch.ok()) return 0;
  JrnlHdrType hdr;
  JrnlRecordToHdr(record, &hdr);
  // Rows are never updated in place: the old ones go and the record's are written anew.
  if (!::UpdateFile(files.HdrFile, sizeof hdr, &hdr, key)) {
    return batch.Finish(false, files.HdrFile);
  }
  const bool ok =
      DeleteRows(files.RowFile, record->PostOrder) && JrnlSaveRows(files.RowFile, record);
  return batch.Finish(ok, files.RowFile);
}

int DeleteRecord(JrnlDBFilesType files, JournalRecord* record) {
  if (record == nullptr) return 0;
  PairBatch batch(files);
  if (!batch.ok()) return 0;
  JrnlHdrType hdr;
  if (!::DeleteRecord(files.HdrFile, sizeof hdr, &hdr)) return batch.Finish(false, files.HdrFile);
  return batch.Finish(DeleteRows(files.RowFile, record->PostOrder), files.RowFile);
}

unsigned char CreateJournalHdr() {
  if (CreateNewJournalHdrFile(nullptr)) return 1;
  Message(48, 2400);
  return 0;
}

bool CreateJournalRow() {
  if (CreateNewJournalRowFile(nullptr)) return true;
  Message(48, 2400);
  return false;
}

unsigned char CreateJournal() {
  if (!CreateJournalHdr()) return 0;
  return CreateJournalRow() ? 1 : 0;
}
