// Posting: inserting, changing and deleting whole transactions with their numbers, the
// duplicate-invoice check, the shadows of receipts from vendors and payments to customers,
// the paid-in-full date of invoices, the audit entries of deleted transactions, the receipt
// tags and the event actions; and the spreading of a cash-basis payment over the lines of
// the invoice it pays.
//
// Each operation runs in one batch on the journal pair (inside the host's batch when it has
// one open) and keeps its writes only when every one of them succeeded, so that a failure
// leaves the company as it was. Inside the batch this process is the company's only writer:
// numbers handed out there cannot be taken by another user before the batch commits.
// Messages that refuse an operation are shown once the batch has been abandoned, so that no
// other user waits on the company while a message box is up.
#include <algorithm>
#include <cstring>
#include <memory>

#include "General.h"
#include "JOURNAL.h"
#include "LineItemDcl.h"
#include "OPTIONDB.h"
#include "OPTIONDB_internal.h"
#include "OpenDat.h"
#include "OpenDat_internal.h"
#include "RecptTagDcl.h"
#include "journldb.h"
#include "journldb_internal.h"
#include "utility.h"

namespace {

constexpr const char* kUnit = "Basics/JOURNAL";

constexpr int32_t kLastTrxNumber = 0x7FFFFFFE;  // numbers this high start again at 1
constexpr uint32_t kNeverPaid = 0x7FFFFFFF;     // paid-in-full date while a balance remains
constexpr uint8_t kPostedShadow = 2;            // shadow byte of the shadows written here
constexpr unsigned short kEventModeInsert = 3;  // event mode that raises the insert's events
constexpr int kDeleteOperation = 20258;         // the single-user operation of deletions
constexpr int kCashBasisLineLimit = 560;        // lines a receipt can hold

// Messages.
constexpr int kMsgInvoiceNotFound = 2417;
constexpr int kMsgReceiptFull = 2477;
constexpr int kMsgReceiptFullPosting = 2493;
constexpr int kMsgPayCustShadowNotWritten = 2507;
constexpr int kMsgRecVendShadowNotWritten = 2508;
constexpr int kMsgPayCustShadowMissing = 2509;
constexpr int kMsgRecVendShadowMissing = 2510;

// Audit-trail records: 265 bytes, the owning transaction's post order number at 8 (key 2).
constexpr uint32_t kAuditRecordLength = 265;
constexpr size_t kAuditPostOrderOffset = 8;
constexpr int16_t kAuditKeyPostOrder = 2;

// Header keys used to find what a duplicate-key insert collided with.
constexpr int16_t kHdrKeyTrx = 0;
constexpr int16_t kHdrKeyPostOrder = 5;
constexpr int16_t kHdrKeyGuid = 10;
constexpr int16_t kRowKeyAppliedInvoice = 5;

// A repaired insert is tried again at most this often; each repair changes a number, so a
// loop that goes on is one whose numbers keep colliding with themselves.
constexpr int kMaxInsertRepairs = 64;

struct RecordDeleter {
  void operator()(JournalRecord* r) const { DeAllocateJournalRecord(&r); }
};
using RecordPtr = std::unique_ptr<JournalRecord, RecordDeleter>;

RecordPtr NewRecord() {
  JournalRecord* r = nullptr;
  AllocateJournalRecord(&r);
  return RecordPtr(r);
}

bool IsCash(int16_t journal) { return journal == CRJ || journal == CDJ; }
bool IsInvoice(int16_t journal) { return journal == SJ || journal == PJ; }

// A receipt from a vendor or a payment to a customer: it has a shadow.
bool HasShadow(const JournalRecord* record) {
  return IsCash(record->Key1.JournalType) && record->J.Cash.Area178.SecondCardFlag != 0;
}

DatesType DateFromBits(uint32_t bits) {
  DatesType date;
  std::memcpy(&date, &bits, sizeof date);
  return date;
}

// The batch of one posting operation: begun on the header file, then the row file (both
// levels nest in the host's batch when it has one), abandoned unless committed. Abandoning
// goes through the row file, so that the header file keeps the status of a failed header
// write for GetErrorCode.
class PostingBatch {
 public:
  explicit PostingBatch(JrnlDBFilesType files) : files_(files) {
    if (files_.HdrFile == nullptr || files_.RowFile == nullptr) return;
    if (!bBeginBatchUpdate(files_.HdrFile)) return;
    if (!bBeginBatchUpdate(files_.RowFile)) {
      bAbortBatchUpdate(files_.HdrFile);
      return;
    }
    levels_ = 2;
  }
  ~PostingBatch() { Abandon(); }
  PostingBatch(const PostingBatch&) = delete;
  PostingBatch& operator=(const PostingBatch&) = delete;

