// A generated book: masters in proportion to the number of transactions, then a year of
// business posted day by day. The generator is the costing engine for its stock items (a
// running average, as the demo keeps one) and remembers the open invoices and bills so
// that receipts and cheques pay them oldest first, which leaves the last month or so of
// them open for the aging report. Memory stays small whatever the size of the book: only
// the open invoices and bills are kept, and they are paid about as fast as they come.
#include "generate.h"

#include <algorithm>
#include <cstdio>
#include <deque>
#include <random>
#include <string>
#include <vector>

#include "Basics.h"
#include "company.h"
#include "posting.h"
#include "progress.h"

namespace host {
namespace {

constexpr const char* kHost = "host/generate";

// Transactions posted in one host batch: large enough that commits cost little, small
// enough that a failure loses little.
constexpr int kBatchSize = 250;

// The kinds of transaction in the book and how many of every hundred are of each kind.
enum Kind {
  kSale,
  kReceipt,
  kPurchase,
  kBillPayment,
  kExpense,
  kPayroll,
  kGeneral,
  kAdjustment,
  kSalesOrder,
  kPurchaseOrder,
  kKindCount
};
constexpr int kWeights[kKindCount] = {25, 24, 13, 12, 6, 6, 6, 3, 3, 2};
constexpr const char* kKindNames[kKindCount] = {
    "sales",   "receipts",        "purchases",         "bills paid",   "other expenses",
    "payroll", "general journal", "stock adjustments", "sales orders", "purchase orders"};

const char* const kSurnames[] = {"Abbott",    "Barker",    "Castillo",  "Dunmore",  "Ellison",
                                 "Fraser",    "Garcia",    "Hartley",   "Ibsen",    "Jardine",
                                 "Kowalski",  "Lindqvist", "Moreau",    "Nakamura", "Okafor",
                                 "Pereira",   "Quinlan",   "Rasmussen", "Sandoval", "Tremblay",
                                 "Underwood", "Vasquez",   "Whitfield", "Yamada"};
const char* const kTrades[] = {"Bakery",   "Builders", "Cafe",     "Dental",    "Electrical",
                               "Florist",  "Garage",   "Hardware", "Joinery",   "Landscaping",
                               "Plumbing", "Printing", "Salon",    "Tailoring", "Veterinary"};
const char* const kSupplies[] = {"Wholesale", "Supply Co.", "Distributors",    "Trading",
                                 "Imports",   "Freight",    "Office Products", "Industries"};
const char* const kGoods[] = {"Bracket", "Cable", "Clamp", "Fitting", "Gasket", "Hinge",
                              "Lamp",    "Panel", "Pump",  "Sensor",  "Switch", "Valve"};
const char* const kExpenseAccounts[] = {"6000", "6100", "6300", "6500", "6600", "6700", "5100"};

template <size_t N>
FixedString<N> Fixed(const std::string& text) {
  FixedString<N> f{};
  f = text.c_str();
  return f;
}

std::string Numbered(const char* prefix, int64_t number, int digits) {
  char text[32];
  std::snprintf(text, sizeof text, "%s%0*lld", prefix, digits, static_cast<long long>(number));
  return text;
}

// Writes count records into a file of the host's own in one batch; make fills record i.
template <typename Record, typename Make>
bool WriteMasters(int (*open)(BtrvFile**, uint16_t), const char* what, int count, Outcome& out,
                  Make make) {
  BtrvFile* file = nullptr;
  if (open(&file, kOpenModeNormal) == 0) {
    out.Fail(std::string("the ") + what + " file cannot be opened", GetErrorCode(nullptr));
    return false;
  }
  bool ok = bBeginBatchUpdate(file) != 0;
  for (int i = 0; ok && i < count; ++i) {
    Record record{};
    make(i, record);
    ok = InsertRecord(file, sizeof record, &record) != 0;
  }
  if (!ok) {
    out.Fail(std::string("the ") + what + " file cannot be written", GetErrorCode(file));
    bAbortBatchUpdate(file);
  } else if (bEndBatchUpdate(file) == 0) {
    out.Fail(std::string("the ") + what + " file cannot be committed", GetErrorCode(file));
    ok = false;
  }
  RealCloseFile(&file, kHost, __LINE__);
  return ok;
}

int OpenCustomers(BtrvFile** f, uint16_t mode) { return OpenCustFile(f, mode); }
int OpenVendors(BtrvFile** f, uint16_t mode) { return OpenVendFile(f, mode); }
int OpenEmployees(BtrvFile** f, uint16_t mode) { return OpenEmployeeFile(f, mode); }
int OpenItems(BtrvFile** f, uint16_t mode) { return OpenLineItemFile(f, mode); }
int OpenProjects(BtrvFile** f, uint16_t mode) { return OpenProjFile(f, mode); }
int OpenPhases(BtrvFile** f, uint16_t mode) { return OpenPhaseFile(f, mode); }
int OpenCosts(BtrvFile** f, uint16_t mode) { return OpenCostFile(f, mode); }
int OpenEstimates(BtrvFile** f, uint16_t mode) { return OpenJobEstFile(f, mode); }

int32_t AccountNumber(const char* id) { return GetAcctRecNumFromID(Fixed<16>(id)); }

int Clamp(int64_t value, int low, int high) {
  return static_cast<int>(std::min<int64_t>(std::max<int64_t>(value, low), high));
}

// How many of each master a book of n transactions has.
struct Sizes {
  explicit Sizes(int64_t n)
      : customers(Clamp(n / 40, 20, 25000)),
        vendors(Clamp(n / 300, 10, 4000)),
        employees(Clamp(n / 5000, 5, 250)),
        items(Clamp(n / 1000, 10, 1500)),
        jobs(Clamp(n / 4000, 3, 400)) {}
  int customers, vendors, employees, items, jobs;
};

constexpr int kServices = 4;
const char* const kPhases[] = {"DESIGN", "BUILD", "FINISH"};
const char* const kCostCodes[] = {"LABOR", "MATERIAL", "SUBCON"};

class Generator {
 public:
  Generator(const GenerateOptions& options, const Sizes& sizes)
      : n_(options.transactions), sizes_(sizes), rng_(options.seed) {}

