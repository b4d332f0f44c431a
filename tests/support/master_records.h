// Writes master records (accounts, customers, vendors, employees, items, projects, phases,
// cost codes) into a test company through handles of their own, as the host's maintenance
// screens do; the file gives each its record number.
#ifndef BASICS_TESTS_SUPPORT_MASTER_RECORDS_H_
#define BASICS_TESTS_SUPPORT_MASTER_RECORDS_H_

#include <cstdint>

#include <gtest/gtest.h>

#include "Basics.h"

namespace master_records {

// The ID field of each master record.
inline FixedStringParamRef IdOf(LineItemRecord& r) { return r.ItemID; }
template <typename Record>
FixedStringParamRef IdOf(Record& r) {
  return r.ID;
}

// The open function of each master file.
inline int Open(AccountType*, BtrvFile** f) { return OpenChartFile(f, kOpenModeNormal); }
inline int Open(CustomerRecord*, BtrvFile** f) { return OpenCustFile(f, kOpenModeNormal); }
inline int Open(VendorRecord*, BtrvFile** f) { return OpenVendFile(f, kOpenModeNormal); }
inline int Open(EmpType*, BtrvFile** f) { return OpenEmployeeFile(f, kOpenModeNormal); }
inline int Open(LineItemRecord*, BtrvFile** f) { return OpenLineItemFile(f, kOpenModeNormal); }
inline int Open(ProjectRecord*, BtrvFile** f) { return OpenProjFile(f, kOpenModeNormal); }
inline int Open(PhaseRecord*, BtrvFile** f) { return OpenPhaseFile(f, kOpenModeNormal); }
inline int Open(CostRecord*, BtrvFile** f) { return OpenCostFile(f, kOpenModeNormal); }

// Inserts a record with that ID (and a new GUID where the record has one), after fill has
// set any further fields; answers the record as stored, its record number filled in.
template <typename Record, typename Fill = void (*)(Record&)>
Record Add(
    const char* id, Fill fill = [](Record&) {}) {
  Record record{};
  const FixedStringParamRef id_field = IdOf(record);
  sstrcpy(id_field.text, id, id_field.capacity);
  if constexpr (requires { record.Guid; }) AssignGUID(record.Guid);
  fill(record);
  BtrvFile* file = nullptr;
  EXPECT_NE(Open(&record, &file), 0);
  EXPECT_NE(InsertRecord(file, sizeof record, &record), 0);
  RealCloseFile(&file, __FILE__, __LINE__);
  return record;
}

// Gives the stored customer of that number a new ID and name.
inline void RenameCustomer(int32_t record_number, const char* id, const char* name) {
  BtrvFile* file = nullptr;
  ASSERT_NE(OpenCustFile(&file, kOpenModeNormal), 0);
  CustomerRecord record{};
  record.RecordNumber = record_number;
  EXPECT_NE(GetFileEqual(file, kLockBiasNone, sizeof record, &record, kCustKeyRecordNumber), 0);
  record.ID = id;
  record.Name = name;
  EXPECT_NE(UpdateFile(file, sizeof record, &record, kCustKeyRecordNumber), 0);
  RealCloseFile(&file, __FILE__, __LINE__);
}

}  // namespace master_records

#endif  // BASICS_TESTS_SUPPORT_MASTER_RECORDS_H_
