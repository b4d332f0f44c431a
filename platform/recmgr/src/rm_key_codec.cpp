// Key definitions from creation descriptions and the order-preserving key encoding.
#include "rm_key_codec.h"

#include <cstring>
#include <utility>

namespace rm {
namespace {

uint8_t UpperAscii(uint8_t c) { return c >= 'a' && c <= 'z' ? static_cast<uint8_t>(c - 32) : c; }

// Little-endian in the record, most significant byte first in the key.
void Reverse(const uint8_t* src, uint16_t length, uint8_t* dst) {
  for (uint16_t i = 0; i < length; ++i) dst[i] = src[length - 1 - i];
}

uint64_t LoadLE(const uint8_t* p, uint16_t length) {
  uint64_t v = 0;
  for (uint16_t i = 0; i < length; ++i) v |= static_cast<uint64_t>(p[i]) << (8 * i);
  return v;
}

void StoreBE(uint64_t v, uint16_t length, uint8_t* out) {
  for (uint16_t i = 0; i < length; ++i) out[length - 1 - i] = static_cast<uint8_t>(v >> (8 * i));
}

uint64_t LoadBE(const uint8_t* p, uint16_t length) {
  uint64_t v = 0;
  for (uint16_t i = 0; i < length; ++i) v = (v << 8) | p[i];
  return v;
}

void StoreLE(uint64_t v, uint16_t length, uint8_t* out) {
  for (uint16_t i = 0; i < length; ++i) out[i] = static_cast<uint8_t>(v >> (8 * i));
}

void EncodeSegment(const Segment& seg, const uint8_t* src, uint8_t* dst) {
  const uint16_t n = seg.length;
  switch (seg.type) {
    case SegmentType::kInteger:
      Reverse(src, n, dst);
      dst[0] ^= 0x80;  // negative numbers first
      break;
    case SegmentType::kUnsigned:
    case SegmentType::kDate:  // day, month, year(LE) reversed is year(BE), month, day
      Reverse(src, n, dst);
      break;
    case SegmentType::kFloat: {
      const uint64_t sign = uint64_t{1} << (8 * n - 1);
      uint64_t bits = LoadLE(src, n);
      if (bits == sign) bits = 0;  // -0.0 is the same key as +0.0
      // Negative values: invert everything so that larger magnitudes sort first;
      // positive values: set the sign bit so that they sort after every negative one.
      bits = (bits & sign) ? ~bits : (bits | sign);
      StoreBE(bits, n, dst);
      break;
    }
    case SegmentType::kZString: {
      uint16_t i = 0;
      for (; i < n && src[i] != 0; ++i) dst[i] = seg.no_case ? UpperAscii(src[i]) : src[i];
      std::memset(dst + i, 0, n - i);
      break;
    }
    case SegmentType::kString:
      if (seg.no_case) {
        for (uint16_t i = 0; i < n; ++i) dst[i] = UpperAscii(src[i]);
      } else {
        std::memcpy(dst, src, n);
      }
      break;
  }
  if (seg.descending) {
    for (uint16_t i = 0; i < n; ++i) dst[i] = static_cast<uint8_t>(~dst[i]);
  }
}

void DecodeSegment(const Segment& seg, const uint8_t* src, uint8_t* dst) {
  const uint16_t n = seg.length;
  uint8_t tmp[8];
  const uint8_t* in = src;
  if (seg.descending) {
    // Strings may be longer than the scratch: undo the inversion in place at the end.
    if (seg.type == SegmentType::kString || seg.type == SegmentType::kZString || n > sizeof tmp) {
      for (uint16_t i = 0; i < n; ++i) dst[i] = static_cast<uint8_t>(~src[i]);
      if (seg.type == SegmentType::kUnsigned) {
        for (uint16_t i = 0; i < n / 2; ++i) std::swap(dst[i], dst[n - 1 - i]);
      }
      return;
    }
    for (uint16_t i = 0; i < n; ++i) tmp[i] = static_cast<uint8_t>(~src[i]);
    in = tmp;
  }
  switch (seg.type) {
    case SegmentType::kInteger: {
      uint8_t flipped[8];
      std::memcpy(flipped, in, n);
      flipped[0] ^= 0x80;
      Reverse(flipped, n, dst);
      break;
    }
    case SegmentType::kUnsigned:
    case SegmentType::kDate:
      Reverse(in, n, dst);
      break;
    case SegmentType::kFloat: {
      const uint64_t sign = uint64_t{1} << (8 * n - 1);
      uint64_t bits = LoadBE(in, n);
      bits = (bits & sign) ? (bits & ~sign) : ~bits;
      if (n < 8) bits &= (uint64_t{1} << (8 * n)) - 1;
      StoreLE(bits, n, dst);
      break;
    }
    case SegmentType::kString:
    case SegmentType::kZString:
      std::memcpy(dst, in, n);
      break;
  }
}

bool ValidLength(SegmentType type, uint16_t length) {
  switch (type) {
    case SegmentType::kInteger:
      return length == 1 || length == 2 || length == 4 || length == 8;
    case SegmentType::kFloat:
      return length == 4 || length == 8;
    case SegmentType::kDate:
      return length == 4;
    case SegmentType::kString:
    case SegmentType::kZString:
    case SegmentType::kUnsigned:
      return length >= 1;
  }
  return false;
}

void Put16(std::vector<uint8_t>& out, uint16_t v) {
  out.push_back(static_cast<uint8_t>(v));
  out.push_back(static_cast<uint8_t>(v >> 8));
}

uint16_t Get16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | (p[1] << 8)); }

}  // namespace

