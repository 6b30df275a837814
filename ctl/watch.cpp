// The command watch: the changes of the store as they are committed.

#include <poll.h>
#include <signal.h>

#include <algorithm>
#include <array>
#include <map>
#include <unordered_map>

#include "ctl/Commands.h"
#include "ctl/ReadableRecords.h"
#include "ctl/StoreReader.h"
#include "varnix/ByteText.h"

namespace Ctl {
namespace {

using Quillo::Change;
using Quillo::TableId;

constexpr std::size_t changesAtOnce = 1000;
// Routes are remembered once they have changed, so that their next change shows what they were before.
constexpr std::size_t mostRoutes = 100'000;

volatile sig_atomic_t isStopped = 0;

// The documents of an object. Paths that begin with `path` name an interface or a VRF behind it.
struct DocumentKind {
  std::string_view path;
  const char* object;
  enum { interface, vrf, none } named;
};

constexpr DocumentKind documentKinds[] = {
    {"interface/status.intfStatus/", "interfaces", DocumentKind::interface},
    {"l3/intf/config.intfConfig/", "interfaces", DocumentKind::interface},
    {"l3/intf/status.intfStatus/", "interfaces", DocumentKind::interface},
    {"ip/config.ipIntfConfig/", "addresses", DocumentKind::interface},
    {"ip/status.ipIntfStatus/", "addresses", DocumentKind::interface},
    {"ip6/config.intf/", "addresses", DocumentKind::interface},
    {"ip6/status.intf/", "addresses", DocumentKind::interface},
    {"ip/intf/stats.intfStats/", "counters", DocumentKind::interface},
    {"ip6/intf/stats.intfStats/", "counters", DocumentKind::interface},
    {"ip/vrf/config.vrfConfig/", "vrfs", DocumentKind::vrf},
    {"ip/vrf/global.vrf/", "vrfs", DocumentKind::vrf},
    {"ip/vrf/local.vrf/", "vrfs", DocumentKind::vrf},
    {"routing/vrf/config.vrfConfig/", "vrfs", DocumentKind::vrf},
    {"routing6/vrf/config.vrfConfig/", "vrfs", DocumentKind::vrf},
    {"routing/vrf/info/", "vrfs", DocumentKind::vrf},
    {"routing6/vrf/info/", "vrfs", DocumentKind::vrf},
    {"", "vrfs", DocumentKind::none},  // settings of the default VRF, and lists of all
};
constexpr std::string_view memberships = "l3/intf/status.intfStatus/";
constexpr std::string_view vrfNumbers = "vrf/id/status";

constexpr std::array<std::string_view, 7> objects{"vrfs",   "interfaces", "addresses", "neighbours",
                                                  "routes", "counters",   "nexthops"};

const char* objectOf(TableId table) {
  switch (table) {
    case TableId::arp:
    case TableId::neighbor:
      return "neighbours";
    case TableId::route:
    case TableId::route6:
      return "routes";
    case TableId::fec:
      return "nexthops";
    case TableId::varnix:
      break;
  }
  return "vrfs";
}

using Fields = std::vector<std::pair<std::string, std::string>>;

// "via 10.0.0.1 dev eth0" of a list of next hops.
std::string hopsText(const Json& hops) {
  std::string text;
  for (const auto& hop : hops) {
    for (const auto& [name, part] : hop.items()) {
      text += (text.empty() ? "" : " ") + name + (part.is_string() ? " " + part.get<std::string>() : "");
    }
  }
  return text;
}

// The members of nested objects, by path: "counters.inPkts".
void flatten(const Json& value, const std::string& path, Fields& out) {
  if (value.is_object()) {
    for (const auto& [name, member] : value.items()) flatten(member, path.empty() ? name : path + "." + name, out);
    return;
  }
  const auto text = value.is_array()    ? hopsText(value)
                    : value.is_string() ? value.get<std::string>()
                                        : value.dump();
  out.emplace_back(path, text.empty() || value.is_null() ? "-" : text);
}

std::string changeText(const Json& from, const Json& to) {
  Fields before, after;
  flatten(from.is_object() ? from : Json::object(), "", before);
  flatten(to.is_object() ? to : Json::object(), "", after);
  const auto valueIn = [](const Fields& fields, const std::string& name) {
    const auto at =
        std::find_if(fields.begin(), fields.end(), [&](const auto& field) { return field.first == name; });
    return at == fields.end() ? "-" : at->second;
  };
  const bool isChange = from.is_object() && to.is_object();
  std::string text;
  const auto add = [&](const std::string& name, const std::string& words) {
    if (name == "l3Status" || name == "l3Config") return;  // links between documents
    text += (text.empty() ? "" : ", ") + (name == "nexthops" ? words : name + " " + words);
  };
  for (const auto& [name, value] : from.is_object() ? before : after) {
    const auto now = isChange ? valueIn(after, name) : value;
    if (now != value && value != "-") add(name, value + " -> " + now);
    if (!isChange && value != "-") add(name, value);
  }
  for (const auto& [name, value] : after) {
    if (isChange && value != "-" && valueIn(before, name) == "-") add(name, "- -> " + value);
  }
  return text;
}

class Watch {
 public:
  Watch(const Options& options, std::string vrf, const std::vector<std::string>& shown)
      : options_(options), store_(options.store), vrf_(std::move(vrf)), hops_(store_) {
    for (const auto& object : objects) {
      const bool isQuiet = object == "counters" || object == "nexthops";
      const bool isNamed = std::find(shown.begin(), shown.end(), object) != shown.end();
      if (isNamed || (shown.empty() && !isQuiet)) shown_.emplace_back(object);
    }
    if (!vrf_.empty()) vrf_ = store_.select(vrf_).front().text();
  }

