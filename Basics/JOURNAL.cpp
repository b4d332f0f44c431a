// The journal model: allocation of the in-memory transaction, the transaction-key text
// forms, partner and shadow keys, journal names and distribution-line descriptions.
#include "JOURNAL.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "General.h"
#include "journldb_internal.h"
#include "utility.h"

namespace {

struct JournalNames {
  const char* code;
  const char* short_name;
  int message;  // long name; 0 when the journal has none
};

constexpr JournalNames kNames[] = {
    {"GENJ", "General Jrnl.", 311}, {"CRJ", "Receipt", 313},    {"CDJ", "Disbursement", 310},
    {"SJ", "Sales", 314},           {"PJ", "Purchase", 312},    {"PRJ", "Payroll", 315},
    {"COGS", "Assembly", 316},      {"INAJ", "Inv. Adj.", 317}, {"ASBY", "Assembly", 318},
    {"INAJ", "Inv. Adj.", 0},       {"POJ", "P.O.", 319},       {"SOJ", "S.O.", 320},
    {"SJ", "Sales", 321},
};
constexpr int kJournalCount = static_cast<int>(sizeof(kNames) / sizeof(kNames[0]));
constexpr const char* kUnusedJournal = "<unused journal>";

bool KnownJournal(int16_t journal) { return journal >= 0 && journal < kJournalCount; }

// Copies text when size (in characters) holds it; leaves out alone otherwise.
void CopyIfFits(const char* text, uint16_t size, char* out) {
  if (out == nullptr) return;
  size_t len = std::strlen(text);
  if (size >= len) std::memcpy(out, text, len + 1);
}

}  // namespace

JrnlDistLine* JournalLines(JournalRecord* record) {
  switch (record->Key1.JournalType) {
    case GENJ:
      return record->J.Gen.Lines;
    case CRJ:
    case CDJ:
      return record->J.Cash.Lines;
    case SJ:
    case PJ:
    case SJ2:
      return record->J.Sales.Lines;
    case POJ:
    case SOJ:
      return record->J.Order.Lines;
    case COGSJ:
    case INAJ:
    case ASBYJ:
    case INAJ2:
      return record->J.Inv.Lines;
    default:
      return nullptr;
  }
}

const JrnlDistLine* JournalLines(const JournalRecord* record) {
  return JournalLines(const_cast<JournalRecord*>(record));
}

int JournalLineCapacity(int16_t journal) {
  if (journal == PRJ) return kMaxPayrollFields;
  if (journal == CRJ || journal == CDJ) return kMaxCashLines;
  return KnownJournal(journal) ? kMaxJrnlLines : 0;
}

unsigned char AllocateJournalRecord(JournalRecord** record) {
  if (record == nullptr) return 0;
  // Zeroed, so that a new record is an empty transaction with null GUIDs.
  *record = static_cast<JournalRecord*>(std::calloc(1, sizeof(JournalRecord)));
  return *record != nullptr ? 1 : 0;
}

unsigned char DeAllocateJournalRecord(JournalRecord** record) {
  if (record == nullptr) return 0;
  std::free(*record);
  *record = nullptr;
  return 1;
}

void MakeKeyString(const JournalKey1Type* key, FixedString<16>& out) {
  if (key == nullptr) return;
  unsigned short user = UserPeriod(key->Period, Current.PeriodsPerYear);
  char period[16];
  if (user != 0) {
    std::snprintf(period, sizeof period, "%3u", static_cast<unsigned>(user));
    period[0] = ' ';
  } else {
    std::snprintf(period, sizeof period, "%3u", static_cast<unsigned>(key->Period));
    period[0] = 'p';
  }
  char text[64];
  std::snprintf(text, sizeof text, "%s-%9.9d", period, static_cast<int>(key->TrxNumber));
  for (int i = 1; i < 15 && text[i] != '\0'; ++i) {
    if (text[i] == ' ') text[i] = '0';
  }
  text[15] = '\0';
  out.Set(text);
}

void MakeJournalKey(int16_t journal, const char* text, JournalKey1Type* key,
                    const JournalKey2Type* key2) {
  if (key == nullptr) return;
  key->JournalType = journal;
  if (text == nullptr) text = "";
  const char prefix = text[0];
  std::string period_digits, number_digits;
  size_t i = prefix != '\0' ? 1 : 0;
  while (std::isdigit(static_cast<unsigned char>(text[i]))) period_digits += text[i++];
  while (text[i] != '\0' && !std::isdigit(static_cast<unsigned char>(text[i]))) ++i;
  while (std::isdigit(static_cast<unsigned char>(text[i]))) number_digits += text[i++];
  if (!number_digits.empty()) {
    if (prefix != 'p') {
      // The prefix (the blank that MakeKeyString writes) stands for a leading zero.
      const int user = std::atoi(("0" + period_digits).c_str());
      key->Period =
          user > 0 ? InternalPeriod(static_cast<unsigned short>(user), Current.PeriodsPerYear) : 0;
    } else {
      key->Period = static_cast<uint16_t>(std::atoi(("0" + period_digits).c_str()));
    }
    key->TrxNumber = static_cast<int32_t>(std::strtol(number_digits.c_str(), nullptr, 10));
  } else {
    const std::string whole = std::string(1, prefix) + period_digits;
    key->TrxNumber = static_cast<int32_t>(std::strtol(whole.c_str(), nullptr, 10));
    key->Period = key2 != nullptr ? WhichGLperiod(key2->Date) : 0;
  }
}

