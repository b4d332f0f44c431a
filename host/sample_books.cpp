// The demo's books beyond the cards and the chart: items (a stock item, a service, an
// assembly and a master with two attributes and its sub-items), jobs with phases, cost
// codes and estimates, and a quarter of business posted the way a user posts it, by IDs
// through the host's posting: invoices with their receipts (in full and in part), bills and
// the cheques that pay them, a receipt from a vendor and a payment to a customer (each with
// its shadow), payroll, inventory adjustments, assembly builds, purchase and sales orders
// and general journal entries. The host is the costing engine: it keeps each item's average
// cost as the transactions come in date order and hands the costs to the posting, which
// writes the tags that the library's cost queries read.
#include "sample_books.h"

#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "Basics.h"
#include "company.h"
#include "posting.h"

namespace host {
namespace {

constexpr const char* kHost = "host/sample_books";

// Opens a data file of the host's own, runs write inside one batch and closes it again;
// a failed write abandons the batch and records what in out.
template <typename Write>
bool InBatch(int (*open)(BtrvFile**, uint16_t), const char* what, Outcome& out, Write write) {
  BtrvFile* file = nullptr;
  if (open(&file, kOpenModeNormal) == 0) {
    out.Fail(std::string("the ") + what + " file cannot be opened", GetErrorCode(nullptr));
    return false;
  }
  bool ok = bBeginBatchUpdate(file) != 0 && write(file);
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

int OpenItems(BtrvFile** f, uint16_t mode) { return OpenLineItemFile(f, mode); }
int OpenProjects(BtrvFile** f, uint16_t mode) { return OpenProjFile(f, mode); }
int OpenPhases(BtrvFile** f, uint16_t mode) { return OpenPhaseFile(f, mode); }
int OpenCosts(BtrvFile** f, uint16_t mode) { return OpenCostFile(f, mode); }
int OpenEstimates(BtrvFile** f, uint16_t mode) { return OpenJobEstFile(f, mode); }

// --- items --------------------------------------------------------------------------------

struct ItemSample {
  const char* id;
  const char* description;
  int16_t item_class;
};
const ItemSample kItems[] = {
    {"WIDGET", "Widget, standard", 1},
    {"INSTALL", "Installation, per hour", 0},
    {"KIT", "Widget kit (assembly)", 3},
    {"SHIRT", "Staff shirt", kItemClassMaster},
};

void SetAttribute(ItemAttributeBlock& block, const char* name,
                  const std::vector<std::pair<const char*, const char*>>& values) {
  block.Name = name;
  for (size_t i = 0; i < values.size(); ++i) {
    block.Codes[i] = values[i].first;
    block.Descriptions[i] = values[i].second;
  }
}

int32_t AccountNumber(const char* id) {
  FixedString<16> account{};
  account = id;
  return GetAcctRecNumFromID(account);
}

bool WriteItems(Outcome& out) {
  // Stock items keep their value in inventory (1200) and cost their sales to 5000.
  const int32_t inventory = AccountNumber("1200"), cost_of_sales = AccountNumber("5000");
  bool ok = InBatch(OpenItems, "item", out, [&](BtrvFile* file) {
    for (const ItemSample& s : kItems) {
      LineItemRecord item{};
      item.ItemID = s.id;
      item.Description = s.description;
      item.ItemClass = s.item_class;
      if (s.item_class != 0) {
        item.InventoryAccount = inventory;
        item.FirstAccount = inventory;
        item.SecondAccount = cost_of_sales;
      }
      AssignGUID(item.Guid);
      if (s.item_class == 3) {  // the kit is two widgets
        item.ComponentCount = 1;
        item.Components[0].RecordNumber = 1;
      }
      if (s.item_class == kItemClassMaster) {
        SetAttribute(item.FirstAttributes, "Size",
                     {{"S", "Small"}, {"M", "Medium"}, {"L", "Large"}});
        SetAttribute(item.SecondAttributes, "Colour", {{"RED", "Red"}, {"BLUE", "Blue"}});
        item.FirstValueCount = 3;
        item.SecondValueCount = 2;
      }
      if (InsertRecord(file, sizeof item, &item) == 0) return false;
    }
    return true;
  });
  if (!ok) return false;
  // The master's sub-items, one per combination of its attributes' values.
  LineItemRecord master{};
  master.ItemID = "SHIRT";
  BtrvFile* file = nullptr;
  if (OpenLineItemFile(&file, kOpenModeNormal) == 0) {
    out.Fail("the item file cannot be opened", GetErrorCode(nullptr));
    return false;
  }
  ok = GetFileEqual(file, kLockBiasNone, sizeof master, &master, 0) != 0 &&
       InsertAllSubItems(file, &master, nullptr) != 0;
  if (!ok) out.Fail("the sub-items cannot be written", GetErrorCode(file));
  RealCloseFile(&file, kHost, __LINE__);
  return ok;
}

// --- jobs ---------------------------------------------------------------------------------

bool WriteJobs(Outcome& out) {
  struct {
    const char* id;
    const char* name;
  } const projects[] = {{"FITOUT", "Harbor office fit-out"}, {"GARDEN", "Bayview garden beds"}};
  struct {
    const char* id;
    const char* description;
  } const phases[] = {{"DESIGN", "Design and drawings"}, {"BUILD", "Construction"}},
          costs[] = {{"LABOR", "Labour"}, {"MATERIAL", "Materials"}};
  return InBatch(OpenProjects, "project", out,
                 [&](BtrvFile* file) {
                   for (const auto& p : projects) {
                     ProjectRecord record{};
                     record.ID = p.id;
                     record.Name = p.name;
                     record.UsesPhases = 1;
                     record.StartDate = TodaysDate;
                     AssignGUID(record.Guid);
                     if (InsertRecord(file, sizeof record, &record) == 0) return false;
                   }
                   return true;
                 }) &&
         InBatch(OpenPhases, "phase", out,
                 [&](BtrvFile* file) {
                   for (const auto& p : phases) {
                     PhaseRecord record{};
                     record.ID = p.id;
                     record.Description = p.description;
                     record.UsesCostCodes = 1;
                     if (InsertRecord(file, sizeof record, &record) == 0) return false;
                   }
                   return true;
                 }) &&
         InBatch(OpenCosts, "cost code", out,
                 [&](BtrvFile* file) {
                   for (const auto& c : costs) {
                     CostRecord record{};
                     record.ID = c.id;
                     record.Description = c.description;
                     if (InsertRecord(file, sizeof record, &record) == 0) return false;
                   }
                   return true;
                 }) &&
         InBatch(OpenEstimates, "job estimate", out, [&](BtrvFile* file) {
           // Every project, phase and cost code: revenue and expenses in round hundreds.
           for (int32_t project = 1; project <= 2; ++project) {
             for (int32_t phase = 1; phase <= 2; ++phase) {
               for (int32_t cost = 1; cost <= 2; ++cost) {
                 JobEstRecord record{};
                 record.Project = project;
                 record.Phase = phase;
                 record.CostCode = cost;
                 record.Expenses = 400.0 * project + 150.0 * phase + 50.0 * cost;
                 record.Revenue = Round(record.Expenses * 1.25);
                 if (InsertRecord(file, sizeof record, &record) == 0) return false;
               }
             }
           }
           return true;
         });
}

// --- transactions -------------------------------------------------------------------------

// The costing engine's state: quantity on hand and average cost per item.
struct Stock {
  double quantity = 0;
  double average = 0;
};

class Books {
 public:
  explicit Books(Poster& poster) : poster_(poster) {}
  // Posts the month beginning on first; month is 0, 1 or 2 within the quarter.
  bool Month(const DatesType& first, int month, Outcome& out);

 private:
  bool Post(const TrxSpec& t, Outcome& out);
  void Receive(const std::string& item, double quantity, double unit_cost) {
    Stock& s = stock_[item];
    const double value = s.quantity * s.average + quantity * unit_cost;
    s.quantity += quantity;
    s.average = s.quantity > 0 ? value / s.quantity : unit_cost;
  }
  // The cost of taking quantity of item out at its average.
  double Issue(const std::string& item, double quantity) {
    Stock& s = stock_[item];
    s.quantity -= quantity;
    return Round(quantity * s.average);
  }

  Poster& poster_;
  std::map<std::string, Stock> stock_;
};

bool Books::Post(const TrxSpec& t, Outcome& out) {
  PostedTrx posted;
  Refusal refusal;
  if (poster_.Post(t, &posted, &refusal, out)) return true;
  if (!out.failed()) {
    out.Fail("the sample transaction " + t.reference + " was refused: " +
                 (refusal.field.empty() ? "" : refusal.field + ": ") + refusal.reason,
             kNoStatus);
  }
  return false;
}

LineSpec Line(const char* account, double amount, const char* description) {
  LineSpec l;
  l.account = account;
  l.has_amount = true;
  l.amount = amount;
  l.description = description;
  return l;
}

LineSpec ItemLine(const char* account, double amount, const char* item, double quantity,
                  double price) {
  LineSpec l = Line(account, amount, "");
  l.item = item;
  l.quantity = quantity;
  l.unit_price = price;
  return l;
}

LineSpec Payment(const char* account, double amount, const std::string& invoice) {
  LineSpec l = Line(account, amount, "");
  l.invoice = invoice;
  return l;
}

bool Books::Month(const DatesType& first, int month, Outcome& out) {
  auto day = [&](int d) {
    DatesType date{};
    MakeDate(first.month, static_cast<uint8_t>(d), first.year, date);
    return date;
  };
  auto start = [&](JournalTypes journal, int d, const std::string& reference,
                   const char* description) {
    TrxSpec t;
    t.journal = journal;
    t.date = day(d);
    t.reference = reference;
    t.description = description;
    return t;
  };
  const std::string m = std::to_string(first.month);
  const double buy_price = 12.00 + 0.75 * month;
  const double buy_qty = month == 1 ? 10 : 20;
  const char* customers[] = {"ALDRED", "DELGADO", "BAYVIEW"};

  // A bill for widgets (purchases), due at the month's end.
  TrxSpec bill = start(PJ, 2, "NW-" + m, "Widgets for stock");
  bill.vendor = "NORTHWIND";
  bill.has_due = true;
  bill.due = day(28);
  bill.lines.push_back(ItemLine("1200", buy_qty * buy_price, "WIDGET", buy_qty, buy_price));
  if (!Post(bill, out)) return false;
  Receive("WIDGET", buy_qty, buy_price);

  // A sales order and a purchase order, both still open.
  TrxSpec so = start(SOJ, 3, "SO-" + m, "Widgets to deliver");
  so.customer = "CORNELL";
  so.has_due = true;
  so.due = day(20);
  so.lines.push_back(ItemLine("4000", -100, "WIDGET", 4, 25));
  if (!Post(so, out)) return false;
  TrxSpec po = start(POJ, 3, "PO-" + m, "Widgets to come");
  po.vendor = "ACME";
  po.has_due = true;
  po.due = day(24);
  po.lines.push_back(ItemLine("1200", 6 * buy_price, "WIDGET", 6, buy_price));
  if (!Post(po, out)) return false;

  // An invoice for widgets (costed at the average) and installation on a job.
  const std::string invoice = "INV-" + m + "01";
  TrxSpec sale = start(SJ, 5, invoice, "Widgets installed");
  sale.customer = customers[month];
  LineSpec widgets = ItemLine("4000", -75, "WIDGET", 3, 25);
  widgets.has_cost = true;
  widgets.cost = Issue("WIDGET", 3);
  LineSpec labour = ItemLine("4100", -90, "INSTALL", 2, 45);
  labour.job = "FITOUT";
  labour.phase = "BUILD";
  labour.cost_code = "LABOR";
  sale.lines = {widgets, labour};
  if (!Post(sale, out)) return false;

  // A service call kept in the second sales journal.
  TrxSpec call = start(SJ, 6, "INV-" + m + "02", "Service call");
  call.customer = "EASTSIDE";
  call.second_sales_journal = true;
  call.lines.push_back(ItemLine("4100", -90, "INSTALL", 2, 45));
  if (!Post(call, out)) return false;

  // Receipts: the first month's invoice is paid in full, the second month's in part, and
  // its rest in the third month; the third month's invoice stays open.
  if (month == 0 || month == 1) {
    TrxSpec receipt = start(CRJ, 12, "CHK-" + m, "Payment received");
    receipt.customer = customers[month];
    receipt.lines.push_back(Payment("1100", month == 0 ? -165 : -100, invoice));
    if (!Post(receipt, out)) return false;
  }
  if (month == 2) {
    DatesType previous = first;
    DecDate(previous, 3);
    TrxSpec rest = start(CRJ, 10, "CHK-" + m, "Rest of an invoice");
    rest.customer = customers[1];
    rest.lines.push_back(Payment("1100", -65, "INV-" + std::to_string(previous.month) + "01"));
    if (!Post(rest, out)) return false;
  }

  // The cheque paying the month's bill, and one for power.
  TrxSpec cheque = start(CDJ, 15, "C" + m + "01", "Widgets paid");
  cheque.vendor = "NORTHWIND";
  cheque.lines.push_back(Payment("2000", buy_qty * buy_price, "NW-" + m));
  if (!Post(cheque, out)) return false;
  TrxSpec power = start(CDJ, 16, "C" + m + "02", "Power and light");
  power.vendor = "PACIFIC";
  power.lines.push_back(Line("6700", 212.40, "Electricity"));
  if (!Post(power, out)) return false;

  // A receipt from a vendor (a freight refund) and a payment to a customer (a refund); each
  // gets its shadow in the other side's journal.
  if (month == 1) {
    TrxSpec refund = start(CRJ, 22, "HF-" + m, "Freight refund");
    refund.vendor = "HARBOR";
    refund.lines.push_back(Line("5100", -45, "Freight overcharged"));
    if (!Post(refund, out)) return false;
  }
  if (month == 2) {
    TrxSpec refund = start(CDJ, 8, "RF-" + m, "Refund for a return");
    refund.customer = "CORNELL";
    refund.lines.push_back(Line("4000", 30, "Returned goods"));
    if (!Post(refund, out)) return false;
  }

  // Payroll: gross wages, withholding and the net cheque.
  TrxSpec pay = start(PRJ, 15, "PR-" + m, "Pay, first half");
  pay.employee = month == 1 ? "E-BROOKS" : "E-ADAMS";
  const struct {
    const char* account;
    const char* code;
    double amount;
  } fields[] = {{"7000", "GROSS", 2000}, {"2330", "FEDWH", -310}, {"2320", "STATEWH", -150}};
  for (const auto& f : fields) {
    LineSpec l = Line(f.account, f.amount, "");
    l.code = f.code;
    pay.lines.push_back(l);
  }
  if (!Post(pay, out)) return false;

  // An inventory adjustment: one widget damaged, costed at the average.
  TrxSpec damaged = start(INAJ, 19, "ADJ-" + m, "Damaged in store");
  damaged.item = "WIDGET";
  damaged.quantity = -1;
  damaged.has_amount = true;
  damaged.amount = Issue("WIDGET", 1);
  if (!Post(damaged, out)) return false;

  // An assembly build: two kits from four widgets.
  TrxSpec build = start(ASBYJ, 20, "BLD-" + m, "Kits built");
  build.item = "KIT";
  build.quantity = 2;
  LineSpec part;
  part.item = "WIDGET";
  part.quantity = -4;
  part.has_cost = true;
  part.cost = Issue("WIDGET", 4);
  part.description = "Widgets used";
  build.lines.push_back(part);
  if (!Post(build, out)) return false;
  Receive("KIT", 2, part.cost / 2);

  // A general journal entry: office supplies used, on the fit-out's drawings.
  TrxSpec supplies = start(GENJ, 25, "GJ-" + m, "Supplies used");
  LineSpec used = Line("6400", 75.25, "Office supplies used");
  used.job = "FITOUT";
  used.phase = "DESIGN";
  used.cost_code = "MATERIAL";
  supplies.lines = {used, Line("1020", -75.25, "Office supplies used")};
  return Post(supplies, out);
}

}  // namespace

bool WriteSampleSettings(bool cash_basis, Outcome& out) {
  MyCompany.CashBasis = cash_basis ? 1 : 0;
  // Events of invoices (entered, due), receipts, purchase orders (placed, expected), bills
  // due, payments and payroll, and of sales orders; an alarm three days before a due date.
  std::memset(Options.EventCreate, 0, sizeof Options.EventCreate);
  for (int index : {2, 3, 5, 6, 7, 8, 9, 10}) Options.EventCreate[index] = 1;
  for (int index : {3, 8}) {
    Options.EventAlarm[index] = 1;
    Options.EventLead[index] = 3;
  }
  Options.Event3.Create = 1;
  return SaveHostSettings(out);
}

bool WriteSampleBooks(Outcome& out) {
  if (!WriteItems(out) || !WriteJobs(out)) return false;
  Poster poster;
  if (!poster.Open(out)) return false;
  Books books(poster);
  DatesType month = TodaysDate;
  month.day = 1;
  DecDate(month, 3);
  DecDate(month, 3);
  for (int m = 0; m < 3; ++m, IncDate(month, 3)) {
    if (!books.Month(month, m, out)) return false;
  }
  return true;
}

}  // namespace host