  // Until a signal.
  Exit run() {
    learn();
    fmt::print(stderr, "quorinctl: watching {}; Ctrl-C ends it\n", options_.store);
    std::string obstacle;
    while (!isStopped) {
      const auto& mount = store_.mount();
      mount->drainDoorbell();
      mount->refresh();
      if (mount->stateText() != std::exchange(obstacle, mount->stateText()) && !obstacle.empty()) {
        fmt::print(stderr, "quorinctl: {}\n", obstacle);
      }
      while (!isStopped && mount->isReadable() && readChanges()) continue;
      pollfd entry{mount->doorbellFd(), POLLIN, 0};
      poll(&entry, 1, 1000);  // a wake-up may be lost
    }
    return Exit::ok;
  }

 private:
  struct Event {
    const char* object;
    std::string vrf;   // empty: of no VRF
    std::string name;  // of what changed
    const char* change;
    Json from, to;  // null: unknown, or none
  };

  // Remembers the contents, except for routes and next hops, of which there may be a million.
  void learn() {
    mark_ = store_.mount()->snapshot().bookmark();
    known_.clear();
    for (const auto table : {TableId::varnix, TableId::arp, TableId::neighbor}) {
      store_.scan(table, "", "", [&](Quillo::Snapshot& snapshot, const Quillo::Scan& scan) {
        const std::string key(scan.key());
        remember(table, key, contentsOf(snapshot, table, key, scan.value()));
        return true;
      });
    }
  }

  // Shows the next changes; returns whether there are more.
  bool readChanges() {
    std::vector<Event> events;
    bool hasMore = false;
    try {
      auto snapshot = store_.mount()->snapshot();
      const auto changes = snapshot.changesSince(mark_, changesAtOnce);
      hasMore = changes.more;
      if (changes.tooOld) {
        events.push_back({"store", "", options_.store, "renewed", nullptr, nullptr});
      }
      for (const auto& change : changes.changes) note(snapshot, change, events);
      mark_ = changes.next;
    } catch (const Pesk::CorruptionDetectedException& damage) {
      fmt::print(stderr, "quorinctl: {}\n", damage.what());
      const timespec pause{1, 0};
      nanosleep(&pause, nullptr);
      return false;
    }
    if (!events.empty() && std::string_view(events.front().object) == "store") learn();
    for (const auto& event : events) show(event);
    flushOut();
    return hasMore;
  }

