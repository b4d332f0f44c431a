// Data files of a company: the Open...File functions, the journal pair, the posting
// FileSet and the library's long-lived internal handles and counters.
#include "OpenDat.h"

#include <sched.h>

#include <cstring>

#include "OpenDat_internal.h"

namespace {
constexpr const char* kUnit = "Basics/OpenDat";

// Opens a file by name with the standard owner and the given file number.
int OpenStandard(BtrvFile** file, const char* name, uint16_t mode, uint16_t number) {
  return BASICS_OPEN_OWNER(file, name, mode, number, csTheOwner.c_str(), kUnit);
}

// The calling thread's inventory-tag handle: cost queries from several threads must
// never share a file position.
thread_local BtrvFile* t_inv_tag_file = nullptr;
}  // namespace

CFileNameString CostName("COST.DAT");
CFileNameString PhaseName("PHASE.DAT");
CFileNameString ProjectName("PROJECT.DAT");
CFileNameString JobEstName("JOBEST.DAT");

CPathNameString g_szCompanyPath;
CZORSharedFile g_sharedCompFile(4);

BtrvFile* AccountFile = nullptr;
BtrvFile* CustFile = nullptr;
BtrvFile* VendFile = nullptr;
BtrvFile* EmployeeFile = nullptr;
BtrvFile* ItemFile = nullptr;
BtrvFile* InvLFFile = nullptr;
BtrvFile* PriceItemFile = nullptr;
BtrvFile* RecptTagFile = nullptr;
BtrvFile* AuditTrailFile = nullptr;
BtrvFile* bfAlertFile = nullptr;
BtrvFile* bfAlarmAgent = nullptr;

int32_t ReadCount = 0;
int32_t InsertCount = 0;
int32_t UpdateCount = 0;

int OpenChartFile(BtrvFile** file, uint16_t mode) {
  return OpenStandard(file, ChartName, mode, kFileNoChart);
}

int OpenCustFile(BtrvFile** file, uint16_t mode) {
  return OpenStandard(file, CustomerName, mode, kFileNoCustomer);
}

int OpenVendFile(BtrvFile** file, uint16_t mode) {
  return OpenStandard(file, VendorName, mode, kFileNoVendor);
}

int OpenLineItemFile(BtrvFile** file, uint16_t mode) {
  // The item file alone is opened by its full path in the company folder.
  char path[kMaxPathName];
  sstrcpy(path, g_szCompanyPath, sizeof path);
  size_t len = std::strlen(path);
  if (len > 0 && path[len - 1] != '\\') sstrcat(path, "\\", kMaxPathName);
  char name[13];
  sstrcpy(name, LineItemName, sizeof name);  // at most 12 characters of the name
  sstrcat(path, name, kMaxPathName - 1);
  return OpenStandard(file, path, mode, kFileNoLineItem);
}

int OpenEmployeeFile(BtrvFile** file, uint16_t mode) {
  return OpenStandard(file, EmpFileName, mode, kFileNoEmployee);
}

int OpenJrnlHdrFile(BtrvFile** file, uint16_t mode) {
  return OpenStandard(file, JrnlHdrFileName, mode, kFileNoJrnlHdr);
}

int OpenJrnlRowFile(BtrvFile** file, uint16_t mode) {
  return OpenStandard(file, JrnlRowFileName, mode, kFileNoJrnlRowAlone);
}

int OpenAuthFile(BtrvFile** file, uint16_t mode) {
  return BASICS_OPEN_OWNER(file, TaxAuthorityName, mode, kFileNoTaxAuthority, csStdTheOwner.c_str(),
                           kUnit);
}

int OpenRecptTagFile(BtrvFile** file, uint16_t mode) {
  return OpenStandard(file, RecptTagName, mode, kFileNoRecptTag);
}

uint8_t OpenAuditTrailFile(BtrvFile** file, uint16_t mode) {
  return OpenStandard(file, AuditTrailName, mode, kFileNoAuditTrail) != 0 ? 1 : 0;
}

int OpenRaiseHistoryFile(BtrvFile** file, uint16_t mode) {
  for (;;) {
    int result = OpenStandard(file, RaiseHistoryFileName, mode, kFileNoRaiseHistory);
    if (result != 0) return result;
    uint16_t status = GetErrorCode(nullptr);
    if (status == 0) return result;
    int answer = MessageWithString(MB_RETRYCANCEL | MB_ICONEXCLAMATION, 20000 + status,
                                   RaiseHistoryFileName);
    if (answer != IDRETRY) return result;
    sched_yield();  // let other work run before the next try
  }
}

int OpenJournalFile(JrnlDBFilesType* files, uint16_t mode) {
  if (files == nullptr) return 0;
  if (OpenStandard(&files->HdrFile, JrnlHdrFileName, mode, kFileNoJrnlHdr) == 0) return 0;
  if (OpenStandard(&files->RowFile, JrnlRowFileName, mode, kFileNoJrnlRowInPair) == 0) {
    BASICS_CLOSE(&files->HdrFile, kUnit);
    return 0;
  }
  return 1;
}