unsigned char MakeShadowOfJournalKey(JournalKey1Type* out, const JournalKey1Type* in) {
  if (out == nullptr || in == nullptr) return 0;
  if (in->Shadow != 0 || (in->JournalType != CRJ && in->JournalType != CDJ)) return 0;
  *out = *in;
  out->JournalType = in->JournalType == CRJ ? SJ : PJ;
  out->Shadow = 1;
  return 1;
}

unsigned char MakePartnerOfJournalKey(JournalKey1Type* out, const JournalKey1Type* in) {
  if (out == nullptr || in == nullptr) return 0;
  // The test is on the output key: a key made partner once is not made partner again.
  if (out->PartnerFlag != 0) return 0;
  const int16_t journal = in->JournalType;
  if (journal != SJ && journal != PJ && journal != GENJ) return 0;
  if (journal == GENJ && in->Period >= 41) return 0;
  *out = *in;
  if (journal == SJ) out->JournalType = CRJ;
  if (journal == PJ) out->JournalType = CDJ;
  if (journal == GENJ) {
    unsigned short period = in->Period;
    if (!IncPeriod(&period)) period = static_cast<unsigned short>(in->Period + 1);
    out->Period = period;
  }
  out->PartnerFlag = 1;
  return 1;
}

void GetJournalNameEx(int16_t journal, int16_t variant, uint16_t size, char* out) {
  int message = KnownJournal(journal) ? kNames[journal].message : 0;
  if (journal == SJ && variant == 2) message = 322;
  if (journal == PJ && variant == 3) message = 323;
  const char* text = message != 0 ? MessageText(message) : nullptr;
  char name[30];
  sstrcpy(name, text != nullptr && *text != '\0' ? text : kUnusedJournal, sizeof name);
  CopyIfFits(name, size, out);
}

void GetJournalName(int16_t journal, uint16_t size, char* out) {
  GetJournalNameEx(journal, -1, size, out);
}

void GetJournalNameShort(int16_t journal, uint16_t size, char* out) {
  if (out == nullptr) return;
  if (journal == COGSJ) {
    std::strcpy(out, "COGS");  // always: a buffer too short for "Assembly" reads COGS
  }
  CopyIfFits(KnownJournal(journal) ? kNames[journal].short_name : kUnusedJournal, size, out);
}

const char* GetJrnlName(int16_t journal) {
  return KnownJournal(journal) ? kNames[journal].code : "????";
}

void GetDistribDescription(const JournalRecord* record, int16_t line, uint16_t size, char* out) {
  if (out == nullptr || size == 0) return;
  out[0] = '\0';
  if (record == nullptr) return;
  const int16_t journal = record->Key1.JournalType;
  const JrnlDistLine* lines = JournalLines(record);
  if (lines == nullptr || line < 0 || line >= JournalLineCapacity(journal)) {
    if (journal != GENJ) sstrcpy(out, record->Description, size < 31 ? size : 31);
    return;
  }
  const JrnlDistLine& l = lines[line];
  std::string text;
  if (journal != GENJ) text.assign(record->Description.s, strnlen(record->Description.s, 30));
  auto append_description = [&] {
    if (l.Description.IsEmpty()) return;
    text += " - ";  // separator before a line description
    text.append(l.Description.s, strnlen(l.Description.s, 160));
  };
  auto append_item = [&] {
    FixedString<21> id;
    JrnlItemID(l.Item, id);
    text += " - Item: ";
    text += id.s;
  };
  switch (journal) {
    case GENJ:
      text.append(l.Description.s, strnlen(l.Description.s, 160));
      break;
    case CRJ:
    case CDJ:
      if (l.Applied) {
        text += " - Invoice: ";
        text.append(l.InvoiceRef.s, strnlen(l.InvoiceRef.s, 20));
      } else if (l.Item != 0 && !l.Flag) {
        append_item();
      }
      append_description();
      break;
    case SJ:
    case PJ:
    case POJ:
    case SOJ:
      if (!l.Applied && l.Item != 0) append_item();
      append_description();
      break;
    default:
      break;
  }
  sstrcpy(out, text.c_str(), size);
}
