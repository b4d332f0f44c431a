// Transaction alarms on a real company: the events a saved transaction raises under the
// company's switches, their refresh (dates, the payment rule, the second-event sales filed
// under journal 12, a transaction no longer posted), removal, collection reminders, the
// fiscal-year moves, and failed writes inside the poster's batch leaving no partial change.
#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Basics.h"
#include "company_test.h"
#include "record_manager_internal.h"
#include "rm_fault_backend.h"

namespace {

using Strings = std::vector<std::string>;

DatesType D(int n) {  // from yyyymmdd
  DatesType d;
  MakeDate(n / 100 % 100, n % 100, n / 10000, d);
  return d;
}
int Num(const DatesType& d) { return d.year * 10000 + d.month * 100 + d.day; }

// "type@date", "+completion date" when completed, the card and the journal of its key.
std::string Show(const EVENT_LOG_RECORD& e) {
  std::string s = std::to_string(e.EventType) + "@" + std::to_string(Num(e.Date));
  if (e.Completed) s += "+" + std::to_string(Num(e.CompletedDate));
  return s + " c" + std::to_string(e.CardRecordNumber) + "/" + std::to_string(e.CardType) + " j" +
         std::to_string(e.JournalKey.JournalType);
}

std::vector<int> g_hook_actions;
void RecordHook(JournalRecord*, EVENTDB_ACTION action) { g_hook_actions.push_back(action); }

struct FreeRecord {
  void operator()(JournalRecord* r) const { DeAllocateJournalRecord(&r); }
};
using Trx = std::unique_ptr<JournalRecord, FreeRecord>;

class AlarmsTest : public CompanyTest {
 protected:
  void SetUp() override {
    CompanyTest::SetUp();
    saved_options_ = Options;
    std::memset(&Options, 0, sizeof Options);
    g_hook_actions.clear();
    pfnCall_Extern_vJrnlAlarms = RecordHook;
    SetBroadcastHandler([this](unsigned message, uintptr_t, const void* record) {
      notices_.push_back(std::to_string(message) + " " +
                         Show(*static_cast<const EVENT_LOG_RECORD*>(record)));
    });
    OpenOwn();
  }
  void CloseLibraryFiles() override {
    SetBroadcastHandler(nullptr);
    pfnCall_Extern_vJrnlAlarms = nullptr;
    vTurnOnEventsAlarms();
    vCloseEventFile();
    CloseInternalCustFile();
    RealCloseFile(&file_, __FILE__, __LINE__);
    Options = saved_options_;
    rm::SetBackendDecorator(nullptr);
  }
  void OpenOwn() {
    ASSERT_NE(RealOpenBFileOwner(&file_, EventLogFileName, kOpenModeNormal, 0, csTheOwner.c_str(),
                                 __FILE__, __LINE__),
              0);
  }

  // Switches event type on (alarm, kind and lead as given).
  static void On(int type, uint8_t alarm = 0, uint8_t kind = 0, uint16_t lead = 0) {
    if (type == 3) {
      Options.Event3 = {alarm, kind, 1, lead};
      return;
    }
    const int order[kOptionEventCount] = {1, 2, 4, 5, 7, 8, 9, 10, 11, 12, 13};
    const int i = static_cast<int>(std::find(order, order + kOptionEventCount, type) - order);
    Options.EventAlarm[i] = alarm;
    Options.EventAlarmKind[i] = kind;
    Options.EventCreate[i] = 1;
    Options.EventLead[i] = lead;
  }

  static Trx NewTrx(int16_t journal, int32_t number, int32_t card, int date) {
    JournalRecord* r = nullptr;
    EXPECT_EQ(AllocateJournalRecord(&r), 1);
    r->Key1.JournalType = journal;
    r->Key1.TrxNumber = number;
    r->Key1.Period = 16;
    r->Key2.Card = card;
    r->Key2.Date = D(date);
    r->LedgerFlag = 1;
    return Trx(r);
  }
  // An invoice of 100 falling due at the end of March.
  static Trx Invoice(int32_t number, int32_t card = 9) {
    Trx t = NewTrx(SJ, number, card, 20240301);
    t->Amount = 100;
    t->J.Sales.Area130.DueDate = D(20240331);
    return t;
  }

