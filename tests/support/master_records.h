// Writes master records (accounts, customers, vendors, employees, items, projects, phases,
// cost codes) into a test company through handles of their own, as the host's maintenance
// screens do, and changes them in place; the file gives each its record number.
#ifndef BASICS_TESTS_SUPPORT_MASTER_RECORDS_H_
#define BASICS_TESTS_SUPPORT_MASTER_RECORDS_H_

#include <cstdint>
#include <type_traits>

#include <gtest/gtest.h>

#include "Basics.h"

namespace master_records {

// The ID field of each master record.
inline FixedStringParamRef IdOf(LineItemRecord& r) { return r.ItemID; }
template <typename Record>
FixedStringParamRef IdOf(Record& r) {
  return r.ID;
}

template <typename Record>
constexpr bool kHasGuid = requires(Record r) {
  r.Guid;
};

// Opens the master file of Record in normal mode.
template <typename Record>
BtrvFile* OpenMaster() {
  BtrvFile* file = nullptr;
  int ok = 0;
  if constexpr (std::is_same_v<Record, AccountType>) ok = OpenChartFile(&file, kOpenModeNormal);
  if constexpr (std::is_same_v<Record, CustomerRecord>) ok = OpenCustFile(&file, kOpenModeNormal);
  if constexpr (std::is_same_v<Record, VendorRecord>) ok = OpenVendFile(&file, kOpenModeNormal);
  if constexpr (std::is_same_v<Record, EmpType>) ok = OpenEmployeeFile(&file, kOpenModeNormal);
  if constexpr (std::is_same_v<Record, LineItemRecord>) {
    ok = OpenLineItemFile(&file, kOpenModeNormal);
  }
  if constexpr (std::is_same_v<Record, ProjectRecord>) ok = OpenProjFile(&file, kOpenModeNormal);
  if constexpr (std::is_same_v<Record, PhaseRecord>) ok = OpenPhaseFile(&file, kOpenModeNormal);
  if constexpr (std::is_same_v<Record, CostRecord>) ok = OpenCostFile(&file, kOpenModeNormal);
  EXPECT_NE(ok, 0) << "master file could not be opened";
  return file;
}

// Inserts a record with that ID (and a new GUID), after fill has set any further fields;
// answers the record as stored, its record number filled in.
template <typename Record, typename Fill = void (*)(Record&)>
Record Add(
    const char* id, Fill fill = [](Record&) {}) {
  Record record{};
  const FixedStringParamRef id_field = IdOf(record);
  sstrcpy(id_field.text, id, id_field.capacity);
  if constexpr (kHasGuid<Record>) AssignGUID(record.Guid);
  fill(record);
  BtrvFile* file = OpenMaster<Record>();
  EXPECT_NE(InsertRecord(file, sizeof record, &record), 0);
  RealCloseFile(&file, __FILE__, __LINE__);
  return record;
}

// Reads the stored record of that number, lets change alter it and writes it back.
template <typename Record, typename Change>
void Update(int32_t record_number, Change change) {
  BtrvFile* file = OpenMaster<Record>();
  Record record{};
  record.RecordNumber = record_number;
  int16_t key = 0;
  if constexpr (std::is_same_v<Record, AccountType>) key = kChartKeyRecordNumber;
  if constexpr (std::is_same_v<Record, CustomerRecord>) key = kCustKeyRecordNumber;
  if constexpr (std::is_same_v<Record, VendorRecord>) key = kVendKeyRecordNumber;
  if constexpr (std::is_same_v<Record, EmpType>) key = kEmpKeyRecordNumber;
  if constexpr (std::is_same_v<Record, LineItemRecord>) key = kItemKeyRecordNumber;
  if constexpr (std::is_same_v<Record, ProjectRecord>) key = kProjKeyRecordNumber;
  ASSERT_NE(GetFileEqual(file, kLockBiasNone, sizeof record, &record, key), 0);
  change(record);
  EXPECT_NE(UpdateFile(file, sizeof record, &record, key), 0);
  RealCloseFile(&file, __FILE__, __LINE__);
}

}  // namespace master_records

#endif  // BASICS_TESTS_SUPPORT_MASTER_RECORDS_H_
