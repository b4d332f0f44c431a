#include "posting.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "Basics.h"
#include "text.h"

namespace host {
namespace {

constexpr const char* kHost = "host/posting";

// The host shows no alarms of its own; the library tells it of every journal action.
void NoAlarms(JournalRecord*, EVENTDB_ACTION) {}

bool IsOpenYearPeriod(uint16_t period) {
  return (period >= 15 && period <= 27) || (period >= 29 && period <= 41);
}

FixedString<21> Id21(const std::string& id) {
  FixedString<21> f{};
  f = id.c_str();
  return f;
}

// Collects the first refusal of a transaction; later checks are skipped once one is made.
class Checks {
 public:
  explicit Checks(Refusal* refusal) : refusal_(refusal) {}
  bool ok() const { return ok_; }
  bool Refuse(const std::string& field, const std::string& reason) {
    if (ok_) *refusal_ = Refusal{field, reason};
    ok_ = false;
    return false;
  }
  // A text no longer than max characters.
  bool Fits(const std::string& field, const std::string& text, size_t max) {
    if (text.size() <= max) return true;
    return Refuse(field, "longer than " + std::to_string(max) + " characters");
  }
  // Must be empty: the journal does not read the field.
  bool Unused(const std::string& field, bool given, const char* journal) {
    if (!given) return true;
    return Refuse(field, std::string("not read by ") + journal);
  }

