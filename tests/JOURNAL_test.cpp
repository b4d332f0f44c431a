// The journal model: key strings and typed keys, shadow and partner keys, journal names
// and distribution-line descriptions.
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "General.h"
#include "JOURNAL.h"
#include "LineItemDcl.h"
#include "OpenDat.h"
#include "company_test.h"
#include "journldb.h"
#include "utility.h"

namespace {

class JournalModelTest : public CompanyTest {
 protected:
  void SetUp() override {
    CompanyTest::SetUp();
    saved_ = Current;
    Current.PeriodsPerYear = 12;
  }
  void CloseLibraryFiles() override {
    CloseInternalJrnlFiles();
    CloseInternalItemFile();
    Current = saved_;
  }
  static JournalKey1Type Key(int16_t journal, uint16_t period, int32_t number) {
    JournalKey1Type k = {};
    k.JournalType = journal;
    k.Period = period;
    k.TrxNumber = number;
    return k;
  }
  static std::string KeyString(const JournalKey1Type& k) {
    FixedString<16> out;
    MakeKeyString(&k, out);
    return out.s;
  }
  CurrentType saved_;
};

TEST_F(JournalModelTest, KeyStringsAndTypedKeysReadBackTheSamePeriodAndNumber) {
  EXPECT_EQ(KeyString(Key(SJ, 17, 123)), " 03-000000123");  // user period 3 of the first year
  EXPECT_EQ(KeyString(Key(SJ, 12, 123)), "p12-000000123");  // history year: internal period
  for (const char* text : {" 03-000000123", "p12-000000123"}) {
    SCOPED_TRACE(text);
    JournalKey1Type k = {};
    k.Shadow = 1;  // flag bytes are the caller's
    MakeJournalKey(CRJ, text, &k, nullptr);
    EXPECT_EQ(KeyString(k), text);
    EXPECT_EQ(k.JournalType, CRJ);
    EXPECT_EQ(k.Shadow, 1);
  }
  JournalKey1Type typed = {};
  JournalKey2Type key2 = {};
  MakeJournalKey(GENJ, "123", &typed, &key2);  // no period typed: the date's period
  EXPECT_EQ(typed.TrxNumber, 123);
  EXPECT_EQ(typed.Period, WhichGLperiod(key2.Date));
}

TEST_F(JournalModelTest, ShadowAndPartnerKeys) {
  JournalKey1Type out = {};
  const JournalKey1Type receipt = Key(CRJ, 17, 5), sale = Key(SJ, 17, 5);
  ASSERT_EQ(MakeShadowOfJournalKey(&out, &receipt), 1);
  EXPECT_EQ((std::to_string(out.JournalType) + "/" + std::to_string(out.Shadow)), "3/1");
  const JournalKey1Type shadow = out;
  JournalKey1Type untouched = Key(PRJ, 1, 1);
  JournalKey1Type shadow_receipt = receipt;  // a receipt key that is a shadow already
  shadow_receipt.Shadow = 1;
  EXPECT_EQ(MakeShadowOfJournalKey(&untouched, &shadow), 0);  // a shadow has no shadow
  EXPECT_EQ(MakeShadowOfJournalKey(&untouched, &shadow_receipt), 0);
  EXPECT_EQ(MakeShadowOfJournalKey(&untouched, &sale), 0);
  EXPECT_EQ(untouched.JournalType, PRJ);

  JournalKey1Type partner = {};
  ASSERT_EQ(MakePartnerOfJournalKey(&partner, &sale), 1);
  EXPECT_EQ((std::to_string(partner.JournalType) + "/" + std::to_string(partner.PartnerFlag)),
            "1/1");
  EXPECT_EQ(MakePartnerOfJournalKey(&partner, &sale), 0);  // the output's flag is tested
  const JournalKey1Type gen40 = Key(GENJ, 40, 9), gen41 = Key(GENJ, 41, 9);
  ASSERT_EQ(MakePartnerOfJournalKey(&out, &gen40), 1);
  EXPECT_EQ(out.Period, 41);
  for (const JournalKey1Type& in : {gen41, Key(PRJ, 17, 1)}) {
    JournalKey1Type none = {};
    EXPECT_EQ(MakePartnerOfJournalKey(&none, &in), 0) << in.JournalType;
  }
}

TEST_F(JournalModelTest, JournalNames) {
  char buf[64];
  auto short_name = [&](int16_t j, uint16_t size) {
    std::strcpy(buf, "(untouched)");
    GetJournalNameShort(j, size, buf);
    return std::string(buf);
  };
  EXPECT_EQ(short_name(COGSJ, 5) + "|" + short_name(COGSJ, 8) + "|" + short_name(POJ, 40),
            "COGS|Assembly|P.O.");
  EXPECT_EQ(short_name(CDJ, 5), "(untouched)");  // too small: left as it was
  EXPECT_EQ(short_name(99, 40), "<unused journal>");
  auto long_name = [&](int16_t j, int16_t variant) {
    buf[0] = '\0';
    GetJournalNameEx(j, variant, sizeof buf - 1, buf);
    return std::string(buf);
  };
  EXPECT_EQ(long_name(SJ, -1), MessageText(314));
  EXPECT_EQ(long_name(SJ, 2), MessageText(322));
  EXPECT_EQ(long_name(PJ, 3), MessageText(323));
  EXPECT_EQ(long_name(SJ2, -1), MessageText(321));
  EXPECT_EQ(long_name(INAJ2, -1), "<unused journal>");  // journal 9 has no long name
  buf[0] = '\0';
  GetJournalName(GENJ, sizeof buf - 1, buf);
  EXPECT_EQ(std::string(buf), MessageText(311));
  std::string codes;
  for (int16_t j : std::initializer_list<int16_t>{INAJ2, SJ2, 13, -1})
    codes += GetJrnlName(j) + std::string("|");
  EXPECT_EQ(codes, "INAJ|SJ|????|????|");
}

TEST_F(JournalModelTest, DistributionDescriptionsNameTheInvoiceOrTheItem) {
  // One item in the item file: ID at 0, record number (auto-increment, key 2) at 68.
  BtrvFile* items = nullptr;
  ASSERT_EQ(OpenLineItemFile(&items, kOpenModeNormal), 1);
  uint8_t item[6267] = {};
  std::strcpy(reinterpret_cast<char*>(item), "WIDGET");
  ASSERT_TRUE(::InsertRecord(items, sizeof item, item));
  int32_t item_number;
  std::memcpy(&item_number, item + 68, 4);
  RealCloseFile(&items, "test", __LINE__);

  JournalRecord* rec = nullptr;
  ASSERT_EQ(AllocateJournalRecord(&rec), 1);
  rec->Key1.JournalType = CRJ;
  rec->Description = "Deposit";
  JrnlDistLine* lines = JournalLines(rec);
  lines[0].Applied = 1;
  lines[0].InvoiceRef = "INV-7";
  lines[1].Item = item_number;
  lines[1].Description = "two boxes";
  lines[2].Item = item_number;
  lines[2].Flag = 1;  // the item is not named
  char out[200];
  auto text = [&](int16_t line, uint16_t size = sizeof out) {
    GetDistribDescription(rec, line, size, out);
    return std::string(out);
  };
  EXPECT_EQ(text(0), "Deposit - Invoice: INV-7");
  EXPECT_EQ(text(1), "Deposit - Item: WIDGET - two boxes");
  EXPECT_EQ(text(2), "Deposit");
  EXPECT_EQ(text(1, 8), "Deposit");  // cut to the buffer
  rec->Key1.JournalType = GENJ;      // another member of the union
  JournalLines(rec)[1].Description = "general line";
  EXPECT_EQ(text(1), "general line");
  rec->Key1.JournalType = PRJ;
  EXPECT_EQ(text(0), "Deposit");
  ASSERT_EQ(DeAllocateJournalRecord(&rec), 1);
  EXPECT_EQ(rec, nullptr);
}

}  // namespace
