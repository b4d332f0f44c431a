// The record manager: keyed files of fixed-length records, one handle (BtrvFile) per
// open file. All data files of one directory live in one store in that directory, or in one
// schema on a PostgreSQL server when the directory is served from one
// (ZORServeDirectoryFromServer); each file is a table of fixed-length records with one
// index per key. Handles may be used
// from several threads, one thread per handle at a time; record locks, exclusive opens
// and batches hold between handles and between processes.
#ifndef BASICS_PLATFORM_RECORD_MANAGER_H_
#define BASICS_PLATFORM_RECORD_MANAGER_H_

#include <cstdint>
#include <string>
#include <vector>

// Status codes (GetErrorCode answers the handle's last one; 0 after success).
enum : uint16_t {
  kStatusOk = 0,
  kStatusIoError = 2,           // I/O error or damaged store
  kStatusNotOpen = 3,           // file not open
  kStatusKeyNotFound = 4,       // key value not found
  kStatusDuplicateKey = 5,      // duplicate key value on a unique key
  kStatusInvalidKeyNumber = 6,  // the file has no such key
  kStatusNoCurrency = 8,        // no current record for Next, Previous, Update or Delete
  kStatusEndOfFile = 9,         // no further record in that direction
  kStatusKeyNotModifiable = 10,
  kStatusFileNotFound = 12,
  kStatusDiskFull = 18,
  kStatusBadLength = 22,    // data buffer length does not match the record length
  kStatusBadFileSpec = 25,  // a creation description that cannot be made into a file
  kStatusNoBatch = 39,      // a batch ended or abandoned where none was begun
  kStatusBadPosition = 43,  // invalid physical position
  kStatusReadOnly = 46,     // write on a read-only open
  kStatusBadOwner = 51,     // wrong or missing owner name
  kStatusFileExists = 59,
  kStatusConflict = 80,     // changed through another handle since this one read it
  kStatusRecordInUse = 84,  // record locked by another handle
  kStatusFileInUse = 85,    // file in use (exclusive open, or another writer's batch)
};

// Lock biases, added to a read.
constexpr uint16_t kLockBiasNone = 0;
constexpr uint16_t kLockBiasKeyOnly = 50;  // existence test: the buffer receives the key
constexpr uint16_t kLockBiasSingleNoWait = 200;

// Open modes.
constexpr uint16_t kOpenModeNormal = 0;
constexpr uint16_t kOpenModeExclusive = 252;
constexpr uint16_t kOpenModeReadOnly = 254;

// Key numbers that set no key currency (InsertRecordByKey 65535, UpdateFile -1).
constexpr uint16_t kNoKeyCurrency = 65535;

// Key segment flags of a creation description.
enum : uint16_t {
  kKeyDuplicates = 0x0001,
  kKeyModifiable = 0x0002,
  kKeyBinary = 0x0004,     // unsigned binary, little-endian, without an extended type
  kKeySegmented = 0x0010,  // another segment of the same key follows
  kKeyDescending = 0x0040,
  kKeyExtendedType = 0x0100,  // the segment's extendedType is meaningful
  kKeyManualNumber = 0x0200,  // first segment only: keyNumber gives the key's number
  kKeyNoCase = 0x0400,        // strings compare case-insensitively (ASCII)
};

// Extended key types.
enum : uint8_t {
  kExtString = 0,
  kExtInteger = 1,   // signed, little-endian, 1, 2, 4 or 8 bytes
  kExtFloat = 2,     // IEEE, 4 or 8 bytes
  kExtDate = 3,      // DatesType: ordered by year, month, day
  kExtZString = 11,  // zero-terminated string: bytes after the terminator ignored
  kExtUnsignedBinary = 14,
  kExtAutoIncrement = 15,  // signed; an insert with 0 gets the highest value + 1
};

struct KeySegmentSpec {
  uint16_t position;  // 1-based offset in the record
  uint16_t length;
  uint16_t flags;
  uint8_t extendedType;
  uint8_t keyNumber;  // with kKeyManualNumber on a key's first segment
};

constexpr int kMaxKeySegments = 119;

// A creation description: record length, page size (kept, no meaning) and the keys'
// segments in order, consecutive segments of one key chained by kKeySegmented. Keys are
// numbered 0, 1, 2 ... in order unless a key's first segment carries kKeyManualNumber.
struct FileSpec {
  uint16_t recordLength;
  uint16_t pageSize;
  uint16_t numberOfSegments;
  uint16_t fileFlags;
  KeySegmentSpec segments[kMaxKeySegments];
};

// Creation flags of ZORCreateFile.
constexpr int kCreateReplace = 0x0002;  // replace an existing file instead of failing (59)

