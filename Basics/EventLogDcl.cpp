// The event log: numbering, adds, updates and deletions of single events and of recurring
// series, the date steps of the recurrence frequencies, and the notices to the host's windows.
#include "EventLogDcl.h"

#include <cstring>
#include <memory>
#include <new>

#include "General.h"
#include "OpenDat_internal.h"
#include "utility.h"

namespace {
constexpr const char* kUnit = "Basics/EventLogDcl";
constexpr uint32_t kRecordLength = sizeof(EVENT_LOG_RECORD);
constexpr int16_t kKeyCard = 0;  // card, card type, log number, series number
constexpr uint16_t kMaxLogNumber = 20000;
// A period is at most a little over a year long; a date that has not left its period after
// this many months never will (it lies outside the calendar).
constexpr int kMaxMonthsPerPeriodStep = 24;

// The number after n: log numbers run from 1 to 20000 and then start at 1 again.
uint16_t NextLogNumber(uint16_t n) { return n >= kMaxLogNumber ? 1 : static_cast<uint16_t>(n + 1); }

bool SameCard(const EVENT_LOG_RECORD& a, int32_t card, int16_t card_type) {
  return a.CardRecordNumber == card && a.CardType == card_type;
}

bool Usable(const EVENT_DB* db) {
  return db != nullptr && db->File != nullptr && db->Record != nullptr;
}

void Notify(const EVENT_DB* db, unsigned message, EVENT_LOG_RECORD* record) {
  if (db->Silent == 0) vSendEventMessage(message, record);
}

// A walk that stopped because there were no more records, not because a read failed (a
// record locked by another user included).
bool WalkEndedCleanly(BtrvFile* file) {
  const uint16_t status = GetErrorCode(file);
  return status == kStatusEndOfFile || status == kStatusKeyNotFound;
}

// The stored record of key's key 0, read with a no-wait lock into *out.
bool ReadForChange(BtrvFile* file, const EVENT_LOG_RECORD& key, EVENT_LOG_RECORD* out) {
  std::memset(out, 0, sizeof *out);
  out->CardRecordNumber = key.CardRecordNumber;
  out->CardType = key.CardType;
  out->LogNumber = key.LogNumber;
  out->SeriesNumber = key.SeriesNumber;
  return GetFileEqual(file, kLockBiasSingleNoWait, kRecordLength, out, kKeyCard) != 0;
}

bool ReadNextForChange(BtrvFile* file, EVENT_LOG_RECORD* out) {
  return GetFileNext(file, kLockBiasSingleNoWait, kRecordLength, out, kKeyCard) != 0;
}

uint8_t Dispatch(EVENT_DB* db) {
  switch (db->Action) {
    case EVENTDB_ADD:
      return fAddEventRecord(db);
    case EVENTDB_UPDATE:
      return fUpdateEventRecord(db);
    case EVENTDB_DELETE:
      return fDeleteEventRecord(db);
  }
  return 0;
}
}  // namespace

uint8_t fHandleEventDB(EVENT_DB* db) {
  if (db == nullptr || db->Record == nullptr) return 0;
  const bool opened_here = db->File == nullptr;
  if (opened_here && BASICS_OPEN_OWNER(&db->File, EventLogFileName, kOpenModeNormal, 0,
                                       csTheOwner.c_str(), kUnit) == 0) {
    return 0;
  }
  const uint8_t result = Dispatch(db);
  if (opened_here) BASICS_CLOSE(&db->File, kUnit);
  return result;
}

uint8_t fAddEventRecord(EVENT_DB* db) {
  if (!Usable(db)) return 0;
  EVENT_LOG_RECORD* record = db->Record;
  if (record->LogNumber == 0) record->LogNumber = wGetEventLogNum(db);
  // The number found may lie one past the last (20001): numbers start at 1 again there.
  if (record->LogNumber > kMaxLogNumber) record->LogNumber = 1;
  // A number already taken in the card is the failure to expect: the next numbers are tried
  // until one is free. Any other failure, or a card whose every number is taken, ends it.
  for (int tries = 0;; ++tries) {
    if (InsertRecord(db->File, kRecordLength, record) != 0) break;
    if (GetErrorCode(db->File) != kStatusDuplicateKey || tries + 1 >= kMaxLogNumber) return 0;
    record->LogNumber = NextLogNumber(record->LogNumber);
  }
  Notify(db, kEventAddedNotice, record);
  return 1;
}

uint8_t fUpdateEventRecord(EVENT_DB* db) {
  if (db == nullptr) return 0;
  if (db->Recurring == 0) return fDoEventUpdate(db);
  return db->Rebuild != 0 ? fBuildRecurringEvents(db) : fUpdateRecurringEvents(db);
}

