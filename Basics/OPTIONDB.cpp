// Transaction alarms: the events each saved transaction raises, kept in step with it when it
// changes and removed with it; collection reminders; the moves of a fiscal-year close; the
// shared event-log handle, the notice queue and the host's journal hook.
//
// Each step (add, refresh, removal) writes inside its own batch, nested in the poster's when
// one is open, so that the events commit or roll back with the posting. Its notices wait in
// the queue and go out once the step's batch has been kept; a step abandoned after a failed
// write drops the notices it queued.
#include "OPTIONDB.h"
#include "OPTIONDB_internal.h"

#include <cstring>
#include <memory>
#include <new>

#include "CustDcl.h"
#include "General.h"
#include "OpenDat_internal.h"
#include "utility.h"

void (*pfnCall_Extern_vJrnlAlarms)(JournalRecord*, EVENTDB_ACTION) = nullptr;

namespace {
constexpr const char* kUnit = "Basics/OPTIONDB";
constexpr uint32_t kRecordLength = sizeof(EVENT_LOG_RECORD);
constexpr int16_t kKeyDateType = 1;      // event date, event type
constexpr int16_t kKeyJournal = 3;       // the raising transaction's journal key
constexpr unsigned kEventTitle = 10106;  // string resource of every event's title
constexpr int kEventTypes = 14;          // event types 0 to 13

// Event types raised here.
enum : int16_t {
  kEventSaleEntered = 1,  // sales with the second-event flag: entry, then the second date
  kEventSaleSecond = 2,
  kEventSalesOrder = 3,
  kEventInvoiceEntered = 4,  // invoices: entry, then due
  kEventInvoiceDue = 5,
  kEventSaleSubtype2 = 6,
  kEventCollection = 7,
  kEventReceipt = 8,
  kEventOrderEntered = 9,  // purchase orders: entry, then the fourth date
  kEventOrderDue = 10,
  kEventPurchaseDue = 11,
  kEventDisbursement = 12,
  kEventPayroll = 13,
};

// Card types of the events.
constexpr int16_t kCardCustomer = 1;
constexpr int16_t kCardEmployee = 2;
constexpr int16_t kCardVendor = 3;

BtrvFile* g_event_file = nullptr;  // the shared handle
uint8_t g_alarms_off = 0;
// When set, adds made here would queue notice 1181. Nothing in the library sets it: the
// event log is told of the adds silently and the host learns of them through its hook.
uint8_t g_add_notice = 0;

// --- The notice queue ----------------------------------------------------------------------
// Pending notices in the order they were queued. A notice that cannot be allocated is
// dropped: a step never fails for want of telling the windows.
class NoticeQueue {
 public:
  void Push(unsigned message, const EVENT_LOG_RECORD& record) {
    std::unique_ptr<Node> node(new (std::nothrow) Node);
    if (node == nullptr) return;
    node->message = message;
    node->record = record;
    Node* raw = node.get();
    if (tail_ == nullptr) {
      head_ = std::move(node);
    } else {
      tail_->next = std::move(node);
    }
    tail_ = raw;
    ++size_;
  }
  size_t size() const { return size_; }
  // Drops the notices queued after the first `keep`.
  void Truncate(size_t keep) {
    if (keep >= size_) return;
    std::unique_ptr<Node>* link = &head_;
    Node* last = nullptr;
    for (size_t i = 0; i < keep; ++i) {
      last = link->get();
      link = &(*link)->next;
    }
    FreeChain(std::move(*link));
    tail_ = last;
    size_ = keep;
  }
  // Sends every notice in order and empties the queue.
  void Flush() {
    std::unique_ptr<Node> node = std::move(head_);
    tail_ = nullptr;
    size_ = 0;
    while (node != nullptr) {
      vSendEventMessage(node->message, &node->record);
      node = std::move(node->next);
    }
  }
  ~NoticeQueue() { FreeChain(std::move(head_)); }

 private:
  struct Node {
    uint32_t message;
    EVENT_LOG_RECORD record;
    std::unique_ptr<Node> next;
  };
  // Frees a chain one node at a time (no recursion however long it is).
  static void FreeChain(std::unique_ptr<Node> node) {
    while (node != nullptr) node = std::move(node->next);
  }