// Information handed to the second form of DeleteRecord (who deleted what).
struct AMCallbackRecordInfo {
  int32_t recordNumber;
  int32_t fileNumber;
};

// A handle to an open data file. Created by RealOpenBFile/RealOpenBFileOwner, destroyed
// by RealCloseFile; a null pointer means the file is not open.
class BtrvFile {
 public:
  // Suppresses the record manager's own record-in-use / file-in-use prompt for the next
  // call on this handle only (any call but GetErrorCode takes it up, also one that never
  // prompts).
  void NoLockMessageOnNextCall(bool flag = true);

  // Implementation state (defined in the record manager).
  struct State;
  State* state() { return state_; }

 private:
  friend struct BtrvFileFactory;
  explicit BtrvFile(State* state) : state_(state) {}
  ~BtrvFile();
  State* state_;
};

// Keyed reads. lock is a lock bias; len must equal the record length (the key length for
// a key-only read); for Equal/GE/Greater/Less/LE the key fields are set in buf first.
// Each answers non-zero on success, with the record (or the key) in buf, which the caller
// owns. On failure buf and the handle's current record are left as they were (a refused
// lock, 84, included); GetErrorCode tells why. A handle's Next and Previous go on along
// its own walk whatever other handles read between two steps; they see the file in one
// snapshot while the walk goes on, and as it is now after a write or a pause.
uint8_t GetFileEqual(BtrvFile* f, uint16_t lock, uint32_t len, void* buf, int16_t key);
uint8_t GetFileGE(BtrvFile* f, uint16_t lock, uint32_t len, void* buf, int16_t key);
uint8_t GetFileGreater(BtrvFile* f, uint16_t lock, uint32_t len, void* buf, int16_t key);
uint8_t GetFileLess(BtrvFile* f, uint16_t lock, uint32_t len, void* buf, int16_t key);
uint8_t GetFileLE(BtrvFile* f, uint16_t lock, uint32_t len, void* buf, int16_t key);
uint8_t GetFileLowest(BtrvFile* f, uint16_t lock, uint32_t len, void* buf, int16_t key);
uint8_t GetFileHighest(BtrvFile* f, uint16_t lock, uint32_t len, void* buf, int16_t key);
uint8_t GetFileNext(BtrvFile* f, uint16_t lock, uint32_t len, void* buf, int16_t key);
uint8_t GetFilePrevious(BtrvFile* f, uint16_t lock, uint32_t len, void* buf, int16_t key);
// Re-reads the record at a physical position and makes key the key path; on failure as
// the keyed reads.
uint8_t GetFileDirect(BtrvFile* f, uint16_t lock, uint32_t len, void* buf, int16_t key,
                      int32_t position);
// The next record in physical order (the first when the handle has no current record);
// 9 after the last, buf then left as it was.
uint8_t StepDirect(BtrvFile* f, uint32_t len, void* buf);

// Writes. An insert whose auto-increment field is 0 gets the highest value + 1, written
// back into buf; a failed write changes neither the file nor buf, and leaves the handle's
// current record as it was. Outside a batch each write commits on its own.
uint8_t InsertRecord(BtrvFile* f, uint32_t len, void* buf);
uint8_t InsertRecordByKey(BtrvFile* f, uint32_t len, void* buf, uint16_t key);
// Rewrites the current record; key -1 keeps no key position.
uint8_t UpdateFile(BtrvFile* f, uint32_t len, void* buf, int16_t key);
// Removes the current record (buf and len are not used). The second form also fills info,
// when not null, with the removed record's position and the handle's file number.
uint8_t DeleteRecord(BtrvFile* f, uint32_t len, void* buf);
uint8_t DeleteRecord(BtrvFile* f, uint32_t len, void* buf, AMCallbackRecordInfo* info);

// Physical position of the current record (0 with status 8 when none); record count (-1
// on error, the status then readable by GetErrorCode).
int32_t PhysicalPosition(BtrvFile* f);
int32_t NumRecsInFile(BtrvFile* f);
// Drops the lock taken by a locked read; answers 1, also when the handle held none.
uint8_t UnlockOneRecord(BtrvFile* f);

