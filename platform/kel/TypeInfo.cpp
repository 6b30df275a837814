#include "kel/TypeInfo.h"

#include "kel/Errors.h"

namespace Kel {
namespace {

[[noreturn]] void noSuchOperation(const TypeInfo& type, std::string_view operation) {
  throw AttributeException(fmt::format("{} has no operation '{}'", type.name(), operation));
}

bool takeSuffix(std::string_view& name, std::string_view suffix) {
  if (name.size() <= suffix.size() || !name.ends_with(suffix)) return false;
  name.remove_suffix(suffix.size());
  return true;
}

Ptr<PtrInterface> createOrSet(PtrInterface& object, const AttributeInfo& attribute, std::string_view operation,
                              const std::vector<Value>& arguments) {
  if (attribute.create) return attribute.create(object, arguments);
  if (attribute.referenceIs && arguments.size() == 1 && arguments.front().isHandle()) {
    attribute.referenceIs(object, arguments.front().handle());
    return nullptr;
  }
  if (attribute.fromDatum && arguments.size() == 1) {
    const auto& datum = arguments.front();
    if (datum.typeName() != boost::core::type_name<Datum>()) {
      throw AttributeException(fmt::format("{} takes one Datum", operation));
    }
    attribute.fromDatum(object, datum.as<Datum>());
    return nullptr;
  }
  noSuchOperation(object.kelTypeInfo(), operation);
}

}  // namespace

const TypeInfo& PtrInterface::kelTypeInfo() const {
  static const TypeInfo none;
  return none;
}

const AttributeInfo* TypeInfo::find(std::string_view name) const {
  for (const auto& attribute : attributes_) {
    if (attribute.name == name) return &attribute;
  }
  return nullptr;
}

Value readAttribute(const PtrInterface& object, std::string_view name) {
  const auto& type = object.kelTypeInfo();
  const auto* attribute = type.find(name);
  if (!attribute || !attribute->read) {
    throw AttributeException(fmt::format("{} has no readable attribute '{}'", type.name(), name));
  }
  return attribute->read(object);
}

Ptr<PtrInterface> callOperation(PtrInterface& object, std::string_view operation,
                                const std::vector<Value>& arguments) {
  const auto& type = object.kelTypeInfo();
  std::string_view name = operation;
  if (takeSuffix(name, "DelAll")) {
    const auto* attribute = type.find(name);
    if (!attribute || !attribute->removeAll) noSuchOperation(type, operation);
    attribute->removeAll(object);
    return nullptr;
  }
  if (takeSuffix(name, "Del")) {
    const auto* attribute = type.find(name);
    if (!attribute || !attribute->remove) noSuchOperation(type, operation);
    const String key = arguments.empty() ? String() : arguments.front().as<String>();
    if (!attribute->remove(object, key) && attribute->kind != AttributeKind::child) {
      throw AttributeException(fmt::format("{}::{}: there is no member '{}'", type.name(), operation, key));
    }
    return nullptr;
  }
  if (!takeSuffix(name, "Is")) noSuchOperation(type, operation);
  const auto* attribute = type.find(name);
  if (!attribute) noSuchOperation(type, operation);
  try {
    return createOrSet(object, *attribute, operation, arguments);
  } catch (const AttributeException& error) {
    throw AttributeException(fmt::format("{}::{}: {}", type.name(), operation, error.what()));
  }
}

}  // namespace Kel