  std::unique_ptr<Node> head_;
  Node* tail_ = nullptr;
  size_t size_ = 0;
};

NoticeQueue g_notices;

// The batch of one step on the event log: nested in the caller's batch when one is open.
// Abandoned unless kept, together with the notices queued since it began.
class StepBatch {
 public:
  explicit StepBatch(BtrvFile* file)
      : file_(file),
        open_(file != nullptr && bBeginBatchUpdate(file) == 1),
        notices_before_(g_notices.size()) {}
  ~StepBatch() {
    if (open_) Abandon();
  }
  StepBatch(const StepBatch&) = delete;
  StepBatch& operator=(const StepBatch&) = delete;

  bool open() const { return open_; }
  // Keeps the step's writes; an end that fails undoes them and drops their notices.
  bool Keep() {
    open_ = false;
    if (bEndBatchUpdate(file_) == 1) return true;
    g_notices.Truncate(notices_before_);
    return false;
  }
  void Abandon() {
    open_ = false;
    bAbortBatchUpdate(file_);
    g_notices.Truncate(notices_before_);
  }

 private:
  BtrvFile* file_;
  bool open_;
  size_t notices_before_;
};

// The end of a step: the handle's lock released, the step's writes kept or abandoned, and
// the notices of what was kept sent.
bool EndStep(StepBatch& batch, bool ok) {
  UnlockOneRecord(g_event_file);
  if (ok) {
    ok = batch.Keep();
  } else {
    batch.Abandon();
  }
  g_notices.Flush();
  return ok;
}

bool OpenEventLog(BtrvFile** file) {
  return BASICS_OPEN_OWNER(file, EventLogFileName, kOpenModeNormal, 0, csTheOwner.c_str(), kUnit) !=
         0;
}

// The shared handle for a step, with any lock an earlier step left released; null when the
// event log cannot be opened.
BtrvFile* StepFile() {
  vOpenEventFile();
  return g_event_file;
}

// --- What the company's options say --------------------------------------------------------
struct EventSwitches {
  bool alarm;
  bool kind;
  bool create;
  uint16_t lead;
};

EventSwitches SwitchesOf(int16_t type) {
  if (type == kEventSalesOrder || type == kEventSaleSubtype2) {
    const OptionEventSwitches& e = type == kEventSalesOrder ? Options.Event3 : Options.Event6;
    return {e.Alarm != 0, e.AlarmKind != 0, e.Create != 0, e.Lead};
  }
  // The runs of the options hold event types 1, 2, 4, 5, 7, 8, 9, 10, 11, 12 and 13.
  static constexpr int16_t kRunOrder[kOptionEventCount] = {1, 2, 4, 5, 7, 8, 9, 10, 11, 12, 13};
  for (int i = 0; i < kOptionEventCount; ++i) {
    if (kRunOrder[i] != type) continue;
    const uint16_t lead = Options.EventLead[i];
    return {Options.EventAlarm[i] != 0, Options.EventAlarmKind[i] != 0, Options.EventCreate[i] != 0,
            lead};
  }
  return {false, false, false, 0};
}

bool Creates(int16_t type) { return SwitchesOf(type).create; }

// --- The transaction's fields ----------------------------------------------------------------
bool IsOrder(const JournalRecord* trx) {
  return trx->Key1.JournalType == POJ || trx->Key1.JournalType == SOJ;
}
// Dates and flags of sales, purchases and orders (the same layout in both members).
const JrnlSalesHdr130& Area130(const JournalRecord* trx) {
  return IsOrder(trx) ? trx->J.Order.Area130 : trx->J.Sales.Area130;
}
DatesType SecondDate(const JournalRecord* trx) {
  return IsOrder(trx) ? trx->J.Order.Area178.SecondDate : trx->J.Sales.Area178.SecondDate;
}
DatesType TrxDate(const JournalRecord* trx) { return trx->Key2.Date; }
bool IsZeroDate(const DatesType& d) { return d.day == 0 && d.month == 0 && d.year == 0; }
bool SameDate(const DatesType& a, const DatesType& b) { return std::memcmp(&a, &b, sizeof a) == 0; }
bool SameKey(const JournalKey1Type& a, const JournalKey1Type& b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

// The journal key the events of trx are filed under. A sale of subtype 0 with the
// second-event flag keeps its events under journal 12, apart from the invoices' events.
JournalKey1Type EventKey(const JournalRecord* trx) {
  JournalKey1Type key = trx->Key1;
  if (key.JournalType == SJ) {
    const JrnlSalesHdr130& a = Area130(trx);
    if (a.Subtype == 0 && a.SecondEvent != 0) key.JournalType = SJ2;
  }
  return key;
}

// The balance is settled, or has crossed to the other side.
bool PaidInFull(double amount, double paid) {
  const double balance = amount - paid;
  return IsZero(balance) || (amount > 0 && balance < 0) || (amount < 0 && balance > 0);
}

// --- Building events -----------------------------------------------------------------------
void FillEvent(EVENT_LOG_RECORD* event, int32_t card, int16_t card_type, int16_t type,
               DatesType date, const JournalKey1Type& key) {
  std::memset(event, 0, sizeof *event);
  event->CardRecordNumber = card;
  event->CardType = card_type;
  event->Date = date;
  LoadStringA(nullptr, kEventTitle, event->Title.s, static_cast<int>(sizeof event->Title.s));
  event->EventType = type;
  event->JournalKey = key;
  const EventSwitches s = SwitchesOf(type);
  if (s.alarm) {
    event->AlarmSet = 1;
    event->AlarmLead = s.lead;
    event->AlarmKind = s.kind ? 2 : 1;
  }
}

void Complete(EVENT_LOG_RECORD* event, DatesType on) {
  event->Completed = 1;
  event->CompletedDate = on;
}

// The events trx raises, at most two (the entry event first); answers how many.
int BuildEvents(const JournalRecord* trx, EVENT_LOG_RECORD out[2]) {
  const int32_t card = trx->Key2.Card;
  if (card == 0) return 0;
  const JournalKey1Type key = EventKey(trx);
  const DatesType date = TrxDate(trx);
  int n = 0;
  // An event completed on its own date when made (the entry events).
  auto entered = [&](int16_t type, int16_t card_type) {
    if (!Creates(type)) return;
    FillEvent(&out[n], card, card_type, type, date, key);
    Complete(&out[n], date);
    ++n;
  };
  auto open_on = [&](int16_t type, int16_t card_type, DatesType on) {
    if (!Creates(type)) return false;
    FillEvent(&out[n], card, card_type, type, on, key);
    ++n;
    return true;
  };
  // A due event, completed when the balance is settled: on the payment date, else on the
  // transaction's date.
  auto due = [&](int16_t type, int16_t card_type) {
    const JrnlSalesHdr130& a = Area130(trx);
    if (!open_on(type, card_type, a.DueDate)) return;
    if (PaidInFull(trx->Amount, a.AmountPaid)) {
      Complete(&out[n - 1], IsLegalDate(a.PaymentDate) ? a.PaymentDate : date);
    }
  };

  switch (trx->Key1.JournalType) {
    case CRJ:
      entered(kEventReceipt, kCardCustomer);
      break;
    case CDJ:
      entered(kEventDisbursement, kCardVendor);
      break;
    case SJ: {
      const JrnlSalesHdr130& a = Area130(trx);
      if (a.Subtype == 0 && a.SecondEvent != 0) {
        entered(kEventSaleEntered, kCardCustomer);
        open_on(kEventSaleSecond, kCardCustomer, SecondDate(trx));
      } else if (a.Subtype == 0) {
        if (a.NoEvent != 0) break;
        entered(kEventInvoiceEntered, kCardCustomer);
        due(kEventInvoiceDue, kCardCustomer);
      } else if (a.Subtype == 2) {
        entered(kEventSaleSubtype2, kCardCustomer);
      }
      break;
    }
    case PJ:
      if (Area130(trx).NoEvent == 0) due(kEventPurchaseDue, kCardVendor);
      break;
    case PRJ:
      if (trx->LedgerFlag != 0) entered(kEventPayroll, kCardEmployee);
      break;
    case POJ:
      entered(kEventOrderEntered, kCardVendor);
      open_on(kEventOrderDue, kCardVendor, Area130(trx).FourthDate);
      break;
    case SOJ: {
      const JrnlSalesHdr130& a = Area130(trx);
      if (trx->LedgerFlag == 0 || IsZeroDate(a.ThirdDate)) break;
      if (open_on(kEventSalesOrder, kCardCustomer, a.ThirdDate) && a.Done != 0) {
        Complete(&out[n - 1], a.ThirdDate);
      }
      break;
    }
    default:
      break;
  }
  return n;
}

// --- The steps -----------------------------------------------------------------------------
// Each step answers false when it had to give up on a write or a read for change; an event
// log that cannot be opened leaves nothing to do and is no failure.
bool AddStep(JournalRecord* trx) {
  EVENT_LOG_RECORD events[2];
  const int n = BuildEvents(trx, events);
  if (n == 0) return true;
  BtrvFile* file = StepFile();
  if (file == nullptr) return true;
  StepBatch batch(file);
  if (!batch.open()) return false;
  bool ok = true;
  for (int i = 0; i < n && ok; ++i) {
    EVENT_DB db = {file, &events[i], EVENTDB_ADD, 0, 0, EVENT_RECUR_MONTHLY, 0, 1};
    ok = fHandleEventDB(&db) != 0;
    if (ok && g_add_notice != 0) g_notices.Push(kEventAddedNotice, events[i]);
  }
  return EndStep(batch, ok);
}

// Deletes the transaction's events of type (all of them for type 0, else the first one).
bool RemovalStep(JournalRecord* trx, int16_t type) {
  BtrvFile* file = StepFile();
  if (file == nullptr) return true;
  StepBatch batch(file);
  if (!batch.open()) return false;
  const JournalKey1Type key = EventKey(trx);
  EVENT_LOG_RECORD event;
  auto find_first = [&] {
    std::memset(&event, 0, sizeof event);
    event.JournalKey = key;
    return GetFileEqual(file, kLockBiasSingleNoWait, kRecordLength, &event, kKeyJournal) != 0;
  };
  auto remove = [&] {
    if (DeleteRecord(file, kRecordLength, &event) == 0) return false;
    g_notices.Push(kEventDeletedNotice, event);
    return true;
  };
  bool ok = true;
  if (type == 0) {
    while (ok && find_first()) ok = remove();
  } else {
    for (bool found = find_first(); found && SameKey(event.JournalKey, key);
         found =
             GetFileNext(file, kLockBiasSingleNoWait, kRecordLength, &event, kKeyJournal) != 0) {
      if (event.EventType != type) continue;
      ok = remove();
      break;
    }
  }
  const uint16_t status = GetErrorCode(file);
  if (ok && status != kStatusOk && status != kStatusKeyNotFound && status != kStatusEndOfFile) {
    ok = false;  // a read failed (another user holds an event): nothing is removed
  }
  return EndStep(batch, ok);
}

// Brings one stored event of trx up to date; answers false when the step must end at once.
bool RefreshEvent(const JournalRecord* trx, EVENT_LOG_RECORD* event) {
  const JrnlSalesHdr130& a = Area130(trx);
  switch (event->EventType) {
    case kEventSaleEntered:
    case kEventInvoiceEntered:
    case kEventSaleSubtype2:
    case kEventReceipt:
    case kEventOrderEntered:
    case kEventDisbursement:
    case kEventPayroll:
      if (!SameDate(event->Date, TrxDate(trx))) event->Date = TrxDate(trx);
      break;
    case kEventSaleSecond:
      event->Date = SecondDate(trx);
      break;
    case kEventSalesOrder:
      event->Date = a.ThirdDate;
      event->Completed = a.Done != 0 ? 1 : 0;
      event->CompletedDate = a.Done != 0 ? a.ThirdDate : DatesType{};
      break;
    case kEventOrderDue:
      event->Completed = a.Done == 1 ? 1 : 0;
      event->CompletedDate = a.Done == 1 ? a.FourthDate : DatesType{};
      event->Date = a.FourthDate;
      break;
    case kEventInvoiceDue:
    case kEventPurchaseDue: {
      // A transaction whose due events are suppressed keeps them exactly as they are.
      if (a.NoEvent != 0) return false;
      double amount = trx->Amount;
      double paid = a.AmountPaid;
      if (event->EventType == kEventInvoiceDue) {
        amount = -amount;
        paid = -paid;
      }
      if (!PaidInFull(amount, paid)) {
        event->Completed = 0;
        event->CompletedDate = DatesType{};
      } else if (event->Completed == 0) {
        event->Completed = 1;
        if (IsLegalDate(a.PaymentDate)) {
          event->CompletedDate = a.PaymentDate;
        } else if (IsLegalDate(TrxDate(trx))) {
          event->CompletedDate = TrxDate(trx);
        }
      }
      event->Date = a.DueDate;
      break;
    }
    default:
      break;  // collection reminders and events of other kinds stay as they are
  }
  return true;
}

bool RefreshStep(JournalRecord* trx) {
  switch (trx->Key1.JournalType) {
    case CRJ:
    case CDJ:
    case PJ:
    case PRJ:
    case POJ:
    case SOJ:
      break;
    case SJ:
      if (Area130(trx).Subtype == 0 || Area130(trx).Subtype == 2) break;
      return true;
    default:
      return true;
  }
  BtrvFile* file = StepFile();
  if (file == nullptr) return true;
  bool seen[kEventTypes] = {};
  int found = 0;
  bool ok = true;
  {
    StepBatch batch(file);
    if (!batch.open()) return false;
    const JournalKey1Type key = EventKey(trx);
    EVENT_LOG_RECORD event;
    std::memset(&event, 0, sizeof event);
    event.JournalKey = key;
    for (uint8_t more =
             GetFileEqual(file, kLockBiasSingleNoWait, kRecordLength, &event, kKeyJournal);
         more != 0 && SameKey(event.JournalKey, key);
         more = GetFileNext(file, kLockBiasSingleNoWait, kRecordLength, &event, kKeyJournal)) {
      const EVENT_LOG_RECORD kept = event;
      ++found;
      if (event.EventType >= 0 && event.EventType < kEventTypes) seen[event.EventType] = true;
      if (!RefreshEvent(trx, &event)) {
        // Ends here and now: what was written so far stays, the lock stays until the next
        // step, and the queued notices go out with the next step's.
        return batch.Keep();
      }
      if (std::memcmp(&event, &kept, sizeof event) == 0 || trx->LedgerFlag == 0) continue;
      if (UpdateFile(file, kRecordLength, &event, kKeyJournal) == 0) {
        ok = false;
        break;
      }
      g_notices.Push(kEventUpdatedNotice, kept);
    }
    const uint16_t status = GetErrorCode(file);
    if (ok && status != kStatusOk && status != kStatusKeyNotFound && status != kStatusEndOfFile) {
      ok = false;  // a read failed (another user holds an event): the step changes nothing
    }
    ok = EndStep(batch, ok);
  }
  if (!ok) return false;
  if (trx->LedgerFlag == 0) {
    // A transaction no longer posted loses its events.
    for (int16_t type = 1; type < kEventTypes && ok; ++type) {
      if (seen[type]) ok = RemovalStep(trx, type);
    }
    return ok;
  }
  if (found == 0) return AddStep(trx);  // events switched on since the transaction was saved
  return true;
}
}  // namespace

namespace {
bool RunSteps(JournalRecord* trx, EVENTDB_ACTION action) {
  if (trx == nullptr) return true;
  switch (action) {
    case EVENTDB_ADD:
      return AddStep(trx);
    case EVENTDB_UPDATE:
      return RefreshStep(trx);
    case EVENTDB_DELETE:
      return RemovalStep(trx, 0);
  }
  return true;
}

void CallHook(JournalRecord* trx, EVENTDB_ACTION action) {
  if (pfnCall_Extern_vJrnlAlarms != nullptr) pfnCall_Extern_vJrnlAlarms(trx, action);
}
}  // namespace

void vOptionDB(JournalRecord* trx, EVENTDB_ACTION action) {
  if (g_alarms_off != 0) return;
  RunSteps(trx, action);
  CallHook(trx, action);  // whatever the steps did, and for any action
}

bool OptionDBChecked(JournalRecord* trx, EVENTDB_ACTION action) {
  if (g_alarms_off != 0) return true;
  if (!RunSteps(trx, action)) return false;  // the poster abandons: the host hears nothing
  CallHook(trx, action);
  return true;
}

void vTurnOnEventsAlarms() { g_alarms_off = 0; }
void vTurnOffEventsAlarms() { g_alarms_off = 1; }

void vOpenEventFile() {
  if (g_event_file != nullptr) {
    UnlockOneRecord(g_event_file);
    return;
  }
  if (!OpenEventLog(&g_event_file)) g_event_file = nullptr;
}

void vGetEventFile(BtrvFile** file) {
  if (g_event_file == nullptr) vOpenEventFile();
  if (file != nullptr) *file = g_event_file;
}

uint8_t fGetEventFileIfOpen(BtrvFile** file) {
  if (file != nullptr) *file = g_event_file;
  return g_event_file == nullptr ? 1 : 0;  // true when NOT open, as the callers expect
}

void vCloseEventFile() { CloseIfOpen(&g_event_file, kUnit, __LINE__); }

void CrtCollectionEvent(DatesType date, const FixedString<21>& customer_id) {
  if (!Creates(kEventCollection)) return;
  const int32_t card = GetRecordNumberFromCustomerID(customer_id);
  if (card == 0) return;  // no reminder for a customer that does not exist
  BtrvFile* file = StepFile();
  if (file == nullptr) return;
  // One reminder per customer and date.
  EVENT_LOG_RECORD event;
  std::memset(&event, 0, sizeof event);
  event.Date = date;
  event.EventType = kEventCollection;
  for (uint8_t more = GetFileGE(file, kLockBiasNone, kRecordLength, &event, kKeyDateType);
       more != 0 && SameDate(event.Date, date) && event.EventType == kEventCollection;
       more = GetFileNext(file, kLockBiasNone, kRecordLength, &event, kKeyDateType)) {
    if (event.CardRecordNumber == card && event.CardType == kCardCustomer) return;
  }
  FillEvent(&event, card, kCardCustomer, kEventCollection, date, JournalKey1Type{});
  Complete(&event, date);
  EVENT_DB db = {file, &event, EVENTDB_ADD, 0, 0, EVENT_RECUR_MONTHLY, 0, 0};
  fHandleEventDB(&db);
}

void vCFYRDeleteEvent(JournalKey1Type key) {
  BtrvFile* file = nullptr;
  vGetEventFile(&file);
  StepBatch batch(file);
  if (!batch.open()) return;
  EVENT_LOG_RECORD event;
  for (;;) {
    std::memset(&event, 0, sizeof event);
    event.JournalKey = key;
    if (GetFileEqual(file, kLockBiasNone, kRecordLength, &event, kKeyJournal) == 0) break;
    if (DeleteRecord(file, kRecordLength, &event) == 0) return;  // abandoned: all or none
  }
  if (GetErrorCode(file) == kStatusKeyNotFound) batch.Keep();
}

void vCFYRUpdateEvent(BtrvFile* old_file, JournalKey1Type old_key, BtrvFile* new_file,
                      JournalKey1Type new_key) {
  if (old_file == nullptr || new_file == nullptr) return;
  // Moving events onto the key they have in the same file would find them again forever.
  if (old_file == new_file && SameKey(old_key, new_key)) return;
  EVENT_LOG_RECORD event;
  for (;;) {
    std::memset(&event, 0, sizeof event);
    event.JournalKey = old_key;
    if (GetFileEqual(old_file, kLockBiasNone, kRecordLength, &event, kKeyJournal) == 0) return;
    if (DeleteRecord(old_file, kRecordLength, &event) == 0) return;
    event.JournalKey = new_key;
    InsertRecord(new_file, kRecordLength, &event);  // kept or not, the move goes on
  }
}
