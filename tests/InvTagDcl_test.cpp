// Inventory tags on a real company: the keyed readers and their read counter, the daily
// record search, every cost query with its sign rules, the cash-basis fallback through
// receipt tags, silence on a failing store, and cost queries from several threads.
#include <cstring>
#include <memory>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "Basics.h"
#include "InvTagDcl.h"
#include "RecptTagDcl.h"
#include "company_test.h"
#include "record_manager_internal.h"
#include "rm_fault_backend.h"

namespace {

DatesType Day(int day) { return DatesType{static_cast<uint8_t>(day), 5, 2024}; }

InvTagRec Tag(uint32_t post, int16_t index, int8_t type, double cost, double adjust = 0) {
  InvTagRec rec;
  std::memset(&rec, 0, sizeof rec);
  rec.ItemRecordNumber = 7;
  rec.Date = Day(1);
  rec.PostOrder = post;
  rec.DistIndex = index;
  rec.TagType = type;
  rec.Cost = cost;
  rec.AdjustAmount = adjust;
  rec.AdjustLink1 = static_cast<int32_t>(post) * 10 + 1;
  rec.AdjustLink2 = static_cast<int32_t>(post) * 10 + 2;
  return rec;
}

InvTagRec Daily(int32_t item, int day, double below_zero, uint32_t post = 0) {
  InvTagRec rec = Tag(post, 0, kInvTagDaily, 0);
  rec.ItemRecordNumber = item;
  rec.Date = Day(day);
  rec.BelowZeroAmount = below_zero;
  return rec;
}

class InvTagTest : public CompanyTest {
 protected:
  void CloseLibraryFiles() override {
    RealCloseFile(&tags_, __FILE__, __LINE__);
    RealCloseFile(&receipts_, __FILE__, __LINE__);
    CloseInternalInvTagFile();
    RealCloseFile(&RecptTagFile, __FILE__, __LINE__);
    MyCompany.CashBasis = 0;
    rm::SetBackendDecorator(nullptr);
  }
  // The costing engine's writes, through a handle of the test's own.
  void Put(const std::vector<InvTagRec>& records) {
    if (tags_ == nullptr) {
      ASSERT_NE(RealOpenBFileOwner(&tags_, InvTagName, kOpenModeNormal, kFileNoInvTag,
                                   csTheOwner.c_str(), __FILE__, __LINE__),
                0);
    }
    for (InvTagRec rec : records) ASSERT_NE(InsertRecord(tags_, sizeof rec, &rec), 0);
  }
  // A receipt tag of receipt post order 900 for the sale with post order sale_post.
  void Link(uint32_t sale_post, uint16_t offset, double proportion, uint8_t flags = 1) {
    MyCompany.CashBasis = 1;
    if (receipts_ == nullptr) {
      ASSERT_NE(OpenRecptTagFile(&receipts_, kOpenModeNormal), 0);
    }
    JournalKey1Type sale, receipt;
    std::memset(&sale, 0, sizeof sale);
    std::memset(&receipt, 0, sizeof receipt);
    sale.JournalType = SJ;
    sale.TrxNumber = static_cast<int32_t>(sale_post);
    receipt.JournalType = CRJ;
    ASSERT_EQ(AddTagForSaleReceipt(receipts_, sale, sale_post, receipt, offset, proportion, {},
                                   flags, 1, 900, 1, 0),
              1);
  }

