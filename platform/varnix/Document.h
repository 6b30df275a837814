#pragma once
// The document of one entity: its type and its attributes, as JSON.
//
//   {"attributes":{"activeAddrWithMask":"10.1.2.3/24","l3Status":"l3/intf/status.intfStatus/eth0",
//                  "secondaryAddrWithMask":{"10.1.3.3/24":true},"unnumberedIntfId":""},"type":"Ip::IpIntfStatus"}
//
// Attributes are the stored ones, the collections of values (an object by the keys' text forms) and the references
// (the target's path below the root of the tree, or null). Enumerations go by name, value types of several fields
// as objects, addresses and names by their text forms. All texts, keys too, are in the form of ByteText.h, so that
// any bytes survive. What the entity is called is not part of its document but the key that it is stored under.
// Members are documents of their own. Equal contents give equal text.

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

// A text that is no document. Says what was found and what was expected.
class DocumentException : public Kel::Exception {
 public:
  using Exception::Exception;
};

// What `entity`, which lives below `root`, says now. A reference to an entity that is not below `root` (any more)
// is null.
Document documentOf(const Kel::Entity& entity, const Kel::Entity& root);

std::string documentText(const Document& document);
// Throws DocumentException. Types and attributes are not checked against anything.
Document documentFromText(std::string_view text);

// The way from `root` to `entity`; none when it is not in that tree.
std::optional<std::string> pathBelow(const Kel::Entity& root, const Kel::Entity& entity);

// True for the attributes that a document holds.
bool isDocumentAttribute(const Kel::AttributeInfo& attribute);
// True when the type has any.
bool hasDocumentAttributes(const Kel::TypeInfo& type);

}  // namespace Varnix
