#include <charconv>

#include "ctl/SwitchSections.h"
#include "varnix/Document.h"
#include "varnix/TreePlaces.h"

namespace Ctl {

namespace {

class DocumentReader : YamlFields {
 public:
  explicit DocumentReader(const YamlFields& fields) : YamlFields(fields) {}

  void readDocuments(const YamlNode& node, const Varnix::Tree& tree) const {
    checkKind(node, YamlNode::Kind::list, "documents", "begin each document with '- path: ...'");
    const Varnix::TreePlaces places(tree.root, tree.openDirs());
    std::vector<std::pair<const YamlNode*, Kel::Ptr<Kel::Entity>>> entities;
    std::vector<const YamlNode*> absent;
    for (const auto& item : node.items) {
      checkKeys(item, "documents", {"path", "absent", "type", "attributes"});
      if (flag(item.value("absent"), "documents.absent", false)) {
        absent.push_back(&item);
      } else {
        entities.emplace_back(&item, documentEntity(item, places));
      }
    }
    for (const bool isForReferences : {false, true}) {
      for (const auto& [item, entity] : entities) {
        if (const auto* attributes = item->value("attributes")) {
          setAttributes(*attributes, *entity, places, isForReferences);
        }
      }
    }
    for (const auto* item : absent) {
      const std::string path = documentPath(*item);
      const auto place = places.find(path);
      if (!place.owner) fail(*item, "documents.path", "no document there can be absent", "remove the entry");
      Varnix::TreePlaces::remove(path, place);
    }
  }

 private:
  std::string documentPath(const YamlNode& item) const {
    const auto* path = item.value("path");
    if (!path)
      fail(item, "documents", "a document has no path", "write 'path: ...', as docs/architecture.md shows");
    return text(*path, "documents.path", "write the path as a dump does",
                [](const std::string& given) { return Varnix::unescapeBytes(given); });
  }

  Kel::Ptr<Kel::Entity> documentEntity(const YamlNode& item, const Varnix::TreePlaces& places) const {
    const std::string path = documentPath(item);
    if (const auto place = places.find(path); place.entity) return place.entity;
    const auto* type = item.value("type");
    std::string obstacle;
    const auto place = places.make(path, type ? type->text : "", obstacle);
    if (!place.entity) fail(item, "documents.path", obstacle, "write path and type as a dump does");
    return place.entity;
  }

  void setAttributes(const YamlNode& node, Kel::Entity& entity, const Varnix::TreePlaces& places,
                     bool isForReferences) const {
    const std::string path = "documents.attributes";
    checkKind(node, YamlNode::Kind::map, path, "write the attributes' names below it, each with a colon");
    for (std::size_t at = 0; at < node.items.size(); at += 2) {
      const YamlNode& value = node.items[at + 1];
      const auto* attribute = entity.kelTypeInfo().find(node.items[at].text);
      if (!attribute || !Varnix::isDocumentAttribute(*attribute)) {
        fail(node.items[at], path,
             fmt::format("'{}' is no attribute of {}", Varnix::escapeBytes(node.items[at].text),
                         entity.kelTypeInfo().name()),
             "remove the line");
      }
      const std::string key = path + "." + attribute->name;
      const bool isReference = attribute->kind == Kel::AttributeKind::reference;
      if (isReference != isForReferences) continue;
      try {
        if (!isReference) {
          attribute->fromDatum(entity, datumOf(value));
          continue;
        }
        const bool isNull = value.kind == YamlNode::Kind::null;
        const auto target = isNull ? nullptr : places.find(Varnix::unescapeBytes(value.text)).entity;
        if (!isNull && !target) fail(value, key, "there is no document at this path", "write a path, or null");
        attribute->referenceIs(entity, target);
      } catch (const YamlException&) {
        throw;
      } catch (const Kel::Exception& error) {
        fail(value, key, Varnix::escapeBytes(error.what()), "write the value as a dump does");
      }
    }
  }

  static Kel::Datum datumOf(const YamlNode& node) {
    if (node.kind == YamlNode::Kind::null) return {};
    if (node.kind == YamlNode::Kind::list) {
      Kel::Datum::List list;
      for (const auto& item : node.items) list.push_back(datumOf(item));
      return {std::move(list)};
    }
    if (node.kind == YamlNode::Kind::map) {
      Kel::Datum::Object object;
      for (std::size_t at = 0; at < node.items.size(); at += 2) {
        object.emplace_back(Varnix::unescapeBytes(node.items[at].text), datumOf(node.items[at + 1]));
      }
      return {std::move(object)};
    }
    if (!node.isQuoted) {
      if (node.text == "true" || node.text == "false") return {node.text == "true"};
      if (const auto number = Kel::numberFromText<std::uint64_t>(node.text)) return {*number};
      if (const auto number = Kel::numberFromText<std::int64_t>(node.text)) return {*number};
      double number = 0;
      const char* end = node.text.data() + node.text.size();
      const auto [stop, error] = std::from_chars(node.text.data(), end, number);
      if (error == std::errc() && stop == end) return {number};
    }
    return {Varnix::unescapeBytes(node.text)};
  }
};

}  // namespace

void readDocuments(const YamlFields& fields, const YamlNode& node, const Varnix::Tree& tree) {
  DocumentReader(fields).readDocuments(node, tree);
}

}  // namespace Ctl
