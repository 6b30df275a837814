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

// One line; bytes that are not UTF-8 are replaced.
std::string jsonText(const Json& value);
// A name for people: without control characters.
std::string nameText(std::string_view name);

// Writes rows to standard output: a table with a header line, or with --json an array of objects, one in a line.
//
//   Rows rows(options, {{"VRF"}, {"ID", Rows::number}});
//   rows.add([&] { return Rows::Cells{name, "7"}; }, [&] { return Json{{"vrf", name}, {"id", 7}}; });
//   rows.flush();   // between pieces
//   rows.finish();
//
// The rows that are written first decide the width of the columns, which later rows only widen.
class Rows {
 public:
  static constexpr bool number = true;
  using Cells = std::vector<std::string>;
  struct Column {
    std::string_view title;
    bool isNumber = false;  // aligned to the right
  };

  Rows(const Options& options, std::vector<Column> columns);

  // Adds a row: an object from `makeObject` with --json, else Cells from `makeCells`. The other one is not called.
  template <class MakeCells, class MakeObject>
  void add(const MakeCells& makeCells, const MakeObject& makeObject) {
    if (isJson_) {
      objects_.push_back(jsonText(makeObject()));
    } else {
      cells_.push_back(makeCells());
    }
    ++count_;
  }
  // Whether this writes JSON.
  bool isJson() const { return isJson_; }
  // A further line of the latest row, which JSON does not have.
  void continueRow(Cells cells) { cells_.push_back(std::move(cells)); }

  std::size_t count() const { return count_; }
  // Writes the buffered rows if there are a thousand of them; call it without a snapshot. Throws Failure if standard
  // output cannot be written.
  void flush();
  // Writes what is left, and the end of the array. Throws as flush().
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

// Throw Failure if standard output cannot be written. flushOut() is for output that appears line by line.
void writeOut(std::string_view text);
void flushOut();

std::string countText(std::uint64_t number);                     // 1,234,567
std::string countText(std::uint64_t number, const char* noun);   // "1 route", "2 routes"
std::string bytesText(std::uint64_t bytes);                      // 12.3 MiB
std::string durationText(Kel::Seconds seconds);                  // 3 min
std::string timeText(Kel::Seconds time, bool withMilliseconds);  // local: 2026-01-31 12:00:00, or 12:00:00.123

}  // namespace Ctl
