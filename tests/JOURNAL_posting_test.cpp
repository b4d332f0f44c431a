// Posting on a real company: numbers repaired on a duplicate key (with the wrap at the top
// of the number range), keep-numbers inserts, duplicate invoices refused inside a host's
// batch, shadows made, rewritten and deleted with their receipts and payments, paid-in-full
// dates, audit entries detached on delete, the single-user refusal of deletions, and the
// cash-basis spread of a payment over an invoice's lines.
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "posting_support.h"

namespace {

using namespace posting_test;

constexpr int32_t kTopNumber = 0x7FFFFFFE;

bool SameDate(const DatesType& a, const DatesType& b) { return CompareDates(a, b) == 0; }
DatesType Never() {
  DatesType d;
  const uint32_t bits = 0x7FFFFFFF;
  std::memcpy(&d, &bits, sizeof d);
  return d;
}

JournalKey1Type ShadowKeyOf(const JournalRecord* source) {
  JournalKey1Type key = source->Key1;
  key.JournalType = source->Key1.JournalType == CRJ ? PJ : SJ;
  key.Shadow = 2;
  return key;
}

int32_t HeaderCount(const JrnlDBFilesType& files) { return NumRecsInFile(files.HdrFile); }

TEST_F(PostingTest, CollidingNumbersAreRepairedAndWrapAtTheTop) {
  Record a = Invoice(5, 1, "A1", 30);
  ASSERT_EQ(InsertJournal(files_, a.get()), 1);
  EXPECT_EQ(a->PostOrder, 1u);
  // Every value of b is taken by a: GUID, transaction number and post order all move on.
  Record b = Invoice(5, 1, "B1", 30);
  b->Guid = a->Guid;
  b->PostOrder = a->PostOrder;
  ASSERT_EQ(InsertJournal(files_, b.get()), 1);
  EXPECT_EQ(b->Key1.TrxNumber, 6);
  EXPECT_EQ(b->PostOrder, 2u);
  EXPECT_NE(std::memcmp(&a->Guid, &b->Guid, sizeof(GUID)), 0);
  ASSERT_NE(LoadKey(b->Key1), nullptr);

  Record top = Invoice(kTopNumber, 2, "T1", 30);
  ASSERT_EQ(InsertJournal(files_, top.get()), 1);
  Record wrapped = Invoice(kTopNumber, 2, "T2", 30);
  ASSERT_EQ(InsertJournal(files_, wrapped.get()), 1);
  EXPECT_EQ(wrapped->Key1.TrxNumber, 1) << "a number at the top starts again at 1";
  // The top number is taken and so is 1: no repair changes anything, nothing is written.
  Record full = Invoice(kTopNumber, 2, "T3", 30);
  EXPECT_EQ(InsertJournal(files_, full.get()), 0);
  EXPECT_EQ(HeaderCount(files_), 4);
  EXPECT_EQ(NextPostOrderNumber(), 5u);
}

TEST_F(PostingTest, KeepNumbersKeepsThePostOrderAndWritesNoShadow) {
  Record first = Invoice(5, 1, "K1", 30);
  ASSERT_EQ(InsertJournal(files_, first.get()), 1);
  Record shadow = Invoice(8, 1, "K2", 30);
  shadow->Key1.Shadow = 2;
  EXPECT_EQ(InsertJournal(files_, shadow.get()), 0) << "only posting writes shadows";
  EXPECT_EQ(OptimizedInsertJournal(files_, shadow.get(), 1, 0), 1);

  Record taken = Invoice(9, 1, "K3", 30);
  taken->PostOrder = first->PostOrder;
  EXPECT_EQ(OptimizedInsertJournal(files_, taken.get(), 1, 3), 0);
  EXPECT_EQ(taken->PostOrder, first->PostOrder);

  Record kept = Receipt(5, 1, "K4", 30, /*vendor=*/7);
  kept->PostOrder = 50;
  Record same_number = Receipt(5, 1, "K5", 30);
  ASSERT_EQ(InsertJournal(files_, same_number.get()), 1);
  ASSERT_EQ(OptimizedInsertJournal(files_, kept.get(), 1, 3), 1);
  EXPECT_EQ(kept->PostOrder, 50u);
  EXPECT_EQ(kept->Key1.TrxNumber, 6) << "a taken transaction number still moves on";
  EXPECT_EQ(LoadKey(ShadowKeyOf(kept.get())), nullptr);
  EXPECT_EQ(HeaderCount(files_), 4);
}

TEST_F(PostingTest, DuplicateInvoiceIsRefusedAndOnlyItsOwnWritesAreUndone) {
  ASSERT_TRUE(bBeginBatchUpdate(files_.HdrFile));  // the host's batch
  Record first = Invoice(20, 1, "DUP", 30);
  ASSERT_EQ(InsertJournal(files_, first.get()), 1);
  Record again = Invoice(21, 1, "DUP", 30);
  EXPECT_EQ(InsertJournal(files_, again.get()), 0);
  EXPECT_NE(messages_.Last().text.find("has already been entered"), std::string::npos)
      << messages_.Last().text;
  ASSERT_TRUE(bEndBatchUpdate(files_.HdrFile));
  EXPECT_NE(Load(first->PostOrder), nullptr);
  EXPECT_EQ(HeaderCount(files_), 1);
  EXPECT_EQ(NumRecsInFile(files_.RowFile), 4);
  // An update of the invoice itself is no duplicate of it.
  Record current = Load(first->PostOrder);
  current->Description = "changed";
  EXPECT_EQ(UpdateJournal(files_, current.get(), 5, nullptr), 1);
}

TEST_F(PostingTest, ShadowsFollowTheirReceiptsAndPayments) {
  Record receipt = Receipt(40, 1, "RV1", 50, /*vendor=*/7);
  ASSERT_EQ(InsertJournal(files_, receipt.get()), 1);
  Record shadow = LoadKey(ShadowKeyOf(receipt.get()));
  ASSERT_NE(shadow, nullptr);
  EXPECT_EQ(shadow->Key2.Qualifier, 'P');
  EXPECT_EQ(shadow->Key2.Card, 7);
  EXPECT_EQ(shadow->PostOrder, receipt->PostOrder + 1);
  EXPECT_EQ(shadow->LedgerFlag, 0);
  EXPECT_EQ(shadow->Amount, -50);
  EXPECT_STREQ(shadow->J.Sales.Area178.TextA, "Receipt");
  EXPECT_TRUE(SameDate(shadow->J.Sales.Area178.SecondDate, receipt->Key2.Date));
  ASSERT_EQ(shadow->LineCount, 1);
  EXPECT_EQ(shadow->J.Sales.Lines[0].Amount, 50);
  EXPECT_EQ(shadow->J.Sales.Lines[0].Account, kReceivables);

  receipt->Amount = 80;
  receipt->J.Cash.Lines[0].Amount = -80;
  receipt->Key2.Date = Day(12);
  receipt->Reference.Clear();
  ASSERT_EQ(UpdateShadowForRecVend(files_, receipt.get()), 1);
  shadow = LoadKey(ShadowKeyOf(receipt.get()));
  EXPECT_EQ(shadow->Amount, -80);
  EXPECT_EQ(shadow->J.Sales.Lines[0].Amount, 80);
  EXPECT_TRUE(SameDate(shadow->Key2.Date, Day(12)));
  EXPECT_STREQ(shadow->Reference, "");

  Record payment = Receipt(41, 9, "PC1", 20, /*customer as second card=*/3);
  payment->Key1.JournalType = CDJ;
  ASSERT_EQ(InsertJournal(files_, payment.get()), 1);
  Record payment_shadow = LoadKey(ShadowKeyOf(payment.get()));
  ASSERT_NE(payment_shadow, nullptr);
  EXPECT_EQ(payment_shadow->Key2.Qualifier, 'R');
  EXPECT_STREQ(payment_shadow->J.Sales.Area178.TextA, "Payment");

  // Deleting with no-shadow leaves the shadow; deleting the receipt takes its shadow along.
  ASSERT_NE(Load(payment->PostOrder), nullptr);
  ASSERT_EQ(DeleteJournal(files_, payment.get(), 1), 1);
  EXPECT_NE(LoadKey(ShadowKeyOf(payment.get())), nullptr);
  ASSERT_NE(Load(receipt->PostOrder), nullptr);
  ASSERT_EQ(DeleteJournal(files_, receipt.get(), 0), 1);
  EXPECT_EQ(LoadKey(ShadowKeyOf(receipt.get())), nullptr);
  EXPECT_EQ(HeaderCount(files_), 1);

  // A payment whose shadow is gone: updating the shadow fails, deleting the payment says so.
  Record orphan = LoadKey(ShadowKeyOf(payment.get()));
  ASSERT_EQ(DeleteJournal(files_, orphan.get(), 0), 1);
  EXPECT_EQ(UpdateShadowForPayCust(files_, payment.get()), 0);
  EXPECT_EQ(messages_.Last().number, 2509);
  ASSERT_EQ(OptimizedInsertJournal(files_, payment.get(), 1, 0), 1);  // back, without shadow
  ASSERT_NE(Load(payment->PostOrder), nullptr);
  EXPECT_EQ(DeleteJournal(files_, payment.get(), 0), 1);
  EXPECT_EQ(messages_.Numbers().back(), 2509);

  // A shadow that cannot be written leaves no receipt behind.
  Record blocked = Receipt(43, 1, "RV3", 10, 7);
  Record in_the_way = Invoice(43, 7, "", 10, 1);
  in_the_way->Key1 = ShadowKeyOf(blocked.get());
  ASSERT_EQ(OptimizedInsertJournal(files_, in_the_way.get(), 1, 0), 1);
  const int32_t before = HeaderCount(files_);
  EXPECT_EQ(InsertJournal(files_, blocked.get()), 0);
  EXPECT_EQ(messages_.Last().number, 2508);
  EXPECT_EQ(HeaderCount(files_), before);
  EXPECT_EQ(LoadKey(blocked->Key1), nullptr);
}

TEST_F(PostingTest, PaidInFullDateFollowsTheBalanceAndTheLastPayment) {
  Record open = Invoice(30, 1, "P1", 100);
  ASSERT_EQ(InsertJournal(files_, open.get()), 1);
  EXPECT_TRUE(SameDate(Load(open->PostOrder)->J.Sales.Area130.PaidInFullDate, Never()));
  Record settled = Invoice(31, 1, "P2", 100);
  settled->J.Sales.Area130.AmountPaid = 100;
  ASSERT_EQ(InsertJournal(files_, settled.get()), 1);
  EXPECT_TRUE(SameDate(settled->J.Sales.Area130.PaidInFullDate, Day(5)));

  Record payment = Receipt(32, 1, "", 100, 0, Day(20));
  payment->J.Cash.Lines[0].Applied = 1;
  payment->J.Cash.Lines[0].AppliedLink = open->PostOrder;
  ASSERT_EQ(InsertJournal(files_, payment.get()), 1);
  struct Case {
    double paid;
    DatesType old_date;  // zero: no old version given
    DatesType expected;
  } cases[] = {
      {40, {}, Never()}, {100, {}, Day(20)}, {100, Day(25), Day(25)}, {100, Day(2), Day(20)}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.paid);
    Record old = Load(open->PostOrder);
    Record current = Load(open->PostOrder);  // the pair's current transaction
    old->Key2.Date = c.old_date;
    current->J.Sales.Area130.AmountPaid = c.paid;
    ASSERT_EQ(UpdateJournal(files_, current.get(), 5, c.old_date.year ? old.get() : nullptr), 1);
    EXPECT_TRUE(SameDate(Load(open->PostOrder)->J.Sales.Area130.PaidInFullDate, c.expected));
  }
}