uint8_t fDoEventUpdate(EVENT_DB* db) {
  if (!Usable(db)) return 0;
  EVENT_LOG_RECORD old;
  if (!ReadForChange(db->File, *db->Record, &old)) return 0;
  if (UpdateFile(db->File, kRecordLength, db->Record, kKeyCard) == 0) {
    UnlockOneRecord(db->File);
    return 0;
  }
  // Listeners get the record as it was and read what they need of the new one.
  Notify(db, kEventUpdatedNotice, &old);
  return 1;
}

uint8_t fDeleteEventRecord(EVENT_DB* db) {
  if (!Usable(db)) return 0;
  BtrvFile* file = db->File;
  EVENT_LOG_RECORD* record = db->Record;
  if (GetFileEqual(file, kLockBiasSingleNoWait, kRecordLength, record, kKeyCard) == 0) return 0;
  uint8_t result = DeleteRecord(file, kRecordLength, record);
  if (result == 0) {
    UnlockOneRecord(file);
    return 0;
  }
  Notify(db, kEventDeletedNotice, record);
  if (db->Recurring == 0) return result;

  // The later occurrences of the series follow in log-number order; the walk ends at the
  // first event of a later series, so only those after the deleted one go.
  const int32_t card = record->CardRecordNumber;
  const int16_t card_type = record->CardType;
  const uint16_t series = record->SeriesNumber;
  for (;;) {
    if (!ReadNextForChange(file, record)) {
      if (!WalkEndedCleanly(file)) result = 0;
      break;
    }
    if (!SameCard(*record, card, card_type) || record->SeriesNumber > series) break;
    if (record->SeriesNumber < series) continue;
    result = DeleteRecord(file, kRecordLength, record);
    if (result == 0) break;
    Notify(db, kEventDeletedNotice, record);
  }
  UnlockOneRecord(file);
  return result;
}

uint8_t fBuildRecurringEvents(EVENT_DB* db) {
  if (!Usable(db)) return 0;
  EVENT_LOG_RECORD* record = db->Record;
  // Only the edited record is replaced; other occurrences of its old series stay.
  const EVENT_LOG_RECORD saved = *record;
  db->Recurring = 0;
  fDeleteEventRecord(db);
  *record = saved;

  record->LogNumber = 0;
  record->SeriesNumber = wGetEventSeriesNum(db);
  record->Frequency = db->Frequency;
  for (int count = 0;;) {
    if (fAddEventRecord(db) == 0) return 0;
    if (++count >= db->Count) return 1;  // at least one record, also for a count of 0
    record->LogNumber = NextLogNumber(record->LogNumber);
    vGetNextRecurDate(db->Frequency, record->Date);
  }
}

uint8_t fUpdateRecurringEvents(EVENT_DB* db) {
  if (!Usable(db)) return 0;
  BtrvFile* file = db->File;
  EVENT_LOG_RECORD* record = db->Record;
  EVENT_LOG_RECORD occurrence;
  if (!ReadForChange(file, *record, &occurrence)) return 0;
  const bool date_changed = CompareDates(occurrence.Date, record->Date) != 0;
  if (UpdateFile(file, kRecordLength, record, kKeyCard) == 0) {
    UnlockOneRecord(file);
    return 0;
  }
  Notify(db, kEventUpdatedNotice, &occurrence);

  // The edited record is followed by Count occurrences: the ones found are rewritten from
  // it, missing ones are added and any beyond the count are deleted. A rebuild of the same
  // count makes one record fewer; the host counts on the difference.
  const int32_t card = record->CardRecordNumber;
  const int16_t card_type = record->CardType;
  const uint16_t series = record->SeriesNumber;
  int count = 0;
  for (;;) {
    if (!ReadNextForChange(file, &occurrence)) {
      if (!WalkEndedCleanly(file)) {
        UnlockOneRecord(file);
        return 0;
      }
      break;
    }
    if (!SameCard(occurrence, card, card_type)) break;
    if (occurrence.SeriesNumber != series) continue;
    if (count >= db->Count) {
      if (DeleteRecord(file, kRecordLength, &occurrence) == 0) {
        UnlockOneRecord(file);
        return 0;
      }
      Notify(db, kEventDeletedNotice, &occurrence);
      continue;
    }
    if (date_changed) {
      vGetNextRecurDate(db->Frequency, record->Date);
    } else {
      record->Date = occurrence.Date;
    }
    record->LogNumber = occurrence.LogNumber;
    record->Completed = occurrence.Completed;  // belongs to the occurrence, not the series
    if (UpdateFile(file, kRecordLength, record, kKeyCard) == 0) {
      UnlockOneRecord(file);
      return 0;
    }
    Notify(db, kEventUpdatedNotice, &occurrence);
    ++count;
  }
  UnlockOneRecord(file);

  record->LogNumber = 0;
  record->Completed = 0;
  while (count < db->Count) {
    vGetNextRecurDate(db->Frequency, record->Date);
    if (fAddEventRecord(db) == 0) return 0;
    ++count;
    record->LogNumber = NextLogNumber(record->LogNumber);
  }
  return 1;
}

