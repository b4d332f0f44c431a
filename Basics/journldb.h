// The journal store: one in-memory JournalRecord as one header of the journal header file
// and its rows in the journal row file, and back; the record manager's navigation on the
// pair as if the journal were one file of whole transactions; the invoice finder and the
// row-posted test. Builds on OpenDat, General (cash-basis switch), the employee lookup and
// the item, phase and cost-code files. Keeps its own look-up handles on the pair
// (CloseInternalJrnlFiles). Not thread-safe: the host serialises its calls.
//
// Every function answers 0 on failure and shows nothing; the record manager's status is
// left on the handle for GetErrorCode. The caller owns the pair and the record throughout.
#ifndef BASICS_JOURNLDB_H_
#define BASICS_JOURNLDB_H_

#include <cstdint>

#include "JOURNAL.h"

// Clears hdr and copies from record exactly the fields of header key `key` (0 to 12);
// other key numbers leave hdr zero. A sales record with its journal-12 flag set is put as
// journal 12 in every key that holds the journal type.
void SetupJrnlHdr(JrnlHdrType* hdr, const JournalRecord* record, int16_t key);
// Clears record and fills it from hdr and its rows, read from row_file by row key 1 (a
// null row_file reads none). Answers 1 (0 for a null hdr or record, record untouched).
int ConvertJrnlHdrToJrnlRec(BtrvFile* row_file, const JrnlHdrType* hdr, JournalRecord* record);

// Navigation on the header file by key, with the key fields taken from record; on success
// the whole transaction is loaded into record (cleared first) and 1 answered. On failure
// 0, record left as it was. lock is passed to the record manager unchanged.
int GetFileEqual(JrnlDBFilesType files, uint16_t lock, JournalRecord* record, int16_t key);
int GetFileGE(JrnlDBFilesType files, uint16_t lock, JournalRecord* record, int16_t key);
int GetFileLE(JrnlDBFilesType files, uint16_t lock, JournalRecord* record, int16_t key);
int GetFileGreater(JrnlDBFilesType files, uint16_t lock, JournalRecord* record, int16_t key);
int GetFileLess(JrnlDBFilesType files, uint16_t lock, JournalRecord* record, int16_t key);
int GetFileHighest(JrnlDBFilesType files, uint16_t lock, JournalRecord* record, int16_t key);
// The same without a key value.
int GetFileLowest(JrnlDBFilesType files, uint16_t lock, JournalRecord* record, int16_t key);
int GetFileNext(JrnlDBFilesType files, uint16_t lock, JournalRecord* record, int16_t key);
int GetFilePrevious(JrnlDBFilesType files, uint16_t lock, JournalRecord* record, int16_t key);
// The header at a physical position (key becomes the key path); the next header in
// physical order.
int GetFileDirect(JrnlDBFilesType files, uint16_t lock, JournalRecord* record, int16_t key,
                  int32_t position);
int StepDirect(JrnlDBFilesType files, JournalRecord* record);

// Writes. Each runs in its own batch on the pair (a savepoint inside the caller's batch)
// and, when any write fails, abandons it: the files then hold the transaction exactly as
// before the call. Null GUIDs of the header, the rows and the lines are replaced by new
// ones before writing, and so is a row GUID that collides with another row's (status 5,
// once); the record receives the GUIDs written, also when the call then fails.
// InsertRecord writes a new header and its rows.
int InsertRecord(JrnlDBFilesType files, JournalRecord* record);
// Rewrites the header last read through files.HdrFile (keeping key position `key`) and
// replaces every row of the record's post order number.
int UpdateFile(JrnlDBFilesType files, JournalRecord* record, int16_t key);
// Deletes the header last read through files.HdrFile and every row of the record's post
// order number.
int DeleteRecord(JrnlDBFilesType files, JournalRecord* record);

// The post order number of the invoice with this reference in the journal the selector
// names (1 sales, 2 purchases, 3 sales orders or with variant 2 sales, 4 purchase orders or
// with variant 3 purchases) whose card is `card`: the first found by reference; 0 when
// none, for an empty reference, or when the file cannot be read.
uint32_t GetInvoicePostOrderNumber(const char* reference, int selector, int32_t card, int variant);
// 1 when the row counts in the ledger: inventory cost rows (kinds 7, 8) always, other rows
// when their header's ledger flag is set; 0 when the header or the file is missing.
int IsThisRowPosted(const JrnlRowType* row);

// --- Header/row navigator ---------------------------------------------------------------------
// JrnlRowHdrClass walks the journal rows and headers in any key order on a primary pair (the
// caller's, or one it opens itself) while every look-up it makes on the caller's behalf (the
// header of the current row, the main row of a header, a whole transaction) runs on a private
// read-only pair, so a look-up never moves the caller's position. Every row read through it
// has its amount completed from the inventory cost layers before the caller sees it. One
// thread uses a navigator; it shows no messages and keeps no locks of its own.
class JrnlRowHdrClass {
 public:
  // Opens the primary pair in `mode` and the look-up pair read-only. Unusable (IsOKtoUse 0)
  // when either open fails; a primary pair already opened is then closed again.
  explicit JrnlRowHdrClass(int16_t mode);
  // Navigates the caller's pair, which stays the caller's (never closed here). Usable at once,
  // even when the look-up pair cannot be opened (look-ups then answer 0).
  explicit JrnlRowHdrClass(const JrnlDBFilesType& files);
  // Closes an owned primary pair, the look-up pair and a sort file left open (deleting it);
  // frees the roll-up record. A borrowed pair stays open.
  ~JrnlRowHdrClass();
  JrnlRowHdrClass(const JrnlRowHdrClass&) = delete;
  JrnlRowHdrClass& operator=(const JrnlRowHdrClass&) = delete;

