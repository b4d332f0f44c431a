// Customer lookups on the module's private read-only handle.
#include "CustDcl.h"

#include "OpenDat.h"
#include "OpenDat_internal.h"

namespace {
constexpr const char* kUnit = "Basics/CustDcl";
MasterLookup<CustomerRecord> g_lookup(OpenCustFile, kUnit, kCustKeyID, kCustKeyRecordNumber,
                                      kCustKeyGUID);
}  // namespace

int32_t GetRecordNumberFromCustomerID(const FixedString<21>& id) {
  if (id.IsEmpty()) return 0;
  CustomerRecord record;
  return g_lookup.ReadById(id, &record) ? record.RecordNumber : 0;
}

bool GetCustomerIDFromRecordNumber(int32_t record_number, FixedString<21>& id) {
  id.Clear();
  if (record_number == 0) return false;
  CustomerRecord record;
  if (!g_lookup.ReadByNumber(record_number, &record)) return false;
  id = record.ID;
  return true;
}

int32_t GetRecordNumberFromCustomerGUID(const GUID& guid) {
  CustomerRecord record;
  return g_lookup.ReadByGuid(guid, &record) ? record.RecordNumber : 0;
}

int GetCustomerGUIDFromRecordNumber(int32_t record_number, GUID& guid) {
  // Unlike the vendor form, number 0 is not refused and the output is left as it was
  // when nothing is found: callers rely on their own default.
  CustomerRecord record;
  if (!g_lookup.ReadByNumber(record_number, &record)) return 0;
  guid = record.Guid;
  return 1;
}

bool GetRecordNumberAndNameFromCustomerID(const FixedString<21>& id, int32_t& record_number,
                                          FixedString<31>& name) {
  record_number = 0;
  Assign(name, id);
  if (id.IsEmpty()) return false;
  CustomerRecord record;
  if (!g_lookup.ReadById(id, &record)) return false;
  record_number = record.RecordNumber;
  Assign(name, record.Name, 30);
  return true;
}

bool GetCustomerInfo(const FixedString<21>& id, CustomerRecord* record) {
  if (record == nullptr) return false;
  if (id.IsEmpty()) {
    g_lookup.KeyById(record, id);
    return false;
  }
  return g_lookup.ReadById(id, record);
}

bool GetCustomerInfo(int32_t record_number, CustomerRecord* record) {
  if (record == nullptr) return false;
  if (record_number == 0) {
    g_lookup.KeyByNumber(record, 0);
    return false;
  }
  return g_lookup.ReadByNumber(record_number, record);
}

void CloseInternalCustFile() {
  CloseIfOpen(&CustFile, kUnit, __LINE__);
  g_lookup.Close();
}