unsigned short wGetEventLogNum(EVENT_DB* db) {
  if (!Usable(db)) return 1;
  // The last record at or below the card's highest number. It may belong to a lower card
  // and its number + 1 may be 20001: the add's retry loop settles both.
  EVENT_LOG_RECORD found;
  std::memset(&found, 0, sizeof found);
  found.CardRecordNumber = db->Record->CardRecordNumber;
  found.CardType = db->Record->CardType;
  found.LogNumber = kMaxLogNumber;
  found.SeriesNumber = 0;
  if (GetFileLE(db->File, kLockBiasNone, kRecordLength, &found, kKeyCard) == 0) return 1;
  return static_cast<unsigned short>(found.LogNumber + 1);
}

unsigned short wGetEventSeriesNum(EVENT_DB* db) {
  if (!Usable(db)) return 1;
  const int32_t card = db->Record->CardRecordNumber;
  const int16_t card_type = db->Record->CardType;
  EVENT_LOG_RECORD found;
  std::memset(&found, 0, sizeof found);
  found.CardRecordNumber = card;
  found.CardType = card_type;
  unsigned highest = 0;
  for (uint8_t ok = GetFileGE(db->File, kLockBiasNone, kRecordLength, &found, kKeyCard);
       ok != 0 && SameCard(found, card, card_type);
       ok = GetFileNext(db->File, kLockBiasNone, kRecordLength, &found, kKeyCard)) {
    if (found.SeriesNumber > highest) highest = found.SeriesNumber;
  }
  return static_cast<unsigned short>(highest + 1);
}

void vGetNextRecurDate(EVENT_RECUR_FREQUENCY frequency, DatesType& date) {
  switch (frequency) {
    case EVENT_RECUR_DAILY:
      IncDate(date, kStepDay);
      break;
    case EVENT_RECUR_WEEKLY:
      IncDate(date, kStepWeek);
      break;
    case EVENT_RECUR_BIWEEKLY:
      for (int i = 0; i < 2; ++i) IncDate(date, kStepWeek);
      break;
    case EVENT_RECUR_FOURWEEKLY:
      for (int i = 0; i < 4; ++i) IncDate(date, kStepWeek);
      break;
    case EVENT_RECUR_15TH_AND_LAST:
      if (date.day != 15) {
        date.day = 15;  // set first, so that the month step never clamps the day
        IncDate(date, kStepMonth);
      } else {
        EndOfMonth(date);
      }
      break;
    case EVENT_RECUR_1ST_AND_15TH:
      if (date.day != 1) {
        date.day = 1;
        IncDate(date, kStepMonth);
      } else {
        date.day = 15;
      }
      break;
    case EVENT_RECUR_PERIOD: {
      // A month at a time until the date lies in another period. Past the calendar's last
      // period every date is in none, and a date in none moves one month only.
      const unsigned short start = WhichGLperiod(date);
      for (int i = 0; i < kMaxMonthsPerPeriodStep; ++i) {
        const DatesType before = date;
        IncDate(date, kStepMonth);
        if (CompareDates(before, date) == 0 || start == kNoPeriod) break;
        if (WhichGLperiod(date) != start) break;
      }
      break;
    }
    case EVENT_RECUR_QUARTERLY:
      for (int i = 0; i < 3; ++i) IncDate(date, kStepMonth);
      break;
    case EVENT_RECUR_HALF_YEARLY:
      for (int i = 0; i < 6; ++i) IncDate(date, kStepMonth);
      break;
    case EVENT_RECUR_YEARLY:
      IncDate(date, kStepYear);
      break;
    case EVENT_RECUR_MONTHLY:
    default:
      IncDate(date, kStepMonth);
      break;
  }
}

void vSendEventMessage(unsigned int message, EVENT_LOG_RECORD* record) {
  if (record == nullptr) return;
  // The listener gets its own copy for the length of the call: windows handle the notice
  // synchronously and may re-read or change the caller's record meanwhile.
  std::unique_ptr<EVENT_LOG_RECORD> copy(new (std::nothrow) EVENT_LOG_RECORD);
  if (copy == nullptr) return;
  std::memcpy(copy.get(), record, sizeof *copy);
  BroadcastMessage(message, 0, copy.get());
}
