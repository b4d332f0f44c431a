// The event log: the company's diary of dated events attached to a customer, vendor or
// employee, optionally repeating as a series of separate records. Every change goes through
// one request block (EVENT_DB); adds, updates and deletions are broadcast to the host's
// windows (notices 1181, 1182, 1183) unless the request is silent. Changes read the record
// with a single-record no-wait lock, so a record another user holds is refused at once.
//
// Every f... function answers 1 on success and 0 on failure and shows no message; a series
// walk that fails part-way leaves what it already did (the result tells the caller the series
// is incomplete). The request and its record stay the caller's throughout.
#ifndef BASICS_EVENTLOGDCL_H_
#define BASICS_EVENTLOGDCL_H_

#include <cstddef>
#include <cstdint>

#include "JOURNAL.h"
#include "record_manager.h"
#include "zor_types.h"

#pragma pack(push, 1)
// One record of the event-log file, 314 bytes. Key 0: card, card type, log number, series
// number (unique); key 1: date, event type; key 3: the journal key.
struct EVENT_LOG_RECORD {
  int32_t CardRecordNumber;
  int16_t CardType;       // 1 customer
  uint16_t LogNumber;     // 1 to 20000, unique within the card
  uint16_t SeriesNumber;  // shared by the events of one recurring series
  DatesType Date;
  FixedString<16> Title;
  int16_t EventType;           // 7 collection reminder
  JournalKey1Type JournalKey;  // of the transaction that raised it; zero when entered by hand
  uint8_t HostData[256];       // event text and settings kept for the host
  uint8_t AlarmSet;
  uint16_t AlarmLead;
  uint32_t AlarmKind;
  uint8_t Completed;
  DatesType CompletedDate;
  uint32_t Frequency;  // EVENT_RECUR_FREQUENCY of the series
};
#pragma pack(pop)
static_assert(sizeof(EVENT_LOG_RECORD) == 314, "EVENT_LOG_RECORD is 314 bytes");
static_assert(
    offsetof(EVENT_LOG_RECORD, CardType) == 4 && offsetof(EVENT_LOG_RECORD, LogNumber) == 6 &&
        offsetof(EVENT_LOG_RECORD, SeriesNumber) == 8 && offsetof(EVENT_LOG_RECORD, Date) == 10 &&
        offsetof(EVENT_LOG_RECORD, Title) == 14 && offsetof(EVENT_LOG_RECORD, EventType) == 30 &&
        offsetof(EVENT_LOG_RECORD, JournalKey) == 32 &&
        offsetof(EVENT_LOG_RECORD, HostData) == 42 && offsetof(EVENT_LOG_RECORD, AlarmSet) == 298 &&
        offsetof(EVENT_LOG_RECORD, AlarmLead) == 299 &&
        offsetof(EVENT_LOG_RECORD, AlarmKind) == 301 &&
        offsetof(EVENT_LOG_RECORD, Completed) == 305 &&
        offsetof(EVENT_LOG_RECORD, CompletedDate) == 306 &&
        offsetof(EVENT_LOG_RECORD, Frequency) == 310,
    "event-log record layout");

enum EVENTDB_ACTION : int32_t {
  EVENTDB_ADD = 1,
  EVENTDB_UPDATE = 2,
  EVENTDB_DELETE = 3,
};

enum EVENT_RECUR_FREQUENCY : uint32_t {
  EVENT_RECUR_DAILY = 1,
  EVENT_RECUR_WEEKLY = 2,
  EVENT_RECUR_BIWEEKLY = 3,
  EVENT_RECUR_FOURWEEKLY = 4,
  EVENT_RECUR_15TH_AND_LAST = 5,
  EVENT_RECUR_1ST_AND_15TH = 6,
  EVENT_RECUR_PERIOD = 7,
  EVENT_RECUR_MONTHLY = 8,
  EVENT_RECUR_QUARTERLY = 9,
  EVENT_RECUR_HALF_YEARLY = 10,
  EVENT_RECUR_YEARLY = 11,
};

// Notices broadcast to the host's windows with a copy of the record.
constexpr unsigned kEventAddedNotice = 1181;
constexpr unsigned kEventUpdatedNotice = 1182;
constexpr unsigned kEventDeletedNotice = 1183;

// The request block of every change.
struct EVENT_DB {
  BtrvFile* File;            // the open event-log file, or null to open and close it here
  EVENT_LOG_RECORD* Record;  // the caller's record: numbers filled in, deletions read into it
  EVENTDB_ACTION Action;
  uint8_t Recurring;  // the operation applies to the record's series
  uint8_t Rebuild;    // an update of a series rebuilds it instead of rewriting it
  EVENT_RECUR_FREQUENCY Frequency;
  uint16_t Count;  // occurrences
  uint8_t Silent;  // no broadcast
};

// Opens the event log when the request holds no file (closing it again at the end) and
// dispatches on the action; 0 for an unknown action or when the file cannot be opened.
uint8_t fHandleEventDB(EVENT_DB* db);
// Adds the record, taking the next log number when it has 0 and the following ones (after
// 20000 from 1) while the number is taken; a number above 20000 starts at 1. Fails when the
// insert fails for another reason or every number of the card is taken.
uint8_t fAddEventRecord(EVENT_DB* db);
// Dispatches an update: a series rebuilt, a series rewritten, or one record.
uint8_t fUpdateEventRecord(EVENT_DB* db);
// Rewrites the stored record of the caller's key 0 with the caller's record.
uint8_t fDoEventUpdate(EVENT_DB* db);
// Deletes the record of the caller's key 0 (read into the caller's buffer) and, for a
// recurring request, the later records of its series.
uint8_t fDeleteEventRecord(EVENT_DB* db);
// Replaces the caller's stored record by a new series of Count records from its date.
uint8_t fBuildRecurringEvents(EVENT_DB* db);
// Rewrites the series after one record changed: the edited record plus Count occurrences.
uint8_t fUpdateRecurringEvents(EVENT_DB* db);
// The next free log number of the record's card (see fAddEventRecord), and the next series.
unsigned short wGetEventLogNum(EVENT_DB* db);
unsigned short wGetEventSeriesNum(EVENT_DB* db);
// Advances date by one step of frequency (a month for an unknown value).
void vGetNextRecurDate(EVENT_RECUR_FREQUENCY frequency, DatesType& date);
// Broadcasts message with a copy of record (nothing when no memory).
void vSendEventMessage(unsigned int message, EVENT_LOG_RECORD* record);

#endif  // BASICS_EVENTLOGDCL_H_
