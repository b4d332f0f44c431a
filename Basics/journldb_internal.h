// What the journal units share and hosts must not call: the store's private look-up
// handles on the journal pair, and the reads of other masters it needs (items, phases,
// cost codes) through handles of its own. Not thread-safe (the host serialises calls).
#ifndef BASICS_JOURNLDB_INTERNAL_H_
#define BASICS_JOURNLDB_INTERNAL_H_

#include <cstdint>

#include "JOURNAL.h"

// The module's own read-only header (row) handle, opened on first use; null when the file
// cannot be opened. Closed by CloseInternalJrnlFiles.
BtrvFile* JrnlLookupHdrFile();
BtrvFile* JrnlLookupRowFile();

// The conversion between a record and its header and rows (journldb_rows.cpp).
// Header from record: every header field, the journal-specific areas included; null GUID
// of the transaction replaced first (in the record too).
void JrnlRecordToHdr(JournalRecord* record, JrnlHdrType* hdr);
// Record from header: clears the record, then copies every header field.
void JrnlHdrToRecord(const JrnlHdrType* hdr, JournalRecord* record);
// Adds one row to the record (the row loader).
void JrnlLoadRow(const JrnlRowType& row, JournalRecord* record);
// Inserts every row of the record: main row, item-account rows, lines in order. false at
// the first write that fails (rows written before it stay: the caller abandons its batch).
bool JrnlSaveRows(BtrvFile* row_file, JournalRecord* record);

// Item ID of an item record number; false with id empty when none.
bool JrnlItemID(int32_t item, FixedString<21>& id);
// Phase and cost-code conversions: record number from ID (0 for empty or unknown) and ID
// from record number (empty for 0 or unknown).
int32_t JrnlPhaseNumber(const char* id);
void JrnlPhaseID(int32_t number, char* id21);
int32_t JrnlCostNumber(const char* id);
void JrnlCostID(int32_t number, char* id21);
// The accounts of an item that the item-account rows of inventory adjustments and
// assemblies carry; false (outputs untouched) when the item cannot be read or its accounts
// are not known.
bool JrnlItemAccounts(int32_t item, int32_t* inventory, int32_t* first, int32_t* second);

#endif  // BASICS_JOURNLDB_INTERNAL_H_