  void note(Quillo::Snapshot& snapshot, const Change& change, std::vector<Event>& events) {
    const bool isKnownTable = std::any_of(Quillo::knownTables.begin(), Quillo::knownTables.end(),
                                          [&](const auto& info) { return info.id == change.table; });
    if (!isKnownTable) return;
    Event event{objectOf(change.table), "", "", "deleted", nullptr, nullptr};
    if (change.kind == Change::Kind::put) {
      try {
        const auto value = snapshot.get(change.table, change.key);
        if (value) event.to = contentsOf(snapshot, change.table, change.key, *value);
      } catch (const Pesk::CorruptionDetectedException& damage) {
        fmt::print(stderr, "quorinctl: {}\n", damage.what());
        return;
      }
    }
    event.from = remember(change.table, change.key, event.to);
    const bool isLearned =
        change.table == TableId::varnix || change.table == TableId::arp || change.table == TableId::neighbor;
    if (change.kind == Change::Kind::put)
      event.change = !event.from.is_null() ? "changed" : isLearned ? "added" : "set";
    describe(change, event);
    const bool isShown = std::find(shown_.begin(), shown_.end(), event.object) != shown_.end();
    if (isShown && (vrf_.empty() || event.vrf.empty() || event.vrf == vrf_)) events.push_back(std::move(event));
  }

  Json contentsOf(Quillo::Snapshot& snapshot, TableId table, const std::string& key, Quillo::Bytes value) {
    const char* what = nullptr;
    Json record = recordJson(store_, table, key, value, what);
    if (what) return Json::object();
    if (table == TableId::varnix) return record.value("attributes", Json::object());
    if (table == TableId::route || table == TableId::route6) {
      const auto id = Quillo::vrfOfKey(key);
      const auto* vias = hops_.find(snapshot, id, Quillo::Fib::FecId::fromString(record["fec"].get<std::string>()));
      return {{"nexthops", nextHopsJson(vias, L3::VrfName(Varnix::unescapeBytes(vrfName(id))))},
              {"proto", record["proto"]},
              {"preference", record["preference"]},
              {"metric", record["metric"]}};
    }
    for (const auto* name : {"table", "vrf", "address", "interface", "fec"}) record.erase(name);
    return record;
  }

  // Notes the new contents (null: deleted), and returns what was known before.
  Json remember(TableId table, const std::string& key, const Json& contents) {
    if (table == TableId::varnix) noteNames(key, contents);
    auto& known = table == TableId::route || table == TableId::route6 || table == TableId::fec ? routes_ : known_;
    if (&known == &routes_ && routes_.size() >= mostRoutes) routes_.clear();
    const auto name = static_cast<char>(table) + key;
    const auto at = known.find(name);
    const Json before = at == known.end() ? Json() : Json::parse(at->second);
    if (contents.is_null()) {
      known.erase(name);
    } else {
      known[name] = jsonText(contents);
    }
    return before;
  }

  // Names of VRFs and of the VRFs of interfaces. They stay when their document is deleted: others follow.
  void noteNames(const std::string& path, const Json& attributes) {
    if (attributes.is_null()) return;
    if (path == vrfNumbers) {
      const auto names = attributes.value("vrfName", Json::object());
      for (const auto& [id, name] : names.items()) {
        if (name.is_string()) vrfNames_[id] = name.get<std::string>();
      }
    } else if (path.starts_with(memberships)) {
      vrfOfInterface_[path.substr(memberships.size())] = attributes.value("vrf", std::string());
    }
  }

  // As the documents have it, with escaped bytes.
  std::string vrfName(StoreReader::VrfId id) const {
    const auto at = vrfNames_.find(id.stringValue());
    return at != vrfNames_.end() ? at->second : id.value() == 0 ? "default" : "number " + id.stringValue();
  }

