// The host's posting of whole transactions: a transaction described by the IDs a user types
// (accounts, cards, items, jobs) is looked up, checked, built into a journal record and
// posted through the library, together with what the host adds around a posting: the
// invoices a receipt or payment settles, the cash-basis spread of such lines, and the
// inventory tags of the costs it is given (the host is the costing engine), and the chart's
// period amounts, which change in the same batch as the rows (chart_nets.h). Used by the
// `post` and `generate` commands and by the demo. Works on the open company;
// single-threaded.
#ifndef BASICS_HOST_POSTING_H_
#define BASICS_HOST_POSTING_H_

#include <memory>
#include <string>
#include <vector>

#include "Basics.h"
#include "chart_nets.h"
#include "outcome.h"

namespace host {

// One line of a transaction. Which fields a journal reads is told in
// docs/posting-format.md; a field a journal does not read must be left empty.
struct LineSpec {
  std::string account;      // account ID
  bool has_amount = false;  // amount given (debits positive, credits negative)
  double amount = 0;
  std::string description;
  std::string item;  // item ID
  double quantity = 0;
  double unit_price = 0;
  bool has_cost = false;  // sales: cost of the items taken out; assemblies: of a component
  double cost = 0;
  std::string job, phase, cost_code;  // IDs
  std::string invoice;                // receipts, disbursements: the invoice this line pays
  std::string code;                   // payroll: the field code
};

// One transaction.
struct TrxSpec {
  JournalTypes journal = GENJ;
  bool second_sales_journal = false;  // a sale kept in the second sales journal
  DatesType date{};
  std::string reference;
  std::string description;
  std::string customer, vendor, employee, item;  // the card, by journal
  std::string account;                           // header account; a default when empty
  bool has_amount = false;                       // header amount; minus the lines when absent
  double amount = 0;
  bool has_due = false;  // sales, purchases: due date; orders: date expected or to ship
  DatesType due{};
  double quantity = 0;  // adjustments and assemblies: quantity of the item
  std::vector<LineSpec> lines;
};

// Why a transaction was refused: the field (as named in the posting format, e.g.
// "lines[2].account"; empty for the whole transaction) and the reason.
struct Refusal {
  std::string field;
  std::string reason;
};

// What a posted transaction became.
struct PostedTrx {
  std::string key;  // printable transaction key
  uint32_t post_order = 0;
  double amount = 0;
};

// Posts transactions into the open company through one pair of journal files.
class Poster {
 public:
  Poster() = default;
  ~Poster();
  Poster(const Poster&) = delete;
  Poster& operator=(const Poster&) = delete;

  // Opens the journal pair, the tag files, the receipt-tag file and the chart; on failure
  // records the reason in out and answers false.
  bool Open(Outcome& out);

  // Looks up, checks and posts t: all of it or nothing, the chart's period amounts
  // included. Answers true with *posted filled; false with *refusal saying why (nothing
  // written), or false with out failed when the company's files could not be written
  // (nothing of t written either). Inside a caller's batch, t's writes join it.
  bool Post(const TrxSpec& t, PostedTrx* posted, Refusal* refusal, Outcome& out);

 private:
  bool Build(const TrxSpec& t, Refusal* refusal);
  bool Write(const TrxSpec& t, Refusal* refusal, Outcome& out);
  bool SettleInvoices(Outcome& out);
  bool ReadLedger(uint32_t first, uint32_t last, double sign, PeriodNets* nets, Outcome& out);
  bool UpdateChart(const PeriodNets& delta, Refusal* refusal, Outcome& out);
  bool WriteTags(const TrxSpec& t, Outcome& out);
  bool Tag(int32_t item, int16_t index, int8_t type, double cost, Outcome& out);

  JrnlDBFilesType files_{};
  BtrvFile* tags_ = nullptr;
  BtrvFile* costs_ = nullptr;
  BtrvFile* receipt_tags_ = nullptr;
  BtrvFile* chart_ = nullptr;
  // Reads back what a posting wrote, through files_.
  std::unique_ptr<JrnlRowHdrClass> rows_;
  JournalRecord* record_ = nullptr;
  JournalRecord* invoice_ = nullptr;
  JournalRecord* old_invoice_ = nullptr;
  // What Build found beyond the record: the invoices the lines pay (post order, amount
  // paid) and the item record numbers of the lines.
  struct Settlement {
    uint32_t invoice = 0;
    double paid = 0;
  };
  std::vector<Settlement> settlements_;
  std::vector<int32_t> line_items_;
  int32_t card_item_ = 0;
};

}  // namespace host

#endif  // BASICS_HOST_POSTING_H_
