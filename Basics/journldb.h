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

  // --- Sorted walks ------------------------------------------------------------------------
  // The general-ledger sort: every ledger row dated in range, one entry per account and
  // transaction, in the order account ID, date, post order, kept in a temporary keyed file
  // (so its size is bounded by disk, not memory). With filter not 0 only rows of journal
  // `first` or `second` are taken. Purchase-return rows of disbursements and purchases are
  // taken only when their return adjustment exists (never in a cash-basis company). Answers
  // 0 when a sort is already open on this navigator or the file cannot be named, created or
  // opened (nothing then stays open); otherwise 1, also when no row qualifies.
  int StartGetSortedTrx(FromTo range, JournalTypes first, JournalTypes second, int filter);
  // The first (next) entry of the sort: its row, completed, in Row, and its whole
  // transaction loaded into record (caller's). Answers 0 when no sort is open, the entries
  // are exhausted or record is null (record then left as it was). A below-zero row (kinds
  // 7, 8) has no stored transaction: it answers 1 with Hdr and record holding the made-up
  // header (journal 9, reference "SysCost", no lines), so walks go on past it. An entry
  // whose transaction has been deleted since the sort is passed over. account receives the
  // row's account record number (left as it was on 0).
  int GetFirstSortedTrx(JournalRecord* record);
  int GetNextSortedTrx(int32_t& account, JournalRecord* record);
  // Closes and deletes the sort file of this navigator; does nothing when no sort was
  // started (in particular it never deletes a file it did not make).
  void EndGetSortedTrx();

  // The job sort: every row of `job` dated up to range's end (its start is not used: the
  // job's history counts), orders and the second sales journal left out, in the order job,
  // account, phase, cost code (account_first not 0) or job, phase, cost code, account, then
  // date, post order, line number. The rows are held in memory in one array shared by every
  // navigator; a new start refills it. Always 1.
  int StartGetSortedTrxJob(FromTo range, int account_first, int32_t job);
  // The first element of the array in Row (right after a start), or after a walk has moved
  // Row, the first element whose job is not below Row's job; 0 when none. Next: the next
  // element in Row; 0 at the end (Row then unchanged).
  int GetFirstSortedTrxJob();
  int GetNextSortedTrxJob();
  // Empties the array and releases its memory.
  void EndGetSortedTrxJob();

  // Walks of one account's rows in key-2 order (account, date, post order) over range. Each
  // answers 1 with the row in Row and its header in Hdr, or 0 when the account's rows in the
  // range are exhausted (Row and Hdr then hold whatever the walk last read). First positions
  // from range's start; Next continues from Row.
  // Ledger: rows whose header and row ledger flags are both set.
  int GetFirstSortedTrxForLedger(FromTo range, int32_t account);
  int GetNextSortedTrxForLedger(FromTo range, int32_t account);
  // Reconciliation: ledger rows not cleared before the range (rows without a date are
  // never range-tested), orders and the second sales journal left out.
  int GetFirstSortedTrxForAcctRec(FromTo range, int32_t account);
  int GetNextSortedTrxForAcctRec(FromTo range, int32_t account);
  // Register: ledger rows with a non-zero amount.
  int GetFirstSortedTrxForAcctRegister(FromTo range, int32_t account);
  int GetNextSortedTrxForAcctRegister(FromTo range, int32_t account);

  // --- Roll-up transactions of purged costs -------------------------------------------------
  // Fills the roll-up record (allocated on first use) with a new roll-up header: cash
  // receipts for kind 'R', disbursements for 'P' (any other kind leaves journal, qualifier
  // and account 0), dated `date`, described "Purged Transactions Cost Sum", its reference
  // the one after `previous` ("PrgCstSum" + the six characters after the prefix + the next
  // four-digit number; just the prefix and 0001 when previous is not a roll-up reference),
  // its account the kind's default cash account, a new transaction number. key2 is not read.
  // Nothing happens when the record cannot be allocated.
  void CreateNewRollupTransactionHdr(DatesType date, char kind, JournalKey2Type key2,
                                     FixedString<21> previous);
  // Finds the roll-up transaction that purged's costs add into: a stored (or, when pending
  // is not null, the caller's unsaved) roll-up of the same date, kind ('R' receipts, any
  // other disbursements) and cash account (cash_account, or the kind's default cash account
  // when 0), never purged itself. The match is loaded (copied) into the roll-up record and
  // true answered with *found 1 (stored; the caller updates it) or 2 (pending); otherwise a
  // new header is made there, numbered after every roll-up reference of that date, with
  // *found 0 (the caller inserts it) and false answered. *lines receives the roll-up's
  // distribution line count (where the next cost line goes). Outputs may be null. When the
  // roll-up record cannot be allocated: false, *found 0, *lines 0.
  bool FindMatchingRollupReceiptForDate(const JournalRecord* const purged, char kind,
                                        int cash_account, DatesType date,
                                        const JournalRecord* const pending, int* found, int* lines);
  // The roll-up record: null until a roll-up operation allocated it; the navigator's
  // (freed with it). The caller may fill its lines and post it.
  JournalRecord* GetRollupRecord() { return rollup_; }

  // The buffers: set key fields in them before a keyed read; read results land in them.
  JrnlRowType Row;
  JrnlHdrType Hdr;

 private:
  void CompleteRow();
  // The sorted walks' common steps (journldb_sorted.cpp).
  int SortedTrx(bool first, JournalRecord* record);
  int LedgerWalk(FromTo range, int32_t account, int ok);
  int AcctRecWalk(FromTo range, int32_t account, int ok);
  int AcctRegisterWalk(FromTo range, int32_t account, int ok);

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

// Closes the module's own header and row handles (the below-zero writer's too), each only when
// open.
void CloseInternalJrnlFiles();

// Keeps (insert not 0) or removes (insert 0) the pair of below-zero rows of item on day:
// rows of journal 9 belonging to no header (post order -2, line 0xFFFE), the kind-7 row on
// first_account and the kind-8 row on second_account; their amounts are left 0 (the
// navigator fills them from the item's daily tag). A kept pair is made exact: a row on
// another account is deleted and a missing row inserted, so calling twice leaves one pair.
// All in one batch on the module's own row handle (read/write, opened on first use),
// abandoned when a write fails, so the rows are then as before the call; nothing is
// reported. Does nothing when that handle cannot be opened.
void InsertBelowZeroRecordToJrnlRowFile(int32_t item, DatesType day, int32_t first_account,
                                        int32_t second_account, int insert);
// Closes that row handle when open.
void CloseInternalBelowZeroRowFile();

// Create an empty header (row) file under the company's standard name; 0 after message
// 2400 when it cannot be made. CreateJournal makes the row file only when the header file
// was made; 1 when both were.
unsigned char CreateJournalHdr();
bool CreateJournalRow();
unsigned char CreateJournal();

#endif  // BASICS_JOURNLDB_H_
