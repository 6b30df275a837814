// The command store: check, size, dump.

#include <sys/stat.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <array>

#include "ctl/Commands.h"
#include "ctl/ReadableRecords.h"
#include "ctl/StoreReader.h"
#include "quillo/Scrubber.h"
#include "quillo/StoreFiles.h"

namespace Ctl {
namespace {

using Quillo::knownTables;
using Quillo::TableId;

// ---- check

Exit checkStore(const Options& options) {
  StoreReader store(options.store);
  std::uint64_t records = 0;
  std::string obstacle;
  try {
    for (const auto& table : knownTables) {
      store.scan(table.id, "", "", [&, id = table.id](const auto&, const Quillo::Scan& scan) {
        ++records;
        if (const char* what = recordFault(id, scan.key(), scan.value())) store.noteDamage(id, scan.key(), what);
        return true;
      });
    }
  } catch (const Pesk::CorruptionDetectedException& damage) {
    obstacle = damage.what();
  }
  const auto& damage = store.damage();
  bool isSure = true;
  // Every record that a scan meets is sound. Whether it meets every record show the counts and digests.
  if (damage.empty() && obstacle.empty()) {
    Quillo::Scrubber scrubber(store.mount());
    auto outcome = Quillo::Scrubber::Outcome::more;
    while (outcome == Quillo::Scrubber::Outcome::more) outcome = scrubber.step(1000);
    if (outcome == Quillo::Scrubber::Outcome::damaged || outcome == Quillo::Scrubber::Outcome::notReady) {
      obstacle = store.mount()->stateText();
    }
    isSure = outcome == Quillo::Scrubber::Outcome::clean;
  }
  const bool isDamaged = !damage.empty() || !obstacle.empty();
  const Exit exit = isDamaged ? Exit::critical : isSure ? Exit::ok : Exit::warning;
  if (options.json) {
    auto list = Json::array();
    for (const auto& record : damage) {
      list.push_back({{"table", Quillo::tableInfo(record.table).name},
                      {"key", keyText(store, record.table, record.key)},
                      {"what", record.what}});
    }
    Json object{{"result", isDamaged ? "damaged" : isSure ? "clean" : "inconclusive"}, {"records", records}};
    object["damaged"] = std::move(list);
    if (!obstacle.empty()) object["obstacle"] = obstacle;
    writeOut(jsonText(object) + "\n");
    return exit;
  }
  if (isDamaged) {
    fmt::print("CRITICAL - the store in {} is damaged: {} of {} cannot be read\n", options.store,
               countText(damage.size()), countText(records + damage.size(), "record"));
    for (const auto& record : damage) {
      writeOut(fmt::format("  {}: {}\n", keyText(store, record.table, record.key), record.what));
    }
    if (!obstacle.empty()) writeOut("  " + obstacle + "\n");
    writeOut(
        "What to do: a running publisher verifies its store once a minute and makes it anew. If this stays, "
        "restart "
        "it;\nif it comes back, look for a program that writes files of the store.\n");
  } else if (isSure) {
    writeOut(fmt::format("OK - {} in {} checked, none is damaged or missing\n", countText(records, "record"),
                         options.store));
  } else {
    writeOut(
        fmt::format("WARNING - {} in {} checked, none is damaged; whether any is missing cannot be told, since a "
                    "table changes too fast. Run it again\n",
                    countText(records, "record"), options.store));
  }
  return exit;
}

// ---- size

Exit showSizes(const Options& options) {
  StoreReader store(options.store);
  const auto sizes = store.mount()->snapshot().sizes();
  struct stat file {};
  struct statvfs system {};
  const auto path = Quillo::dataFile(options.store);
  if (stat(path.c_str(), &file) != 0 || statvfs(path.c_str(), &system) != 0) {
    throw Failure(Exit::unknown, fmt::format("cannot read the size of {}: {}", path, std::strerror(errno)));
  }
  struct Table {
    std::string_view name;
    std::uint64_t records = 0;
    std::uint64_t bytes = 0;
  };
  std::vector<Table> tables;
  std::uint64_t records = 0;
  for (const auto& info : knownTables) {
    Table table{info.name};
    store.scan(info.id, "", "", [&](const auto&, const Quillo::Scan& scan) {
      ++table.records;
      table.bytes += scan.key().size() + scan.value().size();
      return true;
    });
    records += table.records;
    tables.push_back(table);
  }
  const auto used = sizes.recordBytes + sizes.journalBytes + sizes.tombstoneBytes;
  const auto bytes = static_cast<std::uint64_t>(file.st_size);
  const auto free = bytes - std::min<std::uint64_t>(bytes, used);
  const auto room = std::uint64_t{system.f_bavail} * system.f_frsize;
  if (options.json) {
    auto list = Json::array();
    for (const auto& table : tables) {
      list.push_back({{"table", table.name}, {"records", table.records}, {"bytes", table.bytes}});
    }
    writeOut(jsonText({{"tables", list},
                       {"recordBytes", sizes.recordBytes},
                       {"journal",
                        {{"head", sizes.journal.seq},
                         {"entries", records + sizes.journal.tombstones},
                         {"bytes", sizes.journalBytes}}},
                       {"tombstones",
                        {{"count", sizes.journal.tombstones},
                         {"floor", sizes.journal.floor},
                         {"bytes", sizes.tombstoneBytes}}},
                       {"file", {{"bytes", bytes}, {"used", used}, {"free", free}}},
                       {"fileSystemFree", room}}) +
             "\n");
    return store.finish();
  }
  Rows rows(options, {{"TABLE"}, {"RECORDS", Rows::number}, {"KEYS AND VALUES", Rows::number}});
  const auto none = [] { return Json(); };
  for (const auto& table : tables) {
    rows.add(
        [&] {
          return Rows::Cells{std::string(table.name), countText(table.records), bytesText(table.bytes)};
        },
        none);
  }
  rows.finish();
  const auto line = [](const char* title, const std::string& text) {
    writeOut(fmt::format("{:<12}{}\n", title, text));
  };
  writeOut("\n");
  line("Records", fmt::format("{} in pages of {}", countText(records), bytesText(sizes.recordBytes)));
  line("Journal", fmt::format("{} in pages of {}, head {}", countText(records + sizes.journal.tombstones, "change"),
                              bytesText(sizes.journalBytes), sizes.journal.seq));
  line("Tombstones",
       fmt::format("{} in pages of {}", countText(sizes.journal.tombstones), bytesText(sizes.tombstoneBytes)));
  line("Data file", fmt::format("{}, of which {} are used and {} are free for changes", bytesText(bytes),
                                bytesText(used), bytesText(free)));
  line("File system", bytesText(room) + " free");
  return store.finish();
}

// ---- dump

Exit dumpRecords(const Options& options, const std::vector<std::string>& names) {
  StoreReader store(options.store);
  store.vrfs();  // before the first piece: it reads the documents
  for (const auto& table : knownTables) {
    if (!names.empty() && std::find(names.begin(), names.end(), table.name) == names.end()) continue;
    std::string out;
    store.scan(
        table.id, "", "",
        [&](const auto&, const Quillo::Scan& scan) {
          const char* what = nullptr;
          const auto record = recordJson(store, table.id, scan.key(), scan.value(), what);
          if (what) {
            store.noteDamage(table.id, scan.key(), what);
          } else {
            out += jsonText(record) + "\n";
          }
          return true;
        },
        [&] {
          writeOut(out);
          out.clear();
        });
  }
  return store.finish();
}

}  // namespace

Action addStore(CLI::App& app, const Options& options) {
  app.require_subcommand(1);
  auto* checkApp = app.add_subcommand("check", "Read every record; status 2 when one is damaged or missing");
  auto* sizeApp = app.add_subcommand("size", "Records and bytes of each table, journal, free space");
  auto* dumpApp = app.add_subcommand("dump", "Every record as a line of JSON");
  auto tables = std::make_shared<std::vector<std::string>>();
  std::vector<std::string> known;
  known.reserve(knownTables.size());
  for (const auto& table : knownTables) known.emplace_back(table.name);
  dumpApp->add_option("TABLE", *tables, "Only these tables: varnix (documents), arp, neighbor, route, route6, fec")
      ->type_name("")
      ->check(CLI::IsMember(known));
  for (auto* sub : {checkApp, sizeApp, dumpApp}) sub->fallthrough();
  return [&options, tables, checkApp, sizeApp] {
    if (checkApp->parsed()) return checkStore(options);
    if (sizeApp->parsed()) return showSizes(options);
    return dumpRecords(options, *tables);
  };
}

}  // namespace Ctl
