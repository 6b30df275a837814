#pragma once
// The document of one entity: its type and its attributes, as JSON.
//
//   {"attributes":{"activeAddrWithMask":"10.1.2.3/24","l3Status":"l3/intf/status.intfStatus/eth0",
//                  "secondaryAddrWithMask":{"10.1.3.3/24":true},"unnumberedIntfId":""},"type":"Ip::IpIntfStatus"}
//
// | attribute            | JSON                                                     |
// |----------------------|----------------------------------------------------------|
// | stored               | its value                                                |
// | collection of values | an object; its names are the text forms of the keys      |
// | reference            | the target's path below the root of the tree, or null    |
// | enumeration          | the name of the value                                    |
// | value of many fields | an object                                                |
// | address, name        | its text form                                            |
//
// All texts are escaped (ByteText.h), so they may hold any bytes. The key in the store is the entity's path. Each
// member of a collection has a document of its own. Guarantees: equal contents give equal text.

#include <optional>
#include <string>
#include <string_view>

#include "kel/Datum.h"
#include "kel/Entity.h"
#include "kel/Errors.h"
#include "quillo/Table.h"

namespace Varnix {

// The store's table of documents.
inline constexpr Quillo::TableId documentTable = Quillo::TableId::varnix;

struct Document {
  Kel::String type;
  Kel::Datum::Object attributes;
};

// The text is not a document. The message states what was found and what was expected.
class DocumentException : public Kel::Exception {
 public:
  using Exception::Exception;
};

// Makes the document of `entity`. Requires: the entity is below `root`. A reference to an entity outside `root` is
// null.
Document documentOf(const Kel::Entity& entity, const Kel::Entity& root);

std::string documentText(const Document& document);
// Checks neither the type nor the attributes. Throws DocumentException.
Document documentFromText(std::string_view text);

// The path from `root` to `entity`; nullopt when `entity` is not in that tree.
std::optional<std::string> pathBelow(const Kel::Entity& root, const Kel::Entity& entity);

// Whether documents hold the attribute, and whether the type has any such attribute.
bool isDocumentAttribute(const Kel::AttributeInfo& attribute);
bool hasDocumentAttributes(const Kel::TypeInfo& type);

}  // namespace Varnix
