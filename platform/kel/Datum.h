#pragma once
// An attribute value in neutral form, for exchange between processes (the state database stores it as JSON): null,
// boolean, integer, floating point, text, list, or an object of named data in the order of their insertion.

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace Kel {

class Datum {
 public:
  using List = std::vector<Datum>;
  using Object = std::vector<std::pair<std::string, Datum>>;
  using Storage =
      std::variant<std::monostate, bool, std::int64_t, std::uint64_t, double, std::string, List, Object>;

  Datum() = default;
  Datum(bool value) : value_(value) {}
  Datum(std::int64_t value) : value_(value) {}
  Datum(std::uint64_t value) : value_(value) {}
  Datum(double value) : value_(value) {}
  Datum(std::string value) : value_(std::move(value)) {}
  Datum(std::string_view value) : value_(std::string(value)) {}
  Datum(const char* value) : value_(std::string(value)) {}
  Datum(List value) : value_(std::move(value)) {}
  Datum(Object value) : value_(std::move(value)) {}

  const Storage& storage() const { return value_; }
  template <class T>
  const T* getIf() const {
    return std::get_if<T>(&value_);
  }
  bool isNull() const { return std::holds_alternative<std::monostate>(value_); }

  // The member of an object; null for a datum of another kind, and for an unknown name.
  const Datum* member(std::string_view name) const;

  // For messages: "a boolean", "a text".
  const char* kindName() const;

  bool operator==(const Datum&) const = default;

 private:
  Storage value_;
};

}  // namespace Kel