  bool open() const { return levels_ == 2; }

  // Keeps every write of the operation; 0 when the store could not keep them, which then
  // undid them all.
  int Commit() {
    if (levels_ != 2) return 0;
    levels_ = 0;
    // An end that fails has undone its own level; the outer one then goes too.
    if (!bEndBatchUpdate(files_.RowFile)) {
      bAbortBatchUpdate(files_.RowFile);
      return 0;
    }
    return bEndBatchUpdate(files_.HdrFile) ? 1 : 0;
  }

  void Abandon() {
    while (levels_ > 0) {
      bAbortBatchUpdate(files_.RowFile);
      --levels_;
    }
  }

 private:
  JrnlDBFilesType files_;
  int levels_ = 0;
};

// --- Paid-in-full date ------------------------------------------------------------------------

// The invoice's paid-in-full date: the invoice date, the date of the last payment applied to
// it once nothing is left to pay (a payment row of the old version's post order does not
// count; an old version dated later wins), or never while a balance remains.
void SetPaidInFullDate(JournalRecord* invoice, const JournalRecord* old) {
  JrnlSalesHdr130& area = invoice->J.Sales.Area130;
  area.PaidInFullDate = invoice->Key2.Date;
  DatesType last_payment = invoice->Key2.Date;
  if (BtrvFile* rows = JrnlLookupRowFile()) {
    JrnlRowType row;
    std::memset(&row, 0, sizeof row);
    row.AppliedLink = invoice->PostOrder;
    row.Date = DateFromBits(kNeverPaid);
    if (::GetFileLess(rows, kLockBiasNone, sizeof row, &row, kRowKeyAppliedInvoice) &&
        row.AppliedLink == invoice->PostOrder &&
        (old == nullptr || row.PostOrder != old->PostOrder)) {
      last_payment = row.Date;
    }
  }
  if (old != nullptr && CompareDates(old->Key2.Date, last_payment) > 0) {
    last_payment = old->Key2.Date;
  }
  if (IsZero(invoice->Amount - area.AmountPaid)) {
    if (CompareDates(last_payment, area.PaidInFullDate) > 0) area.PaidInFullDate = last_payment;
  } else {
    area.PaidInFullDate = DateFromBits(kNeverPaid);
  }
}

// --- Shadows ------------------------------------------------------------------------------------

// The shadow's key: the source's key 1 in the purchase journal (receipt from a vendor) or
// the sales journal (payment to a customer), shadow byte 2.
JournalKey1Type ShadowKey(const JournalRecord* source) {
  JournalKey1Type key = source->Key1;
  key.JournalType = source->Key1.JournalType == CRJ ? PJ : SJ;
  key.Shadow = kPostedShadow;
  return key;
}

// Fills the fields a shadow takes from its source, on creation and on every update.
void FillShadowFromSource(JournalRecord* shadow, const JournalRecord* source) {
  const bool receipt = source->Key1.JournalType == CRJ;
  const JrnlDistLine* source_lines = JournalLines(source);
  const JrnlDistLine& first = source_lines[0];
  shadow->Key2.Qualifier = receipt ? 'P' : 'R';
  shadow->Key2.Card = source->J.Cash.Area178.SecondCard;
  shadow->Key2.Date = source->Key2.Date;
  shadow->J.Sales.Area178.SecondDate = source->Key2.Date;
  if (source->Reference.IsEmpty()) {
    shadow->Reference.Clear();
  } else {
    shadow->Reference = source->Reference;
  }
  shadow->Amount = -source->Amount;
  shadow->HdrAccount = first.Account;
  shadow->LineCount = 1;
  JrnlDistLine& line = shadow->J.Sales.Lines[0];
  line.Account = first.Account;
  line.Description = first.Description;
  line.Amount = -first.Amount;
}

// Writes a new shadow of source inside the caller's batch; false when it cannot be written.
bool InsertShadow(JrnlDBFilesType files, const JournalRecord* source) {
  RecordPtr shadow = NewRecord();
  if (shadow == nullptr) return false;
  const bool receipt = source->Key1.JournalType == CRJ;
  shadow->Key1 = ShadowKey(source);
  FillShadowFromSource(shadow.get(), source);
  shadow->J.Sales.Area178.TextA = receipt ? "Receipt" : "Payment";
  shadow->J.Sales.Area178.TextB = receipt ? "Receipt" : "Payment";
  shadow->LedgerFlag = 0;
  // Marks the record and its line as made by posting, not typed by the user.
  shadow->Key8Value = 1;
  shadow->J.Sales.Lines[0].Flag = 1;
  AssignGUID(shadow->Guid);
  shadow->PostOrder = NextPostOrderNumber();
  if (shadow->PostOrder == 0) return false;
  return InsertRecord(files, shadow.get()) != 0;
}

enum class ShadowResult { kDone, kMissing, kFailed };

// Rewrites the existing shadow of source inside the caller's batch.
ShadowResult RewriteShadow(JrnlDBFilesType files, const JournalRecord* source) {
  RecordPtr shadow = NewRecord();
  if (shadow == nullptr) return ShadowResult::kFailed;
  shadow->Key1 = ShadowKey(source);
  if (!GetFileEqual(files, kLockBiasNone, shadow.get(), kHdrKeyTrx)) return ShadowResult::kMissing;
  FillShadowFromSource(shadow.get(), source);
  return UpdateFile(files, shadow.get(), kHdrKeyTrx) ? ShadowResult::kDone : ShadowResult::kFailed;
}

// Deletes the shadow of source inside the caller's batch.
ShadowResult RemoveShadow(JrnlDBFilesType files, const JournalRecord* source) {
  RecordPtr shadow = NewRecord();
  if (shadow == nullptr) return ShadowResult::kFailed;
  shadow->Key1 = ShadowKey(source);
  if (!GetFileEqual(files, kLockBiasNone, shadow.get(), kHdrKeyTrx)) {
    return GetErrorCode(files.HdrFile) == kStatusKeyNotFound ? ShadowResult::kMissing
                                                             : ShadowResult::kFailed;
  }
  return DeleteRecord(files, shadow.get()) ? ShadowResult::kDone : ShadowResult::kFailed;
}

int ShadowNotWrittenMessage(const JournalRecord* source) {
  return source->Key1.JournalType == CRJ ? kMsgRecVendShadowNotWritten
                                         : kMsgPayCustShadowNotWritten;
}
int ShadowMissingMessage(const JournalRecord* source) {
  return source->Key1.JournalType == CRJ ? kMsgRecVendShadowMissing : kMsgPayCustShadowMissing;
}

// The public shadow writers: one batch each, the message once it is abandoned.
int CreateShadow(JrnlDBFilesType files, JournalRecord* source, int16_t journal) {
  if (source == nullptr || source->Key1.JournalType != journal) return 0;
  PostingBatch batch(files);
  if (batch.open() && InsertShadow(files, source) && batch.Commit()) return 1;
  batch.Abandon();
  Message(MB_ICONEXCLAMATION, ShadowNotWrittenMessage(source));
  return 0;
}

int UpdateShadow(JrnlDBFilesType files, JournalRecord* source, int16_t journal) {
  if (source == nullptr || source->Key1.JournalType != journal) return 0;
  PostingBatch batch(files);
  ShadowResult result = batch.open() ? RewriteShadow(files, source) : ShadowResult::kFailed;
  if (result == ShadowResult::kDone && batch.Commit()) return 1;
  if (result == ShadowResult::kDone) result = ShadowResult::kFailed;
  batch.Abandon();
  Message(MB_ICONEXCLAMATION, result == ShadowResult::kMissing ? ShadowMissingMessage(source)
                                                               : ShadowNotWrittenMessage(source));
  return 0;
}

// --- Insert -------------------------------------------------------------------------------------

// Whether the header file holds a header with record's value of key. Reads through the
// caller's header file: an insert needs no position of it.
bool HeaderKeyTaken(BtrvFile* hdr_file, const JournalRecord* record, int16_t key) {
  JrnlHdrType hdr;
  SetupJrnlHdr(&hdr, record, key);
  return ::GetFileEqual(hdr_file, kLockBiasNone, sizeof hdr, &hdr, key) != 0;
}

// After an insert refused with a duplicate key: a new GUID, transaction number or post order
// number for each value that is taken. false when nothing could be changed.
bool RepairCollisions(BtrvFile* hdr_file, JournalRecord* record, bool keep_numbers) {
  bool repaired = false;
  if (HeaderKeyTaken(hdr_file, record, kHdrKeyGuid)) {
    AssignGUID(record->Guid);
    repaired = true;
  }
  if (HeaderKeyTaken(hdr_file, record, kHdrKeyTrx)) {
    const int32_t next = record->Key1.TrxNumber >= kLastTrxNumber ? 1 : NextTrxNumber(record->Key1);
    if (next != record->Key1.TrxNumber) {
      record->Key1.TrxNumber = next;
      repaired = true;
    }
  }
  if (!keep_numbers && HeaderKeyTaken(hdr_file, record, kHdrKeyPostOrder)) {
    const uint32_t next = NextPostOrderNumber();
    if (next != 0 && next != record->PostOrder) {
      record->PostOrder = next;
      repaired = true;
    }
  }
  return repaired;
}

enum class Outcome { kDone, kFailed, kDuplicate, kShadowNotWritten };

// The writes of an insert, inside the caller's batch.
Outcome InsertInBatch(JrnlDBFilesType files, JournalRecord* record, bool keep_numbers,
                      unsigned short event_mode) {
  if (IsNullGUID(record->Guid)) AssignGUID(record->Guid);
  if (!keep_numbers && record->PostOrder == 0) {
    record->PostOrder = NextPostOrderNumber();
    if (record->PostOrder == 0) return Outcome::kFailed;
  }
  if (IsInvoice(record->Key1.JournalType)) SetPaidInFullDate(record, nullptr);
  char refusal[200];
  if (CheckForDuplicateInvoice(record, 1, refusal, sizeof refusal)) return Outcome::kDuplicate;
  for (int tries = 0; !InsertRecord(files, record); ++tries) {
    if (GetErrorCode(files.HdrFile) != kStatusDuplicateKey || tries == kMaxInsertRepairs ||
        !RepairCollisions(files.HdrFile, record, keep_numbers)) {
      return Outcome::kFailed;
    }
  }
  // The shadow before the events, so that the host hears of no insert that is then undone.
  if (!keep_numbers && HasShadow(record) && !InsertShadow(files, record)) {
    return Outcome::kShadowNotWritten;
  }
  if (event_mode == kEventModeInsert && !OptionDBChecked(record, EVENTDB_ADD)) {
    return Outcome::kFailed;
  }
  return Outcome::kDone;
}

// --- Delete -------------------------------------------------------------------------------------

// Detaches the audit entries of a deleted transaction: each is taken out and put back with
// post order 0, so the entries outlive it. A company without an audit trail has none.
bool DetachAuditEntries(uint32_t post_order) {
  if (post_order == 0) return true;  // entries already detached carry 0
  BtrvFile* audit = nullptr;
  if (!OpenAuditTrailFile(&audit, kOpenModeNormal)) {
    return GetErrorCode(nullptr) == kStatusFileNotFound;
  }
  uint8_t entry[kAuditRecordLength];
  bool ok = true;
  for (;;) {
    std::memset(entry, 0, sizeof entry);
    std::memcpy(entry + kAuditPostOrderOffset, &post_order, sizeof post_order);
    if (!::GetFileEqual(audit, kLockBiasNone, sizeof entry, entry, kAuditKeyPostOrder)) {
      ok = GetErrorCode(audit) == kStatusKeyNotFound;
      break;
    }
    if (!::DeleteRecord(audit, sizeof entry, entry)) {
      ok = false;
      break;
    }
    std::memset(entry + kAuditPostOrderOffset, 0, sizeof post_order);
    if (!::InsertRecord(audit, sizeof entry, entry)) {
      ok = false;
      break;
    }
  }
  CloseIfOpen(&audit, kUnit, __LINE__);
  return ok;
}

}  // namespace

