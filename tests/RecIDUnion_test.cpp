// The record identifier union on a real company: each kind converts through its own
// master file, values built from an ID and from a number meet in comparisons, and the
// buffer forms report sizes and store forms exactly.
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "Basics.h"
#include "company_test.h"
#include "master_records.h"

namespace {

using U = S_L_RecIDUnion;

// Kind k's file holds k + 2 records, so a lookup through the wrong file finds nothing or
// another number.
struct KindCase {
  uint16_t kind, file_number;
  const char* prefix;
};
constexpr KindCase kKinds[] = {
    {U::eCustomer, 3, "CUST"}, {U::eVendor, 4, "VEND"},    {U::eEmployee, 7, "EMP"},
    {U::eLineItem, 5, "ITEM"}, {U::eProject, 13, "PROJ"},  {U::eAccount, 2, "ACCT"},
    {U::ePhase, 38, "PHASE"},  {U::eCostCode, 39, "COST"},
};
std::string IdOf(const KindCase& c, int n) {
  return std::string(c.prefix) + "-" + std::to_string(n);
}

template <typename... Records>
void AddSeries() {
  int i = 0;
  auto add = [&i]<typename R>(R*) {
    const KindCase& c = kKinds[i++];
    for (int n = 1; n <= c.kind + 2; ++n) master_records::Add<R>(IdOf(c, n).c_str());
  };
  (add(static_cast<Records*>(nullptr)), ...);
}

template <typename T>
U Value(uint16_t kind, T form) {
  U u(form);
  u.SetWhatType(kind);
  return u;
}

class RecIDUnionTest : public CompanyTest {
 protected:
  void SetUp() override {
    CompanyTest::SetUp();
    AddSeries<CustomerRecord, VendorRecord, EmpType, LineItemRecord, ProjectRecord, AccountType,
              PhaseRecord, CostRecord>();
  }
  void CloseLibraryFiles() override {
    CloseInternalCustFile();
    CloseInternalVendFile();
    CloseInternalEmpFile();
    CloseInternalItemFile();
    CloseInternalProjFile();
    CloseInternalChartFile();
    CloseInternalPhaseFile();
    CloseInternalCostFile();
  }
};

TEST_F(RecIDUnionTest, EveryKindConvertsThroughItsOwnFile) {
  for (const KindCase& c : kKinds) {
    SCOPED_TRACE(c.prefix);
    EXPECT_EQ(U::GetFileNumber(c.kind), c.file_number);
    EXPECT_EQ(U::GeteWhatType_FromFile(c.file_number), c.kind);
    const int32_t last = c.kind + 2;
    const U by_id = Value(c.kind, IdOf(c, last).c_str());
    const U by_number = Value(c.kind, last);
    int32_t number = 0;
    EXPECT_TRUE(by_id.GetRecNbr(number));
    EXPECT_EQ(number, last);
    EXPECT_EQ(std::string(static_cast<const char*>(by_number)), IdOf(c, last));
    EXPECT_TRUE(Value(c.kind, last) == Value(c.kind, IdOf(c, last).c_str()));
  }
  for (uint16_t other : {0, 9, 40}) EXPECT_EQ(U::GetFileNumber(other), 0);
  for (uint16_t other : {0, 1, 10, 22}) EXPECT_EQ(U::GeteWhatType_FromFile(other), 0);
}

TEST_F(RecIDUnionTest, ComparisonsMeetAcrossFormsButNeverAcrossKinds) {
  EXPECT_TRUE(Value(U::eAccount, "ACCT-3") == Value(U::eAccount, 3));
  EXPECT_TRUE(Value(U::eAccount, "ACCT-3") == 3);
  EXPECT_TRUE(Value(U::eAccount, "ACCT-1") < Value(U::eAccount, 2));
  EXPECT_TRUE(Value(U::eAccount, 3).RecNbr_Equal(Value(U::eAccount, "ACCT-3")));
  // The form comparisons resolve only their right side.
  EXPECT_FALSE(Value(U::eAccount, "ACCT-3").RecNbr_Equal(Value(U::eAccount, 3)));
  EXPECT_FALSE(Value(U::eAccount, 3).RecID_Equal(Value(U::eAccount, "ACCT-3")));
  U both = Value(U::eAccount, 3);
  ASSERT_TRUE(both.ConvertToId());
  EXPECT_TRUE(both.RecID_Equal(Value(U::eAccount, "ACCT-3")));
  EXPECT_FALSE(both.RecID_Equal(Value(U::eAccount, "ACCT-2")));

  for (const auto& [a, b] : {std::pair{Value(U::eCustomer, 1), Value(U::eVendor, 1)},
                             std::pair{Value(U::eNone, "X"), Value(U::eAccount, "X")}}) {
    EXPECT_FALSE(a == b || a.RecNbr_Equal(b) || a.RecID_Equal(b) || a < b || b < a);
  }
  // Unresolvable values read as empty; a failed lookup keeps number 0; kind 0 has no file.
  int32_t number = 7;
  EXPECT_FALSE(Value(U::eCustomer, "NOSUCH").GetRecNbr(number));
  EXPECT_EQ(number, 0);
  EXPECT_STREQ(static_cast<const char*>(Value(U::eCustomer, 99)), "");
  EXPECT_FALSE(Value(U::eNone, "CUST-1").GetRecNbr(number));
  EXPECT_FALSE(Value(U::eNone, 1).ConvertToId());
  // ID kinds carry no number.
  EXPECT_FALSE(Value(9, "X") == -1);
  EXPECT_TRUE(Value(9, "X").RecNbr_Equal(Value(9, "Y")));
  EXPECT_FALSE(Value(9, "X").RecID_Equal(Value(9, "Y")));
}

TEST_F(RecIDUnionTest, BufferFormsReportSizesAndStoreForms) {
  U cust = Value(U::eCustomer, 2);
  char text[16] = "untouched";
  int size = 6;  // "CUST-2" needs 7
  EXPECT_FALSE(cust.GetId(text, size));
  EXPECT_EQ(size, 7);
  EXPECT_STREQ(text, "untouched");
  EXPECT_TRUE(cust.GetId(text, size));
  EXPECT_STREQ(text, "CUST-2");

  // Record-number kinds store 4 bytes; the rest of the caller's buffer is cleared.
  unsigned char store[8];
  std::memset(store, 0xEE, sizeof store);
  size = sizeof store;
  EXPECT_TRUE(Value(U::eCustomer, "CUST-2").GetRecNbrId(store, size));
  const unsigned char two[8] = {2};
  EXPECT_EQ(std::memcmp(store, two, sizeof store), 0);
  size = 3;
  EXPECT_FALSE(cust.GetRecNbrId(store, size));
  EXPECT_EQ(size, 4);
  // Read back, a store form keeps the kind and forgets the old ID.
  U back = Value(U::eCustomer, "CUST-1");
  back = static_cast<const unsigned char*>(two);
  EXPECT_TRUE(back == "CUST-2");

  // ID kinds store their text, taken up to 121 characters.
  const std::string long_id(130, 'Z');
  U text_kind = Value(20, "");
  text_kind = reinterpret_cast<const unsigned char*>(long_id.c_str());
  EXPECT_EQ(text_kind.ByteBufferLth(), 121);
  text_kind = "AB";
  size = 3;
  EXPECT_TRUE(text_kind.GetRecNbrId(store, size));
  EXPECT_STREQ(reinterpret_cast<const char*>(store), "AB");

  // Known forms are kept until reset asks the file again.
  master_records::RenameCustomer(2, "RENAMED", "");
  EXPECT_TRUE(cust == "CUST-2");
  size = sizeof text;
  EXPECT_TRUE(cust.GetId(text, size, true));
  EXPECT_STREQ(text, "RENAMED");
}

}  // namespace