  BtrvFile* tags_ = nullptr;
  BtrvFile* receipts_ = nullptr;
};

TEST_F(InvTagTest, KeyedReadersCountEveryCall) {
  Put({Tag(30, 0, 40, 1), Tag(10, 2, 40, 2), Tag(20, -1, 30, 3), Tag(10, 0, 20, 4)});
  const int32_t reads = ReadCount;
  InvTagRec rec = Tag(15, 0, 0, 0);  // the search key of GE and LE: (15, 0)
  auto cost = [&](auto read) { return read(tags_, &rec, kInvTagKeyPostOrder) ? rec.Cost : -1; };
  EXPECT_EQ((std::vector<double>{cost(GetInvTagRecGE), cost(GetFirstInvTagRec),
                                 cost(GetNextInvTagRec), cost(GetPreviousInvTagRec)}),
            (std::vector<double>{3, 4, 2, 4}));
  rec = Tag(15, 0, 0, 0);
  EXPECT_EQ(cost(GetInvTagRecLE), 2);
  rec = Tag(20, 0, 0, 99);
  EXPECT_EQ(cost(GetInvTagRecEq), -1);
  EXPECT_EQ(rec.Cost, 99);  // left as it was
  EXPECT_EQ(GetInvTagRecEq(nullptr, &rec, kInvTagKeyPostOrder), 0);
  EXPECT_EQ(ReadCount - reads, 7);
}

TEST_F(InvTagTest, DailyRecordSearchStaysWithinTheItemAndTheDate) {
  InvTagRec sale = Tag(1, 0, kInvTagSaleCost2, 5);
  sale.Date = Day(3);
  // The post order's low byte 255 is the highest a daily record of a day may carry.
  Put({Daily(7, 1, 1, 255), Tag(2, 0, kInvTagSaleCost, 5), sale, Daily(7, 5, 5), Daily(6, 9, 6),
       Daily(8, 2, 8)});
  BtrvFile* file = tags_;
  InvTagRec out = Tag(0, 0, 0, 0);
  auto found = [&](int day, int16_t mode) {
    out.BelowZeroAmount = -1;
    return GetInvDailyRec(file, 7, &out, Day(day), mode) == 1 ? out.BelowZeroAmount : -1;
  };
  EXPECT_EQ(found(1, kDailyNextAfter), 5);   // passes the sale of day 3
  EXPECT_EQ(found(5, kDailyNextAfter), -1);  // item 8's record is not item 7's
  EXPECT_EQ(found(5, kDailyLastBefore), 1);  // day 1, past the sale of day 3
  EXPECT_EQ(found(2, kDailyLastBefore), 1);
  EXPECT_EQ(found(6, kDailyLastBefore), 5);
  EXPECT_EQ(found(1, kDailyLastBefore), -1);  // item 6's record is not item 7's
  EXPECT_EQ(found(5, kDailyOnDate), 5);
  EXPECT_EQ(found(1, kDailyOnDate), 1);
  EXPECT_EQ(found(3, kDailyOnDate), -1);  // not the record of day 5
  EXPECT_EQ(found(4, kDailyOnDate), -1);
  EXPECT_EQ(found(5, 4), -1);
  file = nullptr;
  EXPECT_EQ(found(5, kDailyOnDate), -1);
}

TEST_F(InvTagTest, SaleAdjustmentAndAssemblyCosts) {
  Put({Tag(100, 0, kInvTagSaleCost2, 12.5), Tag(100, 1, kInvTagSaleCost, 3.25),
       Tag(100, 2, kInvTagAssemblyCost, 8, 2), Tag(200, 0, kInvTagSaleCost2, 40),
       Tag(200, 3, kInvTagSaleCost2, 99)});
  EXPECT_EQ(GetSaleCost(100, 0), -12.5);
  EXPECT_EQ(GetSaleCost(100, 1), -3.25);
  EXPECT_EQ(GetSaleCost(100, 2), 0);  // a type-30 tag is no sale cost
  EXPECT_EQ(GetSaleCost(100, 3), 0);
  // An adjustment's cost is on distribution 0 whatever the index; -1 asks the positive side.
  EXPECT_EQ(GetInvAdjCost(200, 3), -40);
  EXPECT_EQ(GetInvAdjCost(200, 0), -40);
  EXPECT_EQ(GetInvAdjCost(200, -1), 40);
  EXPECT_EQ(GetInvAdjCost(300, -1), 0);

  double cost = -1;
  EXPECT_EQ(GetAssemblyCost(100, 2, &cost), 1);
  EXPECT_EQ(cost, 6);  // less the adjustment
  EXPECT_EQ(GetAssemblyCost(100, 0, &cost), 1);
  EXPECT_EQ(cost, 12.5);
  EXPECT_EQ(GetAssemblyCost(100, 0, nullptr), 1);
  cost = -1;
  EXPECT_EQ(GetAssemblyCost(100, 9, &cost), 0);
  EXPECT_EQ(cost, -1);
  EXPECT_NE(GetInternalInvTagFile(), nullptr);  // opened by the first query
}

TEST_F(InvTagTest, AdjustmentPairsGiveBothSidesOfOneMovement) {
  Put({Tag(100, 0, kInvTagAssemblyCost, 8, 4.25), Tag(100, 1, kInvTagAssemblyCost, 8, 0),
       Tag(100, 2, kInvTagSaleCost2, 8, 4.25), Daily(7, 4, 7.5), Daily(7, 6, 0)});
  for (auto query : {GetAssemblyUnbuildAdj, GetPurchaseRetAdj}) {
    double first = 0, second = 0;
    int32_t link1 = 0, link2 = 0;
    ASSERT_EQ(query(100, 0, &first, &second, &link1, &link2), 1);
    EXPECT_EQ((std::vector<double>{first, second}), (std::vector<double>{-4.25, 4.25}));
    EXPECT_EQ((std::vector<int32_t>{link1, link2}), (std::vector<int32_t>{1001, 1002}));
    EXPECT_EQ(query(100, 0, nullptr, &second, nullptr, nullptr), 1);
    first = 3;
    for (int16_t index : {1, 2, 3}) {  // zero amount, not type 30, no tag
      SCOPED_TRACE(index);
      EXPECT_EQ(query(100, index, &first, &second, &link1, &link2), 0);
    }
    EXPECT_EQ(first, 3);
  }
  double first = 0, second = 0;
  int32_t link1 = 0, link2 = 0;
  ASSERT_EQ(GetBelowZeroAdj(7, Day(4), &first, &second, &link1, &link2), 1);
  EXPECT_EQ((std::vector<double>{first, second}), (std::vector<double>{-7.5, 7.5}));
  EXPECT_EQ(link1, 1);
  EXPECT_EQ(GetBelowZeroAdj(7, Day(6), &first, &second, &link1, &link2), 0);  // zero amount
  EXPECT_EQ(GetBelowZeroAdj(7, Day(5), &first, &second, &link1, &link2), 0);  // none that day
  EXPECT_EQ(first, -7.5);
}

// Receipt 900 takes distributions 0 to 2 from sale 100 (half of them) and 3 to 5 from sale
// 200 (a third); its own rows have no tags.
TEST_F(InvTagTest, CashBasisCostsReceiptRowsFromTheirSalesTags) {
  Put({Tag(100, 1, kInvTagSaleCost2, 10), Tag(200, 1, kInvTagAssemblyCost, 10, 9.99),
       Tag(200, 2, kInvTagAssemblyCost, 10, 0.01), Tag(300, 0, kInvTagSaleCost2, 10)});
  Link(100, 0, 0.5);
  Link(200, 3, 1.0 / 3);
  Link(300, 6, 1, 0);  // the sale side has not completed it
  MyCompany.CashBasis = 0;
  EXPECT_EQ(GetSaleCost(900, 1), 0);
  MyCompany.CashBasis = 1;
  EXPECT_EQ(GetSaleCost(900, 1), -5);
  EXPECT_EQ(GetSaleCost(900, 4), -3.33);  // the type is not tested on this path
  EXPECT_EQ(GetSaleCost(900, 0), 0);      // sale 100 has no distribution 0
  EXPECT_EQ(GetSaleCost(900, 6), 0);
  EXPECT_EQ(GetSaleCost(899, 0), 0);

  double first = 0, second = 0;
  int32_t link1 = 0, link2 = 0;
  ASSERT_EQ(GetPurchaseRetAdj(900, 4, &first, &second, &link1, &link2), 1);
  EXPECT_EQ((std::vector<double>{first, second}), (std::vector<double>{-3.33, 3.33}));
  EXPECT_EQ((std::vector<int32_t>{link1, link2}), (std::vector<int32_t>{2001, 2002}));
  EXPECT_EQ(GetPurchaseRetAdj(900, 5, &first, &second, &link1, &link2), 0);  // under a cent
  EXPECT_EQ(GetPurchaseRetAdj(900, 1, &first, &second, &link1, &link2), 0);  // not type 30
  EXPECT_EQ(first, -3.33);
}

TEST_F(InvTagTest, FailingStoreAnswersZeroAndLeavesOutputs) {
  auto plan = std::make_shared<rm::FaultPlan>();
  rm::SetBackendDecorator([plan](std::unique_ptr<rm::Backend> inner) {
    return rm::WrapWithFaults(std::move(inner), plan);
  });
  Put({Tag(100, 0, kInvTagAssemblyCost, 8, 4.25), Daily(7, 4, 7.5)});
  ASSERT_EQ(OpenInternalInvTagFile(), 1);
  plan->count_reads = true;
  plan->Arm(1, kStatusIoError, true);
  double cost = 1, first = 2;
  int32_t link = 3;
  EXPECT_EQ(GetSaleCost(100, 0), 0);
  EXPECT_EQ(GetInvAdjCost(100, 0), 0);
  EXPECT_EQ(GetAssemblyCost(100, 0, &cost), 0);
  EXPECT_EQ(GetAssemblyUnbuildAdj(100, 0, &first, nullptr, &link, nullptr), 0);
  EXPECT_EQ(GetBelowZeroAdj(7, Day(4), &first, nullptr, &link, nullptr), 0);
  EXPECT_GT(plan->failures.load(), 0);
  plan->Disarm();
  EXPECT_EQ((std::vector<double>{cost, first, static_cast<double>(link)}),
            (std::vector<double>{1, 2, 3}));
  EXPECT_EQ(GetAssemblyCost(100, 0, &cost), 1);
}

// Four threads ask every cost at once, each through its own tag handle, with the
// cash-basis fallback sharing the receipt-tag handle, and get what one thread got.
TEST_F(InvTagTest, CostQueriesFromThreadsMatchOneThread) {
  std::vector<InvTagRec> records;
  for (uint32_t post = 1; post <= 60; ++post) {
    for (int16_t index = 0; index < 4; ++index) {
      const int8_t type = index == 3 ? kInvTagAssemblyCost : (post % 2 ? 40 : 20);
      records.push_back(Tag(post, index, type, post + index * 0.25, index * 0.5));
    }
    records.push_back(Daily(static_cast<int32_t>(post), 4, post * 1.5));
  }
  Put(records);
  Link(10, 0, 0.5);
  Link(20, 4, 0.25);
  const std::vector<uint32_t> posts = {1, 2, 10, 20, 33, 59, 60, 61, 900};
  auto answers = [&posts] {
    std::vector<double> all;
    for (uint32_t post : posts) {
      for (int16_t index = -1; index < 6; ++index) {
        double cost = 0, first = 0, second = 0;
        int32_t link1 = 0, link2 = 0;
        all.push_back(GetSaleCost(post, index));
        all.push_back(GetInvAdjCost(post, index));
        all.push_back(GetAssemblyCost(post, index, &cost) + cost);
        all.push_back(GetAssemblyUnbuildAdj(post, index, &first, &second, &link1, &link2) + first);
        all.push_back(GetPurchaseRetAdj(post, index, &first, &second, &link1, &link2) + second);
        all.push_back(
            GetBelowZeroAdj(static_cast<int32_t>(post), Day(4), &first, &second, &link1, &link2) +
            first + link1);
      }
    }
    return all;
  };
  const std::vector<double> expected = answers();
  const BtrvFile* main_handle = GetInternalInvTagFile();
  ASSERT_NE(main_handle, nullptr);

  std::vector<std::vector<double>> got(4);
  std::vector<const BtrvFile*> handles(4);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int round = 0; round < 5; ++round) got[t] = answers();
      handles[t] = GetInternalInvTagFile();
      RealCloseFile(&GetInternalInvTagFile(), __FILE__, __LINE__);  // this thread's own
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (int t = 0; t < 4; ++t) {
    SCOPED_TRACE(t);
    EXPECT_NE(handles[t], main_handle);
    ASSERT_EQ(got[t].size(), expected.size());
    for (size_t i = 0; i < expected.size(); ++i)
      EXPECT_EQ(got[t][i], expected[i]) << "answer " << i;
  }
}

}  // namespace
