// A record of the store. The first byte chooses what it is, the second is the length of its key.

#include <cstdlib>
#include <string>
#include <string_view>

#include "kel/Trace.h"
#include "quillo/Record.h"
#include "quillo/tables/Records.h"
#include "varnix/Document.h"
#include "varnix/Tree.h"
#include "varnix/TreeLoader.h"

namespace {

using Quillo::Bytes;

void expect(bool holds) {
  if (!holds) std::abort();
}

// What is decoded is encoded to the same bytes.
template <class Record>
void record(Bytes keyBytes, Bytes valueBytes) {
  typename Record::Key key;
  if (!Quillo::decodeKey<Record>(keyBytes, key)) expect(Quillo::encodeKey<Record>(key) == keyBytes);
  typename Record::Entry entry;
  if (!Quillo::decodeValue<Record>(valueBytes, entry)) expect(Quillo::encodeValue<Record>(entry) == valueBytes);
  Quillo::keyText(Record::table, keyBytes);
}

void document(const std::string& path, std::string_view text) {
  // What was read is written and read as the same.
  try {
    const auto written = Varnix::documentText(Varnix::documentFromText(text));
    expect(Varnix::documentText(Varnix::documentFromText(written)) == written);
  } catch (const Varnix::DocumentException&) {
  }
  Varnix::Tree tree(Kel::makePtr<Kel::Dir>("Varnix"));
  Varnix::TreeLoader loader(tree.root, tree.openDirs());
  for (const char* known : {"ip/config", "interface/status/eth0", "ip/config.ipIntfConfig/eth0",
                            "ip/status.ipIntfStatus/eth0", "l3/intf/status.intfStatus/eth0", "vrf/id/status"}) {
    loader.loadDocument(known, text);
  }
  loader.loadDocument(path, text);
  loader.loadDocument(path, R"({"attributes":{},"type":"Ip::Config"})");
  loader.settle(1000);
  loader.deleteDocument(path);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  Kel::TraceConfig::setSink([](const auto&, unsigned, const auto&) {});
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  const std::string_view bytes(reinterpret_cast<const char*>(data) + 2, size - 2);
  const std::string key(bytes.substr(0, data[1]));
  const std::string value(bytes.substr(key.size()));
  switch (data[0] % 7) {
    case 0: {
      Quillo::RecordView record;
      Quillo::recordDecode(record, Quillo::Place::records, key, value);
      std::string sound;
      Quillo::recordEncode(sound, Quillo::Place::records, key, data[0], 1, value);
      expect(Quillo::recordDecode(record, Quillo::Place::records, key, sound) == nullptr && record.value == value);
      break;
    }
    case 1:
      record<Quillo::ArpRecord<Vantu::ipv4_>>(key, value);
      break;
    case 2:
      record<Quillo::ArpRecord<Vantu::ipv6_>>(key, value);
      break;
    case 3:
      record<Quillo::RouteRecord<Vantu::Prefix>>(key, value);
      break;
    case 4:
      record<Quillo::RouteRecord<Vantu::Ip6Prefix>>(key, value);
      break;
    case 5:
      record<Quillo::FecRecord>(key, value);
      break;
    default:
      document(key, value);
      break;
  }
  return 0;
}
