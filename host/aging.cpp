#include "aging.h"

#include <cstdio>
#include <cstring>
#include <map>
#include <string>

#include "Basics.h"
#include "text.h"

namespace host {
namespace {

constexpr int kBuckets = 4;
const char* const kBucketNames[kBuckets] = {"0-30", "31-60", "61-90", "Over 90"};

int Bucket(int32_t days_past_due) {
  if (days_past_due <= 30) return 0;
  if (days_past_due <= 60) return 1;
  if (days_past_due <= 90) return 2;
  return 3;
}

struct CardAging {
  std::string name;
  int invoices = 0;
  double buckets[kBuckets] = {};
  double total = 0;
};

// Ages the open items of the journals into *cards (by card ID); payables as positive
// amounts. Answers false with out failed when the files cannot be read.
bool AgeJournals(JrnlRowHdrClass& navigator, const JrnlDBFilesType& files,
                 std::initializer_list<int16_t> journals, bool payable,
                 std::map<std::string, CardAging>* cards, Outcome& out) {
  constexpr int16_t kJournalCardKey = 9;  // journal type, qualifier, card, date
  const int32_t today = AbsDate(TodaysDate);
  for (int16_t journal : journals) {
    navigator.ClearHeader();
    navigator.Hdr.Key1.JournalType = journal;
    for (int ok = navigator.GetHdrGE(kJournalCardKey, kLockBiasNone);
         ok && navigator.Hdr.Key1.JournalType == journal;
         ok = navigator.GetHdrNext(kJournalCardKey, kLockBiasNone)) {
      const JrnlHdrType& h = navigator.Hdr;
      if (h.Key1.Shadow != 0 || AbsDate(h.Key2.Date) > today) continue;
      JrnlSalesHdr130 area{};
      std::memcpy(&area, h.Specific130, sizeof area);
      if (IsLegalDate(area.PaidInFullDate) && AbsDate(area.PaidInFullDate) <= today) continue;
      // The amount of the invoice is its main row's.
      if (navigator.GetMainRowForHeader() == 0) {
        out.Fail("the main row of invoice " + std::string(h.Reference) + " cannot be read",
                 kNoStatus);
        return false;
      }
      double balance = Round(navigator.Row.Amount - area.AmountPaid);
      if (payable) balance = -balance;
      if (IsZero(balance)) continue;
      const DatesType due = IsLegalDate(area.DueDate) ? area.DueDate : h.Key2.Date;
      FixedString<21> id{};
      FixedString<31> name{};
      int32_t card = h.Key2.Card;
      if (payable) {
        GetVendorIDFromRecordNumber(card, id);
        GetVendorNameFromRecordNumber(card, name);
      } else {
        GetCustomerIDFromRecordNumber(card, id);
        int32_t number = 0;
        GetRecordNumberAndNameFromCustomerID(id, number, name);
      }
      const std::string key = id.IsEmpty() ? "#" + std::to_string(card) : id.c_str();
      CardAging& c = (*cards)[key];
      c.name = name.c_str();
      ++c.invoices;
      c.buckets[Bucket(today - AbsDate(due))] += balance;
      c.total += balance;
    }
    // The walk ends at the journal's last invoice, or at the end of the file (a journal
    // without invoices: nothing found).
    const uint16_t status = GetErrorCode(files.HdrFile);
    if (status != 0 && status != kStatusEndOfFile && status != kStatusKeyNotFound) {
      out.Fail("the journal cannot be read", status);
      return false;
    }
  }
  return true;
}

Listing AgingListing(const std::string& title, const char* card_word,
                     const std::map<std::string, CardAging>& cards) {
  Listing l(title, {{card_word},
                    {"Name"},
                    {"Open", true},
                    {kBucketNames[0], true},
                    {kBucketNames[1], true},
                    {kBucketNames[2], true},
                    {kBucketNames[3], true},
                    {"Balance", true}});
  CardAging total;
  for (const auto& [id, c] : cards) {
    l.Add({id, c.name, std::to_string(c.invoices), Money(c.buckets[0]), Money(c.buckets[1]),
           Money(c.buckets[2]), Money(c.buckets[3]), Money(c.total)});
    total.invoices += c.invoices;
    for (int b = 0; b < kBuckets; ++b) total.buckets[b] += c.buckets[b];
    total.total += c.total;
  }
  l.Add({"Total", "", std::to_string(total.invoices), Money(total.buckets[0]),
         Money(total.buckets[1]), Money(total.buckets[2]), Money(total.buckets[3]),
         Money(total.total)});
  return l;
}

}  // namespace

void AgingView(std::vector<Listing>* listings, Outcome& out) {
  JrnlDBFilesType files{};
  if (OpenJournalFile(&files, kOpenModeReadOnly) == 0) {
    out.Fail("the journal files cannot be opened", GetErrorCode(nullptr));
    return;
  }
  std::map<std::string, CardAging> receivables, payables;
  bool ok = false;
  {
    JrnlRowHdrClass navigator(files);
    ok = AgeJournals(navigator, files, {SJ, SJ2}, false, &receivables, out) &&
         AgeJournals(navigator, files, {PJ}, true, &payables, out);
  }
  CloseJrnlFile(&files);
  if (!ok) return;
  const std::string at = " at " + MediumDate(TodaysDate);
  listings->push_back(AgingListing("Receivables aging" + at, "Customer", receivables));
  listings->push_back(AgingListing("Payables aging" + at, "Vendor", payables));
}

}  // namespace host