  bool WriteMasterFiles(Outcome& out);
  bool PostBook(Outcome& out);
  void Summary(std::vector<Listing>* listings) const;

 private:
  struct Stock {
    double unit_cost = 0;
    double price = 0;
    double on_hand = 0;
    double average = 0;
  };
  // An invoice or bill not yet paid in full.
  struct Open {
    int32_t card = 0;  // index of the customer or vendor
    uint32_t number = 0;
    double balance = 0;
    int32_t day = 0;
  };

  int Uniform(int low, int high) {  // both included
    return low + static_cast<int>(rng_() % static_cast<uint64_t>(high - low + 1));
  }
  double Amount(double low, double high) {
    return Round(low + (high - low) * static_cast<double>(rng_() % 1000001) / 1000000.0);
  }
  bool Chance(int percent) { return Uniform(1, 100) <= percent; }
  Kind PickKind();

  std::string Customer(int index) const { return Numbered("C", index + 1, 5); }
  std::string Vendor(int index) const { return Numbered("V", index + 1, 4); }

  // Build the transaction of each kind for today (day_); false when the kind cannot be
  // made now (nothing to pay, no stock), and another is chosen.
  bool Sale(TrxSpec& t);
  bool Receipt(TrxSpec& t);
  bool Purchase(TrxSpec& t);
  bool BillPayment(TrxSpec& t);
  bool Expense(TrxSpec& t);
  bool Payroll(TrxSpec& t);
  bool General(TrxSpec& t);
  bool Adjustment(TrxSpec& t);
  bool Order(TrxSpec& t, bool sales);
  bool Make(Kind kind, TrxSpec& t);

  // The costing engine's side of a posted transaction (stock in and out, open items).
  void Receive(int item, double quantity, double unit_cost);
  double Issue(int item, double quantity);
  // An item with at least quantity on hand, or -1.
  int ItemInStock(double quantity);

