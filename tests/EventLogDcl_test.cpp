// The event log on a real company: log and series numbering with its retries and wrap,
// the recurrence steps, building and rewriting series (and their different counts),
// deleting a series beside others (refused while another user holds it), and the notices
// sent for each change.
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "EventLogDcl.h"
#include "General.h"
#include "company_test.h"
#include "record_manager.h"
#include "utility.h"

namespace {

using Strings = std::vector<std::string>;

DatesType D(int n) {  // from yyyymmdd
  DatesType d;
  MakeDate(n / 100 % 100, n % 100, n / 10000, d);
  return d;
}
int Num(const DatesType& d) { return d.year * 10000 + d.month * 100 + d.day; }

EVENT_LOG_RECORD Event(int32_t card, uint16_t log, uint16_t series, int date) {
  EVENT_LOG_RECORD e;
  std::memset(&e, 0, sizeof e);
  e.CardRecordNumber = card;
  e.CardType = 1;
  e.LogNumber = log;
  e.SeriesNumber = series;
  e.Date = D(date);
  e.Title = "Call";
  return e;
}

// "log/series/date" of an event, "+" when completed.
std::string Show(const EVENT_LOG_RECORD& e) {
  return std::to_string(e.LogNumber) + "/" + std::to_string(e.SeriesNumber) + "/" +
         std::to_string(Num(e.Date)) + (e.Completed ? "+" : "");
}

class EventLogTest : public CompanyTest {
 protected:
  void SetUp() override {
    CompanyTest::SetUp();
    ASSERT_NE(RealOpenBFileOwner(&file_, EventLogFileName, kOpenModeNormal, 0, csTheOwner.c_str(),
                                 __FILE__, __LINE__),
              0);
    SetBroadcastHandler([this](unsigned message, uintptr_t, const void* record) {
      notices_.push_back(std::to_string(message) + " " +
                         Show(*static_cast<const EVENT_LOG_RECORD*>(record)));
      lent_.push_back(record);
    });
  }
  void CloseLibraryFiles() override {
    SetBroadcastHandler(nullptr);
    RealCloseFile(&file_, __FILE__, __LINE__);
  }

