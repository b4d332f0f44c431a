// Receipt tags on a real company: adding, finding by sale, receipt and receipt
// distribution, refreshing on save, assigning to a receipt and deleting, silence with the
// cash-basis switch clear, and writes of several tags that leave all or nothing.
#include <cstring>
#include <functional>
#include <memory>
#include <vector>

#include <gtest/gtest.h>

#include "Basics.h"
#include "RecptTagDcl.h"
#include "company_test.h"
#include "record_manager_internal.h"
#include "rm_fault_backend.h"

namespace {

JournalKey1Type Key(int16_t journal, int32_t number) {
  JournalKey1Type key;
  std::memset(&key, 0, sizeof key);
  key.JournalType = journal;
  key.TrxNumber = number;
  key.Period = 16;
  return key;
}

const JournalKey1Type kSaleA = Key(SJ, 101);
const JournalKey1Type kSaleB = Key(SJ, 102);
const JournalKey1Type kPurchase = Key(PJ, 103);
const JournalKey1Type kReceipt = Key(CRJ, 501);
const JournalKey1Type kOtherReceipt = Key(CRJ, 502);

// A receipt key no receipt has been given yet: zero but for its journal type.
JournalKey1Type Unassigned() {
  JournalKey1Type key;
  std::memset(&key, 0, sizeof key);
  key.JournalType = kUnassignedReceiptJournal;
  return key;
}

bool Same(const JournalKey1Type& a, const JournalKey1Type& b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

class RecptTagTest : public CompanyTest {
 protected:
  void SetUp() override {
    CompanyTest::SetUp();
    MyCompany.CashBasis = 1;
  }
  void CloseLibraryFiles() override {
    RealCloseFile(&file_, __FILE__, __LINE__);
    RealCloseFile(&RecptTagFile, __FILE__, __LINE__);  // the host closes the module's handle
    MyCompany.CashBasis = 0;
    rm::SetBackendDecorator(nullptr);
  }
  void Open() { ASSERT_NE(OpenRecptTagFile(&file_, kOpenModeNormal), 0); }

  // A tag of sale for receipt (unassigned when receipt is null) at row offset.
  uint8_t Add(const JournalKey1Type& sale, const JournalKey1Type* receipt, uint16_t offset,
              uint32_t receipt_post = 0, uint8_t flags = 1) {
    const JournalKey1Type none = Key(0, 0);
    return AddTagForSaleReceipt(file_, sale, 40 + static_cast<uint32_t>(sale.TrxNumber),
                                receipt != nullptr ? *receipt : none, offset, 0.25,
                                DatesType{3, 4, 2024}, flags, flags, receipt_post,
                                receipt != nullptr ? 1 : 0, 77);
  }
  // Every tag, in receipt post order and row offset.
  std::vector<RecptTagRec> All() {
    std::vector<RecptTagRec> tags;
    RecptTagRec tag;
    for (uint8_t ok = GetFileLowest(file_, 0, sizeof tag, &tag, kRecptTagKeyReceiptPost); ok;
         ok = GetNextRecptTagRec(file_, &tag, kRecptTagKeyReceiptPost)) {
      tags.push_back(tag);
    }
    return tags;
  }
  // The sale numbers of the tags of receipt (in row offset order).
  std::vector<int32_t> SalesOf(const JournalKey1Type& receipt) {
    std::vector<int32_t> sales;
    RecptTagRec tag;
    for (uint8_t ok = GetTagRecForReceiptKey(file_, &tag, receipt, 0, kTagFirst); ok;
         ok = GetTagRecForReceiptKey(file_, &tag, receipt, 0, kTagNext)) {
      sales.push_back(tag.SaleKey.TrxNumber);
    }
    return sales;
  }

  BtrvFile* file_ = nullptr;
};

TEST_F(RecptTagTest, SwitchClearSucceedsAndTouchesNothing) {
  Open();
  ASSERT_EQ(Add(kSaleA, nullptr, 0), 1);
  MyCompany.CashBasis = 0;
  EXPECT_EQ(Add(kSaleB, &kReceipt, 0, 900), 1);
  EXPECT_TRUE(UpdateTagForReceipt(file_, kReceipt, 0));
  EXPECT_TRUE(DeleteTagsForSaleByKey(file_, kSaleA));
  EXPECT_TRUE(DeleteTagsForReceiptByKey(nullptr, kReceipt));
  RecptTagRec tag;
  std::memset(&tag, 0xAB, sizeof tag);
  EXPECT_EQ(GetTagRecForRecptDist(&tag, 900, 0), 1);
  EXPECT_EQ(tag.RowOffset, 0xABAB);  // answered without a read
  JournalRecord* record = nullptr;
  ASSERT_EQ(AllocateJournalRecord(&record), 1);
  record->Key1 = kSaleA;
  EXPECT_TRUE(UpdateSaleReceiptTag(nullptr, record));
  DeAllocateJournalRecord(&record);
  EXPECT_EQ(RecptTagFile, nullptr);
  ASSERT_EQ(All().size(), 1u);  // only the tag added with the switch set
  EXPECT_TRUE(Same(All()[0].SaleKey, kSaleA));
}

TEST_F(RecptTagTest, AddedTagMarksAnUnassignedReceipt) {
  Open();
  ASSERT_EQ(Add(kSaleA, nullptr, 2, 900), 1);  // receipt post order ignored without receipt
  ASSERT_EQ(Add(kSaleB, &kReceipt, 3, 900), 1);
  const std::vector<RecptTagRec> tags = All();
  ASSERT_EQ(tags.size(), 2u);
  EXPECT_TRUE(Same(tags[0].ReceiptKey, Unassigned()));
  EXPECT_EQ(tags[0].ReceiptPostOrder, 0u);
  EXPECT_TRUE(Same(tags[1].ReceiptKey, kReceipt));
  EXPECT_EQ(tags[1].ReceiptPostOrder, 900u);
  EXPECT_EQ(AddTagForSaleReceipt(nullptr, kSaleA, 1, kReceipt, 0, 1, {}, 1, 1, 1, 1, 0), 0);
}

TEST_F(RecptTagTest, DistributionFindsTheTagWithTheGreatestOffsetNotAboveIt) {
  Open();
  ASSERT_EQ(Add(kSaleA, &kReceipt, 0, 900), 1);  // distributions 0 to 2
  ASSERT_EQ(Add(kSaleB, &kReceipt, 3, 900), 1);  // distributions 3 to 5
  ASSERT_EQ(Add(kPurchase, &kOtherReceipt, 0, 901), 1);
  RecptTagRec tag;
  const int32_t expected[] = {101, 101, 101, 102, 102, 102, 102};
  for (uint16_t index = 0; index < 7; ++index) {
    SCOPED_TRACE(index);
    ASSERT_EQ(GetTagRecForDist(file_, &tag, 900, index), 1);
    EXPECT_EQ(tag.SaleKey.TrxNumber, expected[index]);
  }
  ASSERT_EQ(GetTagRecForRecptDist(&tag, 900, 4), 1);  // the module's handle, opened now
  EXPECT_EQ(tag.SaleKey.TrxNumber, 102);
  EXPECT_EQ(4 - tag.RowOffset, 1);  // sale B's distribution 1
  EXPECT_NE(RecptTagFile, nullptr);
  tag.RowOffset = 99;
  EXPECT_EQ(GetTagRecForDist(file_, &tag, 899, 0), 0);  // before every receipt
  EXPECT_EQ(GetTagRecForDist(file_, &tag, 902, 0), 0);  // lands on receipt 901's tag
  EXPECT_EQ(GetTagRecForRecptDist(&tag, 902, 0), 0);
  EXPECT_EQ(tag.RowOffset, 99);
  EXPECT_EQ(GetTagRecForDist(nullptr, &tag, 900, 0), 0);
}

TEST_F(RecptTagTest, KeyWalksStopAtTheFirstTagOfAnotherKeyAndDeletesTakeOnlyTheirKey) {
  Open();
  ASSERT_EQ(Add(kSaleA, &kReceipt, 0, 900), 1);
  ASSERT_EQ(Add(kSaleA, &kOtherReceipt, 0, 901), 1);
  ASSERT_EQ(Add(kSaleB, &kReceipt, 4, 900), 1);
  RecptTagRec tag;
  ASSERT_EQ(GetTagRecForSaleKey(file_, &tag, kSaleA, kTagFirst), 1);
  EXPECT_EQ(tag.ReceiptPostOrder, 900u);
  ASSERT_EQ(GetTagRecForSaleKey(file_, &tag, kSaleA, kTagNext), 1);
  EXPECT_EQ(tag.ReceiptPostOrder, 901u);
  EXPECT_EQ(GetTagRecForSaleKey(file_, &tag, kSaleA, kTagNext), 0);  // sale B's tag
  EXPECT_EQ(tag.ReceiptPostOrder, 901u);                             // left as it was
  EXPECT_EQ(GetTagRecForSaleKey(file_, &tag, kSaleA, kTagPrevious), 1);
  EXPECT_EQ(GetTagRecForSaleKey(file_, &tag, kSaleA, 3), 0);
  EXPECT_EQ(GetTagRecForSaleKey(file_, &tag, kPurchase, kTagFirst), 0);

  EXPECT_EQ(SalesOf(kReceipt), (std::vector<int32_t>{101, 102}));
  ASSERT_EQ(GetTagRecForReceiptKey(file_, &tag, kReceipt, 1, kTagFirst), 1);  // from offset 1
  EXPECT_EQ(tag.SaleKey.TrxNumber, 102);
  EXPECT_EQ(GetTagRecForReceiptKey(file_, &tag, kReceipt, 5, kTagFirst), 0);

  ASSERT_EQ(Add(kPurchase, &kOtherReceipt, 1, 901), 1);
  EXPECT_FALSE(DeleteTagsForSaleByKey(nullptr, kSaleA));
  EXPECT_TRUE(DeleteTagsForSaleByKey(file_, kSaleA));
  EXPECT_EQ(SalesOf(kOtherReceipt), (std::vector<int32_t>{103}));
  EXPECT_TRUE(DeleteTagsForReceiptByKey(file_, kReceipt));
  EXPECT_EQ(All().size(), 1u);
  EXPECT_TRUE(DeleteTagsForReceiptByKey(file_, kReceipt));  // none left: still success
}

TEST_F(RecptTagTest, SavingAReceiptAssignsTheUnassignedTagsToIt) {
  Open();
  ASSERT_EQ(Add(kSaleA, nullptr, 0), 1);
  ASSERT_EQ(Add(kSaleB, nullptr, 2), 1);
  ASSERT_EQ(Add(kPurchase, &kReceipt, 0, 900), 1);  // an earlier assignment, replaced
  ASSERT_EQ(Add(kPurchase, &kOtherReceipt, 0, 901), 1);
  EXPECT_TRUE(UpdateTagForReceipt(file_, Key(SJ, 501), 0));  // not a receipt: nothing
  EXPECT_EQ(SalesOf(kReceipt), (std::vector<int32_t>{103}));
  EXPECT_FALSE(UpdateTagForReceipt(nullptr, kReceipt, 0));

  EXPECT_TRUE(UpdateTagForReceipt(file_, kReceipt, 0));
  EXPECT_EQ(SalesOf(kReceipt), (std::vector<int32_t>{101, 102}));
  EXPECT_EQ(SalesOf(Unassigned()), std::vector<int32_t>{});
  EXPECT_EQ(SalesOf(kOtherReceipt), (std::vector<int32_t>{103}));
  // With nothing unassigned, the receipt's tags stay.
  EXPECT_TRUE(UpdateTagForReceipt(file_, kReceipt, 0));
  EXPECT_EQ(SalesOf(kReceipt), (std::vector<int32_t>{101, 102}));
}

TEST_F(RecptTagTest, SavingATransactionRefreshesItsSideOfItsTags) {
  Open();
  ASSERT_EQ(Add(kSaleA, &kReceipt, 0, 900, 0), 1);
  ASSERT_EQ(Add(kSaleA, &kOtherReceipt, 0, 901, 0), 1);
  ASSERT_EQ(Add(kSaleB, &kReceipt, 3, 900, 0), 1);
  JournalRecord* record = nullptr;
  ASSERT_EQ(AllocateJournalRecord(&record), 1);
  record->Key1 = kSaleA;
  record->PostOrder = 7001;
  record->Flag5949 = 1;
  EXPECT_TRUE(UpdateSaleReceiptTag(nullptr, record));
  record->Key1 = kReceipt;
  record->PostOrder = 905;
  record->Flag5949 = 2;
  EXPECT_TRUE(UpdateSaleReceiptTag(file_, record));
  record->Key1 = Key(GENJ, 101);  // journals other than 1 to 4 are left alone
  EXPECT_TRUE(UpdateSaleReceiptTag(file_, record));
  DeAllocateJournalRecord(&record);

  // Per tag: sale, sale post order and flag, receipt post order and flag.
  std::vector<std::vector<uint32_t>> got;
  for (const RecptTagRec& t : All()) {
    got.push_back({static_cast<uint32_t>(t.SaleKey.TrxNumber), t.SalePostOrder, t.SaleFlag,
                   t.ReceiptPostOrder, t.ReceiptFlag});
  }
  EXPECT_EQ(got, (std::vector<std::vector<uint32_t>>{
                     {101, 7001, 1, 901, 0}, {101, 7001, 1, 905, 2}, {102, 142, 0, 905, 2}}));
}

// Each operation that writes several tags is run with the nth store write failing, for
// every n until it succeeds: a failure leaves every tag as it was.
TEST_F(RecptTagTest, WritesOfSeveralTagsLeaveAllOrNothing) {
  auto plan = std::make_shared<rm::FaultPlan>();
  rm::SetBackendDecorator([plan](std::unique_ptr<rm::Backend> inner) {
    return rm::WrapWithFaults(std::move(inner), plan);
  });
  Open();
  auto bytes = [this] {
    std::vector<uint8_t> all;
    for (const RecptTagRec& tag : All()) {
      const auto* p = reinterpret_cast<const uint8_t*>(&tag);
      all.insert(all.end(), p, p + sizeof tag);
    }
    return all;
  };
  JournalRecord* record = nullptr;
  ASSERT_EQ(AllocateJournalRecord(&record), 1);
  record->Key1 = kSaleA;
  record->PostOrder = 7001;
  record->Flag5949 = 1;
  struct Case {
    const char* name;
    std::function<bool()> run;
  };
  const Case cases[] = {
      {"refresh", [&] { return UpdateSaleReceiptTag(nullptr, record); }},
      {"assign", [&] { return UpdateTagForReceipt(file_, kReceipt, 0); }},
      {"delete sale", [&] { return DeleteTagsForSaleByKey(file_, kSaleA); }},
      {"delete receipt", [&] { return DeleteTagsForReceiptByKey(file_, kReceipt); }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ASSERT_TRUE(DeleteTagsForSaleByKey(file_, kSaleA) && DeleteTagsForSaleByKey(file_, kSaleB));
    ASSERT_EQ(Add(kSaleA, &kReceipt, 0, 900), 1);
    ASSERT_EQ(Add(kSaleA, &kOtherReceipt, 0, 901), 1);
    ASSERT_EQ(Add(kSaleA, nullptr, 0), 1);
    ASSERT_EQ(Add(kSaleB, nullptr, 3), 1);
    ASSERT_EQ(Add(kSaleB, &kReceipt, 3, 900), 1);
    const std::vector<uint8_t> before = bytes();
    bool done = false;
    for (int n = 1; !done; ++n) {
      SCOPED_TRACE(n);
      ASSERT_LT(n, 50);
      plan->Arm(n, kStatusDiskFull);
      done = c.run();
      plan->Disarm();
      if (!done) {
        EXPECT_EQ(bytes(), before);
      }
    }
    EXPECT_NE(bytes(), before);
  }
  DeAllocateJournalRecord(&record);
}

}  // namespace
