// Shared pieces of the posting tests: a company fixture with the journal pair open, records
// freed at the end of their scope, balanced invoices and receipts, and whole-file reads of
// the files a posting writes. Single-threaded use.
#ifndef BASICS_TESTS_SUPPORT_POSTING_SUPPORT_H_
#define BASICS_TESTS_SUPPORT_POSTING_SUPPORT_H_

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "Basics.h"
#include "company_test.h"
#include "record_manager_internal.h"

namespace posting_test {

struct RecordDeleter {
  void operator()(JournalRecord* r) const { DeAllocateJournalRecord(&r); }
};
using Record = std::unique_ptr<JournalRecord, RecordDeleter>;
inline Record NewRecord() {
  JournalRecord* r = nullptr;
  AllocateJournalRecord(&r);
  return Record(r);
}

constexpr uint16_t kPeriod = 16;
constexpr int32_t kReceivables = 110;
constexpr int32_t kCash = 100;
constexpr int32_t kSales = 400;

// Event types 4 (invoice entered) and 8 (receipt) sit at these places of the option runs.
constexpr int kEventInvoiceEntered = 2;
constexpr int kEventReceipt = 5;

inline DatesType Day(int day, int month = 3, int year = 2024) {
  DatesType d;
  MakeDate(month, day, year, d);
  return d;
}

// A posted sales invoice of `lines` equal lines (amounts in cents add up exactly) to a
// customer; the post order is left to posting.
inline Record Invoice(int32_t trx, int32_t customer, const char* reference, double total,
                      int lines = 3, DatesType date = Day(5)) {
  Record r = NewRecord();
  r->Key1.JournalType = SJ;
  r->Key1.TrxNumber = trx;
  r->Key1.Period = kPeriod;
  r->Key2 = {'R', customer, date};
  r->Reference = reference;
  r->HdrAccount = kReceivables;
  r->Amount = total;
  r->LedgerFlag = 1;
  r->LineCount = static_cast<int16_t>(lines);
  const double share = Round(total / lines);
  for (int i = 0; i < lines; ++i) {
    JrnlDistLine& line = r->J.Sales.Lines[i];
    line.Account = kSales + i;
    line.Amount = i + 1 < lines ? -share : Round(-(total - share * (lines - 1)));
  }
  return r;
}

// A posted receipt of `amount` from a customer; with a vendor, a receipt from that vendor
// (the second card), which posting gives a shadow in the purchase journal.
inline Record Receipt(int32_t trx, int32_t customer, const char* reference, double amount,
                      int32_t vendor = 0, DatesType date = Day(9)) {
  Record r = NewRecord();
  r->Key1.JournalType = CRJ;
  r->Key1.TrxNumber = trx;
  r->Key1.Period = kPeriod;
  r->Key2 = {'R', customer, date};
  r->Reference = reference;
  r->HdrAccount = kCash;
  r->Amount = amount;
  r->LedgerFlag = 1;
  r->LineCount = 1;
  r->J.Cash.Lines[0].Account = kReceivables;
  r->J.Cash.Lines[0].Amount = -amount;
  r->J.Cash.Lines[0].Description = "settles an invoice";
  if (vendor != 0) {
    r->Key2.Qualifier = 'P';
    r->J.Cash.Area178.SecondCardFlag = 1;
    r->J.Cash.Area178.SecondCard = vendor;
  }
  return r;
}

// Every record of a data file in physical order with its position, read through a handle
// of its own.
using FileImage = std::vector<std::pair<int32_t, std::string>>;
inline FileImage ReadWholeFile(const char* name, uint32_t record_length) {
  FileImage image;
  BtrvFile* f = nullptr;
  if (!RealOpenBFile(&f, name, kOpenModeReadOnly, 0, __FILE__, __LINE__)) {
    ADD_FAILURE() << "cannot open " << name << ": " << GetErrorCode(nullptr);
    return image;
  }
  std::string record(record_length, '\0');
  while (StepDirect(f, record_length, record.data()))
    image.emplace_back(PhysicalPosition(f), record);
  RealCloseFile(&f, __FILE__, __LINE__);
  return image;
}

// The files a posting writes, whole.
struct CompanyImage {
  FileImage headers, rows, events, tags, audit;
  bool operator==(const CompanyImage& o) const {
    return headers == o.headers && rows == o.rows && events == o.events && tags == o.tags &&
           audit == o.audit;
  }
};
inline CompanyImage ReadCompany() {
  return {ReadWholeFile(JrnlHdrFileName, sizeof(JrnlHdrType)),
          ReadWholeFile(JrnlRowFileName, sizeof(JrnlRowType)),
          ReadWholeFile(EventLogFileName, sizeof(EVENT_LOG_RECORD)),
          ReadWholeFile(RecptTagName, sizeof(RecptTagRec)), ReadWholeFile(AuditTrailName, 265)};
}

template <typename T>
std::vector<T> Records(const FileImage& image) {
  std::vector<T> out(image.size());
  for (size_t i = 0; i < image.size(); ++i) std::memcpy(&out[i], image[i].second.data(), sizeof(T));
  return out;
}

// A company with the journal pair open, events off and cash basis clear unless a test says
// otherwise; every handle the posting code opens is closed at the end.
class PostingTest : public CompanyTest {
 protected:
  void SetUp() override {
    CompanyTest::SetUp();
    MyCompany.CashBasis = 0;
    std::memset(&Options, 0, sizeof Options);
    vTurnOffEventsAlarms();
    OpenFiles();
  }
  void CloseLibraryFiles() override {
    CloseAll();
    MyCompany.CashBasis = 0;
    vTurnOffEventsAlarms();
    rm::SetBackendDecorator(nullptr);
  }
  void OpenFiles() { ASSERT_EQ(OpenJournalFile(&files_, kOpenModeNormal), 1); }
  // Closes the pair and every handle the library keeps, so that a forked child or a newly
  // installed backend starts from none.
  void CloseAll() {
    CloseJrnlFile(&files_);
    CloseInternalJrnlFiles();
    vCloseEventFile();
    RealCloseFile(&RecptTagFile, __FILE__, __LINE__);
    CloseInternalAuditTrailFile();
    CloseInternalCustFile();
    CloseInternalVendFile();
    CloseInternalItemFile();
  }
  void EventsOn() {
    Options.EventCreate[kEventInvoiceEntered] = 1;
    Options.EventCreate[kEventReceipt] = 1;
    vTurnOnEventsAlarms();
  }

  // The transaction of a post order as the store reads it (null when none); through the
  // pair, so it also becomes the pair's current transaction.
  Record Load(uint32_t post_order) {
    Record r = NewRecord();
    r->PostOrder = post_order;
    if (!GetFileEqual(files_, kLockBiasNone, r.get(), 5)) return nullptr;
    return r;
  }
  Record LoadKey(const JournalKey1Type& key) {
    Record r = NewRecord();
    r->Key1 = key;
    if (!GetFileEqual(files_, kLockBiasNone, r.get(), 0)) return nullptr;
    return r;
  }

  JrnlDBFilesType files_{};
};

}  // namespace posting_test

#endif  // BASICS_TESTS_SUPPORT_POSTING_SUPPORT_H_
