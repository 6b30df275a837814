#pragma once
// The output of commands: rows as an aligned table or as a JSON array, texts of times and sizes.

#include <array>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ctl/Command.h"
#include "kel/System.h"

namespace Ctl {

using Json = nlohmann::ordered_json;

// The value on one line, without a newline. Bytes that are not UTF-8 become U+FFFD.
std::string jsonText(const Json& value);
// The name with control characters, backslashes and invalid UTF-8 escaped (Varnix::escapeBytes).
std::string nameText(std::string_view name);

// Writes rows to standard output: a table with a header line, or with --json an array of objects, one in a line.
//
//   Rows rows(options, {{"VRF"}, {"ID", Rows::number}});
//   rows.add([&] { return Rows::Cells{name, "7"}; }, [&] { return Json{{"vrf", name}, {"id", 7}}; });
//   rows.flush();   // between pieces
//   rows.finish();
//
// Column widths follow from the rows of the first write; later rows can only widen a column.
class Rows {
 public:
  static constexpr bool number = true;
  using Cells = std::vector<std::string>;
  struct Column {
    std::string_view title;
    bool isNumber = false;  // aligned to the right
  };

  Rows(const Options& options, std::vector<Column> columns);

  // Adds a row: makeObject() with --json, otherwise makeCells(). The other function is not called.
  template <class MakeCells, class MakeObject>
  void add(const MakeCells& makeCells, const MakeObject& makeObject) {
    if (isJson_) {
      objects_.push_back(jsonText(makeObject()));
    } else {
      cells_.push_back(makeCells());
    }
    ++count_;
  }
  bool isJson() const { return isJson_; }
  // Adds a further line of cells to the latest row. Requires: !isJson().
  void continueRow(Cells cells) { cells_.push_back(std::move(cells)); }

  std::size_t count() const { return count_; }
  // Writes the buffered rows once there are a thousand. Requires: the caller holds no snapshot, since standard output
  // may block. Throws Failure if standard output cannot be written.
  void flush();
  // Writes the remaining rows and, for JSON, the closing bracket. Requires and throws as flush().
  void finish();

 private:
  void writeRows();
  void write(const Cells& cells, std::string& out) const;

  bool isJson_;
  std::vector<Column> columns_;
  std::vector<std::size_t> widths_;
  std::vector<Cells> cells_;
  std::vector<std::string> objects_;
  std::size_t count_ = 0;
  bool isBegun_ = false;
};

// Write to standard output. Throw Failure if that is impossible. flushOut() writes what writeOut() has buffered.
void writeOut(std::string_view text);
void flushOut();

// Numbers, sizes and times for people. A Kel::Seconds time is in seconds since 1970.
std::string countText(std::uint64_t number);                     // 1,234,567
std::string countText(std::uint64_t number, const char* noun);   // "1 route", "2 routes"
std::string bytesText(std::uint64_t bytes);                      // 12.3 MiB
std::string durationText(Kel::Seconds seconds);                  // 3 min
std::string timeText(Kel::Seconds time, bool withMilliseconds);  // local: 2026-01-31 12:00:00, or 12:00:00.123

}  // namespace Ctl
