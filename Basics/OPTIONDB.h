// Transaction alarms: keeps each transaction's events in the event log in step with it. A
// saved transaction raises the events its journal and the company's option switches call for
// (entered, due, paid, ordered, ...), a change moves or completes them, a deletion removes
// them; collection reminders; the moves of a fiscal-year close; the shared event-log handle
// and the host's hooks. Shows no messages; a failed open of the event log leaves every step
// finding nothing. Single-threaded: the host serialises its calls.
#ifndef BASICS_OPTIONDB_H_
#define BASICS_OPTIONDB_H_

#include <cstdint>

#include "EventLogDcl.h"
#include "JOURNAL.h"
#include "record_manager.h"
#include "zor_types.h"

// Host hooks: told of every journal action (after the events were handled), and asked to
// write a maintenance audit entry (by the item code). The host sets them; the journal hook
// must be set before transactions are posted with alarms on.
extern void (*pfnCall_Extern_vJrnlAlarms)(JournalRecord*, EVENTDB_ACTION);
// Handles kept for the host's alert and alarm-agent files; never used here.
extern BtrvFile* bfAlertFile;
extern BtrvFile* bfAlarmAgent;

// The event actions of a journal action: 1 after an insert (the transaction's events are
// made), 2 after an update (refreshed, or removed when the transaction is no longer
// posted), 3 after a delete (removed); then the journal hook (skipped while unset). Nothing
// at all while alarms are off. Each step writes in its own batch, inside the caller's when
// one is open, and is undone whole when a write fails; notices go out at the end of the step
// for what it kept. trx stays the caller's.
void vOptionDB(JournalRecord* trx, EVENTDB_ACTION action);
void vTurnOnEventsAlarms();
void vTurnOffEventsAlarms();

// The shared event-log handle: opened (or, when open, its locks released); handed out
// (opened when needed; null when it cannot be opened); handed out as it is, answering true
// when it is NOT open; closed.
void vOpenEventFile();
void vGetEventFile(BtrvFile** file);
uint8_t fGetEventFileIfOpen(BtrvFile** file);
void vCloseEventFile();

// A completed collection reminder for the customer on date, unless one of that date exists
// for the customer or reminders are switched off.
void CrtCollectionEvent(DatesType date, const FixedString<21>& customer_id);
// Fiscal-year close: removes the events of key; moves the events of old_key in old_file to
// new_key in new_file.
void vCFYRDeleteEvent(JournalKey1Type key);
void vCFYRUpdateEvent(BtrvFile* old_file, JournalKey1Type old_key, BtrvFile* new_file,
                      JournalKey1Type new_key);

#endif  // BASICS_OPTIONDB_H_