 private:
  Refusal* refusal_;
  bool ok_ = true;
};

// The name a refusal uses for a journal.
const char* JournalWord(const TrxSpec& t) {
  switch (t.journal) {
    case GENJ:
      return "general journal entries";
    case CRJ:
      return "receipts";
    case CDJ:
      return "disbursements";
    case SJ:
      return "sales";
    case PJ:
      return "purchases";
    case PRJ:
      return "payroll entries";
    case COGSJ:
      return "cost-of-goods entries";
    case INAJ:
      return "inventory adjustments";
    case ASBYJ:
      return "assemblies";
    case POJ:
      return "purchase orders";
    case SOJ:
      return "sales orders";
    default:
      return "this journal";
  }
}

DatesType ThirtyDaysAfter(DatesType date) {
  for (int i = 0; i < 30; ++i) IncDate(date, 1);
  return date;
}

}  // namespace

Poster::~Poster() {
  rows_.reset();  // it borrows files_
  RealCloseFile(&chart_, kHost, __LINE__);
  DeAllocateJournalRecord(&record_);
  DeAllocateJournalRecord(&invoice_);
  DeAllocateJournalRecord(&old_invoice_);
  RealCloseFile(&receipt_tags_, kHost, __LINE__);
  RealCloseFile(&costs_, kHost, __LINE__);
  RealCloseFile(&tags_, kHost, __LINE__);
  CloseJrnlFile(&files_);
}

bool Poster::Open(Outcome& out) {
  if (pfnCall_Extern_vJrnlAlarms == nullptr) pfnCall_Extern_vJrnlAlarms = NoAlarms;
  if (OpenJournalFile(&files_, kOpenModeNormal) == 0) {
    out.Fail("the journal files cannot be opened", GetErrorCode(nullptr));
    return false;
  }
  if (OpenInvTagFile(&tags_, &costs_, kOpenModeNormal) == 0) {
    out.Fail("the inventory tag file cannot be opened", GetErrorCode(nullptr));
    return false;
  }
  if (OpenRecptTagFile(&receipt_tags_, kOpenModeNormal) == 0) {
    out.Fail("the receipt tag file cannot be opened", GetErrorCode(nullptr));
    return false;
  }
  if (OpenChartFile(&chart_, kOpenModeNormal) == 0) {
    out.Fail("the chart of accounts cannot be opened", GetErrorCode(nullptr));
    return false;
  }
  rows_ = std::make_unique<JrnlRowHdrClass>(files_);
  if (AllocateJournalRecord(&record_) == 0 || AllocateJournalRecord(&invoice_) == 0 ||
      AllocateJournalRecord(&old_invoice_) == 0) {
    out.Fail("no memory for a transaction", kNoStatus);
    return false;
  }
  return true;
}

bool Poster::Build(const TrxSpec& t, Refusal* refusal) {
  Checks c(refusal);
  JournalRecord& r = *record_;
  std::memset(static_cast<void*>(&r), 0, sizeof r);
  settlements_.clear();
  line_items_.clear();
  card_item_ = 0;
  const JournalTypes j = t.journal;
  const char* word = JournalWord(t);
  const bool cash = j == CRJ || j == CDJ;
  const bool invoice = j == SJ || j == PJ;
  const bool order = j == SOJ || j == POJ;
  const bool inventory = j == INAJ || j == ASBYJ;

  r.Key1.JournalType = j;
  r.Key2.Date = t.date;
  r.Key1.Period = WhichGLperiod(t.date);
  if (!IsOpenYearPeriod(r.Key1.Period)) {
    return c.Refuse("date", "lies outside the two open fiscal years");
  }
  if (j == SJ) r.J.Sales.Area130.Journal12 = t.second_sales_journal ? 1 : 0;
  c.Unused("second_sales_journal", t.second_sales_journal && j != SJ, word);
  if (c.Fits("reference", t.reference, 20) && c.Fits("description", t.description, 30)) {
    r.Reference = t.reference.c_str();
    r.Description = t.description.c_str();
  }
  r.LedgerFlag = 1;

  // The card: who the transaction is with, by journal.
  const bool takes_customer = j == CRJ || j == CDJ || j == SJ || j == SOJ;
  const bool takes_vendor = j == CRJ || j == CDJ || j == PJ || j == POJ;
  c.Unused("customer", !t.customer.empty() && !takes_customer, word);
  c.Unused("vendor", !t.vendor.empty() && !takes_vendor, word);
  c.Unused("employee", !t.employee.empty() && j != PRJ, word);
  c.Unused("item", !t.item.empty() && !inventory, word);
  if (cash && !t.customer.empty() && !t.vendor.empty()) {
    c.Refuse("vendor", "a receipt or disbursement names a customer or a vendor, not both");
  }
  int32_t customer = 0, vendor = 0;
  if (c.ok() && !t.customer.empty()) {
    customer = GetRecordNumberFromCustomerID(Id21(t.customer));
    if (c.Fits("customer", t.customer, 20) && customer == 0) {
      c.Refuse("customer", "no customer " + t.customer);
    }
  }
  if (c.ok() && !t.vendor.empty()) {
    vendor = GetRecordNumberFromVendorID(Id21(t.vendor));
    if (c.Fits("vendor", t.vendor, 20) && vendor == 0) c.Refuse("vendor", "no vendor " + t.vendor);
  }
  if (!c.ok()) return false;
  if ((j == SJ || j == SOJ) && customer == 0)
    return c.Refuse("customer", "required for " + std::string(word));
  if ((j == PJ || j == POJ) && vendor == 0)
    return c.Refuse("vendor", "required for " + std::string(word));
  LineItemRecord item_record{};
  switch (j) {
    case CRJ:
      // A receipt from a customer settles that customer's invoices; one from a vendor
      // names the vendor as its second card and gets a shadow in the purchases.
      r.Key2.Qualifier = vendor != 0 ? 'P' : 'R';
      r.Key2.Card = customer;
      r.SecondFlag = customer != 0 ? 1 : 0;
      r.J.Cash.Area178.SecondCardFlag = vendor != 0 ? 1 : 0;
      r.J.Cash.Area178.SecondCard = vendor;
      break;
    case CDJ:
      r.Key2.Qualifier = customer != 0 ? 'R' : 'P';
      r.Key2.Card = vendor;
      r.SecondFlag = vendor != 0 ? 1 : 0;
      r.J.Cash.Area178.SecondCardFlag = customer != 0 ? 1 : 0;
      r.J.Cash.Area178.SecondCard = customer;
      break;
    case SJ:
    case SOJ:
      r.Key2.Qualifier = 'R';
      r.Key2.Card = customer;
      break;
    case PJ:
    case POJ:
      r.Key2.Qualifier = 'P';
      r.Key2.Card = vendor;
      break;
    case PRJ:
      if (t.employee.empty()) return c.Refuse("employee", "required for payroll entries");
      if (!c.Fits("employee", t.employee, 20)) return false;
      r.Key2.Card = GetEmployeeRecNo(Id21(t.employee));
      if (r.Key2.Card == 0) return c.Refuse("employee", "no employee " + t.employee);
      r.EmployeeID = t.employee.c_str();
      break;
    case INAJ:
    case ASBYJ:
      if (t.item.empty()) return c.Refuse("item", "required for " + std::string(word));
      if (!c.Fits("item", t.item, 20)) return false;
      card_item_ = GetRecordNumberFromLineItemID(Id21(t.item));
      if (card_item_ == 0 || GetLineItemRecByRecordNumber(card_item_, &item_record) == 0) {
        return c.Refuse("item", "no item " + t.item);
      }
      r.Key2.Card = card_item_;
      r.J.Inv.Quantity = t.quantity;
      break;
    default:
      break;
  }
  c.Unused("quantity", t.quantity != 0 && !inventory, word);
  c.Unused("due", t.has_due && !invoice && !order, word);
  if (!c.ok()) return false;

  // The header account, or the company's default for the journal.
  const bool takes_account = j != GENJ && j != COGSJ;
  if (!c.Unused("account", !t.account.empty() && !takes_account, word)) return false;
  if (takes_account) {
    FixedString<16> id{};
    bool found = false;
    if (!t.account.empty()) {
      if (!c.Fits("account", t.account, 15)) return false;
      id = t.account.c_str();
      found = true;
    } else if (j == CRJ) {
      found = GetDefaultCashAcnt(MOD_AR, id);
    } else if (j == CDJ) {
      found = GetDefaultCashAcnt(MOD_AP, id);
    } else if (j == PRJ) {
      found = GetDefaultCashAcnt(MOD_PR, id);
    } else if (j == SJ || j == SOJ) {
      found = GetARAcnt(id) != 0;
    } else if (j == PJ || j == POJ) {
      found = GetAPAcnt(id) != 0;
    } else if (j == INAJ) {
      found = GetAcctIDFromRecordNumber(item_record.SecondAccount, id) != 0;
    } else if (j == ASBYJ) {
      found = GetAcctIDFromRecordNumber(item_record.InventoryAccount, id) != 0;
    }
    if (!found || id.IsEmpty()) return c.Refuse("account", "no default account; give one");
    AccountType account{};
    if (!GetAccountInfo(id, &account))
      return c.Refuse("account", "no account " + std::string(id.c_str()));
    if (account.Inactive)
      return c.Refuse("account", "account " + std::string(id.c_str()) + " is inactive");
    r.HdrAccount = account.RecordNumber;
  }

  // Dates that events and the paid-in-full date read.
  if (invoice || order) {
    const DatesType due = t.has_due ? t.due : ThirtyDaysAfter(t.date);
    if (invoice) r.J.Sales.Area130.DueDate = due;
    if (j == SOJ) r.J.Order.Area130.ThirdDate = due;
    if (j == POJ) r.J.Order.Area130.FourthDate = due;
  }

  // Lines.
  const int capacity = j == PRJ ? kMaxPayrollFields : JournalLineCapacity(j);
  if (j == INAJ && !t.lines.empty()) return c.Refuse("lines", "an adjustment takes no lines");
  if (static_cast<int>(t.lines.size()) > capacity) {
    return c.Refuse("lines", "more than " + std::to_string(capacity) + " lines");
  }
  if (j != INAJ && t.lines.empty()) return c.Refuse("lines", "at least one line is required");
  double line_sum = 0;
  double component_costs = 0;
  for (size_t i = 0; i < t.lines.size() && c.ok(); ++i) {
    const LineSpec& l = t.lines[i];
    const std::string at = "lines[" + std::to_string(i + 1) + "].";
    int32_t account = 0;
    int32_t item = 0;
    LineItemRecord line_item{};
    if (!l.item.empty()) {
      if (!c.Fits(at + "item", l.item, 20)) break;
      item = GetRecordNumberFromLineItemID(Id21(l.item));
      if (item == 0 || GetLineItemRecByRecordNumber(item, &line_item) == 0) {
        c.Refuse(at + "item", "no item " + l.item);
        break;
      }
    }
    line_items_.push_back(item);
    if (!l.account.empty()) {
      AccountType found{};
      FixedString<16> id{};
      if (!c.Fits(at + "account", l.account, 15)) break;
      id = l.account.c_str();
      if (!GetAccountInfo(id, &found)) {
        c.Refuse(at + "account", "no account " + l.account);
        break;
      }
      if (found.Inactive) {
        c.Refuse(at + "account", "account " + l.account + " is inactive");
        break;
      }
      account = found.RecordNumber;
    } else if (j == ASBYJ && item != 0) {
      account = line_item.InventoryAccount;
    }
    if (account == 0) {
      c.Refuse(at + "account", "required");
      break;
    }
    if (!c.Fits(at + "description", l.description, 160)) break;
    c.Unused(at + "code", !l.code.empty() && j != PRJ, word);
    c.Unused(at + "invoice", !l.invoice.empty() && !cash, word);
    c.Unused(at + "cost", l.has_cost && j != SJ && j != ASBYJ, word);
    if (!c.ok()) break;

    if (j == PRJ) {
      c.Unused(at + "item", item != 0, word);
      c.Unused(at + "job", !l.job.empty(), word);
      if (!c.Fits(at + "code", l.code, 8)) break;
      if (!l.has_amount) c.Refuse(at + "amount", "required");
      if (!c.ok()) break;
      JrnlPayrollField& f = r.J.Payroll.Fields[i];
      f.Account = account;
      f.FieldIndex = static_cast<int16_t>(i);
      f.Code = l.code.c_str();
      f.Amount = Round(l.amount);
      line_sum += f.Amount;
      ++r.LineCount;
      continue;
    }

    JrnlDistLine& d = JournalLines(&r)[i];
    d.Account = account;
    d.Description = l.description.c_str();
    d.Item = item;
    d.Quantity = l.quantity;
    d.UnitPrice = l.unit_price;
    if (order) {
      c.Unused(at + "quantity", item == 0 && l.quantity != 0, "order lines without an item");
      d.OrderQuantity2 = l.quantity;
    }
    if (!l.job.empty()) {
      if (!c.Fits(at + "job", l.job, 20)) break;
      d.Job = GetProjNumFromID(Id21(l.job));
      if (d.Job == 0) c.Refuse(at + "job", "no job " + l.job);
    } else if (!l.phase.empty() || !l.cost_code.empty()) {
      c.Refuse(at + "job", "required with a phase or cost code");
    }
    if (c.ok() && !l.phase.empty()) {
      if (!c.Fits(at + "phase", l.phase, 20)) break;
      d.Phase = GetPhaseNumFromID(Id21(l.phase));
      if (d.Phase == 0) c.Refuse(at + "phase", "no phase " + l.phase);
    }
    if (c.ok() && !l.cost_code.empty()) {
      if (!c.Fits(at + "cost_code", l.cost_code, 20)) break;
      d.Cost = GetCostNumFromID(Id21(l.cost_code));
      if (d.Cost == 0) c.Refuse(at + "cost_code", "no cost code " + l.cost_code);
    }
    if (!c.ok()) break;

    if (j == ASBYJ) {
      // A component: its cost leaves the component's account and goes into the built item.
      if (item == 0) c.Refuse(at + "item", "required for a component");
      if (c.ok() && !l.has_cost) c.Refuse(at + "cost", "required for a component");
      c.Unused(at + "amount", l.has_amount, "assembly components (their cost is their amount)");
      if (!c.ok()) break;
      d.Amount = -Round(l.cost);
      component_costs += Round(l.cost);
    } else {
      if (!l.has_amount) {
        c.Refuse(at + "amount", "required");
        break;
      }
      d.Amount = Round(l.amount);
    }
    line_sum += d.Amount;

    if (l.has_cost) {  // a sale's item line: the cost moves from the item's two accounts
      if (j == SJ && item == 0) {
        c.Refuse(at + "item", "required with a cost");
        break;
      }
      if (j == SJ) {
        if (line_item.FirstAccount == 0 || line_item.SecondAccount == 0) {
          c.Refuse(at + "cost", "item " + l.item + " has no inventory and cost-of-sales accounts");
          break;
        }
        d.Counter[0].Account = line_item.FirstAccount;
        d.Counter[1].Account = line_item.SecondAccount;
      }
    }

    if (!l.invoice.empty()) {
      if (!c.Fits(at + "invoice", l.invoice, 20)) break;
      // Customers' invoices are sales, vendors' invoices purchases.
      const bool of_customer = customer != 0;
      const int32_t card = of_customer ? customer : vendor;
      if (card == 0) {
        c.Refuse(at + "invoice", "the transaction names no customer or vendor");
        break;
      }
      const uint32_t paid =
          GetInvoicePostOrderNumber(l.invoice.c_str(), of_customer ? 1 : 2, card, 0);
      if (paid == 0) {
        c.Refuse(at + "invoice",
                 "no invoice " + l.invoice + " of " +
                     (of_customer ? "customer " + t.customer : "vendor " + t.vendor));
        break;
      }
      d.Applied = 1;
      d.InvoiceRef = l.invoice.c_str();
      d.AppliedLink = paid;
      settlements_.push_back({paid, -d.Amount});
    }
    ++r.LineCount;
  }
  if (!c.ok()) return false;

  // The header amount: given, or what balances the lines.
  const bool takes_amount = j != GENJ && j != COGSJ;
  if (!c.Unused("amount", t.has_amount && !takes_amount, word)) return false;
  if (j == INAJ) {
    if (!t.has_amount) return c.Refuse("amount", "required: the value of the adjustment");
    if (item_record.InventoryAccount == 0) {
      return c.Refuse("item", "item " + t.item + " has no inventory account");
    }
    // The other side of the adjustment is the item's inventory account.
    r.Amount = Round(t.amount);
    JrnlDistLine& d = JournalLines(&r)[0];
    d.Account = item_record.InventoryAccount;
    d.Amount = -r.Amount;
    d.Item = card_item_;
    d.Quantity = t.quantity;
    r.LineCount = 1;
  } else if (takes_amount) {
    r.Amount = t.has_amount ? Round(t.amount) : Round(j == ASBYJ ? component_costs : -line_sum);
  }
  if (order) r.J.Order.OrderValue = r.Amount;
  if (j == PRJ) {
    // Payroll balances its fields against the cheque.
    if (!IsZero(r.Amount + line_sum)) {
      return c.Refuse("amount", "the entry does not balance: the fields come to " +
                                    Money(line_sum) + ", the cheque to " + Money(r.Amount));
    }
  } else if (!fIsJrnlBalanced(&r)) {
    return c.Refuse(takes_amount ? "amount" : "lines",
                    takes_amount
                        ? "the entry does not balance: the lines come to " + Money(line_sum) +
                              ", the header to " + Money(r.Amount)
                        : "the entry does not balance: the lines come to " + Money(line_sum));
  }

  char text[200] = {};
  if (CheckForDuplicateInvoice(&r, 1, text, sizeof text) != 0) return c.Refuse("reference", text);

  r.PostOrder = static_cast<uint32_t>(NextPostOrderNumber());
  r.Key1.TrxNumber = static_cast<int32_t>(NextTrxNumber(r.Key1));
  return true;
}

bool Poster::Post(const TrxSpec& t, PostedTrx* posted, Refusal* refusal, Outcome& out) {
  if (!Build(t, refusal)) return false;
  if (!bBeginBatchUpdate(files_.HdrFile)) {
    out.Fail("the journal files cannot be written", GetErrorCode(files_.HdrFile));
    return false;
  }
  bool ok = Write(t, refusal, out);
  if (!ok) {
    bAbortBatchUpdate(files_.HdrFile);
    return false;
  }
  if (bEndBatchUpdate(files_.HdrFile) == 0) {
    out.Fail("the transaction cannot be committed", GetErrorCode(files_.HdrFile));
    return false;
  }
  FixedString<16> key{};
  MakeKeyString(&record_->Key1, key);
  *posted = PostedTrx{key.c_str(), record_->PostOrder, record_->Amount};
  return true;
}

bool Poster::Write(const TrxSpec& t, Refusal* refusal, Outcome& out) {
  JournalRecord& r = *record_;
  const int16_t j = r.Key1.JournalType;
  // Every post order number from here on is this posting's: the transaction and its
  // shadow. Read inside the batch, where no other writer can take one.
  const uint32_t first_new = static_cast<uint32_t>(NextPostOrderNumber());
  if (first_new == 0) {
    out.Fail("the journal header file cannot be read", GetErrorCode(files_.HdrFile));
    return false;
  }
  // What the ledger changes by: the new transactions' rows, and the settled invoices' rows
  // as they are after the settlement against how they were before it (the same, unless
  // the rewrite of an invoice changed what its rows post).
  PeriodNets delta;
  std::vector<uint32_t> invoices;
  for (const Settlement& s : settlements_) invoices.push_back(s.invoice);
  std::sort(invoices.begin(), invoices.end());
  invoices.erase(std::unique(invoices.begin(), invoices.end()), invoices.end());
  for (uint32_t invoice : invoices) {
    if (!ReadLedger(invoice, invoice, -1, &delta, out)) return false;
  }
  if (MyCompany.CashBasis != 0 && (j == CRJ || j == CDJ) && !settlements_.empty()) {
    // Cash-basis books: each line that pays an invoice is spread over the invoice's lines,
    // so the receipt or payment carries the income or expense itself.
    std::vector<JrnlDistLine> given(JournalLines(&r), JournalLines(&r) + r.LineCount);
    std::memset(static_cast<void*>(JournalLines(&r)), 0, sizeof(JrnlDistLine) * given.size());
    r.LineCount = 0;
    for (const JrnlDistLine& l : given) {
      if (r.LineCount >= kMaxCashLines) {
        *refusal =
            Refusal{"lines", "more than " + std::to_string(kMaxCashLines) + " lines once spread"};
        return false;
      }
      JournalLines(&r)[r.LineCount++] = l;
      if (!l.Applied) continue;
      const int first = r.LineCount;
      unsigned short line = static_cast<unsigned short>(first);
      if (DoCashBasisStuff(&r, j, files_, receipt_tags_, &line, 1, nullptr) == 0) {
        *refusal =
            Refusal{"lines", "more than " + std::to_string(kMaxCashLines) + " lines once spread"};
        return false;
      }
      if (line > r.LineCount) r.LineCount = static_cast<int16_t>(line);
      // The spread lines still pay the invoice: its paid-in-full date looks for them.
      for (int k = first; k <= r.LineCount; ++k)
        JournalLines(&r)[k - 1].AppliedLink = l.AppliedLink;
    }
  }
  if (InsertJournal(files_, &r) == 0) {
    const uint16_t status = GetErrorCode(files_.HdrFile) != 0 ? GetErrorCode(files_.HdrFile)
                                                              : GetErrorCode(files_.RowFile);
    *refusal = Refusal{"", "the library did not post it (status " + std::to_string(status) + ")"};
    return false;
  }
  if (!SettleInvoices(out) || !WriteTags(t, out)) return false;
  for (uint32_t invoice : invoices) {
    if (!ReadLedger(invoice, invoice, 1, &delta, out)) return false;
  }
  return ReadLedger(first_new, UINT32_MAX, 1, &delta, out) && UpdateChart(delta, refusal, out);
}

// Adds, times sign, the ledger rows of post orders first to last to *nets; on a failed
// read records it in out and answers false.
bool Poster::ReadLedger(uint32_t first, uint32_t last, double sign, PeriodNets* nets,
                        Outcome& out) {
  const uint16_t status = AddLedgerRows(*rows_, files_, first, last, sign, nets);
  if (status == 0) return true;
  out.Fail("the posted rows cannot be read back", status);
  return false;
}

// Moves the chart's period amounts by delta; an account the chart lacks refuses the
// transaction, any other failure fails out.
bool Poster::UpdateChart(const PeriodNets& delta, Refusal* refusal, Outcome& out) {
  std::string what;
  uint16_t status = 0;
  if (ApplyToChart(chart_, delta, &what, &status)) return true;
  if (status == kStatusKeyNotFound) {
    *refusal = Refusal{"", what};
  } else {
    out.Fail(what, status);
  }
  return false;
}

// Adds what the lines paid to each invoice they settle; the library then works out the
// invoice's paid-in-full date and completes its due-date event.
bool Poster::SettleInvoices(Outcome& out) {
  for (const Settlement& s : settlements_) {
    std::memset(static_cast<void*>(invoice_), 0, sizeof *invoice_);
    invoice_->PostOrder = s.invoice;
    if (GetFileEqual(files_, kLockBiasNone, invoice_, 5) == 0) {
      out.Fail("an invoice that a payment settles cannot be read", GetErrorCode(files_.HdrFile));
      return false;
    }
    std::memcpy(static_cast<void*>(old_invoice_), invoice_, sizeof *invoice_);
    JrnlSalesHdr130& area = invoice_->J.Sales.Area130;
    area.AmountPaid = Round(area.AmountPaid + s.paid);
    area.PaymentDate = record_->Key2.Date;
    if (UpdateJournal(files_, invoice_, 5, old_invoice_) == 0) {
      out.Fail("an invoice that a payment settles cannot be updated", GetErrorCode(files_.HdrFile));
      return false;
    }
  }
  return true;
}

bool Poster::Tag(int32_t item, int16_t index, int8_t type, double cost, Outcome& out) {
  InvTagRec tag{};
  tag.ItemRecordNumber = item;
  tag.Date = record_->Key2.Date;
  tag.DistIndex = index;
  tag.TagType = type;
  tag.PostOrder = record_->PostOrder;
  tag.Cost = Round(cost);
  // The item's record of the day, once.
  InvTagRec daily{};
  daily.ItemRecordNumber = item;
  daily.Date = record_->Key2.Date;
  daily.TagType = kInvTagDaily;
  InvTagRec found = daily;
  const bool have_daily = GetFileEqual(tags_, kLockBiasNone, sizeof found, &found, 0) != 0;
  if (InsertRecord(tags_, sizeof tag, &tag) != 0 &&
      (have_daily || InsertRecord(tags_, sizeof daily, &daily) != 0)) {
    return true;
  }
  out.Fail("an inventory tag cannot be written", GetErrorCode(tags_));
  return false;
}

// The cost layers of the transaction: a sale's item lines, an adjustment, an assembly and
// its components. The journal rows read their amounts from these.
bool Poster::WriteTags(const TrxSpec& t, Outcome& out) {
  const JournalRecord& r = *record_;
  const int16_t j = r.Key1.JournalType;
  if (j == INAJ) return Tag(card_item_, 0, kInvTagSaleCost2, r.Amount, out);
  double built = 0;
  for (size_t i = 0; i < t.lines.size(); ++i) {
    if (!t.lines[i].has_cost) continue;
    const int16_t index = static_cast<int16_t>(i);
    const double cost = Round(t.lines[i].cost);
    if (j == SJ && !Tag(line_items_[i], index, kInvTagSaleCost, cost, out)) return false;
    if (j == ASBYJ) {
      if (!Tag(line_items_[i], index, kInvTagAssemblyCost, -cost, out)) return false;
      built += cost;
    }
  }
  if (j == ASBYJ) return Tag(card_item_, -1, kInvTagAssemblyCost, built, out);
  return true;
}

}  // namespace host
