// Customer, vendor and employee lookups on a real company: IDs, record numbers, GUIDs
// and names in both directions, the deliberate differences between the three files, and
// silence when a file cannot be read.
#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include "Basics.h"
#include "company_test.h"

namespace {

template <size_t N>
FixedString<N> Fixed(const char* text) {
  FixedString<N> f{};
  f = text;
  return f;
}

GUID Pattern(uint8_t byte) {
  GUID g;
  std::memset(&g, byte, sizeof g);
  return g;
}

class LookupsTest : public CompanyTest {
 protected:
  void SetUp() override {
    CompanyTest::SetUp();
    customers_ = {
        Add<CustomerRecord>(OpenCustFile, "ALDRED", "Aldred Hardware"),
        // 36 characters: lists show the first 30
        Add<CustomerRecord>(OpenCustFile, "BAYVIEW", "Bayview Community Garden Association")};
    vendors_ = {Add<VendorRecord>(OpenVendFile, "ACME", "Acme Office Products"),
                Add<VendorRecord>(OpenVendFile, "HARBOR", "Harbor Freight Lines")};
    employees_ = {Add<EmpType>(OpenEmployeeFile, "E-ADAMS"),
                  Add<EmpType>(OpenEmployeeFile, "E-BROOKS")};
  }
  void CloseLibraryFiles() override {
    CloseInternalCustFile();
    CloseInternalVendFile();
    CloseInternalEmpFile();
  }

  // Writes a card through a handle of its own, as the host's maintenance screens do.
  template <typename Record>
  static Record Add(int (*open)(BtrvFile**, uint16_t), const char* id, const char* name = "") {
    Record record{};
    record.ID = id;
    if constexpr (!std::is_same_v<Record, EmpType>) record.Name = name;
    AssignGUID(record.Guid);
    BtrvFile* file = nullptr;
    EXPECT_NE(open(&file, kOpenModeNormal), 0);
    EXPECT_NE(InsertRecord(file, sizeof record, &record), 0);
    RealCloseFile(&file, __FILE__, __LINE__);
    return record;
  }

