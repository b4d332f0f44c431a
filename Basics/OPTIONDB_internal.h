// What the posting code needs of the transaction alarms beyond the public interface.
#ifndef BASICS_OPTIONDB_INTERNAL_H_
#define BASICS_OPTIONDB_INTERNAL_H_

#include "EventLogDcl.h"
#include "JOURNAL.h"

// vOptionDB that tells its caller whether the events were kept: false when a step had to give
// up (a failed write, or an event another user holds); the step's own writes are then undone,
// and the journal hook is not called, so the poster abandons the posting. true also while
// alarms are off and when the event log cannot be opened (nothing to keep in step).
bool OptionDBChecked(JournalRecord* trx, EVENTDB_ACTION action);

#endif  // BASICS_OPTIONDB_INTERNAL_H_
