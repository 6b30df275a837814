#pragma once
// For tests: what a table traces for a request.

#include <fmt/format.h>

#include <string>
#include <utility>
#include <vector>

namespace Modules {

// Without the pointers, which begin with "0x" after a blank.
inline std::vector<std::string> withoutPointers(std::vector<std::string> lines) {
  for (auto& line : lines) {
    for (auto at = line.find(" 0x"); at != std::string::npos; at = line.find(" 0x", at + 1)) {
      line.erase(at + 1, line.find_first_not_of("0123456789abcdefx", at + 1) - at - 1);
    }
  }
  return lines;
}

// All lines of a GET of a row that is there, without pointers. `hint` and `row` are the components of the index, as
// pairs of name and value.
using IndexTexts = std::vector<std::pair<std::string, std::string>>;
inline std::vector<std::string> tracesOfGet(const std::string& table, const IndexTexts& hint, const IndexTexts& row,
                                            const std::string& object, const std::string& key) {
  std::vector<std::string> all{
      fmt::format("2 {}_get_first_data_point - *hint = , number_indexes = {}", table, hint.size())};
  for (const auto& [name, value] : hint) all.push_back(fmt::format("2 hint component {} is '{}'", name, value));
  all.push_back("2 " + table + "_get_first_data_point - allocated new loop context , hintMatched=1");
  for (const auto& [name, value] : row) {
    all.push_back(fmt::format("2 {}IterationHelper - iterator has another value: {}={}", table, name, value));
  }
  for (const char* said : {"_make_data_context - allocated data context ", "_free_loop_context_at_end ", "_handler",
                           "_handler: request mode 160"}) {
    all.push_back("2 " + table + said);
  }
  all.push_back("2 " + table + "_handler: request GET for column " + object + ", key " + key);
  all.push_back("2 " + table + "_free_data_context ");
  return all;
}

}  // namespace Modules
