#pragma once
// The bytes of a record, described once for each type of record. Encoding, decoding with the name of what is wrong, and
// the text of a key for people follow from the description.
//
// A description is a struct with these members (Records.h has those of all tables):
//
//   static constexpr TableId table;
//   Key, Entry                                         types; a default Entry means "no such entry"
//   static void keyFields(auto& fields, auto& key)     names the fields of the key, in the order of its bytes
//   static void valueFields(auto& fields, auto& entry) those of the value, which are all members of Entry but the key
//   static void setKey(Entry& entry, const Key& key)   for entries that contain their key
//
// `fields` is a FieldWriter, a FieldReader or a FieldPrinter. Their operations, and the bytes that they write or read:
//
//   vrfId(id)                  a known VRF id: 3, big-endian
//   id(x)                      a number in a key: its width, big-endian
//   number(x)                  a number in a value: its width, little-endian
//   raw(x)                     an IP or MAC address: its bytes, most significant first
//   address(a, family)         a generic address of this family: 4 or 16
//   anyAddress(a, what)        1 with the number 4 or 6, then the address; `what` names the fault of another number
//   prefix(p)                  the address without host bits, then 1 with the length
//   interface(i)               1 with the length, then the text
//   lastInterface(i)           the text of an interface id that is not empty, to the end of the bytes
//   flags(Flag{x}, ...)        1, with a bit for each flag, from bit 0 on; the other bits are 0
//   choice(e, last, what)      1: an enumeration, whose last value is `last`
//   list(v, most, what, each)  2 with the number of elements (little-endian), then each(element)
//   require(holds, what)       none: no record has other fields than those for which this holds
//   end(short, long)           none: the record ends here. Names the faults of other lengths
//
// A new field is a line in a description, and a new layout of the table (Table.h). A new type of record is a
// description, its place in `AllRecords` (RecordFields.cpp), and its table in Table.h.

#include <cstdint>
#include <cstring>
#include <functional>
#include <span>
#include <string>

#include "quillo/Publisher.h"
#include "vantu/IntfId.h"
#include "vantu/IpAddr.h"
#include "vantu/VrfId.h"

namespace Quillo {

using Vrf::VrfIdMap::VrfId;

// Keys of tables that hold all VRFs begin with the VRF's id, so that the records of a VRF are one range.
inline constexpr std::size_t vrfKeyBytes = 3;
inline bool isStorable(const VrfId& id) {
  return id.value() < VrfId::unknownValue;
}

// A boolean field; `whenSet` is its value when the bit is set.
template <class Bool>
struct Flag {
  Bool& field;
  bool whenSet = true;
};
template <class Bool>
Flag(Bool&, bool = true) -> Flag<Bool>;  // clang 14 does not deduce it

// Appends fields. With a fault, the bytes are no key and no value, but a lower bound of the keys with the same first
// fields: an unset address or interface id has no bytes, and id 0 is the lowest.
class FieldWriter {
 public:
  const std::string& bytes() const { return bytes_; }
  // Null, or why the store cannot hold the record.
  const char* fault() const { return fault_; }