  int IsOKtoUse() const { return usable_; }
  void ClearHeader();
  void ClearRow();
  // Closes the primary pair and reopens it in normal mode, owned or borrowed (a borrowed
  // pair's handles are then closed: the caller must not use its copies again); the new pair
  // is the navigator's and closes with it. Answers the open's result (0 leaves the primary
  // pair closed: null handles).
  int CloseAndReopenFiles();

  // Row reads on the primary row file into Row, lock option 0. On success the row's amount is
  // completed and 1 answered; on failure 0, Row holds what the record manager left.
  int GetRowEqual(int16_t key);
  int GetRowGE(int16_t key);
  int GetRowGreater(int16_t key);
  int GetRowNext(int16_t key);
  int GetRowLE(int16_t key);
  int GetRowLess(int16_t key);
  // Header reads on the primary header file into Hdr; the record manager's result (1/0).
  int GetHdrEqual(int16_t key, int16_t lock);
  int GetHdrGreater(int16_t key, int16_t lock);
  int GetHdrNext(int16_t key, int16_t lock);
  int GetHdrPrevious(int16_t key, int16_t lock);
  int GetHdrGE(int16_t key, int16_t lock);
  int GetHdrLess(int16_t key, int16_t lock);
  int GetHdrLE(int16_t key, int16_t lock);
  int GetHdrLowest(int16_t key, int16_t lock);
  int GetHdrHighest(int16_t key, int16_t lock);
  // Rewrite Hdr (Row) over the record last read through the primary header (row) file.
  int UpdateJrnlHdr(int16_t key);
  int UpdateJrnlRow(int16_t key);

  // Look-ups on the private pair. GetHdrForRow reads (or, for the below-zero rows of kinds 7
  // and 8, builds: journal 9, reference "SysCost") the header of Row into Hdr; 0 with Hdr
  // cleared when not found. The cached form answers 1 at once when Hdr already holds Row's
  // post order (never for kinds 7 and 8). GetMainRowForHeader reads Hdr's main row into Row
  // (no completion). GetJrnlForCurrentJrnlHdr loads Hdr's whole transaction into record
  // (caller's; left as GetFileEqual leaves it on failure).
  int GetHdrForRow();
  int GetHdrForRow_CacheByPostOrder();
  int GetMainRowForHeader();
  int GetJrnlForCurrentJrnlHdr(JournalRecord* record);
  bool IsJobBegBal();
  bool IsJrnlHdrBankRecBegBal();

  // Record counts of the primary header and row files (0 when a file is closed or unreadable).
  int32_t GetNumRecords();
  int32_t GetNumRows();

  // The listing text of the current row (Row and Hdr as they stand).
  void GetRowTrxDesc(CString& text);
  // "JOB,PHASE,COST" of row; empty when the row has no job or the job is not found.
  void SetJobPhaseCostRow(FixedString<63>& text, const JrnlRowType* row);

  // The buffers: set key fields in them before a keyed read; read results land in them.
  JrnlRowType Row;
  JrnlHdrType Hdr;

 private:
  void CompleteRow();

  JournalRecord* rollup_ = nullptr;  // built by the roll-up operations; freed with the object
  int usable_ = 0;
  int owns_primary_ = 1;
  JrnlDBFilesType lookup_{};
  BtrvFile* sort_file_ = nullptr;  // the temporary sort file of a sorted walk
  char sort_file_name_[260] = {};
  JrnlDBFilesType primary_{};
};

// --- Direct reads through the module's own handles and ledger row identifiers -------------------
// Equal, greater-or-equal and next reads by key into the caller's buffer through the
// module's own row (header) file, opened on first use; 0 when the file cannot be opened or
// nothing is found (the buffer then holds what the record manager left).
int GetRowByKey(JrnlRowType* row, int key);
int GetFirstRowByKey(JrnlRowType* row, int key);
int GetNextRowByKey(JrnlRowType* row, int key);
int GetHdrByKey(JrnlHdrType* hdr, int key);

// The text identifier of the navigator's current row in the general ledger:
// "GUID-line-kind" (with "-jobindex" for payroll job rows); for the below-zero rows of kinds
// 7 and 8 the item's GUID with the row date and the amount's sign. out is the caller's.
void GenerateUniqueGLRowID(CString& out, JrnlRowHdrClass& navigator);
// "GUID-number-flag" with the flag written 0 or 1.
void GenerateUniqueGLBucketID(CString& out, GUID& guid, int number, bool flag);

// Closes the module's own header and row handles, each only when open.
void CloseInternalJrnlFiles();

// Create an empty header (row) file under the company's standard name; 0 after message
// 2400 when it cannot be made. CreateJournal makes the row file only when the header file
// was made; 1 when both were.
unsigned char CreateJournalHdr();
bool CreateJournalRow();
unsigned char CreateJournal();

#endif  // BASICS_JOURNLDB_H_
