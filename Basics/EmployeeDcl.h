// Employee lookups: between employee IDs, record numbers and GUIDs, on the employee file
// maintained by the host. Owns a private read-only lookup handle (opened on first use)
// and closes it with EmployeeFile. Builds on OpenDat. Not thread-safe.
#ifndef BASICS_EMPLOYEEDCL_H_
#define BASICS_EMPLOYEEDCL_H_

#include <cstddef>
#include <cstdint>

#include "record_manager.h"
#include "zor_types.h"

// EmpType, 8425 bytes. Fields the library touches; every other byte is carried.
//   offset  size  field
//        0    21  employee ID; key 0
//       21     4  record number (s32); key 4
//       25    16  GUID; key 5
#pragma pack(push, 1)
struct EmpType {
  FixedString<21> ID;
  int32_t RecordNumber;
  GUID Guid;
  uint8_t reserved41[8384];
};
#pragma pack(pop)
static_assert(sizeof(EmpType) == 8425, "EmpType is 8425 bytes");
static_assert(offsetof(EmpType, RecordNumber) == 21, "record number at 21");
static_assert(offsetof(EmpType, Guid) == 25, "employee GUID at 25");

// Key numbers of the employee file.
enum : int16_t { kEmpKeyID = 0, kEmpKeyRecordNumber = 4, kEmpKeyGUID = 5 };

// Clears the record, puts the ID and reads by key 0 (an empty ID is not refused).
bool GetEmployeeInfo(const FixedString<21>& id, EmpType* record);
// Clears the record, puts the number and reads by key 4 (number 0 is not refused).
bool GetEmployeeInfo(int32_t record_number, EmpType* record);
// Clears id; false for number 0 or an unknown number.
bool GetEmployeeID(int32_t record_number, FixedString<21>* id);
int32_t GetEmployeeRecNo(const FixedString<21>& id);
bool GetEmployeeRecNo(const FixedString<21>& id, int32_t* record_number);
int32_t GetEmployeeRecNo(const GUID& guid);
// 1 with the GUID copied out; 0 with guid untouched.
int GetEmployeeGUID(int32_t record_number, GUID& guid);
// Reads on the caller's key with the key fields set by the caller, through the caller's
// handle (opened read-only when null; 0 when that fails).
int GetEmployeeRecordByKey(EmpType& record, int key, BtrvFile*& file);
void CloseInternalEmpFile();

#endif  // BASICS_EMPLOYEEDCL_H_
