// Employee lookups on the module's private read-only handle.
#include "EmployeeDcl.h"

#include <cstring>

#include "OpenDat.h"
#include "OpenDat_internal.h"

namespace {
constexpr const char* kUnit = "Basics/EmployeeDcl";
BtrvFile* g_lookup_file = nullptr;

bool ReadEmployee(EmpType* record, int16_t key) {
  if (!EnsureLookupHandle(&g_lookup_file, OpenEmployeeFile)) return false;
  return ReadEqual(g_lookup_file, record, key);
}
}  // namespace

bool GetEmployeeInfo(const FixedString<21>& id, EmpType* record) {
  if (record == nullptr) return false;
  // An empty ID is read like any other: no employee has one, so it is simply not found.
  std::memset(record, 0, sizeof *record);
  record->ID = id;
  return ReadEmployee(record, kEmpKeyID);
}

bool GetEmployeeInfo(int32_t record_number, EmpType* record) {
  if (record == nullptr) return false;
  std::memset(record, 0, sizeof *record);
  record->RecordNumber = record_number;
  return ReadEmployee(record, kEmpKeyRecordNumber);
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
  std::memset(&record, 0, sizeof record);
  record.Guid = guid;
  return ReadEmployee(&record, kEmpKeyGUID) ? record.RecordNumber : 0;
}

int GetEmployeeGUID(int32_t record_number, GUID& guid) {
  EmpType record;
  std::memset(&record, 0, sizeof record);
  record.RecordNumber = record_number;
  if (!ReadEmployee(&record, kEmpKeyRecordNumber)) return 0;
  guid = record.Guid;
  return 1;
}

int GetEmployeeRecordByKey(EmpType& record, int key, BtrvFile*& file) {
  if (!EnsureLookupHandle(&file, OpenEmployeeFile)) return 0;
  return ReadEqual(file, &record, static_cast<int16_t>(key)) ? 1 : 0;
}

void CloseInternalEmpFile() {
  CloseIfOpen(&EmployeeFile, kUnit, __LINE__);
  CloseIfOpen(&g_lookup_file, kUnit, __LINE__);
}