// --- Public operations ------------------------------------------------------------------------

unsigned char InsertJournal(JrnlDBFilesType files, JournalRecord* record) {
  return OptimizedInsertJournal(files, record, 0, kEventModeInsert);
}

unsigned char OptimizedInsertJournal(JrnlDBFilesType files, JournalRecord* record,
                                     unsigned char keep_numbers, unsigned short event_mode) {
  if (record == nullptr) return 0;
  // Shadows are written by posting itself, never handed in by the host.
  if (!keep_numbers && record->Key1.Shadow == kPostedShadow) return 0;
  PostingBatch batch(files);
  if (!batch.open()) return 0;
  const Outcome outcome = InsertInBatch(files, record, keep_numbers != 0, event_mode);
  if (outcome == Outcome::kDone) return static_cast<unsigned char>(batch.Commit());
  batch.Abandon();
  if (outcome == Outcome::kDuplicate) {
    CheckForDuplicateInvoice(record, 1, nullptr, 0);  // shows the refusal
  } else if (outcome == Outcome::kShadowNotWritten) {
    Message(MB_ICONEXCLAMATION, ShadowNotWrittenMessage(record));
  }
  return 0;
}

unsigned char UpdateJournal(JrnlDBFilesType files, JournalRecord* record, int16_t key,
                            JournalRecord* old) {
  return OptimizedUpdateJournal(files, record, key, old);
}

