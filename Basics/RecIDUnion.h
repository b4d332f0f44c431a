// The record identifier union: one value that names a master record (customer, vendor,
// employee, item, project, account, phase or cost code) by record number, by ID text, or
// both, converting between them on demand through the master lookups, and comparing two
// values in the form their file stores. Owns no handle of its own (the lookups use their
// units' handles). Builds on CHART, CustDcl, VendorDcl, EmployeeDcl, LineItemDcl, PROJECT,
// PHASE and COST. Not thread-safe: a value and the lookups belong to the calling thread.
#ifndef BASICS_RECIDUNION_H_
#define BASICS_RECIDUNION_H_

#include <cstdint>
#include <string>

// A record identifier. Either form may be unknown (record number -1, empty ID); the
// conversions fill the missing one through the kind's lookups and keep it, so that even a
// constant value may fill its other form when asked. Shows no message: a value that cannot
// be resolved compares unequal and converts to an empty ID.
class S_L_RecIDUnion {
 public:
  // Record kinds: which master file a value refers to.
  enum eWhatType : uint16_t {
    eNone = 0,
    eCustomer = 1,
    eVendor = 2,
    eEmployee = 3,
    eLineItem = 4,
    eProject = 5,
    eAccount = 6,
    ePhase = 7,
    eCostCode = 8,
  };
  // Kinds below this are stored in files as their 4-byte record number, others as ID text.
  static constexpr uint16_t kFirstIdKind = 9;
  // The longest ID text taken from a store-form buffer.
  static constexpr int kMaxIdText = 121;

  // Each starts from Init (kind 0, number -1, empty ID); the owner sets the kind afterwards.
  S_L_RecIDUnion();
  S_L_RecIDUnion(const S_L_RecIDUnion& other);
  explicit S_L_RecIDUnion(const char* id);  // null: empty ID
  explicit S_L_RecIDUnion(int32_t record_number);

  // Copies kind, number and ID; self-assignment does nothing.
  S_L_RecIDUnion& operator=(const S_L_RecIDUnion& other);
  // Both keep the kind and forget the other form. A null id is the empty ID.
  S_L_RecIDUnion& operator=(const char* id);
  S_L_RecIDUnion& operator=(int32_t record_number);
  // Takes a buffer in store form (the caller's, only read): nothing happens for kind 0 or
  // a null buffer; otherwise the value is cleared keeping its kind, then a record-number
  // kind takes the first 4 bytes as its number and an ID kind reads the bytes as text (at
  // most 121 characters, up to a terminator).
  S_L_RecIDUnion& operator=(const unsigned char* store_form);

  void Init();         // kind 0, number -1, empty ID
  void ResetRecNbr();  // number -1
  void ResetId();      // empty ID

  uint16_t GetWhatType() const { return kind_; }
  void SetWhatType(uint16_t kind) { kind_ = kind; }

  // The ID is not empty.
  bool IdExists() const { return !id_.empty(); }
  // Kinds below 9 (every master kind and kind 0) are stored as their record number.
  bool UsesRecNbrInFile() const { return kind_ < kFirstIdKind; }
  // Bytes of the store form: 4 for record-number kinds, the ID's length otherwise.
  int ByteBufferLth() const;

  // File number of a kind (customer 3, vendor 4, employee 7, item 5, project 13, account 2,
  // phase 38, cost code 39); 0 for any other kind.
  static uint16_t GetFileNumber(uint16_t kind);
  uint16_t GetFileNumber() const { return GetFileNumber(kind_); }
  // The kind whose file has that number; 0 for any other file number.
  static uint16_t GeteWhatType_FromFile(uint16_t file_number);

  // Record-number kinds only (false otherwise, record_number untouched). Sets record_number
  // to -1, drops the kept number first when reset is set, then hands out the number: looked
  // up from the ID when only the ID is known, and with the ID looked up too when only the
  // number is known. Answers whether the lookups made succeeded; false, -1 out, when
  // neither form is known. A lookup that finds nothing keeps number 0.
  bool GetRecNbr(int32_t& record_number, bool reset = false) const;
  // Copies the ID with its terminator into buffer (size bytes, counting the terminator).
  // A record-number kind drops its ID first when reset is set, then fills whichever form is
  // missing. false for a null buffer, when a lookup made failed (the ID is still copied),
  // or when the buffer is too small: then size receives length + 1 and buffer is left alone.
  bool GetId(char* buffer, int& size, bool reset = false) const;
  // Clears buffer (size bytes), then writes the store form: the 4-byte number (a buffer
  // under 4 bytes gets size 4 back and false) or the ID text with its terminator (too
  // small: length + 1 back, false). Answers as GetRecNbr / GetId; false for a null buffer.
  bool GetRecNbrId(unsigned char* buffer, int& size, bool reset = false) const;
  // Make sure the store form (ConvertToDataStoreType) or the ID (ConvertToId) is known;
  // each answers as GetRecNbrId / GetId.
  bool ConvertToDataStoreType(bool reset = false) const;
  bool ConvertToId(bool reset = false) const;

  // The ID, looked up first when empty and the kind stores record numbers; empty when it
  // cannot be found. Valid until the value next changes or is destroyed.
  operator const char*() const;
  // The address of the 4-byte record number (looked up first for a record-number kind that
  // only knows its ID); ID kinds give the same field. Valid as long as the value.
  operator const unsigned char*() const;

  // Comparisons between values answer equal (not less) for the same object and unequal
  // (not less) for different kinds before anything else. Equality compares IDs, filling
  // the right side's ID from its number and this value's from its own.
  bool operator==(const S_L_RecIDUnion& other) const;
  // Byte-wise equality with this value's ID (looked up from the number when missing);
  // null text reads as empty.
  bool operator==(const char* id) const;
  // Number equality; false for ID kinds. The number is looked up when only the ID is known.
  bool operator==(int32_t record_number) const;
  // ID kinds: true as soon as kinds agree; otherwise the right side's number is looked up
  // when missing (this value's is not) and the numbers compared.
  bool RecNbr_Equal(const S_L_RecIDUnion& other) const;
  // Record-number kinds compare numbers as RecNbr_Equal does; while equal so far, the IDs
  // are compared too (the right side's looked up when missing).
  bool RecID_Equal(const S_L_RecIDUnion& other) const;
  // Byte-wise order of this value's ID (looked up when missing) against id.
  bool operator<(const char* id) const;
  // Number order; false for ID kinds.
  bool operator<(int32_t record_number) const;
  // ID order, both sides' IDs looked up when missing.
  bool operator<(const S_L_RecIDUnion& other) const;

 private:
  // Looks the number up from the ID and keeps the lookup's answer (0 when not found);
  // true when it is a record number. Kinds outside 1 to 8 fail without a lookup.
  bool NumberFromId() const;
  // Looks the ID up from the number and keeps it (empty when not found); true for every
  // master kind, false for any other kind.
  bool IdFromNumber() const;
  // Looks the number up when only the ID is known (record-number kinds).
  void ResolveNumber() const;
  // Looks the ID up when only the number is known (record-number kinds).
  void ResolveId() const;

  uint16_t kind_ = eNone;
  // The two forms are a cache of the same identity, filled on demand by const members.
  mutable int32_t record_number_ = -1;
  mutable std::string id_;
};

#endif  // BASICS_RECIDUNION_H_
