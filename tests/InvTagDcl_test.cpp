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

using Doubles = std::vector<double>;
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

// An adjustment pair query's answer and its four outputs, which start at 9, 8, 7 and 6.
using PairQuery = uint8_t (*)(uint32_t, int16_t, double*, double*, int32_t*, int32_t*);
Doubles Pair(PairQuery query, uint32_t post, int16_t index) {
  double first = 9, second = 8;
  int32_t link1 = 7, link2 = 6;
  const double ok = query(post, index, &first, &second, &link1, &link2);
  return {ok, first, second, static_cast<double>(link1), static_cast<double>(link2)};
}
uint8_t BelowZero(uint32_t item, int16_t day, double* a, double* b, int32_t* c, int32_t* d) {
  return GetBelowZeroAdj(static_cast<int32_t>(item), Day(day), a, b, c, d);
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
  EXPECT_EQ((Doubles{cost(GetInvTagRecGE), cost(GetFirstInvTagRec), cost(GetNextInvTagRec),
                     cost(GetPreviousInvTagRec)}),
            (Doubles{3, 4, 2, 4}));
  rec = Tag(15, 0, 0, 0);
  EXPECT_EQ(cost(GetInvTagRecLE), 2);
  rec = Tag(20, 0, 0, 99);
  EXPECT_EQ((Doubles{cost(GetInvTagRecEq), rec.Cost}), (Doubles{-1, 99}));  // left as it was
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
  auto found = [&](int day, int16_t mode) {
    InvTagRec out = Tag(0, 0, 0, 0);
    out.BelowZeroAmount = -1;
    return GetInvDailyRec(file, 7, &out, Day(day), mode) == 1 ? out.BelowZeroAmount : -1;
  };
  // Next after day 1 passes the sale of day 3 and item 8's record is not item 7's; last
  // before day 5 passes the sale, and item 6's record is not item 7's; day 3 is not day 5.
  EXPECT_EQ(
      (Doubles{found(1, kDailyNextAfter), found(5, kDailyNextAfter), found(5, kDailyLastBefore),
               found(2, kDailyLastBefore), found(6, kDailyLastBefore), found(1, kDailyLastBefore),
               found(5, kDailyOnDate), found(1, kDailyOnDate), found(3, kDailyOnDate),
               found(4, kDailyOnDate), found(5, 4)}),
      (Doubles{5, -1, 1, 1, 5, -1, 5, 1, -1, -1, -1}));
  file = nullptr;
  EXPECT_EQ(found(5, kDailyOnDate), -1);
}

TEST_F(InvTagTest, SaleAdjustmentAndAssemblyCosts) {
  Put({Tag(100, 0, kInvTagSaleCost2, 12.5), Tag(100, 1, kInvTagSaleCost, 3.25),
       Tag(100, 2, kInvTagAssemblyCost, 8, 2), Tag(200, 0, kInvTagSaleCost2, 40),
       Tag(200, 3, kInvTagSaleCost2, 99)});
  // A type-30 tag is no sale cost. An adjustment's cost is on distribution 0 whatever the
  // index; -1 asks the positive side.
  EXPECT_EQ((Doubles{GetSaleCost(100, 0), GetSaleCost(100, 1), GetSaleCost(100, 2),
                     GetSaleCost(100, 3), GetInvAdjCost(200, 3), GetInvAdjCost(200, 0),
                     GetInvAdjCost(200, -1), GetInvAdjCost(300, -1)}),
            (Doubles{-12.5, -3.25, 0, 0, -40, -40, 40, 0}));
  double cost = -1, full = -1, missing = -1;
  EXPECT_EQ((Doubles{static_cast<double>(GetAssemblyCost(100, 2, &cost)),
                     static_cast<double>(GetAssemblyCost(100, 0, &full)),
                     static_cast<double>(GetAssemblyCost(100, 0, nullptr)),
                     static_cast<double>(GetAssemblyCost(100, 9, &missing)), cost, full, missing}),
            (Doubles{1, 1, 1, 0, 6, 12.5, -1}));  // less the adjustment; left as it was
  EXPECT_NE(GetInternalInvTagFile(), nullptr);    // opened by the first query
}

