#include "ctl/Output.h"

#include <fmt/chrono.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "varnix/ByteText.h"

namespace Ctl {
namespace {

constexpr std::size_t rowsAtOnce = 1000;

// In characters, as they are aligned.
std::size_t widthOf(std::string_view text) {
  return static_cast<std::size_t>(
      std::count_if(text.begin(), text.end(), [](char c) { return (c & '\xc0') != '\x80'; }));
}

[[noreturn]] void failWriting() {
  throw Failure(Exit::critical, fmt::format("cannot write standard output: {}; check the space on its file system",
                                            std::strerror(errno)));
}

}  // namespace

std::string jsonText(const Json& value) {
  return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string nameText(std::string_view name) {
  return Varnix::escapeBytes(name);
}

void writeOut(std::string_view text) {
  if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size()) failWriting();
}

void flushOut() {
  if (std::fflush(stdout) != 0) failWriting();
}

Rows::Rows(const Options& options, std::vector<Column> columns)
    : isJson_(options.json), columns_(std::move(columns)) {
  for (const auto& column : columns_) widths_.push_back(column.title.size());
}

void Rows::write(const Cells& cells, std::string& out) const {
  const auto begin = out.size();
  for (std::size_t i = 0; i < cells.size(); ++i) {
    const std::string blank(widths_[i] - std::min(widths_[i], widthOf(cells[i])), ' ');
    if (i > 0) out += "  ";
    out += columns_[i].isNumber ? blank + cells[i] : cells[i] + blank;
  }
  out.resize(std::max(out.find_last_not_of(' ') + 1, begin));
  out += '\n';
}

void Rows::flush() {
  if (cells_.size() + objects_.size() >= rowsAtOnce) writeRows();
}

void Rows::writeRows() {
  std::string out;
  if (isJson_) {
    for (const auto& object : objects_) {
      out += isBegun_ ? ",\n" : "[\n";
      out += object;
      isBegun_ = true;
    }
    objects_.clear();
  } else {
    for (const auto& cells : cells_) {
      for (std::size_t i = 0; i < cells.size(); ++i) widths_[i] = std::max(widths_[i], widthOf(cells[i]));
    }
    if (!isBegun_ && !cells_.empty()) {
      Cells titles;
      for (const auto& column : columns_) titles.emplace_back(column.title);
      write(titles, out);
      isBegun_ = true;
    }
    for (const auto& cells : cells_) write(cells, out);
    cells_.clear();
  }
  writeOut(out);
}

void Rows::finish() {
  writeRows();
  if (isJson_) writeOut(isBegun_ ? "\n]\n" : "[]\n");
}

std::string countText(std::uint64_t number) {
  std::string text = std::to_string(number);
  for (std::size_t at = text.size(); at > 3;) text.insert(at -= 3, ",");
  return text;
}

std::string countText(std::uint64_t number, const char* noun) {
  return countText(number) + " " + noun + (number == 1 ? "" : "s");
}

std::string bytesText(std::uint64_t bytes) {
  constexpr std::array units{"KiB", "MiB", "GiB", "TiB"};
  if (bytes < 1024) return fmt::format("{} B", bytes);
  auto value = static_cast<double>(bytes) / 1024;
  std::size_t unit = 0;
  for (; value >= 1024 && unit + 1 < units.size(); ++unit) value /= 1024;
  return fmt::format("{:.1f} {}", value, units[unit]);
}

std::string durationText(Kel::Seconds seconds) {
  const auto whole = static_cast<std::int64_t>(std::max(seconds, 0.0));
  if (whole < 120) return fmt::format("{} s", whole);
  if (whole < 2 * 3600) return fmt::format("{} min", whole / 60);
  if (whole < 2 * 86400) return fmt::format("{} h", whole / 3600);
  return fmt::format("{} days", whole / 86400);
}

std::string timeText(Kel::Seconds time, bool withMilliseconds) {
  const auto whole = static_cast<std::time_t>(std::floor(time));
  const auto local = fmt::localtime(whole);
  if (!withMilliseconds) return fmt::format("{:%Y-%m-%d %H:%M:%S}", local);
  return fmt::format("{:%H:%M:%S}.{:03}", local, static_cast<int>((time - std::floor(time)) * 1000));
}

}  // namespace Ctl