  // Every event, in card and log-number order.
  Strings Events() {
    Strings out;
    EVENT_LOG_RECORD e;
    for (uint8_t ok = GetFileLowest(file_, 0, sizeof e, &e, 0); ok;
         ok = GetFileNext(file_, 0, sizeof e, &e, 0)) {
      out.push_back(Show(e));
    }
    return out;
  }
  Strings Notices() {
    Strings out = std::move(notices_);
    notices_.clear();
    return out;
  }

  BtrvFile* file_ = nullptr;
  Strings notices_;
  OptionType saved_options_;
};

TEST_F(AlarmsTest, InvoiceEventsFollowDatesAndThePaymentRule) {
  On(4);
  On(5, 1, 1, 3);
  Trx other = Invoice(2, 8), sale = Invoice(1);
  vOptionDB(other.get(), EVENTDB_ADD);
  vOptionDB(sale.get(), EVENTDB_ADD);
  EXPECT_EQ(Events(), (Strings{"4@20240301+20240301 c8/1 j3", "5@20240331 c8/1 j3",
                               "4@20240301+20240301 c9/1 j3", "5@20240331 c9/1 j3"}));
  EXPECT_TRUE(Notices().empty());  // adds are made silently
  EVENT_LOG_RECORD due;
  ASSERT_NE(GetFileHighest(file_, 0, sizeof due, &due, 0), 0);
  EXPECT_EQ((std::vector<int>{due.AlarmSet, due.AlarmLead, static_cast<int>(due.AlarmKind)}),
            (std::vector<int>{1, 3, 2}));
  EXPECT_STREQ(due.Title, "Reminder");

  struct Step {
    double paid;
    int payment_date;
    int date;
    Strings events;   // of the sale
    Strings notices;  // the versions before the change
  };
  const Step kSteps[] = {
      {100,
       20240320,
       20240301,
       {"4@20240301+20240301 c9/1 j3", "5@20240331+20240320 c9/1 j3"},
       {"1182 5@20240331 c9/1 j3"}},
      {40,
       20240320,
       20240302,
       {"4@20240302+20240301 c9/1 j3", "5@20240331 c9/1 j3"},
       {"1182 4@20240301+20240301 c9/1 j3", "1182 5@20240331+20240320 c9/1 j3"}},
      {40, 20240321, 20240302, {"4@20240302+20240301 c9/1 j3", "5@20240331 c9/1 j3"}, {}},
      {120,
       0,
       20240302,
       {"4@20240302+20240301 c9/1 j3", "5@20240331+20240302 c9/1 j3"},
       {"1182 5@20240331 c9/1 j3"}},  // overpaid without a payment date: the sale's date
  };
  for (const Step& s : kSteps) {
    SCOPED_TRACE(s.paid);
    sale->J.Sales.Area130.AmountPaid = s.paid;
    sale->J.Sales.Area130.PaymentDate = s.payment_date ? D(s.payment_date) : DatesType{};
    sale->Key2.Date = D(s.date);
    vOptionDB(sale.get(), EVENTDB_UPDATE);
    Strings events = Events();
    EXPECT_EQ(Strings(events.begin() + 2, events.end()), s.events);
    EXPECT_EQ(Notices(), s.notices);
  }
  // Due events suppressed after the save are left exactly as they were.
  sale->J.Sales.Area130.NoEvent = 1;
  sale->J.Sales.Area130.AmountPaid = 0;
  vOptionDB(sale.get(), EVENTDB_UPDATE);
  EXPECT_EQ(Events().back(), "5@20240331+20240302 c9/1 j3");
  EXPECT_TRUE(Notices().empty());

  vOptionDB(sale.get(), EVENTDB_DELETE);
  EXPECT_EQ(Events(), (Strings{"4@20240301+20240301 c8/1 j3", "5@20240331 c8/1 j3"}));
  EXPECT_EQ(Notices(),
            (Strings{"1183 4@20240302+20240301 c9/1 j3", "1183 5@20240331+20240302 c9/1 j3"}));
  EXPECT_EQ(g_hook_actions, (std::vector<int>{1, 1, 2, 2, 2, 2, 2, 3}));
}

TEST_F(AlarmsTest, SecondEventSaleKeepsItsOwnEventsUntilNoLongerPosted) {
  On(1);
  On(2, 1);
  Trx sale = NewTrx(SJ, 4, 9, 20240301);
  sale->J.Sales.Area130.SecondEvent = 1;
  sale->J.Sales.Area178.SecondDate = D(20240315);
  vOptionDB(sale.get(), EVENTDB_ADD);
  const Strings made = {"1@20240301+20240301 c9/1 j12", "2@20240315 c9/1 j12"};
  EXPECT_EQ(Events(), made);
  vOptionDB(sale.get(), EVENTDB_UPDATE);  // found under journal 12: nothing added again
  EXPECT_EQ(Events(), made);
  EXPECT_TRUE(Notices().empty());
  sale->J.Sales.Area178.SecondDate = D(20240322);
  vOptionDB(sale.get(), EVENTDB_UPDATE);
  EXPECT_EQ(Events(), (Strings{made[0], "2@20240322 c9/1 j12"}));
  EXPECT_EQ(Notices(), Strings{"1182 2@20240315 c9/1 j12"});

  sale->LedgerFlag = 0;  // saved, no longer posted: its events go
  vOptionDB(sale.get(), EVENTDB_UPDATE);
  EXPECT_TRUE(Events().empty());
  EXPECT_EQ(Notices(), (Strings{"1183 1@20240301+20240301 c9/1 j12", "1183 2@20240322 c9/1 j12"}));
}

TEST_F(AlarmsTest, SwitchesDecideWhatIsMadeAndAlarmsOffTouchNothing) {
  Trx purchase = NewTrx(PJ, 7, 4, 20240301);
  purchase->Amount = 50;
  purchase->J.Sales.Area130.AmountPaid = 50;  // paid at entry, no payment date
  purchase->J.Sales.Area130.DueDate = D(20240401);
  vOptionDB(purchase.get(), EVENTDB_ADD);
  EXPECT_TRUE(Events().empty());
  On(11);
  vOptionDB(purchase.get(), EVENTDB_UPDATE);  // switched on since the save: made now
  EXPECT_EQ(Events(), Strings{"11@20240401+20240301 c4/3 j4"});

  Trx payroll = NewTrx(PRJ, 8, 6, 20240305), order = NewTrx(SOJ, 9, 5, 20240305);
  payroll->LedgerFlag = 0;
  order->J.Order.Area130.ThirdDate = D(20240310);
  order->J.Order.Area130.Done = 1;
  On(13);
  On(3);
  On(8);
  vTurnOffEventsAlarms();
  vOptionDB(order.get(), EVENTDB_ADD);
  vOptionDB(purchase.get(), EVENTDB_DELETE);
  EXPECT_EQ(Events(), Strings{"11@20240401+20240301 c4/3 j4"});
  EXPECT_EQ(g_hook_actions, (std::vector<int>{1, 2}));
  vTurnOnEventsAlarms();
  pfnCall_Extern_vJrnlAlarms = nullptr;   // a hook the host never set is skipped
  vOptionDB(payroll.get(), EVENTDB_ADD);  // not posted: no payroll event
  vOptionDB(order.get(), EVENTDB_ADD);
  Trx no_card = NewTrx(CRJ, 10, 0, 20240305), inventory = NewTrx(INAJ, 11, 5, 20240305);
  vOptionDB(no_card.get(), EVENTDB_ADD);
  vOptionDB(inventory.get(), EVENTDB_ADD);
  EXPECT_EQ(Events(), (Strings{"11@20240401+20240301 c4/3 j4", "3@20240310+20240310 c5/1 j11"}));
}

TEST_F(AlarmsTest, OneCollectionReminderPerCustomerAndDate) {
  BtrvFile* customers = nullptr;
  ASSERT_NE(OpenCustFile(&customers, kOpenModeNormal), 0);
  CustomerRecord customer;
  std::memset(&customer, 0, sizeof customer);
  customer.ID = "ALDRED";
  ASSERT_NE(InsertRecord(customers, sizeof customer, &customer), 0);
  RealCloseFile(&customers, __FILE__, __LINE__);
  FixedString<21> id;
  id = "ALDRED";
  CrtCollectionEvent(D(20240410), id);  // switched off
  EXPECT_TRUE(Events().empty());
  On(7, 1, 0, 2);
  for (int date : {20240410, 20240410, 20240411}) CrtCollectionEvent(D(date), id);
  id = "NOSUCH";
  CrtCollectionEvent(D(20240412), id);
  EXPECT_EQ(Events(), (Strings{"7@20240410+20240410 c1/1 j0", "7@20240411+20240411 c1/1 j0"}));
  EXPECT_EQ(Notices(),
            (Strings{"1181 7@20240410+20240410 c1/1 j0", "1181 7@20240411+20240411 c1/1 j0"}));
}

TEST_F(AlarmsTest, SharedHandleAndFiscalYearMoves) {
  BtrvFile* shared = reinterpret_cast<BtrvFile*>(&shared);
  EXPECT_EQ(fGetEventFileIfOpen(&shared), 1);  // inverted: true while closed
  EXPECT_EQ(shared, nullptr);
  vGetEventFile(&shared);
  ASSERT_NE(shared, nullptr);
  BtrvFile* again = nullptr;
  EXPECT_EQ(fGetEventFileIfOpen(&again), 0);
  EXPECT_EQ(again, shared);

  On(8);
  On(12);
  Trx receipt = NewTrx(CRJ, 3, 9, 20240301), payment = NewTrx(CDJ, 3, 9, 20240302);
  vOptionDB(receipt.get(), EVENTDB_ADD);
  vOptionDB(payment.get(), EVENTDB_ADD);
  JournalKey1Type moved = receipt->Key1;
  moved.Period = 2;
  vCFYRUpdateEvent(shared, receipt->Key1, shared, moved);
  vCFYRUpdateEvent(shared, moved, shared, moved);  // onto itself: nothing to do
  EXPECT_EQ(Events(), (Strings{"8@20240301+20240301 c9/1 j1", "12@20240302+20240302 c9/3 j2"}));
  vCFYRDeleteEvent(receipt->Key1);  // nothing is left under the old key
  EXPECT_EQ(Events().size(), 2u);
  vCFYRDeleteEvent(moved);
  EXPECT_EQ(Events(), Strings{"12@20240302+20240302 c9/3 j2"});
  EXPECT_TRUE(Notices().empty());
}

TEST_F(AlarmsTest, FailedWritesInsideThePostersBatchLeaveNoPartialChange) {
  auto plan = std::make_shared<rm::FaultPlan>();
  rm::SetBackendDecorator([plan](std::unique_ptr<rm::Backend> inner) {
    return rm::WrapWithFaults(std::move(inner), plan);
  });
  RealCloseFile(&file_, __FILE__, __LINE__);  // reopened through the faulty backend
  OpenOwn();
  On(4);
  On(5);
  Trx sale = Invoice(1);
  // op runs inside the poster's batch with its nth write failing, for every n until a run
  // meets no failure: the events are then all as before (no notice) or all as after.
  auto run = [&](const char* what, const Strings& before, const Strings& after, const Strings& sent,
                 auto op) {
    for (int n = 1; n < 50; ++n) {
      SCOPED_TRACE(std::string(what) + " failing write " + std::to_string(n));
      ASSERT_EQ(bBeginBatchUpdate(file_), 1);
      plan->Arm(n, kStatusDiskFull);
      op();
      const bool failed = plan->failures > 0;
      plan->Disarm();
      ASSERT_EQ(bEndBatchUpdate(file_), 1);
      EXPECT_EQ(Events(), failed ? before : after);
      EXPECT_EQ(Notices(), failed ? Strings{} : sent);
      if (!failed || HasFailure()) return;
    }
    ADD_FAILURE() << what << " never ran without a failure";
  };
  const Strings made = {"4@20240301+20240301 c9/1 j3", "5@20240331 c9/1 j3"};
  run("add", {}, made, {}, [&] { vOptionDB(sale.get(), EVENTDB_ADD); });
  ASSERT_FALSE(HasFailure());
  sale->J.Sales.Area130.AmountPaid = 100;
  sale->J.Sales.Area130.PaymentDate = D(20240315);
  sale->Key2.Date = D(20240302);
  const Strings paid = {"4@20240302+20240301 c9/1 j3", "5@20240331+20240315 c9/1 j3"};
  run("refresh", made, paid, {"1182 4@20240301+20240301 c9/1 j3", "1182 5@20240331 c9/1 j3"},
      [&] { vOptionDB(sale.get(), EVENTDB_UPDATE); });
  ASSERT_FALSE(HasFailure());
  run("delete", paid, {}, {"1183 4@20240302+20240301 c9/1 j3", "1183 5@20240331+20240315 c9/1 j3"},
      [&] { vOptionDB(sale.get(), EVENTDB_DELETE); });
}

}  // namespace