  std::string devName(const std::string& intfId, const std::string& vrf) const {
    return devOf(Vantu::IntfId(intfId), L3::VrfName(Varnix::unescapeBytes(vrf)));
  }

  // Sets object, VRF and name of the event.
  void describe(const Change& change, Event& event) {
    if (change.table == TableId::varnix) {
      const std::string_view path = change.key;
      const auto& kind = *std::find_if(std::begin(documentKinds), std::end(documentKinds),
                                       [&](const DocumentKind& known) { return path.starts_with(known.path); });
      const std::string member(path.substr(kind.path.size()));
      const auto owner = kind.path.substr(0, std::min(kind.path.find('.'), kind.path.size()));
      event.object = kind.object;
      event.name = nameText(member);
      if (kind.named == DocumentKind::vrf) event.vrf = event.name;
      if (kind.named == DocumentKind::interface) {
        if (const auto at = vrfOfInterface_.find(member); at != vrfOfInterface_.end()) event.vrf = at->second;
        event.name = devName(member, event.vrf);
      }
      if (kind.named != DocumentKind::none) event.name += " (" + std::string(owner) + ")";
      return;
    }
    const char* what = nullptr;
    const auto key = keyJson(change.table, change.key, what);
    if (what) {
      event.name = Quillo::printableKey(change.key);
      return;
    }
    event.vrf = vrfName(Quillo::vrfOfKey(change.key));
    event.name = key.value("prefix", key.value("address", key.value("fec", std::string())));
    if (key.contains("interface")) {
      event.name += " dev " + devName(Varnix::unescapeBytes(key["interface"].get<std::string>()), event.vrf);
    }
  }

  void show(const Event& event) const {
    const auto now = Kel::System::currentTime();
    if (!options_.json) {
      const bool isRenewed = std::string_view(event.change) == "renewed";
      const auto text = isRenewed
                            ? "the store was made anew, or changed too much at once: some changes are not shown"
                            : changeText(event.from, event.to);
      writeOut(fmt::format("{}  {:<10}  {:<8}  {:<28}  {:<7}  {}\n", timeText(now, true), event.object,
                           event.vrf.empty() ? "-" : event.vrf, event.name, event.change, text));
      return;
    }
    Json line{{"time", now}, {"object", event.object}};
    if (!event.vrf.empty()) line["vrf"] = event.vrf;
    line["name"] = event.name;
    line["change"] = event.change;
    if (!event.from.is_null()) line["from"] = event.from;
    if (!event.to.is_null()) line["to"] = event.to;
    writeOut(jsonText(line) + "\n");
  }

  const Options& options_;
  StoreReader store_;
  std::string vrf_;  // empty: all
  std::vector<std::string> shown_;
  NextHops hops_;
  Quillo::Bookmark mark_;
  // Contents by table and key.
  std::unordered_map<std::string, std::string> known_, routes_;
  std::map<std::string, std::string> vrfNames_;  // by number
  std::map<std::string, std::string> vrfOfInterface_;
};

}  // namespace

Action addWatch(CLI::App& app, const Options& options) {
  struct Arguments {
    std::string vrf;
    std::vector<std::string> shown;
  };
  auto arguments = std::make_shared<Arguments>();
  addVrfOption(app, arguments->vrf);
  app.add_option("OBJECT", arguments->shown,
                 "What to show (all but counters and nexthops): " + fmt::format("{}", fmt::join(objects, ", ")))
      ->type_name("")
      ->check(CLI::IsMember(std::vector<std::string>(objects.begin(), objects.end())));
  return [&options, arguments] {
    struct sigaction action {};
    action.sa_handler = [](int) { isStopped = 1; };
    for (const int signal : {SIGINT, SIGTERM}) sigaction(signal, &action, nullptr);
    return Watch(options, arguments->vrf, arguments->shown).run();
  };
}

}  // namespace Ctl