  void vrfId(const VrfId& id) {
    require(isStorable(id), "key of an unknown VRF");
    bigEndian(id.value(), vrfKeyBytes);
  }
  void id(const auto& field) { bigEndian(field.value(), sizeof field.value()); }
  void number(const auto& field) { littleEndian(field.value()); }
  void raw(const auto& field) {
    const auto& bytes = field.bytes();
    bytes_.append(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  }
  void address(const Vantu::IpGenAddr& field, Vantu::Af family) {
    require(field.isSet() && field.af() == family, "no address of the right family");
    if (field.af() == Vantu::ipv4_) raw(field.v4());
    if (field.af() == Vantu::ipv6_) raw(field.v6());
  }
  void anyAddress(const Vantu::IpGenAddr& field, const char*) {
    bytes_.push_back(field.af() == Vantu::ipv4_ ? 4 : 6);
    address(field, field.af());
  }
  void prefix(const auto& field) {
    raw(field.address());
    bytes_.push_back(static_cast<char>(field.length()));
  }
  void interface(const Vantu::IntfId& field) {
    bytes_.push_back(static_cast<char>(field.text().size()));
    bytes_.append(field.text());
  }
  void lastInterface(const Vantu::IntfId& field) {
    require(field.isValid(), "no interface");
    bytes_.append(field.text());
  }
  void flags(const auto&... flags) {
    unsigned bits = 0, bit = 0;
    ((bits |= (flags.field == flags.whenSet ? 1U : 0U) << bit++), ...);
    bytes_.push_back(static_cast<char>(bits));
  }
  void choice(const auto& field, const auto&, const char*) { bytes_.push_back(static_cast<char>(field)); }
  void list(const auto& elements, std::size_t most, const char* what, const auto& each) {
    require(elements.size() <= most, what);
    littleEndian(static_cast<std::uint16_t>(elements.size()));
    for (const auto& element : elements) each(element);
  }
  void require(bool holds, const char* what) {
    if (!holds && !fault_) fault_ = what;
  }
  void end(const char*, const char* = nullptr) {}

 private:
  void bigEndian(std::uint64_t value, std::size_t width) {
    const std::uint64_t bytes = __builtin_bswap64(value);
    bytes_.append(reinterpret_cast<const char*>(&bytes) + sizeof bytes - width, width);
  }
  template <class Number>
  void littleEndian(Number value) {
    bytes_.append(reinterpret_cast<const char*>(&value), sizeof value);
  }

  std::string bytes_;
  const char* fault_ = nullptr;
};

// Takes fields from the front. After the first fault the fields are undefined.
class FieldReader {
 public:
  explicit FieldReader(Bytes bytes) : rest_(bytes) {}
  // Null, or what is wrong with the bytes. Complete after end().
  const char* fault() const { return fault_; }

  void vrfId(VrfId& field) {
    field = VrfId(static_cast<std::uint32_t>(bigEndian(vrfKeyBytes)));
    require(isStorable(field), "key of an unknown VRF");
  }
  template <class Field>
  void id(Field& field) {
    field = Field(bigEndian(sizeof field.value()));
  }
  template <class Field>
  void number(Field& field) {
    field = Field(littleEndian<std::remove_cvref_t<decltype(field.value())>>());
  }
  template <class Field>
  void raw(Field& field) {
    const auto bytes = numbers(sizeof field.bytes());
    if (isSound()) field = Field::fromBytes(bytes);
  }
  void address(Vantu::IpGenAddr& field, Vantu::Af family);
  void anyAddress(Vantu::IpGenAddr& field, const char* unknownFamily);
  template <class Field>
  void prefix(Field& field) {
    auto address = field.address();
    raw(address);
    const unsigned length = littleEndian<std::uint8_t>();
    require(length <= address.bits, "prefix too long");
    if (!isSound()) return;
    field = Field(address, length);
    require(field.address() == address, "host bits in the prefix");
  }
  void interface(Vantu::IntfId& field);
  void lastInterface(Vantu::IntfId& field);
  void flags(auto... flags) {
    unsigned bits = littleEndian<std::uint8_t>();
    (((flags.field = ((bits & 1) != 0) == flags.whenSet), bits >>= 1), ...);
    require(bits == 0, "unknown flags in the value");
  }
  template <class Field>
  void choice(Field& field, Field last, const char* what) {
    field = static_cast<Field>(littleEndian<std::uint8_t>());
    require(field <= last, what);
  }
  // Reuses the memory of `elements`.
  void list(auto& elements, std::size_t most, const char* what, const auto& each) {
    const auto count = littleEndian<std::uint16_t>();
    require(count <= most, what);
    elements.resize(isSound() ? count : 0);
    for (auto& element : elements) each(element);
  }
  void require(bool holds, const char* what) {
    if (isSound() && !holds) fault_ = what;
  }
  void end(const char* tooShort, const char* tooLong) {
    if (isShort_) fault_ = tooShort;
    require(rest_.empty(), tooLong);
  }
  void end(const char* wrongLength) { end(wrongLength, wrongLength); }

