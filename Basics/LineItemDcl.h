// Inventory items and their sub-items: look-ups by ID, record number, GUID and UPC/SKU,
// order quantities and the available quantity, the deletion and duplicate rules, and the
// writes that keep a master's sub-items in step with it. Owns two read-only item handles
// (ItemFile for browsing, a second one for conversions) and read-only journal handles for
// the order-quantity walk, all opened on first use and closed by CloseInternalItemFile.
// Builds on OpenDat, General and the journal layouts. Not thread-safe: the host serialises
// its calls (GetQtyOnSOPO alone also uses the calling thread's inventory-tag handle).
#ifndef BASICS_LINEITEMDCL_H_
#define BASICS_LINEITEMDCL_H_

#include <cstddef>
#include <cstdint>

#include "JOURNAL.h"
#include "dialog.h"
#include "record_manager.h"
#include "zor_types.h"

#pragma pack(push, 1)

// One value list of an attribute (size, colour ...), 541 bytes.
//   offset  size  field
//        0    21  attribute name
//       21  20x5  value codes (4 characters and terminator)
//      121 20x21  value descriptions
struct ItemAttributeBlock {
  FixedString<21> Name;
  FixedString<5> Codes[20];
  FixedString<21> Descriptions[20];
};

// One component of an item built from components, 29 bytes; only the record number is
// read here, the rest belongs to the host.
struct ItemComponent {
  int32_t RecordNumber;
  uint8_t reserved4[25];
};

// LineItemRecord, one record of the item file, 6267 bytes. Fields the library reads or
// writes; every other byte belongs to the host's item maintenance and is carried unchanged.
// "Inherited" fields are the ones a sub-item takes from its master.
//   offset  size  field
//        0    21  item ID; key 0
//       21    16  GUID; key 13
//       37    31  description (inherited)
//       68     4  record number (s32); key 2
//       72     1  inherited one-byte field (the attribute screen sets it per sub-item)
//       73    21  UPC/SKU; key 5
//       94     4  parent's record number of a sub-item, 0 for other items; key 6
//       98    21  parent's ID of a sub-item
//      119     2  item class (s16): 1, 3, 8 (master with sub-items) and 9 (sub-item) take
//                 part in order quantities; key 10 with the component count
//      121     2  number of components (s16)
//      123     5  a sub-item's second-attribute code
//      128   161  inherited text
//      289   161  inherited text
//      450     9  inherited          459  7  inherited
//      466     4  inventory account record number (s32, inherited)
//      470     2  inherited
//     1144     4  first item account record number (s32, inherited): the account of an
//                 inventory adjustment's or assembly's kind-9 item-account row
//     1148     4  second item account record number (s32, inherited): the kind-10 row's
//     1152    21  inherited (a new sub-item takes only its first 4 bytes)
//     1173    16  four 32-bit values, cleared in a new sub-item
//     1440 100x29 component list
//     4340  5x41  five inherited fields
//     4545     2  inherited
//     4547 10x55  ten inherited entries
//     5097    11  inherited         5108  1  inherited         5118  8  inherited
//     5126     4  inherited (s32)
//     5130   541  first attribute block
//     5671   541  second attribute block
//     6212     5  a sub-item's first-attribute code
//     6217    21  a sub-item's first-attribute value description
//     6238    21  a sub-item's second-attribute value description
//     6259     4  number of first-attribute values (s32, at most 20)
//     6263     4  number of second-attribute values (s32; 0 with one attribute)
struct LineItemRecord {
  FixedString<21> ItemID;
  GUID Guid;
  FixedString<31> Description;
  int32_t RecordNumber;
  uint8_t Inherited72;
  FixedString<21> UpcSku;
  int32_t ParentRecordNumber;
  FixedString<21> ParentID;
  int16_t ItemClass;
  int16_t ComponentCount;
  FixedString<5> SecondAttributeCode;
  char Text128[161];
  char Text289[161];
  uint8_t Field450[9];
  uint8_t Field459[7];
  int32_t InventoryAccount;
  uint8_t Field470[2];
  uint8_t reserved472[672];
  int32_t FirstAccount;
  int32_t SecondAccount;
  uint8_t Field1152[21];
  int32_t Values1173[4];
  uint8_t reserved1189[251];
  ItemComponent Components[100];
  uint8_t Fields4340[5][41];
  uint8_t Field4545[2];
  uint8_t Entries4547[10][55];
  uint8_t Field5097[11];
  uint8_t Field5108[1];
  uint8_t reserved5109[9];
  uint8_t Field5118[8];
  int32_t Field5126;
  ItemAttributeBlock FirstAttributes;
  ItemAttributeBlock SecondAttributes;
  FixedString<5> FirstAttributeCode;
  FixedString<21> FirstAttributeDesc;
  FixedString<21> SecondAttributeDesc;
  int32_t FirstValueCount;
  int32_t SecondValueCount;
};