  std::vector<CustomerRecord> customers_;
  std::vector<VendorRecord> vendors_;
  std::vector<EmpType> employees_;
};

TEST_F(LookupsTest, CustomersTranslateBothWays) {
  const CustomerRecord& bayview = customers_[1];
  EXPECT_EQ(GetRecordNumberFromCustomerID(Fixed<21>("BAYVIEW")), 2);
  EXPECT_EQ(GetRecordNumberFromCustomerID(Fixed<21>("bayview")), 0);  // IDs are exact
  FixedString<21> id = Fixed<21>("stale");
  EXPECT_TRUE(GetCustomerIDFromRecordNumber(1, id));
  EXPECT_STREQ(id, "ALDRED");
  EXPECT_FALSE(GetCustomerIDFromRecordNumber(9, id));
  EXPECT_STREQ(id, "");  // cleared even when nothing is found
  EXPECT_EQ(GetRecordNumberFromCustomerGUID(bayview.Guid), 2);
  EXPECT_EQ(GetRecordNumberFromCustomerGUID(Pattern(7)), 0);

  GUID guid{};
  EXPECT_EQ(GetCustomerGUIDFromRecordNumber(2, guid), 1);
  EXPECT_EQ(std::memcmp(&guid, &bayview.Guid, sizeof guid), 0);
  // A failed read leaves the caller's GUID as it was.
  const GUID before = Pattern(0xAB);
  guid = before;
  EXPECT_EQ(GetCustomerGUIDFromRecordNumber(9, guid), 0);
  EXPECT_EQ(std::memcmp(&guid, &before, sizeof guid), 0);

  int32_t number = -1;
  FixedString<31> name{};
  EXPECT_TRUE(GetRecordNumberAndNameFromCustomerID(Fixed<21>("BAYVIEW"), number, name));
  EXPECT_EQ(number, 2);
  EXPECT_STREQ(name, "Bayview Community Garden Assoc");  // cut to 30 characters
  EXPECT_FALSE(GetRecordNumberAndNameFromCustomerID(Fixed<21>("NOSUCH"), number, name));
  EXPECT_EQ(number, 0);
  EXPECT_STREQ(name, "NOSUCH");

  CustomerRecord record;
  EXPECT_TRUE(GetCustomerInfo(Fixed<21>("ALDRED"), &record));
  EXPECT_EQ(+record.RecordNumber, 1);
  EXPECT_TRUE(GetCustomerInfo(2, &record));
  EXPECT_STREQ(record.ID, "BAYVIEW");
  EXPECT_FALSE(GetCustomerInfo(0, &record));
  EXPECT_EQ(+record.RecordNumber, 0);
}

TEST_F(LookupsTest, EmptyKeysNeverReachTheFile) {
  CloseLibraryFiles();
  const uint64_t calls = StoreCallCount();
  FixedString<21> empty{};
  CustomerRecord customer;
  VendorRecord vendor;
  FixedString<21> id{};
  GUID guid = Pattern(1);
  EXPECT_EQ(GetRecordNumberFromCustomerID(empty), 0);
  EXPECT_FALSE(GetCustomerIDFromRecordNumber(0, id));
  EXPECT_FALSE(GetCustomerInfo(empty, &customer));
  EXPECT_EQ(GetRecordNumberFromVendorID(empty), 0);
  EXPECT_FALSE(GetVendorInfo(0, &vendor));
  EXPECT_FALSE(GetVendorGUIDFromRecordNumber(0, guid));
  EXPECT_TRUE(IsNullGUID(guid));  // the vendor form clears its output first
  EXPECT_EQ(VendExistQuietByRecNum(0), 0);
  FixedString<21> employee_id{};
  EXPECT_FALSE(GetEmployeeID(0, &employee_id));
  EXPECT_EQ(StoreCallCount(), calls);
  EXPECT_EQ(OpenHandleCount(), 0u);

  // The employee reads by ID do not refuse an empty ID: they ask the file.
  EmpType employee;
  EXPECT_FALSE(GetEmployeeInfo(empty, &employee));
  EXPECT_EQ(OpenHandleCount(), 1u);
}

TEST_F(LookupsTest, VendorsTranslateBothWays) {
  EXPECT_EQ(GetRecordNumberFromVendorID(Fixed<21>("HARBOR")), 2);
  EXPECT_EQ(GetVendorRecordNumberFromGUID(vendors_[0].Guid), 1);
  FixedString<21> id{};
  EXPECT_TRUE(GetVendorIDFromRecordNumber(2, id));
  EXPECT_STREQ(id, "HARBOR");
  GUID guid{};
  EXPECT_TRUE(GetVendorGUIDFromRecordNumber(1, guid));
  EXPECT_EQ(std::memcmp(&guid, &vendors_[0].Guid, sizeof guid), 0);
  guid = Pattern(0xCD);
  EXPECT_FALSE(GetVendorGUIDFromRecordNumber(9, guid));
  EXPECT_TRUE(IsNullGUID(guid));

  FixedString<31> name = Fixed<31>("stale");
  GetVendorNameFromRecordNumber(1, name);
  EXPECT_STREQ(name, "Acme Office Products");
  GetVendorNameFromRecordNumber(9, name);
  EXPECT_STREQ(name, "");

  // The existence test reads the key only.
  EXPECT_EQ(VendExistQuietByRecNum(2), 1);
  EXPECT_EQ(VendExistQuietByRecNum(3), 0);

  int32_t number = -1;
  EXPECT_FALSE(GetRecordNumberAndNameFromVendorID(Fixed<21>("NOSUCH"), number, name));
  EXPECT_EQ(number, 0);
  EXPECT_STREQ(name, "NOSUCH");
  VendorRecord record;
  EXPECT_TRUE(GetVendorInfo(Fixed<21>("ACME"), &record));
  EXPECT_EQ(+record.RecordNumber, 1);
}

TEST_F(LookupsTest, EmployeesTranslateBothWays) {
  EXPECT_EQ(GetEmployeeRecNo(Fixed<21>("E-BROOKS")), 2);
  int32_t number = -1;
  EXPECT_FALSE(GetEmployeeRecNo(Fixed<21>("E-NOBODY"), &number));
  EXPECT_EQ(number, 0);
  EXPECT_TRUE(GetEmployeeRecNo(Fixed<21>("E-ADAMS"), &number));
  EXPECT_EQ(number, 1);
  EXPECT_EQ(GetEmployeeRecNo(employees_[1].Guid), 2);
  FixedString<21> id{};
  EXPECT_TRUE(GetEmployeeID(1, &id));
  EXPECT_STREQ(id, "E-ADAMS");
  const GUID before = Pattern(0xEE);
  GUID guid = before;
  EXPECT_EQ(GetEmployeeGUID(7, guid), 0);
  EXPECT_EQ(std::memcmp(&guid, &before, sizeof guid), 0);
  EXPECT_EQ(GetEmployeeGUID(2, guid), 1);
  EXPECT_EQ(std::memcmp(&guid, &employees_[1].Guid, sizeof guid), 0);

  // A read on the caller's handle and key: the handle is opened read-only when null and
  // stays with the caller.
  BtrvFile* file = nullptr;
  EmpType record{};
  record.Guid = employees_[0].Guid;
  EXPECT_EQ(GetEmployeeRecordByKey(record, kEmpKeyGUID, file), 1);
  EXPECT_STREQ(record.ID, "E-ADAMS");
  ASSERT_NE(file, nullptr);
  RealCloseFile(&file, __FILE__, __LINE__);
}

TEST_F(LookupsTest, FilesThatCannotBeOpenedAnswerNotFoundSilently) {
  CloseLibraryFiles();
  ASSERT_EQ(ZORDeleteFile(CustomerName), kStatusOk);
  ASSERT_EQ(ZORDeleteFile(VendorName), kStatusOk);
  ASSERT_EQ(ZORDeleteFile(EmpFileName), kStatusOk);
  FixedString<21> id{};
  EXPECT_EQ(GetRecordNumberFromCustomerID(Fixed<21>("ALDRED")), 0);
  EXPECT_FALSE(GetCustomerIDFromRecordNumber(1, id));
  EXPECT_EQ(GetRecordNumberFromVendorID(Fixed<21>("ACME")), 0);
  EXPECT_EQ(VendExistQuietByRecNum(1), 0);
  EXPECT_EQ(GetEmployeeRecNo(Fixed<21>("E-ADAMS")), 0);
  EXPECT_TRUE(messages_.shown().empty());
  EXPECT_EQ(OpenHandleCount(), 0u);
}

}  // namespace