TEST_F(PostingTest, DeletionDetachesAuditEntriesUnderTheSingleUserAccess) {
  Record doomed = Invoice(50, 1, "D1", 30);
  Record other = Invoice(51, 1, "D2", 30);
  ASSERT_EQ(InsertJournal(files_, doomed.get()), 1);
  ASSERT_EQ(InsertJournal(files_, other.get()), 1);
  BtrvFile* audit = nullptr;
  ASSERT_EQ(OpenAuditTrailFile(&audit, kOpenModeNormal), 1);
  for (uint32_t post_order : {doomed->PostOrder, other->PostOrder, doomed->PostOrder}) {
    uint8_t entry[265] = {};
    std::memcpy(entry + 8, &post_order, 4);
    std::memcpy(entry + 12, "changed the invoice", 19);
    ASSERT_EQ(InsertRecord(audit, sizeof entry, entry), 1);
  }
  RealCloseFile(&audit, __FILE__, __LINE__);

  CZORSingleUserAccess someone_else(0);
  ASSERT_TRUE(someone_else.Start(0, 0, "test"));
  messages_.Answer(IDCANCEL);
  ASSERT_NE(Load(doomed->PostOrder), nullptr);
  EXPECT_EQ(DeleteJournal(files_, doomed.get(), 0), 0);
  EXPECT_EQ(messages_.Last().number, 20258);
  EXPECT_NE(Load(doomed->PostOrder), nullptr);
  someone_else.End();

  ASSERT_EQ(DeleteJournal(files_, doomed.get(), 0), 1);
  EXPECT_EQ(Load(doomed->PostOrder), nullptr);
  const FileImage after = ReadWholeFile(AuditTrailName, 265);
  ASSERT_EQ(after.size(), 3u);
  int detached = 0;
  for (const auto& [position, bytes] : after) {
    uint32_t post_order = 0;
    std::memcpy(&post_order, bytes.data() + 8, 4);
    EXPECT_NE(post_order, doomed->PostOrder);
    detached += post_order == 0;
    EXPECT_EQ(bytes.substr(12, 19), "changed the invoice");
  }
  EXPECT_EQ(detached, 2);
}

