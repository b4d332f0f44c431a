// Journal model: journal types and the open header/row file pair that every journal
// store and posting function takes. The in-memory transaction and the on-disk header and
// row layouts join this unit with the journal engine.
#ifndef BASICS_JOURNAL_H_
#define BASICS_JOURNAL_H_

#include <cstdint>

#include "record_manager.h"

// The signed 16-bit journal number.
enum JournalTypes : int16_t {
  GENJ = 0,   // general journal
  CRJ = 1,    // cash receipts
  CDJ = 2,    // cash disbursements
  SJ = 3,     // sales
  PJ = 4,     // purchases
  PRJ = 5,    // payroll
  COGSJ = 6,  // cost of goods
  INAJ = 7,   // inventory adjustment
  ASBYJ = 8,  // assembly build
  INAJ2 = 9,  // second inventory adjustment (system cost adjustments)
  POJ = 10,   // purchase orders
  SOJ = 11,   // sales orders
  SJ2 = 12,   // second sales journal (on disk and in keys only)
};

// The open journal pair: header file, then row file. Passed by value.
struct JrnlDBFilesType {
  BtrvFile* HdrFile;
  BtrvFile* RowFile;
};

#endif  // BASICS_JOURNAL_H_
