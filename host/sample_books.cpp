// The demo's books beyond the cards and the chart: items (a stock item, a service, an
// assembly and a master with two attributes and its sub-items), jobs with phases, cost
// codes and estimates, two months of transactions of every journal kind stored through the
// journal store, and the inventory tags of the costed rows. The host is the costing engine
// here: it keeps each item's average cost as the transactions come in date order and writes
// the tags that the library's cost queries read.
#include "sample_books.h"

#include <cmath>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "Basics.h"

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

// Record numbers of the sample's accounts, cards and items, looked up once.
struct Refs {
  std::map<std::string, int32_t> accounts;
  int32_t Account(const char* id) { return accounts[id]; }
  int32_t widget = 0, install = 0, kit = 0;
};

bool LoadRefs(Refs& refs, Outcome& out) {
  for (const char* id : {"1020", "1030", "1100", "1200", "2000", "2320", "2330", "4000", "4100",
                         "5000", "6400", "6700", "7000"}) {
    FixedString<16> account{};
    account = id;
    refs.accounts[id] = GetAcctRecNumFromID(account);
  }
  FixedString<21> item{};
  item = "WIDGET";
  refs.widget = GetRecordNumberFromLineItemID(item);
  item = "INSTALL";
  refs.install = GetRecordNumberFromLineItemID(item);
  item = "KIT";
  refs.kit = GetRecordNumberFromLineItemID(item);
  if (refs.widget == 0 || refs.kit == 0 || refs.Account("1020") == 0) {
    out.Fail("the sample's items or accounts cannot be found", kNoStatus);
    return false;
  }
  return true;
}

// The costing engine's state: quantity on hand and average cost per item.
struct Stock {
  double quantity = 0;
  double average = 0;
};

class Books {
 public:
  Books(JrnlDBFilesType files, BtrvFile* tags, Refs& refs)
      : files_(files), tags_(tags), refs_(refs) {}

  bool Write(Outcome& out);

 private:
  // A fresh record of journal on date with the next post order and transaction number.
  JournalRecord* Start(JournalTypes journal, const DatesType& date, char qualifier, int32_t card,
                       const char* reference, const char* description);
  JrnlDistLine& AddLine(int32_t account, double amount, const char* description);
  bool Store(Outcome& out);
  bool Tag(int32_t item, const DatesType& date, int16_t index, int8_t type, double cost);
  // Receives quantity of item at unit cost; answers the cost of taking quantity out.
  void Receive(int32_t item, double quantity, double unit_cost);
  double Issue(int32_t item, double quantity);

  bool Month(const DatesType& first, bool second, Outcome& out);

  JrnlDBFilesType files_;
  BtrvFile* tags_;
  Refs& refs_;
  JournalRecord* record_ = nullptr;
  uint32_t post_order_ = 0;
  std::map<int16_t, int32_t> numbers_;  // last transaction number per journal
  std::map<int32_t, Stock> stock_;
  uint32_t last_invoice_ = 0;  // for the receipt that pays it
  std::string last_invoice_ref_;
  int32_t last_invoice_customer_ = 0;
  double last_invoice_amount_ = 0;
};

JournalRecord* Books::Start(JournalTypes journal, const DatesType& date, char qualifier,
                            int32_t card, const char* reference, const char* description) {
  std::memset(static_cast<void*>(record_), 0, sizeof *record_);
  record_->Key1.JournalType = journal;
  record_->Key1.TrxNumber = ++numbers_[journal];
  record_->Key1.Period = WhichGLperiod(date);
  record_->Key2.Qualifier = qualifier;
  record_->Key2.Card = card;
  record_->Key2.Date = date;
  record_->PostOrder = ++post_order_;
  record_->Reference = reference;
  record_->Description = description;
  record_->LedgerFlag = 1;  // posted (the rows of orders stay out of the ledger)
  return record_;
}

JrnlDistLine& Books::AddLine(int32_t account, double amount, const char* description) {
  JrnlDistLine& line = JournalLines(record_)[record_->LineCount++];
  line.Account = account;
  line.Amount = Round(amount);
  line.Description = description;
  return line;
}

bool Books::Store(Outcome& out) {
  if (InsertRecord(files_, record_) != 0) return true;
  out.Fail(
      std::string("a ") + GetJrnlName(record_->Key1.JournalType) + " transaction cannot be written",
      GetErrorCode(files_.HdrFile) ? GetErrorCode(files_.HdrFile) : GetErrorCode(files_.RowFile));
  return false;
}