uint16_t KeySet::Build(const FileSpec& spec, KeySet* out) {
  *out = KeySet();
  for (int16_t& s : out->slot_of_) s = -1;
  if (spec.recordLength == 0 || spec.numberOfSegments > kMaxKeySegments) {
    return kStatusBadFileSpec;
  }
  out->record_length_ = spec.recordLength;
  int next_number = 0;
  bool in_key = false;
  for (int i = 0; i < spec.numberOfSegments; ++i) {
    const KeySegmentSpec& s = spec.segments[i];
    Segment seg;
    if (s.position == 0 || s.length == 0 ||
        static_cast<uint32_t>(s.position) - 1 + s.length > spec.recordLength) {
      return kStatusBadFileSpec;
    }
    seg.offset = s.position - 1u;
    seg.length = s.length;
    if (s.flags & kKeyExtendedType) {
      switch (s.extendedType) {
        case kExtString:
          seg.type = SegmentType::kString;
          break;
        case kExtInteger:
          seg.type = SegmentType::kInteger;
          break;
        case kExtFloat:
          seg.type = SegmentType::kFloat;
          break;
        case kExtDate:
          seg.type = SegmentType::kDate;
          break;
        case kExtZString:
          seg.type = SegmentType::kZString;
          break;
        case kExtUnsignedBinary:
          seg.type = SegmentType::kUnsigned;
          break;
        case kExtAutoIncrement:
          seg.type = SegmentType::kInteger;
          seg.auto_increment = true;
          break;
        default:
          return kStatusBadFileSpec;
      }
    } else if (s.extendedType != 0) {
      // A type without the flag that makes it count is a mistake in the description, not
      // something to guess at: the file would order differently from what was meant.
      return kStatusBadFileSpec;
    } else {
      seg.type = (s.flags & kKeyBinary) ? SegmentType::kUnsigned : SegmentType::kString;
    }
    if (!ValidLength(seg.type, seg.length)) return kStatusBadFileSpec;
    seg.descending = (s.flags & kKeyDescending) != 0;
    seg.no_case = (s.flags & kKeyNoCase) != 0 &&
                  (seg.type == SegmentType::kString || seg.type == SegmentType::kZString);

    if (!in_key) {
      KeyDef key;
      key.number = (s.flags & kKeyManualNumber) ? s.keyNumber : next_number;
      if (key.number > 254 || out->slot_of_[key.number] >= 0) return kStatusBadFileSpec;
      key.unique = (s.flags & kKeyDuplicates) == 0;
      key.modifiable = (s.flags & kKeyModifiable) != 0;
      out->slot_of_[key.number] = static_cast<int16_t>(out->keys_.size());
      next_number = key.number + 1 > next_number ? key.number + 1 : next_number;
      out->keys_.push_back(key);
      if (seg.auto_increment) out->auto_slots_.push_back(static_cast<int>(out->keys_.size() - 1));
    } else if (seg.auto_increment) {
      // The highest value is read from the index the field leads; elsewhere in a key it
      // would need a scan of the whole file on every insert.
      return kStatusBadFileSpec;
    }
    KeyDef& key = out->keys_.back();
    if (seg.no_case) key.exact_decode = false;
    key.segments.push_back(seg);
    key.length += seg.length;
    in_key = (s.flags & kKeySegmented) != 0;
  }
  if (in_key) return kStatusBadFileSpec;  // the last key says another segment follows
  uint32_t offset = 0;
  for (const KeyDef& key : out->keys_) {
    out->key_offsets_.push_back(offset);
    offset += key.length;
  }
  out->total_key_length_ = offset;
  return kStatusOk;
}