  int64_t n_;
  Sizes sizes_;
  std::mt19937_64 rng_;
  std::vector<Stock> stock_;
  std::deque<Open> sales_, bills_;
  int32_t day_ = 0;
  DatesType date_{};
  int64_t counts_[kKindCount] = {};
  int64_t refused_ = 0;
  std::string first_refusal_;
  uint32_t next_number_ = 1;
  // What the pending transaction does to stock and open items once it is posted.
  std::vector<std::pair<int, double>> receipts_in_;  // item, quantity (at the unit cost set)
  std::vector<double> unit_costs_in_;
  bool pending_sale_ = false, pending_bill_ = false;
  Open pending_open_{};
  bool pending_rest_ = false;
  Open rest_{};
  bool rest_is_sale_ = false;
  std::vector<std::pair<int, double>> issued_;  // item, quantity
};

Kind Generator::PickKind() {
  int pick = Uniform(1, 100);
  for (int k = 0; k < kKindCount; ++k) {
    if (pick <= kWeights[k]) return static_cast<Kind>(k);
    pick -= kWeights[k];
  }
  return kSale;
}

void Generator::Receive(int item, double quantity, double unit_cost) {
  Stock& s = stock_[static_cast<size_t>(item)];
  const double value = s.on_hand * s.average + quantity * unit_cost;
  s.on_hand += quantity;
  s.average = s.on_hand > 0 ? value / s.on_hand : unit_cost;
}

double Generator::Issue(int item, double quantity) {
  Stock& s = stock_[static_cast<size_t>(item)];
  return Round(quantity * s.average);
}

int Generator::ItemInStock(double quantity) {
  // A few tries at random, then the first in stock from a random place.
  const int count = static_cast<int>(stock_.size());
  for (int i = 0; i < 3; ++i) {
    const int item = Uniform(0, count - 1);
    if (stock_[static_cast<size_t>(item)].on_hand >= quantity) return item;
  }
  const int start = Uniform(0, count - 1);
  for (int i = 0; i < count; ++i) {
    const int item = (start + i) % count;
    if (stock_[static_cast<size_t>(item)].on_hand >= quantity) return item;
  }
  return -1;
}

LineSpec Line(const std::string& account, double amount, const std::string& description) {
  LineSpec l;
  l.account = account;
  l.has_amount = true;
  l.amount = amount;
  l.description = description;
  return l;
}

std::string ItemId(int item) { return Numbered("ITEM", item + 1, 4); }

bool Generator::Sale(TrxSpec& t) {
  t.journal = SJ;
  const int customer = Uniform(0, sizes_.customers - 1);
  t.customer = Customer(customer);
  const uint32_t number = next_number_++;
  t.reference = Numbered("INV-", number, 7);
  t.description = "Sale";
  const int lines = Uniform(1, 3);
  double total = 0;
  for (int i = 0; i < lines; ++i) {
    const double quantity = Uniform(1, 5);
    const int item = Chance(65) ? ItemInStock(quantity + 1) : -1;
    if (item >= 0) {
      Stock& s = stock_[static_cast<size_t>(item)];
      LineSpec l = Line("4000", -Round(quantity * s.price), "");
      l.item = ItemId(item);
      l.quantity = quantity;
      l.unit_price = s.price;
      l.has_cost = true;
      l.cost = Issue(item, quantity);
      s.on_hand -= quantity;  // taken now: a later line must not sell the same units
      issued_.push_back({item, quantity});
      total -= l.amount;
      t.lines.push_back(l);
      continue;
    }
    const double hours = Uniform(1, 8);
    const int service = Uniform(1, kServices);
    const double rate = 40.0 + 15.0 * service;
    LineSpec l = Line("4100", -Round(hours * rate), "Labour");
    l.item = Numbered("SVC", service, 2);
    l.quantity = hours;
    l.unit_price = rate;
    if (Chance(30)) {
      l.job = Numbered("JOB", Uniform(1, sizes_.jobs), 4);
      l.phase = kPhases[Uniform(0, 2)];
      l.cost_code = kCostCodes[0];
    }
    total -= l.amount;
    t.lines.push_back(l);
  }
  pending_sale_ = true;
  pending_open_ = Open{customer, number, Round(total), day_};
  return true;
}

bool Generator::Receipt(TrxSpec& t) {
  // The oldest open invoice, once a week has passed since it was made.
  if (sales_.empty() || sales_.front().day > day_ - 7) return false;
  Open invoice = sales_.front();
  sales_.pop_front();
  t.journal = CRJ;
  t.customer = Customer(invoice.card);
  t.reference = Numbered("R", next_number_++, 7);
  t.description = "Payment received";
  double paid = invoice.balance;
  if (Chance(10) && paid >= 20) {  // paid in part: the rest comes later
    paid = Round(paid / 2);
    pending_rest_ = true;
    rest_is_sale_ = true;
    rest_ = invoice;
    rest_.balance = Round(invoice.balance - paid);
  }
  LineSpec l = Line("1100", -paid, "");
  l.invoice = Numbered("INV-", invoice.number, 7);
  t.lines.push_back(l);
  return true;
}

bool Generator::Purchase(TrxSpec& t) {
  t.journal = PJ;
  const int vendor = Uniform(0, sizes_.vendors - 1);
  t.vendor = Vendor(vendor);
  const uint32_t number = next_number_++;
  t.reference = Numbered("B-", number, 7);
  t.description = "Bill";
  double total = 0;
  if (Chance(75)) {
    const int lines = Uniform(1, 3);
    for (int i = 0; i < lines; ++i) {
      const int item = Uniform(0, static_cast<int>(stock_.size()) - 1);
      const double quantity = Uniform(10, 40);
      const double unit_cost =
          Round(stock_[static_cast<size_t>(item)].unit_cost * Amount(0.9, 1.1));
      LineSpec l = Line("1200", Round(quantity * unit_cost), "");
      l.item = ItemId(item);
      l.quantity = quantity;
      l.unit_price = unit_cost;
      receipts_in_.push_back({item, quantity});
      unit_costs_in_.push_back(unit_cost);
      total += l.amount;
      t.lines.push_back(l);
    }
  } else {
    const char* account = kExpenseAccounts[Uniform(0, 6)];
    LineSpec l = Line(account, Amount(40, 1500), "Services");
    if (Chance(40)) {  // bought for a job: materials or a subcontractor
      l.job = Numbered("JOB", Uniform(1, sizes_.jobs), 4);
      l.phase = kPhases[Uniform(0, 2)];
      l.cost_code = kCostCodes[Uniform(1, 2)];
    }
    total += l.amount;
    t.lines.push_back(l);
  }
  pending_bill_ = true;
  pending_open_ = Open{vendor, number, Round(total), day_};
  return true;
}

bool Generator::BillPayment(TrxSpec& t) {
  if (bills_.empty() || bills_.front().day > day_ - 10) return false;
  const Open bill = bills_.front();
  bills_.pop_front();
  t.journal = CDJ;
  t.vendor = Vendor(bill.card);
  t.reference = Numbered("CHQ", next_number_++, 7);
  t.description = "Bill paid";
  LineSpec l = Line("2000", bill.balance, "");
  l.invoice = Numbered("B-", bill.number, 7);
  t.lines.push_back(l);
  return true;
}

bool Generator::Expense(TrxSpec& t) {
  t.journal = CDJ;
  t.vendor = Vendor(Uniform(0, sizes_.vendors - 1));
  t.reference = Numbered("CHQ", next_number_++, 7);
  t.description = "Expense paid";
  t.lines.push_back(Line(kExpenseAccounts[Uniform(0, 6)], Amount(15, 900), "Expense"));
  return true;
}

bool Generator::Payroll(TrxSpec& t) {
  t.journal = PRJ;
  t.employee = Numbered("E", Uniform(1, sizes_.employees), 4);
  t.reference = Numbered("PR-", next_number_++, 7);
  t.description = "Pay";
  const double gross = Amount(1200, 4200);
  const struct {
    const char* account;
    const char* code;
    double amount;
  } fields[] = {{"7000", "GROSS", gross},
                {"2330", "FEDWH", -Round(gross * 0.15)},
                {"2320", "STATEWH", -Round(gross * 0.06)}};
  for (const auto& f : fields) {
    LineSpec l = Line(f.account, f.amount, "");
    l.code = f.code;
    t.lines.push_back(l);
  }
  return true;
}

bool Generator::General(TrxSpec& t) {
  t.journal = GENJ;
  t.reference = Numbered("GJ-", next_number_++, 7);
  const struct {
    const char* debit;
    const char* credit;
    const char* description;
  } entries[] = {{"6200", "1710", "Depreciation"},
                 {"6300", "1300", "Insurance used"},
                 {"6400", "1020", "Supplies used"},
                 {"7100", "2340", "Payroll taxes"}};
  const auto& e = entries[Uniform(0, 3)];
  const double amount = Amount(20, 800);
  t.description = e.description;
  t.lines = {Line(e.debit, amount, e.description), Line(e.credit, -amount, e.description)};
  return true;
}

bool Generator::Adjustment(TrxSpec& t) {
  const double quantity = Uniform(1, 2);
  const int item = ItemInStock(quantity);
  if (item < 0) return false;
  t.journal = INAJ;
  t.item = ItemId(item);
  t.reference = Numbered("ADJ-", next_number_++, 7);
  t.description = "Damaged in store";
  t.quantity = -quantity;
  t.has_amount = true;
  t.amount = Issue(item, quantity);
  stock_[static_cast<size_t>(item)].on_hand -= quantity;
  issued_.push_back({item, quantity});
  return true;
}

bool Generator::Order(TrxSpec& t, bool sales) {
  const int item = Uniform(0, static_cast<int>(stock_.size()) - 1);
  const Stock& s = stock_[static_cast<size_t>(item)];
  const double quantity = Uniform(2, 20);
  LineSpec l;
  if (sales) {
    t.journal = SOJ;
    t.customer = Customer(Uniform(0, sizes_.customers - 1));
    t.reference = Numbered("SO-", next_number_++, 7);
    l = Line("4000", -Round(quantity * s.price), "");
    l.unit_price = s.price;
  } else {
    t.journal = POJ;
    t.vendor = Vendor(Uniform(0, sizes_.vendors - 1));
    t.reference = Numbered("PO-", next_number_++, 7);
    l = Line("1200", Round(quantity * s.unit_cost), "");
    l.unit_price = s.unit_cost;
  }
  t.description = "Order";
  l.item = ItemId(item);
  l.quantity = quantity;
  t.lines.push_back(l);
  return true;
}

bool Generator::Make(Kind kind, TrxSpec& t) {
  switch (kind) {
    case kSale:
      return Sale(t);
    case kReceipt:
      return Receipt(t);
    case kPurchase:
      return Purchase(t);
    case kBillPayment:
      return BillPayment(t);
    case kExpense:
      return Expense(t);
    case kPayroll:
      return Payroll(t);
    case kGeneral:
      return General(t);
    case kAdjustment:
      return Adjustment(t);
    case kSalesOrder:
      return Order(t, true);
    default:
      return Order(t, false);
  }
}

bool Generator::WriteMasterFiles(Outcome& out) {
  const int32_t inventory = AccountNumber("1200"), cost_of_sales = AccountNumber("5000");
  stock_.resize(static_cast<size_t>(sizes_.items));
  for (Stock& s : stock_) {
    s.unit_cost = Amount(4, 180);
    s.price = Round(s.unit_cost * Amount(1.3, 1.9));
  }
  auto name = [this](const char* const* first, size_t n1, const char* const* second, size_t n2) {
    return std::string(first[rng_() % n1]) + " " + second[rng_() % n2];
  };
  constexpr size_t kSurnameCount = std::size(kSurnames);
  return WriteMasters<CustomerRecord>(
             OpenCustomers, "customer", sizes_.customers, out,
             [&](int i, CustomerRecord& c) {
               c.ID = Fixed<21>(Customer(i));
               c.Name = Fixed<40>(name(kSurnames, kSurnameCount, kTrades, std::size(kTrades)));
               AssignGUID(c.Guid);
             }) &&
         WriteMasters<VendorRecord>(
             OpenVendors, "vendor", sizes_.vendors, out,
             [&](int i, VendorRecord& v) {
               v.ID = Fixed<21>(Vendor(i));
               v.Name = Fixed<40>(name(kSurnames, kSurnameCount, kSupplies, std::size(kSupplies)));
               AssignGUID(v.Guid);
             }) &&
         WriteMasters<EmpType>(OpenEmployees, "employee", sizes_.employees, out,
                               [&](int i, EmpType& e) {
                                 e.ID = Fixed<21>(Numbered("E", i + 1, 4));
                                 AssignGUID(e.Guid);
                               }) &&
         WriteMasters<LineItemRecord>(
             OpenItems, "item", sizes_.items + kServices, out,
             [&](int i, LineItemRecord& item) {
               AssignGUID(item.Guid);
               if (i >= sizes_.items) {  // the services, after the stock items
                 item.ItemID = Fixed<21>(Numbered("SVC", i - sizes_.items + 1, 2));
                 item.Description = Fixed<31>("Labour, per hour");
                 return;
               }
               item.ItemID = Fixed<21>(ItemId(i));
               item.Description =
                   Fixed<31>(std::string(kGoods[static_cast<size_t>(i) % std::size(kGoods)]) +
                             ", size " + std::to_string(i / std::size(kGoods) + 1));
               item.ItemClass = 1;
               item.InventoryAccount = inventory;
               item.FirstAccount = inventory;
               item.SecondAccount = cost_of_sales;
             }) &&
         WriteMasters<ProjectRecord>(
             OpenProjects, "project", sizes_.jobs, out,
             [&](int i, ProjectRecord& p) {
               p.ID = Fixed<21>(Numbered("JOB", i + 1, 4));
               p.Name = Fixed<31>(name(kSurnames, kSurnameCount, kTrades, std::size(kTrades)) +
                                  " fit-out");
               p.UsesPhases = 1;
               p.StartDate = TodaysDate;
               AssignGUID(p.Guid);
             }) &&
         WriteMasters<PhaseRecord>(OpenPhases, "phase", 3, out,
                                   [&](int i, PhaseRecord& p) {
                                     p.ID = Fixed<21>(kPhases[i]);
                                     p.Description = Fixed<31>(std::string("Phase ") + kPhases[i]);
                                     p.UsesCostCodes = 1;
                                   }) &&
         WriteMasters<CostRecord>(OpenCosts, "cost code", 3, out,
                                  [&](int i, CostRecord& c) {
                                    c.ID = Fixed<21>(kCostCodes[i]);
                                    c.Description = Fixed<31>(kCostCodes[i]);
                                  }) &&
         // Every job, phase and cost code has an estimate; the record numbers of a new
         // company's jobs, phases and cost codes run from 1.
         WriteMasters<JobEstRecord>(OpenEstimates, "job estimate", sizes_.jobs * 9, out,
                                    [&](int i, JobEstRecord& e) {
                                      e.Project = i / 9 + 1;
                                      e.Phase = i / 3 % 3 + 1;
                                      e.CostCode = i % 3 + 1;
                                      e.Expenses = Round(Amount(500, 5000));
                                      e.Revenue = Round(e.Expenses * 1.3);
                                    });
}

bool Generator::PostBook(Outcome& out) {
  Poster poster;
  if (!poster.Open(out)) return false;
  // Host batches are begun on a chart handle of the generator's own: a batch spans the
  // whole store, so the poster's writes join it.
  BtrvFile* batch = nullptr;
  if (OpenChartFile(&batch, kOpenModeNormal) == 0) {
    out.Fail("the chart of accounts cannot be opened", GetErrorCode(nullptr));
    return false;
  }
  DatesType first = GetPeriodFrom(15);
  date_ = first;
  const int32_t days = std::max<int32_t>(1, AbsDate(TodaysDate) - AbsDate(first) + 1);
  Progress progress("generating", static_cast<size_t>(n_));
  bool ok = true;
  int in_batch = 0;
  for (int64_t i = 0; ok && i < n_; ++i) {
    const int32_t day = static_cast<int32_t>(i * days / n_);
    while (day_ < day) {
      IncDate(date_, 1);
      ++day_;
    }
    if (in_batch == 0 && bBeginBatchUpdate(batch) == 0) {
      out.Fail("a batch cannot be begun", GetErrorCode(batch));
      ok = false;
      break;
    }
    TrxSpec t;
    Kind kind = PickKind();
    receipts_in_.clear();
    unit_costs_in_.clear();
    issued_.clear();
    pending_sale_ = pending_bill_ = pending_rest_ = false;
    // A kind that cannot be made today (nothing due to pay, no stock) becomes a sale.
    if (!Make(kind, t)) {
      kind = kSale;
      t = TrxSpec();
      Make(kind, t);
    }
    t.date = date_;
    PostedTrx posted;
    Refusal refusal;
    if (poster.Post(t, &posted, &refusal, out)) {
      ++counts_[kind];
      for (size_t k = 0; k < receipts_in_.size(); ++k) {
        Receive(receipts_in_[k].first, receipts_in_[k].second, unit_costs_in_[k]);
      }
      if (pending_sale_ || pending_bill_)
        (pending_sale_ ? sales_ : bills_).push_back(pending_open_);
      if (pending_rest_) (rest_is_sale_ ? sales_ : bills_).push_back(rest_);
    } else if (out.failed()) {
      ok = false;
    } else {
      // The stock taken for the refused transaction goes back; its invoice is dropped.
      for (const auto& [item, quantity] : issued_)
        stock_[static_cast<size_t>(item)].on_hand += quantity;
      if (refused_++ == 0) {
        first_refusal_ = t.reference + ": " + (refusal.field.empty() ? "" : refusal.field + ": ") +
                         refusal.reason;
      }
    }
    if (ok && ++in_batch == kBatchSize) {
      in_batch = 0;
      if (bEndBatchUpdate(batch) == 0) {
        out.Fail("a batch of transactions cannot be committed", GetErrorCode(batch));
        ok = false;
      }
    }
    progress.Step(static_cast<size_t>(i + 1));
  }
  if (in_batch > 0) {
    if (!ok) {
      bAbortBatchUpdate(batch);
    } else if (bEndBatchUpdate(batch) == 0) {
      out.Fail("a batch of transactions cannot be committed", GetErrorCode(batch));
      ok = false;
    }
  }
  RealCloseFile(&batch, kHost, __LINE__);
  return ok;
}

void Generator::Summary(std::vector<Listing>* listings) const {
  Listing masters("Cards and items", {{"What"}, {"Count", true}});
  masters.Add({"customers", std::to_string(sizes_.customers)});
  masters.Add({"vendors", std::to_string(sizes_.vendors)});
  masters.Add({"employees", std::to_string(sizes_.employees)});
  masters.Add({"stock items", std::to_string(sizes_.items)});
  masters.Add({"services", std::to_string(kServices)});
  masters.Add({"jobs", std::to_string(sizes_.jobs)});
  masters.SetFooter("(besides the sample's own cards)");
  listings->push_back(std::move(masters));
  Listing posted("Transactions posted", {{"Kind"}, {"Count", true}});
  int64_t total = 0;
  for (int k = 0; k < kKindCount; ++k) {
    posted.Add({kKindNames[k], std::to_string(counts_[k])});
    total += counts_[k];
  }
  posted.Add({"total", std::to_string(total)});
  posted.Add({"refused", std::to_string(refused_)});
  size_t open_sales = sales_.size(), open_bills = bills_.size();
  posted.SetFooter("(" + std::to_string(open_sales) + " invoices and " +
                   std::to_string(open_bills) + " bills left open" +
                   (first_refusal_.empty() ? "" : "; first refused: " + first_refusal_) + ")");
  listings->push_back(std::move(posted));
}

}  // namespace

void GenerateBook(const std::string& dir, const GenerateOptions& options,
                  std::vector<Listing>* listings, Outcome& out) {
  if (!CreateCompany(dir, out) || !OpenCompany(dir, out)) return;
  Generator generator(options, Sizes(options.transactions));
  if (WriteSampleCompany(out) && generator.WriteMasterFiles(out)) generator.PostBook(out);
  CloseCompany(out);
  if (!out.failed()) generator.Summary(listings);
}

}  // namespace host