// One row of the host's attribute screen, 73 bytes: the sub-item's ID and, at 71, the
// value of its one-byte inherited field (item offset 72). The other bytes are the host's.
struct ITEM_ATTRIBUTES_LERowStruct {
  FixedString<21> ItemID;
  uint8_t reserved21[50];
  uint8_t Value72;
  uint8_t reserved72[1];
};

#pragma pack(pop)

static_assert(sizeof(ItemAttributeBlock) == 541, "attribute block is 541 bytes");
static_assert(offsetof(ItemAttributeBlock, Codes) == 21 &&
                  offsetof(ItemAttributeBlock, Descriptions) == 121,
              "attribute codes at 21, descriptions at 121");
static_assert(sizeof(ItemComponent) == 29, "component entry is 29 bytes");
static_assert(sizeof(LineItemRecord) == 6267, "LineItemRecord is 6267 bytes");
static_assert(offsetof(LineItemRecord, Guid) == 21 && offsetof(LineItemRecord, Description) == 37 &&
                  offsetof(LineItemRecord, RecordNumber) == 68 &&
                  offsetof(LineItemRecord, Inherited72) == 72 &&
                  offsetof(LineItemRecord, UpcSku) == 73,
              "item identity fields");
static_assert(offsetof(LineItemRecord, ParentRecordNumber) == 94 &&
                  offsetof(LineItemRecord, ParentID) == 98 &&
                  offsetof(LineItemRecord, ItemClass) == 119 &&
                  offsetof(LineItemRecord, ComponentCount) == 121 &&
                  offsetof(LineItemRecord, SecondAttributeCode) == 123,
              "item parent, class and components");
static_assert(offsetof(LineItemRecord, Text128) == 128 &&
                  offsetof(LineItemRecord, Text289) == 289 &&
                  offsetof(LineItemRecord, Field450) == 450 &&
                  offsetof(LineItemRecord, Field459) == 459 &&
                  offsetof(LineItemRecord, InventoryAccount) == 466 &&
                  offsetof(LineItemRecord, Field470) == 470,
              "inherited fields 128 to 470");
static_assert(offsetof(LineItemRecord, FirstAccount) == 1144 &&
                  offsetof(LineItemRecord, SecondAccount) == 1148 &&
                  offsetof(LineItemRecord, Field1152) == 1152 &&
                  offsetof(LineItemRecord, Values1173) == 1173 &&
                  offsetof(LineItemRecord, Components) == 1440,
              "inherited fields 1144 to 1152, values at 1173, components at 1440");
static_assert(offsetof(LineItemRecord, Fields4340) == 4340 &&
                  offsetof(LineItemRecord, Field4545) == 4545 &&
                  offsetof(LineItemRecord, Entries4547) == 4547 &&
                  offsetof(LineItemRecord, Field5097) == 5097 &&
                  offsetof(LineItemRecord, Field5108) == 5108 &&
                  offsetof(LineItemRecord, Field5118) == 5118 &&
                  offsetof(LineItemRecord, Field5126) == 5126,
              "inherited fields 4340 to 5126");
static_assert(offsetof(LineItemRecord, FirstAttributes) == 5130 &&
                  offsetof(LineItemRecord, FirstAttributes.Codes) == 5151 &&
                  offsetof(LineItemRecord, FirstAttributes.Descriptions) == 5251 &&
                  offsetof(LineItemRecord, SecondAttributes) == 5671 &&
                  offsetof(LineItemRecord, SecondAttributes.Codes) == 5692 &&
                  offsetof(LineItemRecord, SecondAttributes.Descriptions) == 5792,
              "attribute blocks at 5130 and 5671");
static_assert(offsetof(LineItemRecord, FirstAttributeCode) == 6212 &&
                  offsetof(LineItemRecord, FirstAttributeDesc) == 6217 &&
                  offsetof(LineItemRecord, SecondAttributeDesc) == 6238 &&
                  offsetof(LineItemRecord, FirstValueCount) == 6259 &&
                  offsetof(LineItemRecord, SecondValueCount) == 6263,
              "a sub-item's own attribute values and the value counts");
static_assert(sizeof(ITEM_ATTRIBUTES_LERowStruct) == 73 &&
                  offsetof(ITEM_ATTRIBUTES_LERowStruct, Value72) == 71,
              "attribute row is 73 bytes, its value at 71");

