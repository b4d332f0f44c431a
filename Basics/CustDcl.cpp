// Customer lookups on the module's private read-only handle.
#include "CustDcl.h"

#include <cstring>

#include "OpenDat.h"
#include "OpenDat_internal.h"

namespace {
constexpr const char* kUnit = "Basics/CustDcl";
BtrvFile* g_lookup_file = nullptr;

// Reads record (cleared, key fields set by the caller) on key through the lookup handle.
bool ReadCustomer(CustomerRecord* record, int16_t key) {
  if (!EnsureLookupHandle(&g_lookup_file, OpenCustFile)) return false;
  return ReadEqual(g_lookup_file, record, key);
}

bool ReadById(const FixedString<21>& id, CustomerRecord* record) {
  std::memset(record, 0, sizeof *record);
  record->ID = id;
  return ReadCustomer(record, kCustKeyID);
}

bool ReadByNumber(int32_t record_number, CustomerRecord* record) {
  std::memset(record, 0, sizeof *record);
  record->RecordNumber = record_number;
  return ReadCustomer(record, kCustKeyRecordNumber);
}
}  // namespace

int32_t GetRecordNumberFromCustomerID(const FixedString<21>& id) {
  if (id.IsEmpty()) return 0;
  CustomerRecord record;
  return ReadById(id, &record) ? record.RecordNumber : 0;
}

bool GetCustomerIDFromRecordNumber(int32_t record_number, FixedString<21>& id) {
  id.Clear();
  if (record_number == 0) return false;
  CustomerRecord record;
  if (!ReadByNumber(record_number, &record)) return false;
  id = record.ID;
  return true;
}

int32_t GetRecordNumberFromCustomerGUID(const GUID& guid) {
  CustomerRecord record;
  std::memset(&record, 0, sizeof record);
  record.Guid = guid;
  return ReadCustomer(&record, kCustKeyGUID) ? record.RecordNumber : 0;
}

int GetCustomerGUIDFromRecordNumber(int32_t record_number, GUID& guid) {
  // Unlike the vendor form, number 0 is not refused and the output is left as it was
  // when nothing is found: callers rely on their own default.
  CustomerRecord record;
  if (!ReadByNumber(record_number, &record)) return 0;
  guid = record.Guid;
  return 1;
}

bool GetRecordNumberAndNameFromCustomerID(const FixedString<21>& id, int32_t& record_number,
                                          FixedString<31>& name) {
  record_number = 0;
  Assign(name, id);
  if (id.IsEmpty()) return false;
  CustomerRecord record;
  if (!ReadById(id, &record)) return false;
  record_number = record.RecordNumber;
  Assign(name, record.Name, 30);
  return true;
}

bool GetCustomerInfo(const FixedString<21>& id, CustomerRecord* record) {
  if (record == nullptr) return false;
  std::memset(record, 0, sizeof *record);
  record->ID = id;
  if (id.IsEmpty()) return false;
  return ReadCustomer(record, kCustKeyID);
}

bool GetCustomerInfo(int32_t record_number, CustomerRecord* record) {
  if (record == nullptr) return false;
  std::memset(record, 0, sizeof *record);
  record->RecordNumber = record_number;
  if (record_number == 0) return false;
  return ReadCustomer(record, kCustKeyRecordNumber);
}

void CloseInternalCustFile() {
  CloseIfOpen(&CustFile, kUnit, __LINE__);
  CloseIfOpen(&g_lookup_file, kUnit, __LINE__);
}