 private:
  bool isSound() const { return !isShort_ && !fault_; }
  Bytes take(std::size_t size) {
    if (isSound()) isShort_ = rest_.size() < size;
    if (!isSound()) return {};
    const auto taken = rest_.substr(0, size);
    rest_.remove_prefix(size);
    return taken;
  }
  std::span<const std::uint8_t> numbers(std::size_t size) {
    const auto bytes = take(size);
    return {reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()};
  }
  std::uint64_t bigEndian(std::size_t width) {
    std::uint64_t value = 0;
    for (const auto byte : numbers(width)) value = value << 8 | byte;
    return value;
  }
  template <class Number>
  Number littleEndian() {
    Number value = 0;
    const auto bytes = take(sizeof value);
    if (!bytes.empty()) std::memcpy(&value, bytes.data(), sizeof value);
    return value;
  }

  Bytes rest_;
  bool isShort_ = false;
  const char* fault_ = nullptr;
};

// The first bytes of all keys of a VRF.
inline std::string vrfKey(const VrfId& id) {
  FieldWriter fields;
  fields.vrfId(id);
  return fields.bytes();
}
// The VRF of a key; not storable if the key is too short.
inline VrfId vrfOfKey(Bytes key) {
  VrfId id;
  FieldReader(key).vrfId(id);
  return id;
}

using VrfNames = std::function<std::string(const VrfId&)>;

// Appends the fields of a key for people: "VRF red 10.0.0.1 on Ethernet3".
class FieldPrinter {
 public:
  explicit FieldPrinter(const VrfNames& names) : names_(names) {}
  const std::string& text() const { return text_; }

  void vrfId(const VrfId& field) { text_ += "VRF " + (names_ ? names_(field) : field.stringValue()); }
  void id(const auto& field) { text_ += " " + field.stringValue(); }
  void address(const Vantu::IpGenAddr& field, Vantu::Af) { text_ += " " + field.stringValue(); }
  void prefix(const auto& field) { text_ += " " + field.stringValue(); }
  void lastInterface(const Vantu::IntfId& field) { text_ += " on " + printableKey(field.text()); }
  void require(bool, const char*) {}
  void end(const char*, const char* = nullptr) {}

 private:
  const VrfNames& names_;
  std::string text_;
};

// The written bytes. Throws Kel::RangeException when the store cannot hold the record.
std::string storableBytes(const FieldWriter& fields, TableId table);

// encodeKey, encodeValue, put and del throw as storableBytes; put and del then leave the batch unchanged.
template <class Record>
std::string encodeKey(const typename Record::Key& key) {
  FieldWriter fields;
  Record::keyFields(fields, key);
  return storableBytes(fields, Record::table);
}
template <class Record>
std::string encodeValue(const typename Record::Entry& entry) {
  FieldWriter fields;
  Record::valueFields(fields, entry);
  return storableBytes(fields, Record::table);
}
// Adds or replaces a record.
template <class Record>
void put(Batch& batch, const typename Record::Key& key, const typename Record::Entry& entry) {
  batch.put(Record::table, encodeKey<Record>(key), encodeValue<Record>(entry));
}
// Deletes a record, if it exists.
template <class Record>
void del(Batch& batch, const typename Record::Key& key) {
  batch.del(Record::table, encodeKey<Record>(key));
}

// Return null, or what is wrong with the bytes; `key` or `entry` is then the default. decodeValue does not change the
// key in `entry` otherwise.
template <class Record>
const char* decodeKey(Bytes bytes, typename Record::Key& key) {
  FieldReader fields(bytes);
  Record::keyFields(fields, key);
  if (fields.fault()) key = {};
  return fields.fault();
}
template <class Record>
const char* decodeValue(Bytes bytes, typename Record::Entry& entry) {
  FieldReader fields(bytes);
  Record::valueFields(fields, entry);
  if (fields.fault()) entry = {};
  return fields.fault();
}

// Decodes a whole record: the key also into `entry`.
template <class Record>
const char* decodeRecord(Bytes keyBytes, Bytes valueBytes, typename Record::Key& key,
                         typename Record::Entry& entry) {
  const char* what = decodeKey<Record>(keyBytes, key);
  if (!what) what = decodeValue<Record>(valueBytes, entry);
  if (!what) Record::setKey(entry, key);
  return what;
}

// A key of any table for people, with the names of VRFs, or their ids if `names` is null. Bytes that are no key of the
// table are printed as printableKey() does.
std::string keyText(TableId table, Bytes key, const VrfNames& names = {});

}  // namespace Quillo