// Key numbers of the item file.
enum : int16_t {
  kItemKeyID = 0,
  kItemKeyRecordNumber = 2,
  kItemKeyUpcSku = 5,
  kItemKeyParent = 6,
  kItemKeyClass = 10,
  kItemKeyGUID = 13,
};

// Item classes that the rules here tell apart.
enum : int16_t { kItemClassMaster = 8, kItemClassSubItem = 9 };

// A new sub-item: its ID and the indexes of its values in the master's first and second
// attribute blocks (second -1 when the master has one attribute).
struct AttributeDescPlus {
  FixedString<21> ID;
  int32_t FirstIndex;
  int32_t SecondIndex;
};

// Called for every sub-item written or removed here (action 1 inserted, 2 updated,
// 0 deleted) with the record's bytes, lent for the call. Set by the host; left null, no
// audit entry is written. The calls that write in a batch call it inside the batch, so
// entries the host writes to the company's files are undone with an abandoned batch.
extern void (*pfnCall_Extern_WriteMaintAuditTrailEntry)(const char* record, unsigned short action,
                                                        HWND window);

// --- Reads into the caller's record (browsing handle ItemFile, opened on first use) -----
// Each answers 1 with the record read into *record, or 0 (also for a null record or a file
// that cannot be opened); on 0 the record holds what the call put in it (the key) or what
// it held before. No messages.

// Equal read on key, the key fields taken from *record.
uint8_t GetLineItemRecByKey(LineItemRecord* record, int16_t key);
uint8_t GetLineItemRec(LineItemRecord* record);  // key 0
// Clears *record, sets the record number and reads equal on key 2.
uint8_t GetLineItemRecByRecordNumber(int32_t record_number, LineItemRecord* record);
// Greater-or-equal and greater on key from the key fields in *record.
uint8_t GetFirstLineItemRecByKey(LineItemRecord* record, int16_t key);
uint8_t GetLineItemGreaterRecByKey(LineItemRecord* record, int16_t key);
// Next on key; 0 without opening anything while the browsing handle is closed.
uint8_t GetNextLineItemRecByKey(LineItemRecord* record, int16_t key);
uint8_t GetFirstLineItemRec(LineItemRecord* record);  // greater-or-equal on key 0
uint8_t GetNextLineItemRec(LineItemRecord* record);   // next on key 0
// Clears *record and puts the ID (or record number) in it; 0 for an empty ID (record
// number 0) without reading. By ID on the browsing handle, by number on the conversion
// handle.
uint8_t GetLineItemInfo(const FixedString<21>& id, LineItemRecord* record);
uint8_t GetLineItemInfo(int32_t record_number, LineItemRecord* record);
// Whether an item has that record number, by a key-only read: no record is fetched.
uint8_t LineItemExistQuietWithRecNum(int32_t record_number);

// --- Conversions (conversion handle; they never move the browsing position) -----------
// Record number of the item; 0 for an empty or unknown ID or GUID.
int32_t GetRecordNumberFromLineItemID(const FixedString<21>& id);
int32_t GetItemRecordNumber(const FixedString<21>& id);
int32_t GetRecordNumberFromLineItemGUID(const GUID& guid);
// Clears id, then fills it; false, id empty, for record number 0 or an unknown number.
bool GetLineItemIDFromRecordNumber(int32_t record_number, FixedString<21>& id);
// Clears guid, then fills it when the item is found. Answers false in every case (callers
// test the GUID for being non-zero).
bool GetLineItemGUIDFromRecordNumber(int32_t record_number, GUID& guid);
// Clears id, then fills it; false, id empty, when no item has that GUID.
bool GetLineItemIDFromGUID(const GUID& guid, FixedString<21>& id);
// The item's GUID, or the all-zero GUID for an empty or unknown ID.
GUID GetLineItemGUIDFromID(const FixedString<21>& id);

// --- Quantities -------------------------------------------------------------------------
// Quantity still on order (journal type POJ or SOJ) of an item of class 1, 3 or 9 up to the
// end of the period (or of the nearest earlier period that has dates); 0 for other classes,
// a null item, or when no period down to 0 has dates.
double GetQtyOnSOPO(LineItemRecord* item, JournalTypes type, unsigned short period);
// *result := the quantity still on order on the posted orders of journal type dated up to
// date (second order quantity minus the first, summed over the rows). 0 for record number
// 0, a class other than 8, 9, 1 or 3, or a journal file that cannot be opened. Null
// item or result is ignored.
void CalcQtyOnSOPO(LineItemRecord* item, JournalTypes type, DatesType date, double* result);
// third - first, plus second when the company counts the second quantity as available
// (the check box at offset 1057 of the inventory settings, read afresh from the file).
double GetQtyAvailable(double first, double second, double third);