TEST_F(PostingTest, CashPaymentSpreadsOverTheInvoiceLinesExactly) {
  MyCompany.CashBasis = 1;
  BtrvFile* tags = nullptr;
  ASSERT_NE(OpenRecptTagFile(&tags, kOpenModeNormal), 0);
  Record invoice = Invoice(60, 1, "C1", 30);  // three lines of -10.00
  ASSERT_EQ(InsertJournal(files_, invoice.get()), 1);
  Record receipt = Receipt(61, 1, "", 10);
  receipt->PostOrder = 70;
  JrnlDistLine& applied = receipt->J.Cash.Lines[0];
  applied.Amount = -10;  // pays a third of the invoice
  applied.InvoiceRef = "C1";
  applied.SecondAmount = 0.5;

  unsigned short line = 1;
  ASSERT_EQ(DoCashBasisStuff(receipt.get(), CRJ, files_, tags, &line, 0, nullptr), 1);
  EXPECT_EQ(line, 3);
  EXPECT_EQ(receipt->LineCount, 3);
  const double expected[] = {-3.33, -3.34, -3.33};
  for (int i = 0; i < 3; ++i) {
    SCOPED_TRACE(i);
    const JrnlDistLine& l = receipt->J.Cash.Lines[i];
    EXPECT_EQ(l.Amount, expected[i]);
    EXPECT_EQ(l.Account, kSales + i);
    EXPECT_STREQ(l.InvoiceRef, "C1");
    EXPECT_STREQ(l.Description, "settles an invoice");
    EXPECT_EQ(l.SecondAmount, i == 0 ? 0.5 : 0.0);
  }
  RecptTagRec tag;
  ASSERT_EQ(GetTagRecForSaleKey(tags, &tag, invoice->Key1, kTagFirst), 1);
  EXPECT_DOUBLE_EQ(tag.Proportion, 1.0 / 3);
  EXPECT_EQ(tag.RowOffset, 0);
  EXPECT_EQ(tag.ReceiptPostOrder, 70u);

  receipt->J.Cash.Lines[3].InvoiceRef = "NONE";
  line = 4;
  EXPECT_EQ(DoCashBasisStuff(receipt.get(), CRJ, files_, tags, &line, 0, nullptr), 1);
  EXPECT_EQ(messages_.Last().number, 2417);
  EXPECT_EQ(line, 4);
  EXPECT_STREQ(receipt->J.Cash.Lines[3].InvoiceRef, "NONE");

  // A three-line invoice from line 559 would pass the receipt's 560 lines.
  for (unsigned char from_posting : {0, 1}) {
    receipt->J.Cash.Lines[558].InvoiceRef = "C1";
    line = 559;
    EXPECT_EQ(DoCashBasisStuff(receipt.get(), CRJ, files_, tags, &line, from_posting, nullptr), 0);
    EXPECT_EQ(messages_.Last().number, from_posting ? 2493 : 2477);
  }
  RealCloseFile(&tags, __FILE__, __LINE__);
}

}  // namespace