bool Books::Tag(int32_t item, const DatesType& date, int16_t index, int8_t type, double cost) {
  InvTagRec tag{};
  tag.ItemRecordNumber = item;
  tag.Date = date;
  tag.DistIndex = index;
  tag.TagType = type;
  tag.PostOrder = record_->PostOrder;
  tag.Cost = Round(cost);
  InvTagRec daily{};  // the item's record of the day, once
  daily.ItemRecordNumber = item;
  daily.Date = date;
  daily.TagType = kInvTagDaily;
  InvTagRec found = daily;
  const bool have_daily = GetFileEqual(tags_, kLockBiasNone, sizeof found, &found, 0) != 0 &&
                          found.TagType == kInvTagDaily;
  return InsertRecord(tags_, sizeof tag, &tag) != 0 &&
         (have_daily || InsertRecord(tags_, sizeof daily, &daily) != 0);
}

void Books::Receive(int32_t item, double quantity, double unit_cost) {
  Stock& s = stock_[item];
  const double value = s.quantity * s.average + quantity * unit_cost;
  s.quantity += quantity;
  s.average = s.quantity > 0 ? value / s.quantity : unit_cost;
}

double Books::Issue(int32_t item, double quantity) {
  Stock& s = stock_[item];
  s.quantity -= quantity;
  return Round(quantity * s.average);
}

