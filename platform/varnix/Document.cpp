#include "varnix/Document.h"

#include <fmt/format.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <vector>

#include "varnix/ByteText.h"

namespace Varnix {
namespace {

using Json = nlohmann::json;
using Kel::Datum;

// No attribute type nests deeper. The limit keeps a hostile text from exhausting the stack.
constexpr unsigned deepestNesting = 16;

// Writes a document, the members of an object in the order of their names. To make a tree of each document first took a
// third of a publisher's time.
class JsonWriter {
 public:
  explicit JsonWriter(const Document& document) {
    json_.StartObject();
    json_.Key("attributes");
    (*this)(document.attributes);
    json_.Key("type");
    (*this)(document.type);
    json_.EndObject();
  }

  std::string text() const { return {buffer_.GetString(), buffer_.GetSize()}; }

  void operator()(std::monostate) { json_.Null(); }
  void operator()(bool value) { json_.Bool(value); }
  void operator()(std::int64_t number) { json_.Int64(number); }
  void operator()(std::uint64_t number) { json_.Uint64(number); }
  void operator()(double number) { std::isfinite(number) ? json_.Double(number) : json_.Null(); }
  void operator()(const std::string& bytes) {
    const auto text = escapeBytes(bytes);
    json_.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
  }
  void operator()(const Datum::List& list) {
    json_.StartArray();
    for (const auto& item : list) write(item);
    json_.EndArray();
  }
  void operator()(const Datum::Object& object) {
    std::vector<const Datum::Object::value_type*> members;
    for (const auto& member : object) members.push_back(&member);
    std::ranges::sort(members, {}, [](const auto* member) -> const std::string& { return member->first; });
    json_.StartObject();
    for (const auto* member : members) {
      (*this)(member->first);
      write(member->second);
    }
    json_.EndObject();
  }

 private:
  void write(const Datum& datum) { std::visit(*this, datum.storage()); }

  rapidjson::StringBuffer buffer_;
  rapidjson::Writer<rapidjson::StringBuffer> json_{buffer_};
};

Datum fromJson(const Json& json, unsigned depth) {
  if (depth > deepestNesting) throw DocumentException(fmt::format("nested deeper than {} levels", deepestNesting));
  switch (json.type()) {
    case Json::value_t::boolean:
      return {json.get<bool>()};
    case Json::value_t::number_integer:
      return {json.get<std::int64_t>()};
    case Json::value_t::number_unsigned:
      return {json.get<std::uint64_t>()};
    case Json::value_t::number_float:
      return {json.get<double>()};
    case Json::value_t::string:
      return {unescapeBytes(json.get_ref<const std::string&>())};
    case Json::value_t::array: {
      Datum::List list;
      for (const auto& item : json) list.push_back(fromJson(item, depth + 1));
      return {std::move(list)};
    }
    case Json::value_t::object: {
      Datum::Object object;
      for (const auto& [name, value] : json.items()) {
        object.emplace_back(unescapeBytes(name), fromJson(value, depth + 1));
      }
      return {std::move(object)};
    }
    default:
      return {};
  }
}

Json parse(std::string_view text) {
  try {
    return Json::parse(text);
  } catch (const Json::exception& error) {
    throw DocumentException(fmt::format("not well-formed JSON: {}", error.what()));
  }
}

Datum referencePath(const Kel::Entity& entity, const Kel::AttributeInfo& attribute, const Kel::Entity& root) {
  const auto target = Kel::dynamicPtr<Kel::Entity>(attribute.read(entity).handle());
  if (!target) return {};
  auto path = pathBelow(root, *target);
  return path ? Datum(std::move(*path)) : Datum();
}

}  // namespace

Document documentOf(const Kel::Entity& entity, const Kel::Entity& root) {
  const auto& type = entity.kelTypeInfo();
  Document document{type.name(), {}};
  for (const auto& attribute : type.attributes()) {
    if (attribute.kind == Kel::AttributeKind::reference) {
      document.attributes.emplace_back(attribute.name, referencePath(entity, attribute, root));
    } else if (attribute.fromDatum) {
      document.attributes.emplace_back(attribute.name, attribute.toDatum(entity));
    }
  }
  return document;
}

std::string documentText(const Document& document) {
  return JsonWriter(document).text();
}

Document documentFromText(std::string_view text) {
  const Json json = parse(text);
  const auto type = json.find("type");
  const auto attributes = json.find("attributes");
  if (!json.is_object() || json.size() != 2 || type == json.end() || !type->is_string() ||
      attributes == json.end() || !attributes->is_object()) {
    throw DocumentException("expected an object of \"type\" (a text) and \"attributes\" (an object), no more");
  }
  try {
    return {type->get<std::string>(), *fromJson(*attributes, 0).getIf<Datum::Object>()};
  } catch (const Kel::RangeException& error) {
    throw DocumentException(error.what());
  }
}

std::optional<std::string> pathBelow(const Kel::Entity& root, const Kel::Entity& entity) {
  if (&entity == &root) return std::string();
  Kel::Ptr<const Kel::Entity> above = entity.parent();
  while (above && above != &root) above = above->parent();
  if (!above) return std::nullopt;
  const auto top = root.fullName();
  return entity.fullName().substr(top.empty() ? 0 : top.size() + 1);
}

bool isDocumentAttribute(const Kel::AttributeInfo& attribute) {
  return attribute.kind == Kel::AttributeKind::reference || attribute.fromDatum;
}

bool hasDocumentAttributes(const Kel::TypeInfo& type) {
  return std::any_of(type.attributes().begin(), type.attributes().end(), isDocumentAttribute);
}

}  // namespace Varnix
