// The header/row navigator: the caller's walk over journal rows and headers on a primary
// pair, the look-ups made on the caller's behalf on a private read-only pair (so that they
// never move the walk), the completion of inventory rows' amounts from the cost layers, and
// the listing texts of a row.
#include <cstring>
#include <memory>

#include "InvTagDcl.h"
#include "LineItemDcl.h"
#include "OpenDat.h"
#include "PROJECT.h"
#include "journldb.h"
#include "utility.h"

namespace {

bool IsBelowZeroRow(const JrnlRowType& row) {
  return row.Kind == kRowInventoryCost1 || row.Kind == kRowInventoryCost2;
}

// Text of a fixed field that may fill its whole width without a terminator.
template <size_t N>
void AppendField(CString& text, const char (&field)[N]) {
  FixedString<N + 1> copy;
  Assign(copy, field, N);
  text += copy.s;
}

template <size_t N>
bool FieldEmpty(const char (&field)[N]) {
  return field[0] == '\0';
}

CString ItemID(int32_t item) {
  FixedString<21> id;
  GetLineItemIDFromRecordNumber(item, id);
  return CString(id.s);
}

}  // namespace

JrnlRowHdrClass::JrnlRowHdrClass(int16_t mode) {
  ClearRow();
  ClearHeader();
  if (!OpenJournalFile(&primary_, static_cast<uint16_t>(mode))) return;
  if (!OpenJournalFile(&lookup_, kOpenModeReadOnly)) {
    CloseJrnlFile(&primary_);
    return;
  }
  usable_ = 1;
}

JrnlRowHdrClass::JrnlRowHdrClass(const JrnlDBFilesType& files) {
  // A borrowed pair counts as usable whatever becomes of the look-up pair: the caller's own
  // walk works either way, and look-ups then answer 0.
  usable_ = 1;
  owns_primary_ = 0;
  primary_ = files;
  ClearRow();
  ClearHeader();
  OpenJournalFile(&lookup_, kOpenModeReadOnly);
}

JrnlRowHdrClass::~JrnlRowHdrClass() {
  if (owns_primary_) CloseJrnlFile(&primary_);
  CloseJrnlFile(&lookup_);
  if (sort_file_ != nullptr) {
    RealCloseFile(&sort_file_, "Basics/journldb", __LINE__);
    if (sort_file_name_[0] != '\0') FileDeleteWithLCK(sort_file_name_);
  }
  DeAllocateJournalRecord(&rollup_);
}

void JrnlRowHdrClass::ClearHeader() { std::memset(&Hdr, 0, sizeof Hdr); }
void JrnlRowHdrClass::ClearRow() { std::memset(&Row, 0, sizeof Row); }

int JrnlRowHdrClass::CloseAndReopenFiles() {
  CloseJrnlFile(&primary_);
  const int ok = OpenJournalFile(&primary_, kOpenModeNormal);
  // The caller's handles are gone; the reopened pair is the navigator's to close.
  owns_primary_ = 1;
  return ok;
}

// --- Rows -------------------------------------------------------------------------------------

#define JRNL_ROW_READ(Name, Op)                                                  \
  int JrnlRowHdrClass::Name(int16_t key) {                                       \
    if (!::Op(primary_.RowFile, kLockBiasNone, sizeof Row, &Row, key)) return 0; \
    CompleteRow();                                                               \
    return 1;                                                                    \
  }
JRNL_ROW_READ(GetRowEqual, GetFileEqual)
JRNL_ROW_READ(GetRowGE, GetFileGE)
JRNL_ROW_READ(GetRowGreater, GetFileGreater)
JRNL_ROW_READ(GetRowNext, GetFileNext)
JRNL_ROW_READ(GetRowLE, GetFileLE)
JRNL_ROW_READ(GetRowLess, GetFileLess)
#undef JRNL_ROW_READ

