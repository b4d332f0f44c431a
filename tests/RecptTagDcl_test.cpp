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

JournalKey1Type Key(int16_t journal, int32_t number, int16_t period = 16) {
  JournalKey1Type key;
  std::memset(&key, 0, sizeof key);
  key.JournalType = journal;
  key.TrxNumber = number;
  key.Period = period;
  return key;
}

const JournalKey1Type kSaleA = Key(SJ, 101);
const JournalKey1Type kSaleB = Key(SJ, 102);
const JournalKey1Type kPurchase = Key(PJ, 103);
const JournalKey1Type kReceipt = Key(CRJ, 501);
const JournalKey1Type kOtherReceipt = Key(CRJ, 502);
// A receipt key no receipt has been given yet: zero but for its journal type.
const JournalKey1Type kUnassigned = Key(kUnassignedReceiptJournal, 0, 0);

bool Same(const JournalKey1Type& a, const JournalKey1Type& b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

// A saved transaction's journal record, freed at the end of the scope.
struct Saved {
  Saved(const JournalKey1Type& key, uint32_t post_order, uint8_t flag) {
    EXPECT_EQ(AllocateJournalRecord(&record), 1);
    record->Key1 = key;
    record->PostOrder = post_order;
    record->Flag5949 = flag;
  }
  ~Saved() { DeAllocateJournalRecord(&record); }
  JournalRecord* record = nullptr;
};

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

  // Tags of sale for receipt (unassigned when receipt is null) at row offset.
  struct Spec {
    const JournalKey1Type& sale;
    const JournalKey1Type* receipt;
    uint16_t offset;
    uint32_t receipt_post = 0;
    uint8_t flags = 1;
  };
  void Add(std::initializer_list<Spec> specs) {
    for (const Spec& t : specs) {
      ASSERT_EQ(AddTagForSaleReceipt(file_, t.sale, 40 + static_cast<uint32_t>(t.sale.TrxNumber),
                                     t.receipt != nullptr ? *t.receipt : Key(0, 0), t.offset, 0.25,
                                     DatesType{3, 4, 2024}, t.flags, t.flags, t.receipt_post,
                                     t.receipt != nullptr ? 1 : 0, 77),
                1);
    }
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

  // Every tag's bytes, in receipt post order and row offset.
  std::vector<uint8_t> Bytes() {
    std::vector<uint8_t> all;
    for (const RecptTagRec& tag : All()) {
      const auto* p = reinterpret_cast<const uint8_t*>(&tag);
      all.insert(all.end(), p, p + sizeof tag);
    }
    return all;
  }

  BtrvFile* file_ = nullptr;
};

TEST_F(RecptTagTest, SwitchClearSucceedsAndTouchesNothing) {
  Open();
  Add({{kSaleA, nullptr, 0}});
  MyCompany.CashBasis = 0;
  Add({{kSaleB, &kReceipt, 0, 900}});
  EXPECT_TRUE(UpdateTagForReceipt(file_, kReceipt, 0));
  EXPECT_TRUE(DeleteTagsForSaleByKey(file_, kSaleA));
  EXPECT_TRUE(DeleteTagsForReceiptByKey(nullptr, kReceipt));
  RecptTagRec tag;
  std::memset(&tag, 0xAB, sizeof tag);
  EXPECT_EQ(GetTagRecForRecptDist(&tag, 900, 0), 1);
  EXPECT_EQ(tag.RowOffset, 0xABAB);  // answered without a read
  EXPECT_TRUE(UpdateSaleReceiptTag(nullptr, Saved(kSaleA, 0, 0).record));
  EXPECT_EQ(RecptTagFile, nullptr);
  ASSERT_EQ(All().size(), 1u);  // only the tag added with the switch set
  EXPECT_TRUE(Same(All()[0].SaleKey, kSaleA));
}

TEST_F(RecptTagTest, AddedTagMarksAnUnassignedReceipt) {
  Open();
  Add({{kSaleA, nullptr, 2, 900}, {kSaleB, &kReceipt, 3, 900}});  // 900 ignored for A
  const std::vector<RecptTagRec> tags = All();
  ASSERT_EQ(tags.size(), 2u);
  EXPECT_TRUE(Same(tags[0].ReceiptKey, kUnassigned));
  EXPECT_EQ(tags[0].ReceiptPostOrder, 0u);
  EXPECT_TRUE(Same(tags[1].ReceiptKey, kReceipt));
  EXPECT_EQ(tags[1].ReceiptPostOrder, 900u);
  EXPECT_EQ(AddTagForSaleReceipt(nullptr, kSaleA, 1, kReceipt, 0, 1, {}, 1, 1, 1, 1, 0), 0);
}

TEST_F(RecptTagTest, DistributionFindsTheTagWithTheGreatestOffsetNotAboveIt) {
  Open();
  // Sale A takes distributions 0 to 2, sale B 3 to 5.
  Add({{kSaleA, &kReceipt, 0, 900},
       {kSaleB, &kReceipt, 3, 900},
       {kPurchase, &kOtherReceipt, 0, 901}});
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
  Add({{kSaleA, &kReceipt, 0, 900}, {kSaleA, &kOtherReceipt, 0, 901}, {kSaleB, &kReceipt, 4, 900}});
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

  Add({{kPurchase, &kOtherReceipt, 1, 901}});
  EXPECT_FALSE(DeleteTagsForSaleByKey(nullptr, kSaleA));
  EXPECT_TRUE(DeleteTagsForSaleByKey(file_, kSaleA));
  EXPECT_EQ(SalesOf(kOtherReceipt), (std::vector<int32_t>{103}));
  EXPECT_TRUE(DeleteTagsForReceiptByKey(file_, kReceipt));
  EXPECT_EQ(All().size(), 1u);
  EXPECT_TRUE(DeleteTagsForReceiptByKey(file_, kReceipt));  // none left: still success
}

TEST_F(RecptTagTest, SavingAReceiptAssignsTheUnassignedTagsToIt) {
  Open();
  // The purchase's tag of kReceipt is an earlier assignment, replaced.
  Add({{kSaleA, nullptr, 0},
       {kSaleB, nullptr, 2},
       {kPurchase, &kReceipt, 0, 900},
       {kPurchase, &kOtherReceipt, 0, 901}});
  EXPECT_TRUE(UpdateTagForReceipt(file_, Key(SJ, 501), 0));  // not a receipt: nothing
  EXPECT_EQ(SalesOf(kReceipt), (std::vector<int32_t>{103}));
  EXPECT_FALSE(UpdateTagForReceipt(nullptr, kReceipt, 0));

  EXPECT_TRUE(UpdateTagForReceipt(file_, kReceipt, 0));
  EXPECT_EQ(SalesOf(kReceipt), (std::vector<int32_t>{101, 102}));
  EXPECT_EQ(SalesOf(kUnassigned), std::vector<int32_t>{});
  EXPECT_EQ(SalesOf(kOtherReceipt), (std::vector<int32_t>{103}));
  // With nothing unassigned, the receipt's tags stay.
  EXPECT_TRUE(UpdateTagForReceipt(file_, kReceipt, 0));
  EXPECT_EQ(SalesOf(kReceipt), (std::vector<int32_t>{101, 102}));
}

TEST_F(RecptTagTest, SavingATransactionRefreshesItsSideOfItsTags) {
  Open();
  Add({{kSaleA, &kReceipt, 0, 900, 0},
       {kSaleA, &kOtherReceipt, 0, 901, 0},
       {kSaleB, &kReceipt, 3, 900, 0}});
  EXPECT_TRUE(UpdateSaleReceiptTag(nullptr, Saved(kSaleA, 7001, 1).record));
  EXPECT_TRUE(UpdateSaleReceiptTag(file_, Saved(kReceipt, 905, 2).record));
  // Journals other than 1 to 4 are left alone.
  EXPECT_TRUE(UpdateSaleReceiptTag(file_, Saved(Key(GENJ, 101), 905, 2).record));

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
  const Saved sale(kSaleA, 7001, 1);
  const std::pair<const char*, std::function<bool()>> cases[] = {
      {"refresh", [&] { return UpdateSaleReceiptTag(nullptr, sale.record); }},
      {"assign", [&] { return UpdateTagForReceipt(file_, kReceipt, 0); }},
      {"delete sale", [&] { return DeleteTagsForSaleByKey(file_, kSaleA); }},
      {"delete receipt", [&] { return DeleteTagsForReceiptByKey(file_, kReceipt); }},
  };
  for (const auto& [name, run] : cases) {
    SCOPED_TRACE(name);
    ASSERT_TRUE(DeleteTagsForSaleByKey(file_, kSaleA) && DeleteTagsForSaleByKey(file_, kSaleB));
    Add({{kSaleA, &kReceipt, 0, 900},
         {kSaleA, &kOtherReceipt, 0, 901},
         {kSaleA, nullptr, 0},
         {kSaleB, nullptr, 3},
         {kSaleB, &kReceipt, 3, 900}});
    const std::vector<uint8_t> before = Bytes();
    bool done = false;
    for (int n = 1; !done; ++n) {
      SCOPED_TRACE(n);
      ASSERT_LT(n, 50);
      plan->Arm(n, kStatusDiskFull);
      done = run();
      plan->Disarm();
      if (!done) {
        EXPECT_EQ(Bytes(), before);
      }
    }
    EXPECT_NE(Bytes(), before);
  }
}

}  // namespace
