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

using master_records::Add;
using U = S_L_RecIDUnion;

struct KindCase {
  uint16_t kind;
  uint16_t file_number;
  const char* prefix;
};
// Kind k holds k + 2 records, so the last one's number is k + 2 and a lookup through the
// wrong file finds nothing or another ID.
constexpr KindCase kKinds[] = {
    {U::eCustomer, 3, "CUST"}, {U::eVendor, 4, "VEND"},    {U::eEmployee, 7, "EMP"},
    {U::eLineItem, 5, "ITEM"}, {U::eProject, 13, "PROJ"},  {U::eAccount, 2, "ACCT"},
    {U::ePhase, 38, "PHASE"},  {U::eCostCode, 39, "COST"},
};

std::string IdOf(const KindCase& c, int n) {
  return std::string(c.prefix) + "-" + std::to_string(n);
}

template <typename Record>
void AddSeries(const KindCase& c) {
  for (int n = 1; n <= c.kind + 2; ++n) Add<Record>(IdOf(c, n).c_str());
}

U Value(uint16_t kind, const char* id) {
  U u(id);
  u.SetWhatType(kind);
  return u;
}
U Value(uint16_t kind, int32_t number) {
  U u(number);
  u.SetWhatType(kind);
  return u;
}

class RecIDUnionTest : public CompanyTest {
 protected:
  void SetUp() override {
    CompanyTest::SetUp();
    AddSeries<CustomerRecord>(kKinds[0]);
    AddSeries<VendorRecord>(kKinds[1]);
    AddSeries<EmpType>(kKinds[2]);
    AddSeries<LineItemRecord>(kKinds[3]);
    AddSeries<ProjectRecord>(kKinds[4]);
    AddSeries<AccountType>(kKinds[5]);
    AddSeries<PhaseRecord>(kKinds[6]);
    AddSeries<CostRecord>(kKinds[7]);
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
    const std::string id = IdOf(c, last);

    U by_id = Value(c.kind, id.c_str());
    int32_t number = 0;
    EXPECT_TRUE(by_id.GetRecNbr(number));
    EXPECT_EQ(number, last);

    U by_number = Value(c.kind, last);
    char text[32];
    int size = sizeof text;
    EXPECT_TRUE(by_number.GetId(text, size));
    EXPECT_EQ(std::string(text), id);
    EXPECT_TRUE(by_id == by_number);
  }
  for (uint16_t other : {0, 9, 40}) EXPECT_EQ(U::GetFileNumber(other), 0);
  for (uint16_t other : {0, 1, 10, 22}) EXPECT_EQ(U::GeteWhatType_FromFile(other), 0);
}

TEST_F(RecIDUnionTest, ComparisonsMeetAcrossFormsButNeverAcrossKinds) {
  const U acct_by_id = Value(U::eAccount, "ACCT-3");
  const U acct_by_number = Value(U::eAccount, 3);  // a constant value still resolves
  EXPECT_TRUE(acct_by_id == acct_by_number);
  EXPECT_TRUE(Value(U::eAccount, 3).RecNbr_Equal(Value(U::eAccount, "ACCT-3")));
  // The form comparisons resolve only their right side.
  EXPECT_FALSE(Value(U::eAccount, "ACCT-3").RecNbr_Equal(Value(U::eAccount, 3)));
  EXPECT_FALSE(Value(U::eAccount, 3).RecID_Equal(Value(U::eAccount, "ACCT-3")));
  U both = Value(U::eAccount, 3);
  ASSERT_TRUE(both.ConvertToId());
  EXPECT_TRUE(both.RecID_Equal(Value(U::eAccount, "ACCT-3")));
  EXPECT_FALSE(both.RecID_Equal(Value(U::eAccount, "ACCT-2")));
  EXPECT_TRUE(acct_by_number == "ACCT-3");
  EXPECT_TRUE(Value(U::eAccount, "ACCT-3") == 3);
  EXPECT_TRUE(Value(U::eAccount, "ACCT-1") < Value(U::eAccount, 2));
  EXPECT_TRUE(Value(U::eAccount, "ACCT-1") < 2);

  // Same contents, different kinds: neither equal nor ordered, whichever form.
  for (const auto& [a, b] : {std::pair{Value(U::eCustomer, 1), Value(U::eVendor, 1)},
                             std::pair{Value(U::eCustomer, "X"), Value(U::eVendor, "X")},
                             std::pair{Value(U::eNone, "X"), Value(U::eAccount, "X")}}) {
    EXPECT_FALSE(a == b);
    EXPECT_FALSE(a.RecNbr_Equal(b));
    EXPECT_FALSE(a.RecID_Equal(b));
    EXPECT_FALSE(a < b);
    EXPECT_FALSE(b < a);
  }

  // Unresolvable values compare unequal and read as empty text; a failed lookup keeps 0.
  int32_t number = 7;
  EXPECT_FALSE(Value(U::eCustomer, "NOSUCH").GetRecNbr(number));
  EXPECT_EQ(number, 0);
  EXPECT_STREQ(static_cast<const char*>(Value(U::eCustomer, 99)), "");
  // Kind 0 stores record numbers but has no file to look in.
  EXPECT_TRUE(Value(U::eNone, "CUST-1").UsesRecNbrInFile());
  EXPECT_FALSE(Value(U::eNone, "CUST-1").GetRecNbr(number));
  EXPECT_FALSE(Value(U::eNone, 1).ConvertToId());
  // ID kinds have no number to compare.
  EXPECT_FALSE(Value(9, "X") == -1);
  EXPECT_TRUE(Value(9, "X").RecNbr_Equal(Value(9, "Y")));
  EXPECT_FALSE(Value(9, "X").RecID_Equal(Value(9, "Y")));
}