bool Books::Month(const DatesType& first, bool second, Outcome& out) {
  auto day = [&](int d) {
    DatesType date{};
    MakeDate(first.month, static_cast<uint8_t>(d), first.year, date);
    return date;
  };
  const double buy_price = second ? 13.50 : 12.00;
  const double buy_qty = second ? 10 : 20;
  const std::string suffix = std::to_string(first.month);
  Refs& r = refs_;

  // Purchase of widgets on account (journal 4).
  FixedString<21> id{};
  id = "NORTHWIND";
  Start(PJ, day(2), 'P', GetRecordNumberFromVendorID(id), ("NW-" + suffix).c_str(),
        "Widgets for stock");
  record_->HdrAccount = r.Account("2000");
  JrnlDistLine& bought = AddLine(r.Account("1200"), buy_qty * buy_price, "Widgets");
  bought.Item = r.widget;
  bought.Quantity = buy_qty;
  bought.UnitPrice = buy_price;
  record_->Amount = -bought.Amount;
  record_->J.Sales.Area130.DueDate = day(28);
  if (!Store(out)) return false;
  const uint32_t purchase = record_->PostOrder;
  Receive(r.widget, buy_qty, buy_price);

  // A sales order (journal 11) and a purchase order (journal 10), still open.
  id = "CORNELL";
  Start(SOJ, day(3), 'R', GetRecordNumberFromCustomerID(id), ("SO-" + suffix).c_str(),
        "Widgets to deliver");
  record_->HdrAccount = r.Account("1100");
  JrnlDistLine& ordered = AddLine(r.Account("4000"), -4 * 25.0, "Widgets on order");
  ordered.Item = r.widget;
  ordered.Quantity = 4;
  ordered.UnitPrice = 25;
  ordered.OrderQuantity2 = 4;
  record_->Amount = 100;
  record_->J.Order.OrderValue = 100;
  if (!Store(out)) return false;
  id = "ACME";
  Start(POJ, day(3), 'P', GetRecordNumberFromVendorID(id), ("PO-" + suffix).c_str(),
        "Widgets to come");
  record_->HdrAccount = r.Account("2000");
  JrnlDistLine& coming = AddLine(r.Account("1200"), 6 * buy_price, "Widgets on order");
  coming.Item = r.widget;
  coming.Quantity = 6;
  coming.UnitPrice = buy_price;
  coming.OrderQuantity2 = 6;
  record_->Amount = -coming.Amount;
  if (!Store(out)) return false;

  // A sales invoice for widgets and installation (journal 3), costed from the average.
  id = second ? "DELGADO" : "ALDRED";
  const int32_t customer = GetRecordNumberFromCustomerID(id);
  Start(SJ, day(5), 'R', customer, ("INV-" + suffix + "01").c_str(), "Widgets installed");
  record_->HdrAccount = r.Account("1100");
  JrnlDistLine& sold = AddLine(r.Account("4000"), -3 * 25.0, "Widgets");
  sold.Item = r.widget;
  sold.Quantity = 3;
  sold.UnitPrice = 25;
  JrnlDistLine& labour = AddLine(r.Account("4100"), -2 * 45.0, "Installation");
  labour.Item = r.install;
  labour.Quantity = 2;
  labour.UnitPrice = 45;
  labour.Job = 1;
  record_->Amount = 165;
  record_->J.Sales.Area130.DueDate = day(25);
  record_->J.Sales.Area130.PaidInFullDate = day(12);
  record_->J.Sales.Area130.AmountPaid = 165;
  if (!Store(out) || !Tag(r.widget, day(5), 0, kInvTagSaleCost, Issue(r.widget, 3))) return false;
  last_invoice_ = record_->PostOrder;
  last_invoice_ref_ = record_->Reference.c_str();
  last_invoice_customer_ = customer;
  last_invoice_amount_ = record_->Amount;

  // The same kind of sale kept in the second sales journal (stored as journal 12).
  id = "EASTSIDE";
  Start(SJ, day(6), 'R', GetRecordNumberFromCustomerID(id), ("INV-" + suffix + "02").c_str(),
        "Service call");
  record_->HdrAccount = r.Account("1100");
  JrnlDistLine& call = AddLine(r.Account("4100"), -90, "Service call, two hours");
  call.Item = r.install;
  call.Quantity = 2;
  call.UnitPrice = 45;
  record_->Amount = 90;
  record_->J.Sales.Area130.Journal12 = 1;
  if (!Store(out)) return false;

  // The receipt that pays the first invoice (journal 1).
  Start(CRJ, day(12), 'R', last_invoice_customer_, ("CHK-" + suffix).c_str(), "Payment received");
  record_->HdrAccount = r.Account("1020");
  JrnlDistLine& paid = AddLine(r.Account("1100"), -last_invoice_amount_, "Invoice paid");
  paid.Applied = 1;
  paid.InvoiceRef = last_invoice_ref_.c_str();
  paid.AppliedLink = last_invoice_;
  record_->Amount = last_invoice_amount_;
  if (!Store(out)) return false;

  // A disbursement paying the month's purchase (journal 2) and one for rent.
  id = "NORTHWIND";
  Start(CDJ, day(15), 'P', GetRecordNumberFromVendorID(id), ("C" + suffix + "01").c_str(),
        "Widgets paid");
  record_->HdrAccount = r.Account("1020");
  JrnlDistLine& settled = AddLine(r.Account("2000"), buy_qty * buy_price, "Bill paid");
  settled.Applied = 1;
  settled.InvoiceRef = ("NW-" + suffix).c_str();
  settled.AppliedLink = purchase;
  record_->Amount = -settled.Amount;
  if (!Store(out)) return false;
  id = "PACIFIC";
  Start(CDJ, day(16), 'P', GetRecordNumberFromVendorID(id), ("C" + suffix + "02").c_str(),
        "Power and light");
  record_->HdrAccount = r.Account("1020");
  AddLine(r.Account("6700"), 212.40, "Electricity");
  record_->Amount = -212.40;
  if (!Store(out)) return false;

  // Payroll for one employee (journal 5): gross wages, withholding and the net cheque.
  id = second ? "E-BROOKS" : "E-ADAMS";
  Start(PRJ, day(15), 0, GetEmployeeRecNo(id), ("PR-" + suffix).c_str(), "Pay, first half");
  record_->EmployeeID = id;
  record_->HdrAccount = r.Account("1030");
  record_->Amount = -1540;
  struct {
    const char* account;
    const char* code;
    double amount;
  } const fields[] = {{"7000", "GROSS", 2000}, {"2330", "FEDWH", -310}, {"2320", "STATEWH", -150}};
  for (const auto& f : fields) {
    JrnlPayrollField& field = record_->J.Payroll.Fields[record_->LineCount];
    field.Account = r.Account(f.account);
    field.FieldIndex = record_->LineCount;
    field.Code = f.code;
    field.Amount = f.amount;
    ++record_->LineCount;
  }
  if (!Store(out)) return false;

  // Cost of goods for the month's widget sales (journal 6).
  Start(COGSJ, day(18), 0, 0, ("COGS-" + suffix).c_str(), "Cost of widgets sold");
  const double cost = Round(3 * stock_[r.widget].average);
  JrnlDistLine& cogs = AddLine(r.Account("5000"), cost, "Widgets sold");
  cogs.Item = r.widget;
  cogs.Quantity = 3;
  AddLine(r.Account("1200"), -cost, "Widgets out of stock");
  if (!Store(out)) return false;

  // An inventory adjustment (journal 7): one widget damaged, costed at the average.
  Start(INAJ, day(19), 0, r.widget, ("ADJ-" + suffix).c_str(), "Damaged in store");
  record_->HdrAccount = r.Account("5000");
  record_->J.Inv.Quantity = -1;
  record_->Amount = Issue(r.widget, 1);
  if (!Store(out) || !Tag(r.widget, day(19), 0, kInvTagSaleCost2, record_->Amount)) return false;

  // An assembly build (journal 8): two kits from four widgets.
  Start(ASBYJ, day(20), 0, r.kit, ("BLD-" + suffix).c_str(), "Kits built");
  record_->HdrAccount = r.Account("1200");
  record_->J.Inv.Quantity = 2;
  const double used = Issue(r.widget, 4);
  JrnlDistLine& part = AddLine(r.Account("1200"), -used, "Widgets used");
  part.Item = r.widget;
  part.Quantity = -4;
  record_->Amount = used;
  if (!Store(out) || !Tag(r.kit, day(20), 0, kInvTagAssemblyCost, used)) return false;
  Receive(r.kit, 2, used / 2);

  // A system cost adjustment (journal 9) in the second month: the kits revalued.
  if (second) {
    Start(INAJ2, day(21), 0, r.kit, ("SYS-" + suffix).c_str(), "Kit cost adjusted");
    JrnlDistLine& revalued = AddLine(r.Account("1200"), 1.50, "Kit cost");
    revalued.Item = r.kit;
    AddLine(r.Account("5000"), -1.50, "Kit cost");
    if (!Store(out)) return false;
  }

  // A general journal entry (journal 0): office supplies moved to expense.
  Start(GENJ, day(25), 0, 0, ("GJ-" + suffix).c_str(), "Supplies used");
  AddLine(r.Account("6400"), 75.25, "Office supplies used");
  AddLine(r.Account("1020"), -75.25, "Office supplies used");
  return Store(out);
}

