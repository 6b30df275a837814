#include "quillo/tables/RecordFields.h"

#include <fmt/format.h>

#include <tuple>

#include "kel/Errors.h"
#include "quillo/tables/Records.h"

namespace Quillo {
namespace {

using AllRecords = std::tuple<ArpRecord<Vantu::ipv4_>, ArpRecord<Vantu::ipv6_>, RouteRecord<Vantu::Prefix>,
                              RouteRecord<Vantu::Ip6Prefix>, FecRecord>;

template <class Record>
bool printKey(TableId table, Bytes bytes, FieldPrinter& fields) {
  typename Record::Key key;
  if (Record::table != table || decodeKey<Record>(bytes, key)) return false;
  Record::keyFields(fields, key);
  return true;
}

}  // namespace

std::string storableBytes(const FieldWriter& fields, TableId table) {
  if (fields.fault()) {
    throw Kel::RangeException(
        fmt::format("table {} of the store cannot hold this record: {}", tableInfo(table).name, fields.fault()));
  }
  return fields.bytes();
}

std::string keyText(TableId table, Bytes key, const VrfNames& names) {
  FieldPrinter fields(names);
  const auto print = [&]<class... Records>(std::tuple<Records...>) {
    return (printKey<Records>(table, key, fields) || ...);
  };
  return print(AllRecords()) ? fields.text() : printableKey(key);
}

void FieldReader::address(Vantu::IpGenAddr& field, Vantu::Af family) {
  const auto read = [&](auto address) {
    raw(address);
    field = address;
  };
  family == Vantu::ipv4_ ? read(Vantu::IpAddr()) : read(Vantu::Ip6Addr());
}

void FieldReader::anyAddress(Vantu::IpGenAddr& field, const char* unknownFamily) {
  const auto family = littleEndian<std::uint8_t>();
  require(family == 4 || family == 6, unknownFamily);
  address(field, family == 4 ? Vantu::ipv4_ : Vantu::ipv6_);
}

void FieldReader::interface(Vantu::IntfId& field) {
  const auto text = take(littleEndian<std::uint8_t>());
  if (field.text() != text) field = Vantu::IntfId(text);  // most often it is the one that is there
}

void FieldReader::lastInterface(Vantu::IntfId& field) {
  if (isSound()) isShort_ = rest_.empty();
  if (isSound() && rest_.size() <= Vantu::IntfId::maxLength) field = Vantu::IntfId(take(rest_.size()));
}

}  // namespace Quillo
