// The book's checks, in three walks that each read a file once, so that a book of a
// million transactions is verified in memory proportional to its transactions (about 30
// bytes each), never to its rows:
// 1. the transactions in post order, each loaded whole: post order numbers rising (so
//    unique), balance, and the transaction keys kept for the numbering check;
// 2. the rows in post order, beside the kept headers: rows without a header, headers
//    without a main row or with a gap in their line numbers, and the ledger rows summed
//    into period amounts;
// 3. the chart, compared account by account with those sums.
// Before them, the store's own integrity check.
#include "verify.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "Basics.h"
#include "chart_nets.h"
#include "progress.h"
#include "text.h"

namespace host {
namespace {

// How many problems of one kind are told before the rest are only counted.
constexpr size_t kShownPerKind = 10;

// Problems by kind, in the order the kinds were first met.
class Problems {
 public:
  void Add(const std::string& kind, const std::string& text) {
    auto found =
        std::find_if(kinds_.begin(), kinds_.end(), [&](const Kind& k) { return k.name == kind; });
    if (found == kinds_.end()) found = kinds_.insert(kinds_.end(), Kind{kind, {}, 0});
    if (found->shown.size() < kShownPerKind) found->shown.push_back(text);
    ++found->count;
  }
  void Into(std::vector<std::string>* problems) const {
    for (const Kind& k : kinds_) {
      problems->insert(problems->end(), k.shown.begin(), k.shown.end());
      if (k.count > k.shown.size()) {
        problems->push_back("... and " + std::to_string(k.count - k.shown.size()) + " more " +
                            k.name);
      }
    }
  }

 private:
  struct Kind {
    std::string name;
    std::vector<std::string> shown;
    size_t count;
  };
  std::vector<Kind> kinds_;
};

// What the row walk needs of each transaction.
struct Header {
  uint32_t post_order;
  JournalKey1Type key;
  uint8_t ledger;
  uint8_t rows;  // 1 once a row of it was met
};

std::string TransactionName(const JournalKey1Type& key, uint32_t post_order) {
  FixedString<16> text{};
  MakeKeyString(&key, text);
  // The second sales journal shares the sales journal's code; its own is told apart.
  const std::string journal = key.JournalType == SJ2 ? "SJ2" : GetJrnlName(key.JournalType);
  return journal + text.c_str() + " (post order " + std::to_string(post_order) + ")";
}

// The numbering key of a transaction: its number, period, journal (both sales journals as
// one), shadow byte and partner flag, packed so that equal keys sort together.
uint64_t NumberingKey(const JournalKey1Type& key) {
  const int16_t journal = key.JournalType == SJ2 ? int16_t{SJ} : key.JournalType;
  return static_cast<uint64_t>(static_cast<uint32_t>(key.TrxNumber)) |
         static_cast<uint64_t>(key.Period & 0x3F) << 32 |
         static_cast<uint64_t>(journal & 0x0F) << 38 | static_cast<uint64_t>(key.Shadow & 3) << 42 |
         static_cast<uint64_t>(key.PartnerFlag & 1) << 44;
}

class Verifier {
 public:
  Verifier(const std::string& dir, bool quick, Outcome& out)
      : dir_(dir), quick_(quick), out_(out) {}
  ~Verifier() {
    DeAllocateJournalRecord(&record_);
    CloseJrnlFile(&files_);
  }

  void Run(std::vector<std::string>* problems);

 private:
  bool Transactions();
  bool Rows();
  void FinishTransaction(const Header* header, const std::vector<bool>& lines);
  bool Chart();
  void Numbering();
  bool Store();