void KeySet::EncodeFromRecord(int slot, const uint8_t* record, uint8_t* out) const {
  for (const Segment& seg : key(slot).segments) {
    EncodeSegment(seg, record + seg.offset, out);
    out += seg.length;
  }
}

void KeySet::EncodeFromValue(int slot, const uint8_t* value, uint8_t* out) const {
  for (const Segment& seg : key(slot).segments) {
    EncodeSegment(seg, value, out);
    value += seg.length;
    out += seg.length;
  }
}

void KeySet::EncodeAll(const uint8_t* record, uint8_t* out) const {
  for (size_t slot = 0; slot < keys_.size(); ++slot) {
    EncodeFromRecord(static_cast<int>(slot), record, out + key_offsets_[slot]);
  }
}

bool KeySet::Decode(int slot, const uint8_t* encoded, uint8_t* out) const {
  const KeyDef& k = key(slot);
  if (!k.exact_decode) return false;
  for (const Segment& seg : k.segments) {
    DecodeSegment(seg, encoded, out);
    encoded += seg.length;
    out += seg.length;
  }
  return true;
}

int64_t KeySet::LeadingInteger(int slot, const uint8_t* encoded) const {
  const Segment& seg = key(slot).segments.front();
  uint8_t raw[8] = {};
  DecodeSegment(seg, encoded, raw);
  return ReadSignedLE(raw, seg.length);
}

void KeySet::ExtractFields(int slot, const uint8_t* record, uint8_t* out) const {
  for (const Segment& seg : key(slot).segments) {
    std::memcpy(out, record + seg.offset, seg.length);
    out += seg.length;
  }
}

int64_t ReadSignedLE(const uint8_t* p, uint16_t length) {
  uint64_t v = LoadLE(p, length);
  if (length < 8 && (v >> (8 * length - 1)) & 1) v |= ~uint64_t{0} << (8 * length);
  return static_cast<int64_t>(v);
}

void WriteSignedLE(uint8_t* p, uint16_t length, int64_t value) {
  StoreLE(static_cast<uint64_t>(value), length, p);
}

std::vector<uint8_t> SerializeSpec(const FileSpec& spec) {
  std::vector<uint8_t> out;
  uint16_t n = spec.numberOfSegments > kMaxKeySegments ? kMaxKeySegments : spec.numberOfSegments;
  out.reserve(8 + 8 * n);
  Put16(out, spec.recordLength);
  Put16(out, spec.pageSize);
  Put16(out, n);
  Put16(out, spec.fileFlags);
  for (uint16_t i = 0; i < n; ++i) {
    const KeySegmentSpec& s = spec.segments[i];
    Put16(out, s.position);
    Put16(out, s.length);
    Put16(out, s.flags);
    out.push_back(s.extendedType);
    out.push_back(s.keyNumber);
  }
  return out;
}

bool ParseSpec(const uint8_t* data, size_t size, FileSpec* out) {
  std::memset(out, 0, sizeof *out);
  if (data == nullptr || size < 8) return false;
  out->recordLength = Get16(data);
  out->pageSize = Get16(data + 2);
  out->numberOfSegments = Get16(data + 4);
  out->fileFlags = Get16(data + 6);
  if (out->numberOfSegments > kMaxKeySegments || size != 8u + 8u * out->numberOfSegments) {
    return false;
  }
  for (uint16_t i = 0; i < out->numberOfSegments; ++i) {
    const uint8_t* p = data + 8 + 8 * i;
    KeySegmentSpec& s = out->segments[i];
    s.position = Get16(p);
    s.length = Get16(p + 2);
    s.flags = Get16(p + 4);
    s.extendedType = p[6];
    s.keyNumber = p[7];
  }
  return true;
}

}  // namespace rm
