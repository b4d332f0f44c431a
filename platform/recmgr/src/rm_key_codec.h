// The record manager's key codec: turns a creation description into key definitions and
// a record's key fields into bytes that order with memcmp as the keys must order, so that
// a store's plain byte-wise index does the ordering. Pure functions over memory; a KeySet
// is immutable once built and may be shared between threads.
#ifndef BASICS_PLATFORM_RM_KEY_CODEC_H_
#define BASICS_PLATFORM_RM_KEY_CODEC_H_

#include <cstddef>
#include <cstdint>
#include <vector>

#include "record_manager.h"

namespace rm {

enum class SegmentType : uint8_t {
  kString,    // bytes as stored
  kInteger,   // signed little-endian 1, 2, 4 or 8 bytes (also auto-increment)
  kFloat,     // IEEE 4 or 8 bytes
  kDate,      // DatesType: day, month, year (u16)
  kZString,   // up to the terminator, then zeros
  kUnsigned,  // unsigned little-endian, any length
};

struct Segment {
  uint32_t offset = 0;  // 0-based position in the record
  uint16_t length = 0;  // raw and encoded forms have the same length
  SegmentType type = SegmentType::kString;
  bool descending = false;
  bool no_case = false;
  bool auto_increment = false;
};

struct KeyDef {
  int number = 0;  // the key number callers pass
  bool unique = true;
  bool modifiable = false;
  uint32_t length = 0;       // sum of the segment lengths
  bool exact_decode = true;  // false when the encoding folds case (no way back to the field)
  std::vector<Segment> segments;
};

class KeySet {
 public:
  // Builds the keys of a creation description. Answers kStatusOk, or kStatusBadFileSpec
  // when the description cannot be made into a file (out is then unspecified).
  static uint16_t Build(const FileSpec& spec, KeySet* out);

  size_t size() const { return keys_.size(); }
  const KeyDef& key(int slot) const { return keys_[static_cast<size_t>(slot)]; }
  // The slot of a key number, or -1 when the file has no such key.
  int SlotOf(int key_number) const {
    return key_number >= 0 && key_number < 256 ? slot_of_[key_number] : -1;
  }
  uint32_t record_length() const { return record_length_; }
  // Sum of all keys' lengths: the room EncodeAll needs.
  uint32_t total_key_length() const { return total_key_length_; }
  // Byte offset of a key's bytes inside EncodeAll's output.
  uint32_t key_offset(int slot) const { return key_offsets_[static_cast<size_t>(slot)]; }

  // Encodes key slot from a whole record (record_length bytes) into out (key length).
  void EncodeFromRecord(int slot, const uint8_t* record, uint8_t* out) const;
  // Encodes key slot from a key value laid out as its fields one after another.
  void EncodeFromValue(int slot, const uint8_t* value, uint8_t* out) const;
  // Encodes every key of a record, one after another at key_offset(slot).
  void EncodeAll(const uint8_t* record, uint8_t* out) const;
  // Turns encoded key bytes back into the fields one after another; answers false (out
  // unspecified) when the key folds case, so that only the record can give its fields.
  bool Decode(int slot, const uint8_t* encoded, uint8_t* out) const;
  // The value of a key's leading integer segment (an auto-increment field) from the key's
  // encoded bytes.
  int64_t LeadingInteger(int slot, const uint8_t* encoded) const;
  // Copies key slot's raw fields out of a record, one after another.
  void ExtractFields(int slot, const uint8_t* record, uint8_t* out) const;

  // Auto-increment fields: the slot of the key they lead (always the key's first segment).
  const std::vector<int>& auto_increment_slots() const { return auto_slots_; }

 private:
  std::vector<KeyDef> keys_;
  int16_t slot_of_[256];
  std::vector<uint32_t> key_offsets_;
  std::vector<int> auto_slots_;
  uint32_t record_length_ = 0;
  uint32_t total_key_length_ = 0;
};

// Reads and writes a signed little-endian integer of 1, 2, 4 or 8 bytes.
int64_t ReadSignedLE(const uint8_t* p, uint16_t length);
void WriteSignedLE(uint8_t* p, uint16_t length, int64_t value);

// The catalogue keeps a description as bytes: record length, page size, segment count,
// file flags (u16 each, little-endian), then per segment position, length, flags (u16),
// extended type and key number (u8): 8 + 8 * segments bytes.
std::vector<uint8_t> SerializeSpec(const FileSpec& spec);
// Answers false when the bytes are not a description (damaged catalogue row).
bool ParseSpec(const uint8_t* data, size_t size, FileSpec* out);

}  // namespace rm

#endif  // BASICS_PLATFORM_RM_KEY_CODEC_H_