  std::string dir_;
  bool quick_;
  Outcome& out_;
  JrnlDBFilesType files_{};
  JournalRecord* record_ = nullptr;
  std::vector<Header> headers_;                         // in post order
  std::vector<std::pair<uint64_t, uint32_t>> numbers_;  // numbering key, post order
  PeriodNets nets_;
  Problems problems_;
};

void Verifier::Run(std::vector<std::string>* problems) {
  // The store first: the walks below would stop at the first page that cannot be read.
  if (!Store()) {
    problems_.Add("skipped checks", "the book's own checks were not made: the store is damaged");
    problems_.Into(problems);
    return;
  }
  if (OpenJournalFile(&files_, kOpenModeReadOnly) == 0) {
    out_.Fail("the journal files cannot be opened", GetErrorCode(nullptr));
    return;
  }
  if (AllocateJournalRecord(&record_) == 0) {
    out_.Fail("no memory for a transaction", kNoStatus);
    return;
  }
  if (!Transactions()) return;
  Numbering();
  if (!Rows() || !Chart()) return;
  problems_.Into(problems);
}

bool Verifier::Transactions() {
  constexpr int16_t kPostOrderKey = 5;
  const int32_t count = NumRecsInFile(files_.HdrFile);
  if (count > 0) {
    headers_.reserve(static_cast<size_t>(count));
    numbers_.reserve(static_cast<size_t>(count));
  }
  Progress progress("verifying transactions", count > 0 ? static_cast<size_t>(count) : 0);
  JournalRecord& r = *record_;
  for (int ok = GetFileLowest(files_, kLockBiasNone, record_, kPostOrderKey); ok;
       ok = GetFileNext(files_, kLockBiasNone, record_, kPostOrderKey)) {
    progress.Step(headers_.size());
    // The in-memory key holds a second-sales-journal sale as journal 3 with its flag.
    JournalKey1Type key = r.Key1;
    if (key.JournalType == SJ && r.J.Sales.Area130.Journal12) key.JournalType = SJ2;
    const std::string name = TransactionName(key, r.PostOrder);
    if (!headers_.empty() && r.PostOrder <= headers_.back().post_order) {
      problems_.Add("post order numbers used twice",
                    "post order number " + std::to_string(r.PostOrder) + " is used by " + name +
                        " and by another transaction");
    }
    headers_.push_back(Header{r.PostOrder, key, r.LedgerFlag, 0});
    const uint32_t post_order = r.PostOrder;  // a copy: the packed field binds to no reference
    numbers_.push_back({NumberingKey(key), post_order});
    // A shadow repeats one side of its source transaction; the source is the one to balance.
    if (key.Shadow == 0 && !fIsJrnlBalanced(record_)) {
      problems_.Add("transactions that do not balance", name + " does not balance");
    }
  }
  const uint16_t status = GetErrorCode(files_.HdrFile);
  if (status != kStatusEndOfFile) {
    out_.Fail("the journal cannot be read", status);
    return false;
  }
  return true;
}

void Verifier::Numbering() {
  std::sort(numbers_.begin(), numbers_.end());
  for (size_t i = 1; i < numbers_.size(); ++i) {
    if (numbers_[i].first != numbers_[i - 1].first) continue;
    // Both transactions are named by their post orders; find their keys among the headers.
    auto key_of = [this](uint32_t post_order) {
      auto h = std::lower_bound(
          headers_.begin(), headers_.end(), post_order,
          [](const Header& header, uint32_t value) { return header.post_order < value; });
      return h != headers_.end() && h->post_order == post_order ? h->key : JournalKey1Type{};
    };
    problems_.Add("transaction numbers used twice",
                  "transaction number " + std::to_string(key_of(numbers_[i].second).TrxNumber) +
                      " of its journal and period is used by " +
                      TransactionName(key_of(numbers_[i - 1].second), numbers_[i - 1].second) +
                      " and " + TransactionName(key_of(numbers_[i].second), numbers_[i].second));
  }
  std::vector<std::pair<uint64_t, uint32_t>>().swap(numbers_);
}

void Verifier::FinishTransaction(const Header* header, const std::vector<bool>& lines) {
  if (header == nullptr) return;
  // Every journal but the general journal keeps its header amount on a main row (line 0);
  // distribution lines are numbered from 1 without a gap.
  const bool main_row = header->key.JournalType != GENJ;
  const std::string name = TransactionName(header->key, header->post_order);
  if (main_row && (lines.empty() || !lines[0])) {
    problems_.Add("transactions without their main row", name + " has no main row");
  }
  for (size_t line = 1; line < lines.size(); ++line) {
    if (!lines[line]) {
      problems_.Add("transactions with a line missing", name + " has no row for line " +
                                                            std::to_string(line) + " of " +
                                                            std::to_string(lines.size() - 1));
      break;
    }
  }
}

bool Verifier::Rows() {
  constexpr int16_t kPostOrderKey = 0;
  JrnlRowHdrClass navigator(files_);
  const int32_t count = NumRecsInFile(files_.RowFile);
  Progress progress("verifying rows", count > 0 ? static_cast<size_t>(count) : 0);
  size_t next = 0;  // the first header not yet passed
  const Header* current = nullptr;
  uint32_t current_post_order = 0;
  bool first = true;
  std::vector<bool> lines;
  size_t done = 0;
  navigator.ClearRow();
  for (int ok = navigator.GetRowGE(kPostOrderKey); ok; ok = navigator.GetRowNext(kPostOrderKey)) {
    progress.Step(++done);
    JrnlRowType& row = navigator.Row;
    if (first || row.PostOrder != current_post_order) {
      FinishTransaction(current, lines);
      first = false;
      current_post_order = row.PostOrder;
      lines.clear();
      while (next < headers_.size() && headers_[next].post_order < row.PostOrder) ++next;
      current = next < headers_.size() && headers_[next].post_order == row.PostOrder
                    ? &headers_[next]
                    : nullptr;
      if (current != nullptr) {
        headers_[next].rows = 1;
      } else {
        problems_.Add(
            "rows without their transaction",
            "rows of post order " + std::to_string(row.PostOrder) + " have no transaction header");
      }
    }
    if (row.LineNumber >= lines.size()) lines.resize(row.LineNumber + 1u, false);
    lines[row.LineNumber] = true;
    if (RowPostsToLedger(row, current != nullptr && current->ledger != 0)) nets_.Add(row, 1);
  }
  FinishTransaction(current, lines);
  const uint16_t status = GetErrorCode(files_.RowFile);
  if (status != kStatusEndOfFile && status != kStatusKeyNotFound) {
    out_.Fail("the journal rows cannot be read", status);
    return false;
  }
  for (const Header& h : headers_) {
    if (h.rows == 0) {
      problems_.Add("transactions without rows",
                    TransactionName(h.key, h.post_order) + " has no rows");
    }
  }
  if (nets_.outside() > 0) {
    problems_.Add(
        "rows outside the calendar",
        std::to_string(nets_.outside()) + " ledger rows are dated outside the period calendar");
  }
  return true;
}

bool Verifier::Chart() {
  BtrvFile* chart = nullptr;
  if (OpenChartFile(&chart, kOpenModeReadOnly) == 0) {
    out_.Fail("the chart of accounts cannot be opened", GetErrorCode(nullptr));
    return false;
  }
  std::map<int32_t, bool> seen;
  AccountType a{};
  static const PeriodNets::Periods kNothing{};
  for (uint8_t ok = GetFileLowest(chart, kLockBiasNone, sizeof a, &a, kChartKeyID); ok;
       ok = GetFileNext(chart, kLockBiasNone, sizeof a, &a, kChartKeyID)) {
    const int32_t number = a.RecordNumber;  // a copy: the packed field binds to no reference
    const auto found = nets_.accounts().find(number);
    const PeriodNets::Periods& rows = found != nets_.accounts().end() ? found->second : kNothing;
    seen[number] = true;
    for (int p = 0; p < kChartPeriods; ++p) {
      const AccountPeriodAmounts& kept = a.Periods[p];
      const AccountPeriodAmounts& sum = rows[static_cast<size_t>(p)];
      if (IsZero(kept.First - sum.First) && IsZero(kept.Second - sum.Second) &&
          IsZero(kept.Net - sum.Net)) {
        continue;
      }
      problems_.Add("period amounts that differ from the rows",
                    "account " + std::string(a.ID.c_str()) + ", period slot " + std::to_string(p) +
                        ": the chart holds " + Money(kept.First) + " debits, " +
                        Money(kept.Second) + " credits, net " + Money(kept.Net) +
                        "; the rows add up to " + Money(sum.First) + ", " + Money(sum.Second) +
                        ", net " + Money(sum.Net));
    }
  }
  const uint16_t status = GetErrorCode(chart);
  RealCloseFile(&chart, "host/verify", __LINE__);
  if (status != kStatusEndOfFile) {
    out_.Fail("the chart of accounts cannot be read", status);
    return false;
  }
  for (const auto& [number, periods] : nets_.accounts()) {
    if (seen.count(number) != 0) continue;
    double net = 0;
    for (const AccountPeriodAmounts& p : periods) net += p.Net;
    problems_.Add("rows on accounts the chart lacks",
                  "rows post " + Money(net) + " to account record " + std::to_string(number) +
                      ", which is not in the chart of accounts");
  }
  return true;
}

bool Verifier::Store() {
  std::vector<std::string> found;
  CheckStoreIntegrity(dir_.c_str(), static_cast<int>(kShownPerKind), quick_, &found);
  for (const std::string& problem : found) problems_.Add("store problems", "store: " + problem);
  return found.empty();
}

}  // namespace

void VerifyBook(const std::string& dir, bool quick, std::vector<std::string>* problems,
                Outcome& out) {
  Verifier verifier(dir, quick, out);
  verifier.Run(problems);
}

}  // namespace host