// Inventory rows are stored without their cost: the amount comes from the cost layers of the
// transaction's distribution (the row's line number - 1, so -1 on a line's own row). The two
// rows of one movement take the two sides of one adjustment: odd kinds the first amount, even
// kinds the second, and a sale's cost negated on its second row.
void JrnlRowHdrClass::CompleteRow() {
  const uint32_t post = Row.PostOrder;
  const int16_t index = static_cast<int16_t>(Row.LineNumber - 1);
  const int32_t journal = Row.JournalType;
  double first = 0, second = 0;
  int32_t link1 = 0, link2 = 0;
  switch (Row.Kind) {
    case kRowDistribution:
      // The row's fields are unaligned: the queries write into locals.
      if (journal == ASBYJ) {
        if (GetAssemblyCost(post, index, &first)) Row.Amount = first;
      } else if (journal == INAJ) {
        Row.Amount = GetInvAdjCost(post, index);
      }
      break;
    case kRowCounter1:
    case kRowCounter2: {
      if (!IsZero(Row.Amount)) break;
      const bool first_side = Row.Kind == kRowCounter1;
      if (journal == CRJ || journal == SJ) {
        const double cost = GetSaleCost(post, index);
        Row.Amount = first_side ? cost : -cost;
      } else if (journal == CDJ || journal == PJ) {
        // A purchase return: the row is then the return's adjustment, an inventory journal row.
        if (GetPurchaseRetAdj(post, index, &first, &second, &link1, &link2)) {
          Row.Amount = first_side ? first : second;
          Row.JournalType = INAJ;
        }
      }
      break;
    }
    case kRowInventoryCost1:
    case kRowInventoryCost2:
      if (GetBelowZeroAdj(Row.Item, Row.Date, &first, &second, &link1, &link2)) {
        Row.Amount = Row.Kind == kRowInventoryCost1 ? first : second;
      }
      break;
    case kRowItemAccount1:
    case kRowItemAccount2:
      if (GetAssemblyUnbuildAdj(post, -1, &first, &second, &link1, &link2)) {
        Row.Amount = Row.Kind == kRowItemAccount1 ? first : second;
      }
      break;
    default:
      break;
  }
}

// --- Headers ----------------------------------------------------------------------------------

#define JRNL_HDR_READ(Name, Op)                                                        \
  int JrnlRowHdrClass::Name(int16_t key, int16_t lock) {                               \
    return ::Op(primary_.HdrFile, static_cast<uint16_t>(lock), sizeof Hdr, &Hdr, key); \
  }
JRNL_HDR_READ(GetHdrEqual, GetFileEqual)
JRNL_HDR_READ(GetHdrGreater, GetFileGreater)
JRNL_HDR_READ(GetHdrNext, GetFileNext)
JRNL_HDR_READ(GetHdrPrevious, GetFilePrevious)
JRNL_HDR_READ(GetHdrGE, GetFileGE)
JRNL_HDR_READ(GetHdrLess, GetFileLess)
JRNL_HDR_READ(GetHdrLE, GetFileLE)
JRNL_HDR_READ(GetHdrLowest, GetFileLowest)
JRNL_HDR_READ(GetHdrHighest, GetFileHighest)
#undef JRNL_HDR_READ

int JrnlRowHdrClass::UpdateJrnlHdr(int16_t key) {
  return ::UpdateFile(primary_.HdrFile, sizeof Hdr, &Hdr, key);
}
int JrnlRowHdrClass::UpdateJrnlRow(int16_t key) {
  return ::UpdateFile(primary_.RowFile, sizeof Row, &Row, key);
}

// --- Look-ups on the private pair ---------------------------------------------------------------

int JrnlRowHdrClass::GetHdrForRow() {
  ClearHeader();
  if (IsBelowZeroRow(Row)) {
    // Below-zero adjustments are the system's own: they have no stored header.
    Hdr.Key1.JournalType = INAJ2;
    Hdr.Key2.Card = Row.Item;
    Hdr.Key2.Date = Row.Date;
    Hdr.LedgerFlag = 1;
    Hdr.PostOrder = Row.PostOrder;
    sstrcpy(Hdr.Reference, "SysCost", sizeof Hdr.Reference);
    return 1;
  }
  if (lookup_.HdrFile == nullptr) return 0;
  Hdr.PostOrder = Row.PostOrder;
  if (::GetFileEqual(lookup_.HdrFile, kLockBiasNone, sizeof Hdr, &Hdr, 5)) return 1;
  ClearHeader();
  return 0;
}

int JrnlRowHdrClass::GetHdrForRow_CacheByPostOrder() {
  if (!IsBelowZeroRow(Row) && Hdr.PostOrder == Row.PostOrder) return 1;
  return GetHdrForRow();
}

int JrnlRowHdrClass::GetMainRowForHeader() {
  ClearRow();
  Row.PostOrder = Hdr.PostOrder;
  if (lookup_.RowFile == nullptr) return 0;
  return ::GetFileEqual(lookup_.RowFile, kLockBiasNone, sizeof Row, &Row, 1);
}

int JrnlRowHdrClass::GetJrnlForCurrentJrnlHdr(JournalRecord* record) {
  if (record == nullptr || lookup_.HdrFile == nullptr) return 0;
  // The post order is the key of the read; a failed read leaves the record as it was.
  const uint32_t saved = record->PostOrder;
  record->PostOrder = Hdr.PostOrder;
  if (::GetFileEqual(lookup_, kLockBiasNone, record, 5)) return 1;
  record->PostOrder = saved;
  return 0;
}

