// Data files of a company: the Open...File functions that bind a file name, file number
// and owner name to a record-manager handle, the posting FileSet, the library's long-lived
// internal handles and counters, the company path and the shared company marker. Builds
// on the record manager and the utility library. The internal handles are process-wide
// and unguarded (the host serialises its calls), except the inventory-tag handle, which
// is kept per thread.
//
// Failures: of everything that fails here, only a record or file in use (84, 85) has
// already been shown to the user, by the record manager's own Retry/Cancel prompt; every
// other failure is silent and the caller decides what to show (OpenRaiseHistoryFile alone
// asks about any status). The status is GetErrorCode(nullptr) after a failed open.
#ifndef BASICS_OPENDAT_H_
#define BASICS_OPENDAT_H_

#include <cstdint>

#include "JOURNAL.h"
#include "record_manager.h"
#include "utility.h"

// File numbers passed to the record manager with each open.
enum : uint16_t {
  kFileNoGeneral = 1,
  kFileNoChart = 2,
  kFileNoCustomer = 3,
  kFileNoVendor = 4,
  kFileNoLineItem = 5,
  kFileNoEmployee = 7,
  kFileNoJrnlHdr = 10,
  kFileNoJrnlRowAlone = 0,  // the row file opened by itself
  kFileNoProject = 13,
  kFileNoTaxAuthority = 17,
  kFileNoInvTag = 22,
  kFileNoInvCost = 36,
  kFileNoRecptTag = 37,
  kFileNoPhase = 38,
  kFileNoCost = 39,
  kFileNoJobEst = 40,
  kFileNoAuditTrail = 44,
  kFileNoJrnlRowInPair = 48,  // the row file opened as half of the journal pair
  kFileNoRaiseHistory = 52,
};

// The files one posting holds open, in this order; every member null when not open. The
// caller owns it and zeroes it before OpenPostFiles.
struct FileSet {
  JrnlDBFilesType Journal;
  BtrvFile* Chart;
  BtrvFile* General;
  BtrvFile* Customer;
  BtrvFile* Vendor;
  BtrvFile* LineItem;
  BtrvFile* Employee;
  BtrvFile* InvTag;
  BtrvFile* InvLF;
  BtrvFile* RecptTag;
};

// The library's own file names (initialised at load).
extern CFileNameString CostName;     // "COST.DAT"
extern CFileNameString PhaseName;    // "PHASE.DAT"
extern CFileNameString ProjectName;  // "PROJECT.DAT"
extern CFileNameString JobEstName;   // "JOBEST.DAT"

// The open company's data folder (empty at load).
extern CPathNameString g_szCompanyPath;
// The shared marker on the open company (area 4), built at load.
extern CZORSharedFile g_sharedCompFile;

// Internal handles owned by the library (null until first opened).
extern BtrvFile* AccountFile;
extern BtrvFile* CustFile;
extern BtrvFile* VendFile;
extern BtrvFile* EmployeeFile;
extern BtrvFile* ItemFile;
extern BtrvFile* InvLFFile;
extern BtrvFile* PriceItemFile;
extern BtrvFile* RecptTagFile;
extern BtrvFile* AuditTrailFile;
extern BtrvFile* bfAlertFile;
extern BtrvFile* bfAlarmAgent;

// Counters kept for the host; only ReadCount is advanced by the library.
extern int32_t ReadCount;
extern int32_t InsertCount;
extern int32_t UpdateCount;

// Each opens one data file into *file with the record manager's open mode (0 normal,
// 254 read-only) and answers non-zero on success; the caller owns the handle and closes
// it with RealCloseFile. On failure *file is null. *file must not hold an open handle on
// entry: it is overwritten, not closed.
int OpenChartFile(BtrvFile** file, uint16_t mode);
int OpenCustFile(BtrvFile** file, uint16_t mode);
int OpenVendFile(BtrvFile** file, uint16_t mode);
// Opened by the full path: company path, a backslash when missing, then LineItemName.
int OpenLineItemFile(BtrvFile** file, uint16_t mode);
int OpenEmployeeFile(BtrvFile** file, uint16_t mode);
int OpenJrnlHdrFile(BtrvFile** file, uint16_t mode);
int OpenJrnlRowFile(BtrvFile** file, uint16_t mode);
int OpenAuthFile(BtrvFile** file, uint16_t mode);
int OpenRecptTagFile(BtrvFile** file, uint16_t mode);
uint8_t OpenAuditTrailFile(BtrvFile** file, uint16_t mode);
// Asks Retry/Cancel (message 20000 + status) while the open fails; answers the last
// open's result.
int OpenRaiseHistoryFile(BtrvFile** file, uint16_t mode);
// Opens the header file, then the row file; 1 with both open, 0 with both null (0 for a
// null files). The caller closes them with CloseJrnlFile.
int OpenJournalFile(JrnlDBFilesType* files, uint16_t mode);
// Closes each handle of the pair that is open and nulls it; null files is ignored.
void CloseJrnlFile(JrnlDBFilesType* files);
// Opens the tag file, then the costing file; 1 with both open, 0 with both null.
int OpenInvTagFile(BtrvFile** tag_file, BtrvFile** cost_file, uint16_t mode);

// The calling thread's own inventory-tag handle (null until opened); the reference stays
// valid for the thread's life.
BtrvFile*& GetInternalInvTagFile();
// Opens this thread's tag handle and InvLFFile (mode 0), and PriceItemFile (254) when
// still closed; non-zero when all three are open. On failure the ones that did open stay
// open, owned by the library, until CloseInternalInvTagFile.
int OpenInternalInvTagFile();
// Closes this thread's tag handle, InvLFFile and PriceItemFile, each only when open.
void CloseInternalInvTagFile();

// Opens the journal pair, chart, line items, the journal type's further files and the
// general file (all mode 0) into a zeroed set; 1 with all open, 0 with every member null
// (0 for a null set). The caller closes them with ClosePostFiles.
int OpenPostFiles(FileSet* set, JournalTypes type);
// Closes each member of the set that is open and nulls it; a null set is ignored.
void ClosePostFiles(FileSet* set);

// Closes AuditTrailFile when open.
void CloseInternalAuditTrailFile();

#endif  // BASICS_OPENDAT_H_