unsigned char NewUpdateJournal(JrnlDBFilesType files, JournalRecord* record, int16_t key,
                               JournalRecord* old) {
  return OptimizedUpdateJournal(files, record, key, old);
}

unsigned char OptimizedUpdateJournal(JrnlDBFilesType files, JournalRecord* record, int16_t key,
                                     JournalRecord* old) {
  if (record == nullptr) return 0;
  PostingBatch batch(files);
  if (!batch.open()) return 0;
  if (IsInvoice(record->Key1.JournalType)) SetPaidInFullDate(record, old);
  char refusal[200];
  if (CheckForDuplicateInvoice(record, 0, refusal, sizeof refusal)) {
    batch.Abandon();
    CheckForDuplicateInvoice(record, 0, nullptr, 0);  // shows the refusal
    return 0;
  }
  if (!UpdateFile(files, record, key)) return 0;
  // The events last, so that the host hears of no change that is then undone.
  if (!UpdateSaleReceiptTag(RecptTagFile, record)) return 0;
  if (!OptionDBChecked(record, EVENTDB_UPDATE)) return 0;
  return static_cast<unsigned char>(batch.Commit());
}

unsigned char DeleteJournal(JrnlDBFilesType files, JournalRecord* record, int no_shadow) {
  return OptimizedDeleteJournal(files, record, no_shadow);
}