bool JrnlRowHdrClass::IsJobBegBal() {
  const int16_t journal = Hdr.Key1.JournalType;
  if (Hdr.BegBalFlag == 0 || (journal != CRJ && journal != CDJ)) return false;
  ClearRow();
  Row.PostOrder = Hdr.PostOrder;
  Row.LineNumber = 1;
  // A failed read leaves the cleared row: no job.
  if (lookup_.RowFile != nullptr) {
    ::GetFileEqual(lookup_.RowFile, kLockBiasNone, sizeof Row, &Row, 1);
  }
  return Row.Job != 0;
}

bool JrnlRowHdrClass::IsJrnlHdrBankRecBegBal() {
  if (Hdr.BegBalFlag == 0 || lookup_.RowFile == nullptr) return false;
  JrnlRowType row;
  std::memset(&row, 0, sizeof row);
  row.PostOrder = Hdr.PostOrder;
  int rows = 0;
  for (uint8_t ok = ::GetFileGE(lookup_.RowFile, kLockBiasNone, sizeof row, &row, 1);
       ok && row.PostOrder == Hdr.PostOrder && rows < 2;
       ok = ::GetFileNext(lookup_.RowFile, kLockBiasNone, sizeof row, &row, 1)) {
    ++rows;
  }
  return rows == 1;
}

int32_t JrnlRowHdrClass::GetNumRecords() {
  const int32_t count = primary_.HdrFile == nullptr ? 0 : NumRecsInFile(primary_.HdrFile);
  return count < 0 ? 0 : count;
}

int32_t JrnlRowHdrClass::GetNumRows() {
  const int32_t count = primary_.RowFile == nullptr ? 0 : NumRecsInFile(primary_.RowFile);
  return count < 0 ? 0 : count;
}

// --- Texts ------------------------------------------------------------------------------------

void JrnlRowHdrClass::GetRowTrxDesc(CString& text) {
  const int32_t journal = Row.JournalType;
  CString description;
  AppendField(description, Hdr.Description);
  // Payroll fields keep their code in the short code text; other rows name their item.
  const bool names_item = static_cast<signed char>(Row.ShortCode[0]) <= 0 && Row.Item != 0;
  if (journal == GENJ || journal == INAJ) {
    text = "";
  } else {
    text = description;
    if (Row.LineNumber == 0) return;
  }
  switch (journal) {
    case GENJ:
      text = "";
      AppendField(text, Row.Description);
      break;
    case CRJ:
    case CDJ:
      if (!FieldEmpty(Row.InvoiceReference)) {
        text = description;
        text += " - Invoice: ";
        AppendField(text, Row.InvoiceReference);
      } else if (names_item) {
        text += " - Item: ";
        text += ItemID(Row.Item);
      }
      if (!FieldEmpty(Row.Description)) {
        text += " - ";
        AppendField(text, Row.Description);
      }
      break;
    case SJ:
    case PJ:
    case POJ:
    case SOJ:
      if (names_item) {
        text += " - Item: ";
        text += ItemID(Row.Item);
      }
      if (!FieldEmpty(Row.Description)) {
        text += " - ";
        AppendField(text, Row.Description);
      }
      break;
    case INAJ:
      if (Row.Kind != kRowCounter1 && Row.Kind != kRowCounter2) {
        text = description;
        break;
      }
      text = " Purchase Return Adjustment - Item: ";
      text += ItemID(Row.Item);
      if (!FieldEmpty(Row.Description)) {
        text += " - ";
        AppendField(text, Row.Description);
      }
      break;
    case INAJ2: {
      text = "System Cost Adjustment ";
      auto item = std::make_unique<LineItemRecord>();
      if (GetLineItemRecByRecordNumber(Row.Item, item.get())) {
        text += "- Item: ";
        text += item->ItemID.s;
        text += " - ";
        text += item->Description.s;
      }
      break;
    }
    default:
      break;
  }
}

void JrnlRowHdrClass::SetJobPhaseCostRow(FixedString<63>& text, const JrnlRowType* row) {
  text.Clear();
  if (row == nullptr || row->Job == 0) return;
  FixedString<21> job;
  if (!GetProjIDFromNum(row->Job, job)) return;
  text = job.s;
  FixedString<21> part;
  if (row->Phase[0] != '\0') {
    Assign(part, row->Phase);
    Append(text, ",");
    Append(text, part.s);
  }
  if (row->CostCode[0] != '\0') {
    Assign(part, row->CostCode);
    Append(text, ",");
    Append(text, part.s);
  }
}
