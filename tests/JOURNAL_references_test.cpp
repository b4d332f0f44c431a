// Reference checks and numbering on a real company: the duplicate rules of invoices,
// purchase invoices, orders and payments with their refusal texts, post order and
// transaction numbers as the file holds them, the invoice a payment applies to, shadow keys,
// and the whole-transaction helpers.
#include <cstring>
#include <memory>
#include <string>
#include <tuple>

#include <gtest/gtest.h>

#include "Basics.h"
#include "company_test.h"

namespace {

struct RecordDeleter {
  void operator()(JournalRecord* r) const { DeAllocateJournalRecord(&r); }
};
using Record = std::unique_ptr<JournalRecord, RecordDeleter>;

Record NewRecord(int16_t journal, int32_t trx, int32_t card, const char* reference,
                 uint32_t post_order = 0) {
  JournalRecord* r = nullptr;
  AllocateJournalRecord(&r);
  r->Key1.JournalType = journal;
  r->Key1.TrxNumber = trx;
  r->Key1.Period = 17;
  r->Key2.Card = card;
  r->Key2.Qualifier = journal == SJ || journal == CRJ || journal == SOJ ? 'R' : 'P';
  MakeDate(5, 1 + trx % 28, 2024, r->Key2.Date);
  r->Reference = reference;
  r->PostOrder = post_order;
  return Record(r);
}

// Cards: customers ALDRED (1) and BAYVIEW (2), vendors ACME (1) and HARBOR (2); items
// WIDGET (1) and BOLT (2). Record numbers of customers and vendors overlap on purpose.
constexpr int32_t kAldred = 1, kBayview = 2, kAcme = 1, kHarbor = 2, kWidget = 1, kBolt = 2;

class ReferencesTest : public CompanyTest {
 protected:
  void SetUp() override {
    CompanyTest::SetUp();
    cash_basis_ = MyCompany.CashBasis;
    MyCompany.CashBasis = 0;
    ASSERT_EQ(OpenJournalFile(&files_, kOpenModeNormal), 1);
    for (const char* id : {"ALDRED", "BAYVIEW"}) AddCard<CustomerRecord>(OpenCustFile, id);
    for (const char* id : {"ACME", "HARBOR"}) AddCard<VendorRecord>(OpenVendFile, id);
    for (const char* id : {"WIDGET", "BOLT"}) AddCard<LineItemRecord>(OpenLineItemFile, id);
  }
  void CloseLibraryFiles() override {
    CloseJrnlFile(&files_);
    CloseInternalJrnlFiles();
    CloseInternalCustFile();
    CloseInternalVendFile();
    CloseInternalItemFile();
    CloseInternalEmpFile();
    MyCompany.CashBasis = cash_basis_;
  }
  template <typename Card>
  void AddCard(int (*open)(BtrvFile**, uint16_t), const char* id) {
    auto card = std::make_unique<Card>();
    std::memset(card.get(), 0, sizeof *card);
    if constexpr (requires { card->ItemID; }) {
      card->ItemID = id;
    } else {
      card->ID = id;
    }
    AssignGUID(card->Guid);
    BtrvFile* f = nullptr;
    ASSERT_NE(open(&f, kOpenModeNormal), 0);
    ASSERT_NE(InsertRecord(f, sizeof *card, card.get()), 0);
    RealCloseFile(&f, __FILE__, __LINE__);
  }
  Record Save(Record r) {
    EXPECT_EQ(InsertRecord(files_, r.get()), 1) << "post order " << r->PostOrder;
    return r;
  }
  // CheckForDuplicateInvoice's answer and text for an insert.
  std::string Check(JournalRecord* r, int insert_mode = 1) {
    char text[200] = "unchanged";
    const int dup = CheckForDuplicateInvoice(r, insert_mode, text, sizeof text);
    return std::to_string(dup) + (dup ? std::string(" ") + text : "");
  }