  EVENT_DB Request(EVENT_LOG_RECORD* record, EVENTDB_ACTION action, uint8_t silent = 0) {
    return EVENT_DB{file_, record, action, 0, 0, EVENT_RECUR_WEEKLY, 0, silent};
  }
  void Add(EVENT_LOG_RECORD e) {
    EVENT_DB db = Request(&e, EVENTDB_ADD, 1);
    ASSERT_EQ(fHandleEventDB(&db), 1);
  }
  // The card's events in key 0 order.
  Strings Card(int32_t card) {
    Strings out;
    EVENT_LOG_RECORD e = Event(card, 0, 0, 0);
    for (uint8_t ok = GetFileGE(file_, 0, sizeof e, &e, 0); ok && e.CardRecordNumber == card;
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
  std::vector<const void*> lent_;
};

TEST_F(EventLogTest, NumbersAreRetriedPastTakenOnesAndWrapAfter20000) {
  EVENT_LOG_RECORD first = Event(5, 0, 0, 20240301);
  EVENT_DB db = Request(&first, EVENTDB_ADD);
  EXPECT_EQ(wGetEventSeriesNum(&db), 1);
  ASSERT_EQ(fHandleEventDB(&db), 1);  // the first event of a card is number 1
  EXPECT_EQ(first.LogNumber, 1);
  EXPECT_EQ(Notices(), Strings{"1181 1/0/20240301"});
  ASSERT_EQ(lent_.size(), 1u);
  EXPECT_NE(lent_[0], &first);  // listeners get a copy

  Add(Event(5, 2, 4, 20240302));
  Add(Event(5, 3, 4, 20240303));
  EVENT_LOG_RECORD taken = Event(5, 2, 4, 20240304);  // 2 and 3 are taken in series 4: 4
  db = Request(&taken, EVENTDB_ADD);
  ASSERT_EQ(fHandleEventDB(&db), 1);
  EXPECT_EQ(taken.LogNumber, 4);
  EXPECT_EQ(wGetEventSeriesNum(&db), 5);

  // Card 7 uses 20000, 1 and 2: the next number wraps past 20000 to the first free one.
  Add(Event(7, 20000, 0, 20240301));
  Add(Event(7, 1, 0, 20240301));
  for (uint16_t log : {uint16_t{0}, uint16_t{20000}}) {
    SCOPED_TRACE(log);
    EVENT_LOG_RECORD e = Event(7, log, 0, 20240305);
    db = Request(&e, EVENTDB_ADD, 1);
    ASSERT_EQ(fHandleEventDB(&db), 1);
    EXPECT_EQ(e.LogNumber, log == 0 ? 2 : 3);
  }
  // The search does not check the card: an empty card follows on from the card below it.
  EVENT_LOG_RECORD empty = Event(6, 0, 0, 20240301);
  db = Request(&empty, EVENTDB_ADD);
  EXPECT_EQ(wGetEventLogNum(&db), 5);
  EXPECT_EQ(Notices(), Strings{"1181 4/4/20240304"});
}

TEST_F(EventLogTest, RecurrenceSteps) {
  DeallocGeneralRecReadPtr();
  const CurrentType saved_current = Current;
  const DatesType saved_today = TodaysDate;
  std::memset(&Current, 0, sizeof Current);
  TodaysDate = D(19970615);  // a new general file: monthly periods, 1997 and 1998 open
  ASSERT_EQ(InitGeneralFile(), 1);
  struct Case {
    uint32_t frequency;
    int from;
    std::vector<int> steps;
  };
  const Case kCases[] = {
      {EVENT_RECUR_15TH_AND_LAST, 19970315, {19970331, 19970415}},
      {EVENT_RECUR_15TH_AND_LAST, 19970131, {19970215, 19970228}},
      {EVENT_RECUR_1ST_AND_15TH, 19970301, {19970315, 19970401}},
      {EVENT_RECUR_PERIOD, 19970210, {19970310}},
      {EVENT_RECUR_PERIOD, 19981215, {19990115, 19990215}},  // past the last period: a month
      {EVENT_RECUR_QUARTERLY, 19971130, {19980228}},
      {12, 19970131, {19970228}},
  };
  for (const Case& c : kCases) {
    DatesType d = D(c.from);
    for (int expected : c.steps) {
      vGetNextRecurDate(static_cast<EVENT_RECUR_FREQUENCY>(c.frequency), d);
      EXPECT_EQ(Num(d), expected) << "frequency " << c.frequency << " from " << c.from;
    }
  }
  TodaysDate = saved_today;
  Current = saved_current;
  CloseGeneralFile();
  DeallocGeneralRecReadPtr();
}

TEST_F(EventLogTest, BuildMakesCountEventsAndRewriteKeepsCountAfterTheEditedOne) {
  Add(Event(5, 0, 0, 20240229));  // a single event, made into a weekly series of three
  Add(Event(5, 0, 1, 20240101));  // an older series of the card
  Notices();
  EVENT_LOG_RECORD e = Event(5, 1, 0, 20240301);
  EVENT_DB db = Request(&e, EVENTDB_UPDATE);
  db.Recurring = 1;
  db.Rebuild = 1;
  db.Count = 3;
  ASSERT_EQ(fHandleEventDB(&db), 1);
  EXPECT_EQ(Card(5), (Strings{"2/1/20240101", "3/2/20240301", "4/2/20240308", "5/2/20240315"}));
  EXPECT_EQ(Notices(), (Strings{"1183 1/0/20240229", "1181 3/2/20240301", "1181 4/2/20240308",
                                "1181 5/2/20240315"}));

  // The second occurrence is done; a rewrite without a date change keeps every own date and
  // the completed flag, and adds one occurrence so that three follow the edited one.
  EVENT_LOG_RECORD done = Event(5, 4, 2, 20240308);
  done.Completed = 1;
  db = Request(&done, EVENTDB_UPDATE);
  db.File = nullptr;  // opened and closed by the request
  ASSERT_EQ(fHandleEventDB(&db), 1);
  EXPECT_EQ(db.File, nullptr);
  EXPECT_EQ(Notices(), Strings{"1182 4/2/20240308"});  // the version before the update
  EVENT_LOG_RECORD edit = Event(5, 3, 2, 20240301);
  edit.Title = "Visit";
  db = Request(&edit, EVENTDB_UPDATE);
  db.Recurring = 1;
  db.Count = 3;
  ASSERT_EQ(fHandleEventDB(&db), 1);
  EXPECT_EQ(Card(5), (Strings{"2/1/20240101", "3/2/20240301", "4/2/20240308+", "5/2/20240315",
                              "6/2/20240322"}));
  EXPECT_EQ(Notices(), (Strings{"1182 3/2/20240301", "1182 4/2/20240308+", "1182 5/2/20240315",
                                "1181 6/2/20240322"}));

  // Moved a day with a count of one: the next occurrence follows the new date, the others go.
  edit = Event(5, 3, 2, 20240302);  // the request changed the caller's record: set anew
  edit.Title = "Visit";
  db.Count = 1;
  ASSERT_EQ(fHandleEventDB(&db), 1);
  EXPECT_EQ(Card(5), (Strings{"2/1/20240101", "3/2/20240302", "4/2/20240309+"}));
  EXPECT_EQ(Notices(), (Strings{"1182 3/2/20240301", "1182 4/2/20240308+", "1183 5/2/20240315",
                                "1183 6/2/20240322"}));
  EVENT_LOG_RECORD stored = Event(5, 4, 2, 0);
  ASSERT_NE(GetFileEqual(file_, 0, sizeof stored, &stored, 0), 0);
  EXPECT_STREQ(stored.Title, "Visit");
}

TEST_F(EventLogTest, DeletingASeriesLeavesTheCardsOtherSeriesAlone) {
  for (const auto& [log, series] : std::vector<std::pair<uint16_t, uint16_t>>{
           {1, 1}, {2, 2}, {3, 2}, {4, 1}, {5, 2}, {6, 3}, {7, 2}}) {
    Add(Event(5, log, series, 20240300 + log));
  }
  Add(Event(6, 1, 2, 20240301));  // the same series number on the next card
  EVENT_LOG_RECORD e = Event(5, 3, 2, 0);
  EVENT_DB db = Request(&e, EVENTDB_DELETE);
  db.Recurring = 1;  // from the second occurrence on: up to the first of a later series
  db.File = nullptr;
  EVENT_LOG_RECORD held = Event(5, 3, 2, 0);  // refused while another handle holds it
  ASSERT_NE(GetFileEqual(file_, kLockBiasSingleNoWait, sizeof held, &held, 0), 0);
  EXPECT_EQ(fHandleEventDB(&db), 0);
  UnlockOneRecord(file_);
  ASSERT_EQ(fHandleEventDB(&db), 1);
  EXPECT_EQ(Card(5), (Strings{"1/1/20240301", "2/2/20240302", "4/1/20240304", "6/3/20240306",
                              "7/2/20240307"}));
  EXPECT_EQ(Notices(), (Strings{"1183 3/2/20240303", "1183 5/2/20240305"}));
  EXPECT_EQ(Card(6), Strings{"1/2/20240301"});

  e = Event(5, 7, 2, 0);  // the last of the card: the walk meets the next card and stops
  db.File = file_;
  db.Silent = 1;
  ASSERT_EQ(fHandleEventDB(&db), 1);
  EXPECT_EQ(Card(6), Strings{"1/2/20240301"});
  EXPECT_TRUE(Notices().empty());
  e = Event(5, 7, 2, 0);  // gone now
  EXPECT_EQ(fHandleEventDB(&db), 0);
  db.Action = static_cast<EVENTDB_ACTION>(4);
  EXPECT_EQ(fHandleEventDB(&db), 0);
}

}  // namespace
