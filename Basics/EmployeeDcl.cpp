// Employee lookups on the module's private read-only handle.
#include "EmployeeDcl.h"

#include "OpenDat.h"
#include "OpenDat_internal.h"

namespace {
constexpr const char* kUnit = "Basics/EmployeeDcl";
MasterLookup<EmpType> g_lookup(OpenEmployeeFile, kUnit, kEmpKeyID, kEmpKeyRecordNumber,
                               kEmpKeyGUID);
}  // namespace

bool GetEmployeeInfo(const FixedString<21>& id, EmpType* record) {
  if (record == nullptr) return false;
  // An empty ID is read like any other: no employee has one, so it is simply not found.
  return g_lookup.ReadById(id, record);
}

bool GetEmployeeInfo(int32_t record_number, EmpType* record) {
  if (record == nullptr) return false;
  return g_lookup.ReadByNumber(record_number, record);
}

bool GetEmployeeID(int32_t record_number, FixedString<21>* id) {
  if (id == nullptr) return false;
  id->Clear();
  if (record_number == 0) return false;
  EmpType record;
  if (!GetEmployeeInfo(record_number, &record)) return false;
  *id = record.ID;
  return true;
}

int32_t GetEmployeeRecNo(const FixedString<21>& id) {
  EmpType record;
  return GetEmployeeInfo(id, &record) ? record.RecordNumber : 0;
}

bool GetEmployeeRecNo(const FixedString<21>& id, int32_t* record_number) {
  int32_t found = GetEmployeeRecNo(id);
  if (record_number != nullptr) *record_number = found;
  return found != 0;
}

int32_t GetEmployeeRecNo(const GUID& guid) {
  EmpType record;
  return g_lookup.ReadByGuid(guid, &record) ? record.RecordNumber : 0;
}

int GetEmployeeGUID(int32_t record_number, GUID& guid) {
  EmpType record;
  if (!g_lookup.ReadByNumber(record_number, &record)) return 0;
  guid = record.Guid;
  return 1;
}

int GetEmployeeRecordByKey(EmpType& record, int key, BtrvFile*& file) {
  if (!EnsureLookupHandle(&file, OpenEmployeeFile)) return 0;
  return ReadEqual(file, &record, static_cast<int16_t>(key)) ? 1 : 0;
}

void CloseInternalEmpFile() {
  CloseIfOpen(&EmployeeFile, kUnit, __LINE__);
  g_lookup.Close();
}