unsigned char OptimizedDeleteJournal(JrnlDBFilesType files, JournalRecord* record, int no_shadow) {
  if (record == nullptr) return 0;
  CZORSingleUserAccess access(0);
  if (!access.Start(kDeleteOperation, 0, kUnit)) return 0;
  ShadowResult shadow = ShadowResult::kDone;
  {
    PostingBatch batch(files);
    if (!batch.open() || !DeleteRecord(files, record) || !DetachAuditEntries(record->PostOrder)) {
      return 0;
    }
    if (no_shadow == 0 && HasShadow(record)) {
      shadow = RemoveShadow(files, record);
      if (shadow == ShadowResult::kFailed) return 0;
    }
    if (!OptionDBChecked(record, EVENTDB_DELETE) || !batch.Commit()) return 0;
  }
  if (shadow == ShadowResult::kMissing) Message(MB_ICONEXCLAMATION, ShadowMissingMessage(record));
  return 1;
}

int CreateShadowForRecVend(JrnlDBFilesType files, JournalRecord* source) {
  return CreateShadow(files, source, CRJ);
}

int CreateShadowForPayCust(JrnlDBFilesType files, JournalRecord* source) {
  return CreateShadow(files, source, CDJ);
}

int UpdateShadowForRecVend(JrnlDBFilesType files, JournalRecord* source) {
  return UpdateShadow(files, source, CRJ);
}

int UpdateShadowForPayCust(JrnlDBFilesType files, JournalRecord* source) {
  return UpdateShadow(files, source, CDJ);
}

// --- Cash basis
// -----------------------------------------------------------------------------------

