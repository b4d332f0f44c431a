// Direct reads of journal rows and headers through the journal store's own look-up handles,
// and the text identifiers under which the general ledger keeps rows and buckets.
#include <cstring>

#include "LineItemDcl.h"
#include "journldb.h"
#include "journldb_internal.h"
#include "utility.h"

namespace {

typedef uint8_t (*Read)(BtrvFile*, uint16_t, uint32_t, void*, int16_t);

template <typename Record>
int ReadThrough(BtrvFile* file, Read read, Record* record, int key) {
  if (record == nullptr || file == nullptr) return 0;
  return read(file, kLockBiasNone, sizeof(Record), record, static_cast<int16_t>(key)) ? 1 : 0;
}

}  // namespace

int GetRowByKey(JrnlRowType* row, int key) {
  return ReadThrough(JrnlLookupRowFile(), ::GetFileEqual, row, key);
}
int GetFirstRowByKey(JrnlRowType* row, int key) {
  return ReadThrough(JrnlLookupRowFile(), ::GetFileGE, row, key);
}
int GetNextRowByKey(JrnlRowType* row, int key) {
  return ReadThrough(JrnlLookupRowFile(), ::GetFileNext, row, key);
}
int GetHdrByKey(JrnlHdrType* hdr, int key) {
  return ReadThrough(JrnlLookupHdrFile(), ::GetFileEqual, hdr, key);
}

void GenerateUniqueGLRowID(CString& out, JrnlRowHdrClass& navigator) {
  const JrnlRowType& row = navigator.Row;
  if (row.Kind == kRowInventoryCost1 || row.Kind == kRowInventoryCost2) {
    // Below-zero rows have no transaction of their own: one per item, day and side.
    GUID item;
    GetLineItemGUIDFromRecordNumber(row.Item, item);
    out.Format("%s-%.02i-%.02i-%i-%i", GUIDToString(item).c_str(), row.Date.month, row.Date.day,
               row.Date.year, row.Amount > 0 ? 1 : 0);
    return;
  }
  const std::string trx = GUIDToString(navigator.Hdr.Guid);
  if (row.Job != 0) {
    // Payroll spreads one field over several jobs: the entry's index tells them apart.
    out.Format("%s-%i-%i-%i", trx.c_str(), row.LineNumber, row.Kind, row.Value344);
  } else {
    out.Format("%s-%i-%i", trx.c_str(), row.LineNumber, row.Kind);
  }
}

void GenerateUniqueGLBucketID(CString& out, GUID& guid, int number, bool flag) {
  out.Format("%s-%i-%i", GUIDToString(guid).c_str(), number, flag ? 1 : 0);
}