// Batches. bBeginBatchUpdate begins a write transaction on the file's store, or, when this
// process has one open there already, a batch inside it that can be abandoned alone (it
// keeps an undo log of its writes); everything commits when the outermost batch ends. Writers of
// other processes queue for the store in about the order they asked; one kept waiting longer than
// the batch wait gets 85. Each answers 1 on success, or 0 with the status readable by GetErrorCode
// (a failed begin opens no level; the caller must not end or abandon it).
int bBeginBatchUpdate(BtrvFile* f);
// Ends the innermost batch: an inner one's writes become part of the batch around it, the
// outermost commits. An end that answers 0 has undone what its batch wrote (the outermost:
// everything) and closed it, so it is not to be abandoned after; an inner end also answers
// 0, and so do the ones still to come, when the store undid the whole transaction by
// itself (a full disk). 39 when no batch is open.
int bEndBatchUpdate(BtrvFile* f);
// Abandons the innermost batch: its writes are undone and the batches around it go on, so
// that one failed operation inside a host's larger batch leaves the files as they were
// before it; abandoning the outermost undoes everything. Closing the last handle of a
// store abandons every level. Answers 1, or 0 with 39 when no batch is open.
int bAbortBatchUpdate(BtrvFile* f);

// The handle's last status; for a null handle, the status of this thread's last failed
// open or creation (3 when none).
uint16_t GetErrorCode(BtrvFile* f);

// Opens name (absolute or relative to the current directory; '\' and '/' both
// separate): the directory names the store, the base name (case-insensitive) the file.
// Answers 1 with *f a new handle that the caller owns until RealCloseFile, or 0 with *f
// null and the status readable by GetErrorCode(nullptr). Only 85 has been shown to the
// user (the record manager's Retry prompt, which an open always shows); every other
// failure is silent.
int RealOpenBFileOwner(BtrvFile** f, const char* name, uint16_t mode, uint16_t file_number,
                       const char* owner, const char* src_file, int src_line);
int RealOpenBFile(BtrvFile** f, const char* name, uint16_t mode, uint16_t file_number,
                  const char* src_file, int src_line);
// Closes and nulls the handle; a null handle is a no-op that answers 1.
int RealCloseFile(BtrvFile** f, const char* src_file, int src_line);

// Creates an empty file from a description (answers 1, or 0 with the status readable by
// GetErrorCode(nullptr)). ZORCreateFileWithOwner also sets the file's owner name.
int ZORCreateFile(const FileSpec* spec, int flags, const char* name);
int ZORCreateFileWithOwner(const FileSpec* spec, int flags, const char* name, const char* owner);
// Removes a data file; answers a status (0 when removed, 12 when there is none, 85 while
// any handle in any process has it open).
uint16_t ZORDeleteFile(const char* name);
// Whether name is an existing data file; on success fills the time of its last committed
// change (nanoseconds since the epoch) when changed_ns is not null.
bool ZORDataFileExists(const char* name, int64_t* changed_ns);

// Checks every page and index of the store of directory (the store's own integrity check)
// through a read-only connection of its own, which sees what is committed and waits for
// no writer. quick leaves out the check that every index agrees with its table: it reads
// every page once but looks no index entry up in its table. Answers 0 with *problems empty
// when the store is sound; 2 with up to max_problems descriptions in *problems (the
// caller's) when it is damaged or cannot be read; 12 when the directory holds no store.
// A directory served from a server is checked as far as a client can without the server's
// own page checker: every file its catalogue names must have its table and one index per
// key (quick makes no difference there); the server keeps its pages sound itself.
uint16_t CheckStoreIntegrity(const char* directory, int max_problems, bool quick,
                             std::vector<std::string>* problems);

// Serving a company from a PostgreSQL server. From now on every file name whose directory
// is `directory` (made absolute and normalised lexically; it need not exist on this
// machine) names a table of schema `schema` on the server that `conninfo` (a libpq
// connection string) names: opens, creates, deletes, locks, batches, the company markers and
// _stat all go there. The schema is made by the first create, like records.db. Answers 0;
// 2 with the server's reason in *error (the caller's, may be null) when the server cannot
// be reached. Serving the same directory again replaces the earlier choice for stores
// opened later.
uint16_t ZORServeDirectoryFromServer(const char* directory, const char* conninfo,
                                     const char* schema, std::string* error);
// Stops serving directory from a server (stores already open stay open until their last
// handle closes).
void ZORStopServingDirectory(const char* directory);

// Diagnostics: every handle still open, with where it was opened.
struct OpenHandleInfo {
  std::string fileName;
  uint16_t fileNumber;
  uint16_t openMode;
  std::string srcFile;
  int srcLine;
};
std::vector<OpenHandleInfo> ListOpenHandles();
size_t OpenHandleCount();

// Settings of the record manager (for hosts and tests; defaults suit interactive use).
// How long a call waits for another process before failing with 85: a writer for the
// batch ahead of it, any call for a store that another process has stopped in the middle
// of its commit (a debugger, a suspended terminal). 10 seconds unless set.
void SetBatchWaitMilliseconds(int ms);
// Number of calls made to the stores' backends since the process started (all stores).
uint64_t StoreCallCount();

#endif  // BASICS_PLATFORM_RECORD_MANAGER_H_
