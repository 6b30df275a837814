#include "modules/frame/EntitySource.h"

#include <cstdio>

#include "kel/Errors.h"
#include "snmp/SnmpUtil.h"

namespace Modules {

Kel::String EntitySource::path(const Kel::String& context) const {
  if (context.empty()) return defaultPath;
  constexpr std::string_view placeholder = "%s";
  Kel::String path = vrfPath;
  const auto at = path.find(placeholder);
  return at == Kel::String::npos ? path : path.replace(at, placeholder.size(), context);
}

Kel::Ptr<Kel::Entity> entityAt(const EntitySource& source, const Kel::String& context,
                               const SourceFaultTexts& texts) {
  const Kel::String path = source.path(context);
  auto entity = SnmpUtil::getEntityRelative(path.c_str());
  if (!entity) {
    std::fprintf(stderr, "Can not getEntityRelative( %s ) for %s. Is this path correct?\n", path.c_str(),
                 texts.object.c_str());
    KEL_ASSERT_TEXT(false, texts.missingAssertion.c_str());
  }
  if (!source.isOfType(*entity)) {
    std::fprintf(stderr, "%s does not appear to be of type %s%s\n", path.c_str(), source.typeName,
                 texts.wrongTypeEnding.c_str());
    KEL_ASSERT_TEXT(false, texts.wrongTypeAssertion.c_str());
  }
  return entity;
}

}  // namespace Modules
