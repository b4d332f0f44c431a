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

// Lookups show no message; an employee file that cannot be opened answers not found.

// Clears the record, puts the ID and reads by key 0 (an empty ID is not refused). false
// when not found, with the record cleared but for the key (false for a null record).
bool GetEmployeeInfo(const FixedString<21>& id, EmpType* record);
// Clears the record, puts the number and reads by key 4 (number 0 is not refused); on
// failure as above.
bool GetEmployeeInfo(int32_t record_number, EmpType* record);
// Clears id; false, id empty, for number 0 or an unknown number (false for a null id).
bool GetEmployeeID(int32_t record_number, FixedString<21>* id);
// Record number of an employee ID (by GUID below); 0 when not found.
int32_t GetEmployeeRecNo(const FixedString<21>& id);
// *record_number := the number, 0 when not found (a null pointer is not written); answers
// whether it was found.
bool GetEmployeeRecNo(const FixedString<21>& id, int32_t* record_number);
int32_t GetEmployeeRecNo(const GUID& guid);
// 1 with the GUID copied out; 0 with guid untouched.
int GetEmployeeGUID(int32_t record_number, GUID& guid);
// Reads on the caller's key with the key fields set by the caller, through the caller's
// handle: opened read-only into file when null, and then the caller's to close. 0 when
// the open or the read fails; a failed read leaves record as the caller set it.
int GetEmployeeRecordByKey(EmpType& record, int key, BtrvFile*& file);
// Closes EmployeeFile, then the lookup handle, each only when open.
void CloseInternalEmpFile();

#endif  // BASICS_EMPLOYEEDCL_H_
