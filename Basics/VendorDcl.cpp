// Vendor lookups on the module's private read-only handle.
#include "VendorDcl.h"

#include <cstring>

#include "OpenDat.h"
#include "OpenDat_internal.h"

namespace {
constexpr const char* kUnit = "Basics/VendorDcl";
MasterLookup<VendorRecord> g_lookup(OpenVendFile, kUnit, kVendKeyID, kVendKeyRecordNumber,
                                    kVendKeyGUID);
}  // namespace

int32_t GetRecordNumberFromVendorID(const FixedString<21>& id) {
  if (id.IsEmpty()) return 0;
  VendorRecord record;
  return g_lookup.ReadById(id, &record) ? record.RecordNumber : 0;
}

bool GetVendorIDFromRecordNumber(int32_t record_number, FixedString<21>& id) {
  id.Clear();
  if (record_number == 0) return false;
  VendorRecord record;
  if (!g_lookup.ReadByNumber(record_number, &record)) return false;
  id = record.ID;
  return true;
}

int32_t GetVendorRecordNumberFromGUID(const GUID& guid) {
  VendorRecord record;
  return g_lookup.ReadByGuid(guid, &record) ? record.RecordNumber : 0;
}

bool GetVendorGUIDFromRecordNumber(int32_t record_number, GUID& guid) {
  std::memset(&guid, 0, sizeof guid);
  if (record_number == 0) return false;
  VendorRecord record;
  if (!g_lookup.ReadByNumber(record_number, &record)) return false;
  guid = record.Guid;
  return true;
}

void GetVendorNameFromRecordNumber(int32_t record_number, FixedString<31>& name) {
  name.Clear();
  if (record_number == 0) return;
  VendorRecord record;
  if (g_lookup.ReadByNumber(record_number, &record)) Assign(name, record.Name, 30);
}

uint8_t VendExistQuietByRecNum(int32_t record_number) {
  if (record_number == 0) return 0;
  BtrvFile* file = g_lookup.Handle();
  if (file == nullptr) return 0;
  // A key-only read: the record itself is never fetched.
  int32_t key = record_number;
  return GetFileEqual(file, kLockBiasKeyOnly, sizeof key, &key, kVendKeyRecordNumber) != 0 ? 1 : 0;
}

bool GetRecordNumberAndNameFromVendorID(const FixedString<21>& id, int32_t& record_number,
                                        FixedString<31>& name) {
  record_number = 0;
  Assign(name, id);
  if (id.IsEmpty()) return false;
  VendorRecord record;
  if (!g_lookup.ReadById(id, &record)) return false;
  record_number = record.RecordNumber;
  Assign(name, record.Name, 30);
  return true;
}

bool GetVendorInfo(const FixedString<21>& id, VendorRecord* record) {
  if (record == nullptr) return false;
  if (id.IsEmpty()) {
    g_lookup.KeyById(record, id);
    return false;
  }
  return g_lookup.ReadById(id, record);
}

bool GetVendorInfo(int32_t record_number, VendorRecord* record) {
  if (record == nullptr) return false;
  if (record_number == 0) {
    g_lookup.KeyByNumber(record, 0);
    return false;
  }
  return g_lookup.ReadByNumber(record_number, record);
}

void CloseInternalVendFile() {
  CloseIfOpen(&VendFile, kUnit, __LINE__);
  g_lookup.Close();
}