int DoCashBasisStuff(JournalRecord* receipt, int16_t journal, JrnlDBFilesType files,
                     BtrvFile* tag_file, unsigned short* line, unsigned char from_posting,
                     JournalRecord* old_invoice) {
  if (receipt == nullptr || line == nullptr) return 0;
  JrnlDistLine* lines = JournalLines(receipt);
  const int capacity =
      std::min(JournalLineCapacity(receipt->Key1.JournalType), kCashBasisLineLimit);
  if (lines == nullptr || *line < 1 || *line > capacity) return 0;
  const JrnlDistLine& applied = lines[*line - 1];
  const double payment = applied.Amount;
  FixedString<161> description = applied.Description;
  FixedString<21> reference;
  reference.Set(applied.InvoiceRef, 20);

  // The tags' writes commit together; a failed one leaves the tags as they were.
  const bool batched = tag_file != nullptr;
  if (batched && !bBeginBatchUpdate(tag_file)) return 0;
  auto finish = [&](bool keep) {
    if (!batched) return keep;
    if (keep) return bEndBatchUpdate(tag_file) == 1;
    bAbortBatchUpdate(tag_file);
    return false;
  };
  if (*line == 1 && old_invoice != nullptr && !DeleteTagsForReceiptByKey(tag_file, receipt->Key1)) {
    finish(false);
    return 0;
  }

  RecordPtr invoice = NewRecord();
  if (invoice == nullptr) {
    finish(false);
    return 0;
  }
  if (old_invoice != nullptr && CompareStr(old_invoice->Reference, reference, 20) == 0) {
    std::memcpy(invoice.get(), old_invoice, sizeof *old_invoice);
  } else if (!FindInvoice(files, journal, receipt, 20, reference.s, invoice.get())) {
    if (!finish(true)) return 0;
    Message(MB_ICONEXCLAMATION, kMsgInvoiceNotFound);
    return 1;
  }

  const JrnlDistLine* invoice_lines = JournalLines(invoice.get());
  const int count = invoice_lines == nullptr ? 0 : invoice->LineCount;
  const bool zero_total = IsZero(invoice->Amount);
  // The share of the invoice this payment settles.
  const double factor = zero_total ? 0.0 : -payment / invoice->Amount;
  const int start = zero_total ? count : 1;
  const unsigned short start_line = *line;
  double running = 0.0;    // the invoice's line amounts so far
  double given_out = 0.0;  // the receipt's line amounts so far
  for (int i = std::max(start, 1); i <= count; ++i) {
    const JrnlDistLine& source = invoice_lines[i - 1];
    JrnlDistLine& target = lines[*line - 1];
    const double second_amount = target.SecondAmount;
    std::memset(&target, 0, sizeof target);
    target.InvoiceRef = reference;
    target.Description = description;
    if (i == start) target.SecondAmount = second_amount;
    target.Account = invoice->SecondFlag != 0 ? invoice->HdrAccount : source.Account;
    target.Counter[0].Account = source.Counter[0].Account;
    target.Counter[1].Account = source.Counter[1].Account;
    if (invoice->Key1.JournalType == SJ && source.Item != 0 && source.Counter[0].Account == 0) {
      // An item sold before its cost accounts were known: the item's accounts.
      LineItemRecord item;
      if (GetLineItemInfo(source.Item, &item)) {
        target.Counter[0].Account = item.FirstAccount;
        target.Counter[1].Account = item.SecondAccount;
      }
    }
    if (!IsZero(source.Counter[0].Amount)) {
      target.Counter[0].Amount = factor * source.Counter[0].Amount;
      target.Counter[1].Amount = factor * source.Counter[1].Amount;
    }
    if (!zero_total) {
      // Each line takes its rounded share of the running sum less what was given out, so
      // the lines add up to the rounded whole and no remainder is lost.
      running += source.Amount;
      target.Amount = Round(running * factor - given_out);
      given_out += target.Amount;
    }
    // A copy: the packed field cannot bind to std::max's reference.
    const int16_t line_count = receipt->LineCount;
    receipt->LineCount = std::max<int16_t>(line_count, static_cast<int16_t>(*line));
    if (i == count) break;
    if (*line >= capacity) {
      finish(false);
      Message(MB_ICONEXCLAMATION, from_posting ? kMsgReceiptFullPosting : kMsgReceiptFull);
      return 0;
    }
    ++*line;
  }
  const uint8_t receipt_posted = from_posting != 0 && receipt->LedgerFlag != 0 ? 1 : 0;
  if (!AddTagForSaleReceipt(tag_file, invoice->Key1, invoice->PostOrder, receipt->Key1,
                            static_cast<uint16_t>(start_line - 1), factor, receipt->Key2.Date,
                            invoice->LedgerFlag, receipt_posted, receipt->PostOrder, 1, 0)) {
    finish(false);
    return 0;
  }
  return finish(true) ? 1 : 0;
}