TEST_F(InvTagTest, AdjustmentPairsGiveBothSidesOfOneMovement) {
  Put({Tag(100, 0, kInvTagAssemblyCost, 8, 4.25), Tag(100, 1, kInvTagAssemblyCost, 8, 0),
       Tag(100, 2, kInvTagSaleCost2, 8, 4.25), Daily(7, 4, 7.5), Daily(7, 6, 0)});
  for (PairQuery query : {GetAssemblyUnbuildAdj, GetPurchaseRetAdj}) {
    EXPECT_EQ(Pair(query, 100, 0), (Doubles{1, -4.25, 4.25, 1001, 1002}));
    double second = 0;
    EXPECT_EQ(query(100, 0, nullptr, &second, nullptr, nullptr), 1);
    for (int16_t index : {1, 2, 3}) {  // zero amount, not type 30, no tag
      SCOPED_TRACE(index);
      EXPECT_EQ(Pair(query, 100, index), (Doubles{0, 9, 8, 7, 6}));
    }
  }
  const Doubles below = Pair(BelowZero, 7, 4);
  EXPECT_EQ(Doubles(below.begin(), below.begin() + 4), (Doubles{1, -7.5, 7.5, 1}));
  EXPECT_EQ(Pair(BelowZero, 7, 6), (Doubles{0, 9, 8, 7, 6}));  // zero amount
  EXPECT_EQ(Pair(BelowZero, 7, 5), (Doubles{0, 9, 8, 7, 6}));  // none that day
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
  // The type is not tested on this path; sale 100 has no distribution 0.
  EXPECT_EQ((Doubles{GetSaleCost(900, 1), GetSaleCost(900, 4), GetSaleCost(900, 0),
                     GetSaleCost(900, 6), GetSaleCost(899, 0)}),
            (Doubles{-5, -3.33, 0, 0, 0}));
  EXPECT_EQ(Pair(GetPurchaseRetAdj, 900, 4), (Doubles{1, -3.33, 3.33, 2001, 2002}));
  EXPECT_EQ(Pair(GetPurchaseRetAdj, 900, 5), (Doubles{0, 9, 8, 7, 6}));  // under a cent
  EXPECT_EQ(Pair(GetPurchaseRetAdj, 900, 1), (Doubles{0, 9, 8, 7, 6}));  // not type 30
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
  EXPECT_EQ(
      (Doubles{GetSaleCost(100, 0), GetInvAdjCost(100, 0),
               static_cast<double>(GetAssemblyCost(100, 0, &cost)),
               static_cast<double>(GetAssemblyUnbuildAdj(100, 0, &first, nullptr, &link, nullptr)),
               static_cast<double>(GetBelowZeroAdj(7, Day(4), &first, nullptr, &link, nullptr)),
               cost, first, static_cast<double>(link)}),
      (Doubles{0, 0, 0, 0, 0, 1, 2, 3}));
  EXPECT_GT(plan->failures.load(), 0);
  plan->Disarm();
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
  auto answers = [] {
    Doubles all;
    for (uint32_t post : {1, 2, 10, 20, 33, 59, 60, 61, 900}) {
      for (int16_t index = -1; index < 6; ++index) {
        double cost = 0;
        all.push_back(GetSaleCost(post, index));
        all.push_back(GetInvAdjCost(post, index));
        all.push_back(GetAssemblyCost(post, index, &cost) + cost);
        for (PairQuery query : {GetAssemblyUnbuildAdj, GetPurchaseRetAdj}) {
          for (double value : Pair(query, post, index)) all.push_back(value);
        }
        for (double value : Pair(BelowZero, post, 4)) all.push_back(value);
      }
    }
    return all;
  };
  const Doubles expected = answers();
  const BtrvFile* main_handle = GetInternalInvTagFile();
  ASSERT_NE(main_handle, nullptr);
  std::vector<Doubles> got(4);
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
    EXPECT_EQ(got[t], expected);
  }
}

}  // namespace