  JrnlDBFilesType files_ = {};
  uint8_t cash_basis_ = 0;
};

TEST_F(ReferencesTest, DuplicateRulesOfInvoicesOrdersAndPaymentsWithTheirTexts) {
  Save(NewRecord(PJ, 1, kAcme, "P-100", 1));
  Save(NewRecord(SJ, 2, kAldred, "S-200", 2));
  Save(NewRecord(SOJ, 3, kAldred, "SO-1", 3));
  Save(NewRecord(POJ, 4, kAcme, "PO-1", 4));
  struct Case {
    const char* what;
    Record record;
    std::string expected;
  } cases[] = {
      {"purchase, other vendor", NewRecord(PJ, 9, kHarbor, "P-100"), "0"},
      {"purchase, same vendor", NewRecord(PJ, 9, kAcme, "P-100"),
       "1 ERROR!  Purchase Invoice P-100 has already been entered for vendor ACME"},
      {"sale, other customer", NewRecord(SJ, 9, kBayview, "S-200"), "0"},
      {"sale, same customer", NewRecord(SJ, 9, kAldred, "S-200"),
       "1 ERROR!  Sales Invoice S-200 has already been entered for customer ALDRED"},
      {"purchase of the vendor numbered like the customer", NewRecord(PJ, 9, kAcme, "S-200"), "0"},
      {"sales order, any customer", NewRecord(SOJ, 9, kBayview, "SO-1"),
       "1 ERROR!  That sales order number has already been entered."},
      {"purchase order, other vendor", NewRecord(POJ, 9, kHarbor, "PO-1"), "0"},
      {"purchase order, same vendor", NewRecord(POJ, 9, kAcme, "PO-1"),
       "1 ERROR!  Purchase Order PO-1 has already been entered for vendor ACME"},
      {"sales order numbered like a purchase order", NewRecord(SOJ, 9, kAcme, "PO-1"), "0"},
      {"second sales journal", NewRecord(SJ, 9, kAldred, "S-200"), "0"},
      {"receipt settling the customer's invoices", NewRecord(CRJ, 9, kAldred, "S-200"),
       "1 ERROR!  Sales Invoice S-200 has already been entered for customer ALDRED"},
      {"receipt naming no card", NewRecord(CRJ, 9, kAldred, "S-200"), "0"},
      {"payment to the customer", NewRecord(CDJ, 9, kAcme, "S-200"),
       "1 ERROR!  Sales Invoice S-200 has already been entered for customer ALDRED"},
      {"no reference", NewRecord(PJ, 9, kAcme, ""), "0"},
  };
  cases[9].record->J.Sales.Area130.Journal12 = 1;
  cases[10].record->SecondFlag = 1;
  cases[12].record->J.Cash.Area178.SecondCardFlag = 1;
  cases[12].record->J.Cash.Area178.SecondCard = kAldred;
  for (Case& c : cases) EXPECT_EQ(Check(c.record.get()), c.expected) << c.what;

  // An update skips the transaction itself; an insert of the same thing does not.
  Record stored = NewRecord(PJ, 1, kAcme, "P-100", 1);
  EXPECT_EQ(Check(stored.get(), 0), "0");
  EXPECT_EQ(Check(stored.get(), 1).substr(0, 1), "1");
  // Without an output buffer the text is shown; a short buffer gets its beginning.
  EXPECT_EQ(CheckForDuplicateInvoice(cases[1].record.get(), 1, nullptr, 0), 1);
  EXPECT_EQ(messages_.Last().text, cases[1].expected.substr(2));
  char shortText[10];
  EXPECT_EQ(CheckForDuplicateInvoice(cases[1].record.get(), 1, shortText, sizeof shortText), 1);
  EXPECT_STREQ(shortText, "ERROR!  P");

  // A receipt from a vendor and the shadow posting keeps of it in purchases share the number;
  // another purchase of the vendor may not.
  Record receipt = NewRecord(CRJ, 7, kHarbor, "R-9", 20);
  receipt->J.Cash.Area178.SecondCardFlag = 1;
  receipt->J.Cash.Area178.SecondCard = kAcme;
  Record shadow = NewRecord(PJ, 7, kAcme, "R-9", 21);
  shadow->Key1.Shadow = 2;
  Save(std::move(shadow));
  EXPECT_EQ(Check(receipt.get()), "0");
  EXPECT_EQ(Check(NewRecord(PJ, 8, kAcme, "R-9").get()).substr(0, 1), "1");

  // An order that carries its own post order number as its reference keeps it on update.
  Record own = Save(NewRecord(SOJ, 10, kAldred, "57", 57));
  Save(NewRecord(SOJ, 11, kBayview, "57", 58));
  EXPECT_EQ(Check(own.get(), 0), "0");
  own->Key2.Card = kBayview;  // the stored order is ALDRED's: not forgiven
  EXPECT_EQ(Check(own.get(), 0).substr(0, 1), "1");
}

TEST_F(ReferencesTest, ChequeOrderAndReceiptNumbersThroughTheNavigator) {
  auto stored = [&](int16_t journal, int32_t card, const char* reference, uint32_t post) {
    Record r = NewRecord(journal, static_cast<int32_t>(post), card, reference, post);
    r->HdrAccount = 100;
    return r;
  };
  Save(stored(CDJ, kAcme, "1001", 1));
  Save(stored(SOJ, kAldred, "SO-5", 2));
  Record sale = Save(stored(SJ, kAldred, "S-1", 3));
  Record to_customer = stored(CDJ, kHarbor, "REF-X", 4);  // a payment naming ALDRED
  to_customer->J.Cash.Area178.SecondCardFlag = 1;
  to_customer->J.Cash.Area178.SecondCard = kAldred;
  Save(std::move(to_customer));
  Save(stored(CRJ, kBayview, "RC-1", 5));  // a receipt not settling BAYVIEW's invoices
  Record shadow = stored(SJ, kAldred, "SH-1", 6);
  shadow->Key1.Shadow = 1;
  Save(std::move(shadow));
  Record order = Save(stored(POJ, kAcme, "PO-9", 7));

  Record moved = NewRecord(POJ, 7, kAcme, "PO-9");
  moved->Key1.Period = 18;  // the same order in another period
  Record flagged = NewRecord(SJ, 9, kAldred, "S-1");
  flagged->J.Sales.Area130.Journal12 = 1;
  struct {
    const char* what;
    int16_t journal;
    uint8_t flag;
    int32_t card;
    JournalRecord* record;
    const char* reference;
    int expected;
  } cases[] = {
      {"cheque of the same cash account", CDJ, 0, 100, nullptr, "1001", 1},
      {"cheque of another cash account", CDJ, 0, 300, nullptr, "1001", 0},
      {"payroll cheque numbered like a payment", PRJ, 0, 100, nullptr, "1001", 0},
      {"any sales order", SOJ, 0, 99, nullptr, "SO-5", 1},
      {"sale, same customer", SJ, 0, kAldred, nullptr, "S-1", 1},
      {"sale, other customer", SJ, 0, kBayview, nullptr, "S-1", 0},
      {"sale itself", SJ, 0, kAldred, sale.get(), "S-1", 0},
      {"second sales journal", SJ, 0, kAldred, flagged.get(), "S-1", 0},
      {"sale against a payment naming its customer", SJ, 0, kAldred, nullptr, "REF-X", 1},
      {"sale against a receipt not settling", SJ, 0, kBayview, nullptr, "RC-1", 0},
      {"the same, checked with the flag", SJ, 1, kBayview, nullptr, "RC-1", 1},
      {"shadow of a receipt", SJ, 0, kAldred, nullptr, "SH-1", 0},
      {"order itself in another period", POJ, 0, kAcme, moved.get(), "PO-9", 0},
      {"order itself", POJ, 0, kAcme, order.get(), "PO-9", 0},
      {"another order of the vendor", POJ, 0, kAcme, sale.get(), "PO-9", 1},
      {"general journal", GENJ, 0, kAcme, nullptr, "PO-9", 0},
      {"no reference", SOJ, 0, kAcme, nullptr, "", 0},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(DuplicateReference(c.journal, c.flag, c.card, c.record, c.reference, 0), c.expected)
        << c.what;
  }

  // Receipt numbers are unique per cash account; the walk ends at the receipt itself.
  for (uint32_t post : {10u, 11u}) {
    Record r = NewRecord(CRJ, static_cast<int32_t>(post), kAldred, "", post);
    r->HdrAccount = post == 10 ? 100 : 200;
    r->J.Cash.Area178.ReceiptNumber = "R-77";
    Save(std::move(r));
  }
  FixedString<21> number = {};
  number = "R-77";
  Record itself = NewRecord(CRJ, 10, kAldred, "", 10);
  EXPECT_EQ(CheckForDuplicateReceipt(100, number, nullptr, false), 1);
  EXPECT_EQ(CheckForDuplicateReceipt(300, number, nullptr, false), 0);
  EXPECT_EQ(CheckForDuplicateReceipt(200, number, itself.get(), false), 0);
  EXPECT_EQ(CheckForDuplicateReceipt(100, number, itself.get(), true), 1);
  number = "R-7";
  EXPECT_EQ(CheckForDuplicateReceipt(100, number, nullptr, false), 0);
  number = "";
  EXPECT_EQ(CheckForDuplicateReceipt(0, number, nullptr, false), 0);
}

TEST_F(ReferencesTest, NumbersContinueFromTheFileAsItIsNow) {
  auto key = [](int16_t journal, uint16_t period) {
    JournalKey1Type k = {};
    k.JournalType = journal;
    k.Period = period;
    return k;
  };
  EXPECT_EQ(NextPostOrderNumber(), 1u);
  EXPECT_EQ(GetLastPostOrderNumber(), 0u);
  EXPECT_EQ(NextTrxNumber(key(SJ, 17)), 1);
  struct {
    int16_t journal;
    uint16_t period;
    int32_t number;
    bool journal12;
  } stored[] = {{SJ, 17, 1, false}, {SJ, 17, 3, false},  {SJ, 17, 5, true},
                {SJ, 18, 9, false}, {PJ, 17, 40, false}, {CRJ, 17, 0x7FFFFFFE, false},
                {PJ, 16, 2, false}};
  uint32_t post = 0;
  for (const auto& s : stored) {
    Record r = NewRecord(s.journal, s.number, kAldred, "", ++post * 3);
    r->Key1.Period = s.period;
    r->J.Sales.Area130.Journal12 = s.journal12;
    Save(std::move(r));
  }
  struct {
    int16_t journal;
    uint16_t period;
    int32_t next;
  } next[] = {{SJ, 17, 6}, {SJ2, 17, 6}, {SJ, 18, 10}, {SJ, 19, 1}, {PJ, 17, 41},
              {PJ, 16, 3}, {PJ, 15, 1},  {CDJ, 17, 1}, {CRJ, 17, 1}};
  for (const auto& n : next) {
    EXPECT_EQ(NextTrxNumber(key(n.journal, n.period)), n.next)
        << "journal " << n.journal << " period " << n.period;
  }
  EXPECT_EQ(NextPostOrderNumber(), 22u);
  EXPECT_EQ(GetLastPostOrderNumber(), 21u);
  // Inside a batch the numbers include what the batch wrote, and forget it when abandoned.
  ASSERT_EQ(bBeginBatchUpdate(files_.HdrFile), 1);
  Save(NewRecord(SJ, 6, kAldred, "", 30));
  EXPECT_EQ(NextPostOrderNumber(), 31u);
  EXPECT_EQ(NextTrxNumber(key(SJ2, 17)), 7);
  ASSERT_EQ(bAbortBatchUpdate(files_.HdrFile), 1);
  EXPECT_EQ(NextPostOrderNumber(), 22u);
  EXPECT_EQ(NextTrxNumber(key(SJ, 17)), 6);
}

TEST_F(ReferencesTest, InvoicesOfPaymentsReferencesAndShadowKeys) {
  Save(NewRecord(SJ, 1, kAldred, "INV-7", 5));
  Save(NewRecord(CRJ, 2, kAldred, "INV-8", 6));  // a receipt: the payment's own journal
  Save(NewRecord(SJ, 3, kBayview, "INV-8", 7));  // another customer's
  Record payment = NewRecord(CRJ, 4, kAldred, "");
  JournalRecord* found = nullptr;
  AllocateJournalRecord(&found);
  Record holder(found);
  char ref[] = "INV-7   ";
  EXPECT_EQ(FindInvoice(files_, CRJ, payment.get(), sizeof ref, ref, found), 1);
  EXPECT_EQ(found->PostOrder, 5u);
  EXPECT_EQ(found->Key1.JournalType, SJ);
  char other[] = "INV-8";
  found->PostOrder = 99;
  EXPECT_EQ(FindInvoice(files_, CRJ, payment.get(), sizeof other, other, found), 0);
  EXPECT_EQ(found->PostOrder, 99u);  // left as it was
  JrnlHdrType hdr = {};
  EXPECT_EQ(FindInvoiceHdr(files_, payment.get(), SJ, 5, ref, hdr), 0);  // its own journal

  FixedString<21> reference;
  EXPECT_EQ(GetReferenceFromPostOrder(reference, 5), 1);
  EXPECT_STREQ(reference, "INV-7");
  EXPECT_EQ(GetReferenceFromPostOrder(reference, 0xFFFFFFFEu), 1);
  EXPECT_STREQ(reference, "SysCost");
  EXPECT_EQ(GetReferenceFromPostOrder(reference, 4), 0);
  EXPECT_STREQ(reference, "");

  // Shadow keys: receipts go to sales (1) or, from a vendor, to purchases (2); payments the
  // other way; shadows have none; other journals leave the key alone.
  std::string shadows;
  for (auto [journal, second_card, shadow] : {std::tuple<int16_t, uint16_t, uint8_t>{CRJ, 0, 0},
                                              {CRJ, 1, 0},
                                              {CDJ, 0, 0},
                                              {CDJ, 1, 0},
                                              {CRJ, 0, 1},
                                              {SJ, 0, 0}}) {
    JrnlHdrType h = {.Key1 = {.Shadow = shadow}};
    h.Key1.JournalType = journal;
    std::memcpy(reinterpret_cast<uint8_t*>(&h) + kHdrSecondCardFlagOffset, &second_card, 2);
    JournalKey1Type out = {.JournalType = -1, .Shadow = 9};
    const int made = MakeShadowKey(h, &out);
    shadows += std::to_string(made) + ":" + std::to_string(out.JournalType) + "/" +
               std::to_string(out.Shadow) + " ";
  }
  EXPECT_EQ(shadows, "1:3/1 1:4/2 1:4/1 1:3/2 0:-1/9 1:-1/9 ");

  // A receipt from vendor ACME numbered RV-1 meets another receipt from ACME, not HARBOR's,
  // and not itself when asked to skip it.
  Record refund = NewRecord(CRJ, 9, kBayview, "RV-1", 10);
  refund->J.Cash.Area178.SecondCardFlag = 1;
  refund->J.Cash.Area178.SecondCard = kAcme;
  refund = Save(std::move(refund));
  Record next = NewRecord(CRJ, 10, kBayview, "RV-1");
  BtrvFile* f = files_.HdrFile;
  EXPECT_EQ(DupRefForPayCustOrRecVend(f, CRJ, 1, &next->Key1, "ACME", "RV-1"), 1);
  EXPECT_EQ(DupRefForPayCustOrRecVend(f, CRJ, 1, &next->Key1, "HARBOR", "RV-1"), 0);
  EXPECT_EQ(DupRefForPayCustOrRecVend(f, CRJ, 1, &refund->Key1, "ACME", "RV-1"), 0);
  EXPECT_EQ(DupRefForPayCustOrRecVend(f, CRJ, 0, &refund->Key1, "ACME", "RV-1"), 1);
  EXPECT_EQ(DupRefForPayCustOrRecVend(f, SJ, 0, &refund->Key1, "ACME", "RV-1"), 0);
}

TEST_F(ReferencesTest, WholeTransactionHelpers) {
  // Only the first saved transaction (header key 4: saved first, then by date) is looked at.
  // The first one also has an applied-invoice line naming BOLT, which does not count.
  auto with_item = [&](int32_t trx, int32_t item, uint8_t ledger, uint32_t post) {
    Record r = NewRecord(SJ, trx, kAldred, "", post);
    r->LedgerFlag = ledger;
    r->LineCount = 2;
    JournalLines(r.get())[0] = {.Applied = 1, .Item = kBolt};
    JournalLines(r.get())[1].Item = item;
    Save(std::move(r));
  };
  with_item(1, kWidget, 0, 1);
  with_item(2, kBolt, 0, 2);
  with_item(0, kBolt, 1, 3);
  auto uses = [](const char* id) {
    FixedString<21> item = {};
    item = id;
    return AnySavedTxnsOnItem(item);
  };
  EXPECT_EQ(uses("WIDGET"), 1);
  EXPECT_EQ(uses("BOLT"), 0);
  EXPECT_EQ(uses("WIDGE"), 0);

  // A receipt of 100 paying an invoice of 90 with a 10 discount, and an item line.
  Record r = NewRecord(CRJ, 1, kAldred, "");
  r->Amount = 100;
  r->LineCount = 2;
  JrnlDistLine* lines = JournalLines(r.get());
  lines[0] = {.Amount = -90, .SecondAmount = -10, .Applied = 1};
  lines[1] = {.Amount = 0.004, .Item = kBolt};
  EXPECT_TRUE(fIsJrnlBalanced(r.get()));
  lines[0].Applied = 0;
  EXPECT_FALSE(fIsJrnlBalanced(r.get()));

  // Cleared dates reach the counter slots of item lines only.
  DatesType cleared;
  MakeDate(6, 30, 2024, cleared);
  SetAllDateCleared(r.get(), cleared);
  EXPECT_EQ(CompareDates(lines[0].DateCleared, cleared), 0);
  EXPECT_EQ(lines[0].Counter[1].DateCleared.year, 0);
  EXPECT_EQ(CompareDates(lines[1].Counter[1].DateCleared, cleared), 0);
  SetAllDateCleared(r.get(), {});
  EXPECT_EQ(AreAnyDateClearedSet(r.get()), 0);
  lines[1].Counter[0].DateCleared = cleared;
  EXPECT_EQ(AreAnyDateClearedSet(r.get()), 1);
}

}  // namespace
