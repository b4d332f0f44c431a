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

// Closes the module's own header and row handles, each only when open.
void CloseInternalJrnlFiles();

// Create an empty header (row) file under the company's standard name; 0 after message
// 2400 when it cannot be made. CreateJournal makes the row file only when the header file
// was made; 1 when both were.
unsigned char CreateJournalHdr();
bool CreateJournalRow();
unsigned char CreateJournal();

#endif  // BASICS_JOURNLDB_H_