void CloseJrnlFile(JrnlDBFilesType* files) {
  if (files == nullptr) return;
  CloseIfOpen(&files->HdrFile, kUnit, __LINE__);
  CloseIfOpen(&files->RowFile, kUnit, __LINE__);
}

int OpenInvTagFile(BtrvFile** tag_file, BtrvFile** cost_file, uint16_t mode) {
  if (OpenStandard(tag_file, InvTagName, mode, kFileNoInvTag) == 0) return 0;
  if (OpenStandard(cost_file, InvLFName, mode, kFileNoInvCost) != 0) return 1;
  // Tags are of no use without their costs: the pair opens whole or not at all, so a caller
  // never has to find out which half it holds.
  BASICS_CLOSE(tag_file, kUnit);
  return 0;
}

BtrvFile*& GetInternalInvTagFile() { return t_inv_tag_file; }

int OpenInternalInvTagFile() {
  BtrvFile*& tag_file = GetInternalInvTagFile();
  int result;
  if (tag_file == nullptr && InvLFFile == nullptr) {
    result = OpenInvTagFile(&tag_file, &InvLFFile, kOpenModeNormal);
  } else {
    // The costing handle is shared by all threads: a second thread opens only its own
    // tag handle, so that no open handle is ever overwritten and lost.
    result = (tag_file != nullptr ||
              OpenStandard(&tag_file, InvTagName, kOpenModeNormal, kFileNoInvTag) != 0) &&
                     (InvLFFile != nullptr ||
                      OpenStandard(&InvLFFile, InvLFName, kOpenModeNormal, kFileNoInvCost) != 0)
                 ? 1
                 : 0;
  }
  if (result != 0 && PriceItemFile == nullptr) {
    return OpenLineItemFile(&PriceItemFile, kOpenModeReadOnly);
  }
  return result;
}

void CloseInternalInvTagFile() {
  CloseIfOpen(&GetInternalInvTagFile(), kUnit, __LINE__);
  CloseIfOpen(&InvLFFile, kUnit, __LINE__);
  CloseIfOpen(&PriceItemFile, kUnit, __LINE__);
}

int OpenPostFiles(FileSet* set, JournalTypes type) {
  if (set == nullptr) return 0;
  bool ok = OpenJournalFile(&set->Journal, kOpenModeNormal) != 0 &&
            OpenChartFile(&set->Chart, kOpenModeNormal) != 0 &&
            OpenLineItemFile(&set->LineItem, kOpenModeNormal) != 0;
  if (ok) {
    auto inv_tags = [set] {
      return OpenInvTagFile(&set->InvTag, &set->InvLF, kOpenModeNormal) != 0 &&
             OpenRecptTagFile(&set->RecptTag, kOpenModeNormal) != 0;
    };
    switch (type) {
      case CRJ:
      case SJ:
        ok = OpenVendFile(&set->Vendor, kOpenModeNormal) != 0 &&
             OpenCustFile(&set->Customer, kOpenModeNormal) != 0 && inv_tags();
        break;
      case CDJ:
      case PJ:
        ok = OpenCustFile(&set->Customer, kOpenModeNormal) != 0 &&
             OpenVendFile(&set->Vendor, kOpenModeNormal) != 0 && inv_tags();
        break;
      case PRJ:
        ok = OpenEmployeeFile(&set->Employee, kOpenModeNormal) != 0;
        break;
      case INAJ:
      case ASBYJ:
        ok = inv_tags();
        break;
      default:  // cost of goods and every other journal need nothing more
        break;
    }
  }
  if (ok) ok = OpenStandard(&set->General, GeneralFileName, kOpenModeNormal, kFileNoGeneral) != 0;
  if (!ok) {
    ClosePostFiles(set);
    return 0;
  }
  return 1;
}

void ClosePostFiles(FileSet* set) {
  if (set == nullptr) return;
  CloseJrnlFile(&set->Journal);
  CloseIfOpen(&set->Chart, kUnit, __LINE__);
  CloseIfOpen(&set->Customer, kUnit, __LINE__);
  CloseIfOpen(&set->Vendor, kUnit, __LINE__);
  CloseIfOpen(&set->LineItem, kUnit, __LINE__);
  CloseIfOpen(&set->Employee, kUnit, __LINE__);
  CloseIfOpen(&set->General, kUnit, __LINE__);
  CloseIfOpen(&set->InvTag, kUnit, __LINE__);
  CloseIfOpen(&set->InvLF, kUnit, __LINE__);
  CloseIfOpen(&set->RecptTag, kUnit, __LINE__);
}

void CloseInternalAuditTrailFile() { CloseIfOpen(&AuditTrailFile, kUnit, __LINE__); }