// --- Deletion rules ----------------------------------------------------------------------
// 1 when no journal row names the item; 0 when one does, for a null item, or when the row
// file cannot be opened.
uint8_t IsItOkToDeleteItem(LineItemRecord* item);
// 1 when none of the master's sub-items has journal rows or is a component of another
// item. Stops at the first that has: journal rows show 4482 (plain_message) or 4493 when
// show_messages is set; a component always shows 4497. 0 then, or when a file cannot be
// opened or master is null.
uint8_t OkToDeleteItemAllSubItems(LineItemRecord* master, uint8_t plain_message,
                                  uint8_t show_messages);

// --- Item rules ---------------------------------------------------------------------------
// True when the two images of a master differ in the description or any inherited field
// (so its sub-items must be rewritten). False when either is null.
bool UserChangedInheritedField(LineItemRecord* before, LineItemRecord* after);
// True after message 4484 when a sub-item ID that the master's attributes form ("ID-code"
// or "ID-code-code", codes cut to 4 characters, the whole to 20) is taken by an item that
// is not this master's sub-item. False when there is no clash (or master is null).
bool UserCreatedDuplicateItemIDs(LineItemRecord* master);
// True after message 2550 (naming the other item) when an item other than item_id already
// has this UPC/SKU; false for an empty UPC/SKU or none.
bool ThereAreDuplicateUpcSku(const FixedString<21>& upc_sku, const FixedString<21>& item_id);

// --- Sub-items (writes through the caller's item file, opened in mode 0) ------------------
// Fills *sub_item from desc and the master: ID, class 9, parent, record number 0, empty
// UPC/SKU, cleared values at 1173, the description, the inherited fields (of 1152 the
// first 4 bytes), both attribute blocks and counts, and its own attribute values (an index
// outside 0-19 or -1 leaves them empty). Other bytes of *sub_item are left as they were.
// Null arguments: nothing happens.
void CreateSubItem(LineItemRecord* master, LineItemRecord* sub_item, const AttributeDescPlus* desc);
// Builds the sub-item (from a cleared record), gives it a new GUID, inserts it through file
// and reports it to the audit hook (action 1). Answers 1 whether or not the insert
// succeeded (the host checks with a look-up); 0 only for null arguments.
uint8_t InsertSubItem(BtrvFile* file, LineItemRecord* master, const AttributeDescPlus* desc,
                      HWND window);
// Creates in one batch every sub-item that the master's attributes form and that does not
// exist yet (IDs as in UserCreatedDuplicateItemIDs), each reported to the audit hook.
// Answers 1; 0 with nothing written when an ID is taken by another item, the master has no
// record number, or any write fails (the batch is abandoned; inside a host's batch only
// this call's writes are undone). Shows no message.
uint8_t InsertAllSubItems(BtrvFile* file, LineItemRecord* master, HWND window);
// Gives each of the master's sub-items (class 9) the master's attribute blocks and counts,
// in one batch, and reads *master again through file with a lock. Answers 1 (also with no
// sub-items), or 0 with nothing written when an update or the batch fails.
uint8_t UpdateSubStockAttributes(BtrvFile* file, LineItemRecord* master, HWND window);
// Removes the sub-item with that ID unless journal rows name it (then 0, its lock
// released). 1 when it was removed or was not found; 0 when the delete fails.
uint8_t DeleteSubItems(BtrvFile* file, const FixedString<21>& sub_item_id, HWND window);
// Removes all the master's sub-items as DeleteSubItems removes one, in one batch: 1 when
// all are gone, 0 with none removed when any may not be or cannot be removed.
uint8_t DeleteAllSubItems(BtrvFile* file, LineItemRecord* master, HWND window);
// Carries a saved change of an item over to its sub-items (a master, class 8) or to its
// siblings and master (a sub-item whose attribute rows changed), in one batch; see the
// comment at its definition. rows holds row_count entries; entry_flags 11 flags (null: all
// clear). Answers 1, or 0 with nothing written when a write fails. Whenever something was
// to be done, *new_image is read again through file with a lock that the caller then holds.
uint8_t UpdateSubItems(BtrvFile* file, LineItemRecord* old_image, LineItemRecord* new_image,
                       const ITEM_ATTRIBUTES_LERowStruct* rows, int row_count, bool rows_changed,
                       const bool* entry_flags, bool copy_texts, HWND window);

// Closes ItemFile, the conversion handle and the journal handles of the order walk, each
// only when open.
void CloseInternalItemFile();

#endif  // BASICS_LINEITEMDCL_H_