bool Books::Write(Outcome& out) {
  if (AllocateJournalRecord(&record_) == 0) {
    out.Fail("no memory for a transaction", kNoStatus);
    return false;
  }
  DatesType this_month{};
  MakeDate(TodaysDate.month, 1, TodaysDate.year, this_month);
  DatesType last_month = this_month;
  DecDate(last_month, 3);
  const bool ok = Month(last_month, false, out) && Month(this_month, true, out);
  DeAllocateJournalRecord(&record_);
  return ok;
}

}  // namespace

bool WriteSampleBooks(Outcome& out) {
  if (!WriteItems(out) || !WriteJobs(out)) return false;
  Refs refs;
  if (!LoadRefs(refs, out)) return false;
  JrnlDBFilesType files{};
  if (OpenJournalFile(&files, kOpenModeNormal) == 0) {
    out.Fail("the journal files cannot be opened", GetErrorCode(nullptr));
    return false;
  }
  BtrvFile* tags = nullptr;
  BtrvFile* costs = nullptr;
  if (OpenInvTagFile(&tags, &costs, kOpenModeNormal) == 0) {
    out.Fail("the inventory tag file cannot be opened", GetErrorCode(nullptr));
    CloseJrnlFile(&files);
    return false;
  }
  // One batch for the whole sample: it is there whole or not at all.
  bool ok = bBeginBatchUpdate(files.HdrFile) != 0;
  if (ok) {
    Books books(files, tags, refs);
    ok = books.Write(out);
    if (ok) {
      ok = bEndBatchUpdate(files.HdrFile) != 0;
      if (!ok) out.Fail("the sample transactions cannot be committed", GetErrorCode(files.HdrFile));
    } else {
      bAbortBatchUpdate(files.HdrFile);
    }
  } else {
    out.Fail("the journal files cannot be written", GetErrorCode(files.HdrFile));
  }
  RealCloseFile(&costs, kHost, __LINE__);
  RealCloseFile(&tags, kHost, __LINE__);
  CloseJrnlFile(&files);
  return ok;
}

}  // namespace host