TEST_F(RecIDUnionTest, BufferFormsReportSizesAndStoreForms) {
  U cust = Value(U::eCustomer, 2);
  char text[16];
  std::memset(text, '#', sizeof text);
  int size = 6;  // "CUST-2" needs 7
  EXPECT_FALSE(cust.GetId(text, size));
  EXPECT_EQ(size, 7);
  EXPECT_TRUE(cust.GetId(text, size));
  EXPECT_STREQ(text, "CUST-2");

  // Record-number kinds store 4 bytes; the rest of the caller's buffer is cleared.
  unsigned char store[8];
  std::memset(store, 0xEE, sizeof store);
  size = sizeof store;
  U by_id = Value(U::eCustomer, "CUST-2");
  EXPECT_TRUE(by_id.GetRecNbrId(store, size));
  const unsigned char two[8] = {2, 0, 0, 0, 0, 0, 0, 0};
  EXPECT_EQ(std::memcmp(store, two, sizeof store), 0);
  size = 3;
  EXPECT_FALSE(by_id.GetRecNbrId(store, size));
  EXPECT_EQ(size, 4);
  int32_t seen;
  std::memcpy(&seen, static_cast<const unsigned char*>(Value(U::eCustomer, "CUST-2")), 4);
  EXPECT_EQ(seen, 2);

  // A store form read back keeps the kind and forgets the old ID.
  U back = Value(U::eCustomer, "CUST-1");
  back = static_cast<const unsigned char*>(two);
  EXPECT_EQ(back.GetWhatType(), U::eCustomer);
  EXPECT_TRUE(back == "CUST-2");

  // ID kinds store their text with its terminator, cut to 121 characters when read.
  const std::string long_id(130, 'Z');
  U text_kind = Value(20, "");
  text_kind = reinterpret_cast<const unsigned char*>(long_id.c_str());
  EXPECT_EQ(text_kind.ByteBufferLth(), 121);
  unsigned char area[130];
  size = sizeof area;
  EXPECT_FALSE(text_kind.GetRecNbrId(area, size));  // longer than the 120 a store form holds
  text_kind = "AB";
  size = 3;
  EXPECT_TRUE(text_kind.GetRecNbrId(area, size));
  EXPECT_STREQ(reinterpret_cast<const char*>(area), "AB");
}

TEST_F(RecIDUnionTest, ResetLooksTheFileUpAgain) {
  U cust = Value(U::eCustomer, 1);
  ASSERT_TRUE(cust == "CUST-1");
  master_records::Update<CustomerRecord>(1, [](CustomerRecord& r) { r.ID = "RENAMED"; });
  EXPECT_TRUE(cust == "CUST-1");  // both forms known: nothing is read
  char text[32];
  int size = sizeof text;
  EXPECT_TRUE(cust.GetId(text, size, true));
  EXPECT_STREQ(text, "RENAMED");

  U by_id = Value(U::eCustomer, "CUST-2");
  int32_t number = 0;
  ASSERT_TRUE(by_id.GetRecNbr(number));
  by_id = "CUST-3";  // a new ID forgets the old number
  EXPECT_TRUE(by_id.GetRecNbr(number));
  EXPECT_EQ(number, 3);
  by_id.ResetId();
  EXPECT_FALSE(by_id.GetRecNbr(number, true));  // nothing left to look up
  EXPECT_EQ(number, -1);
}

}  // namespace
