#include "modules/frame/ServedEntity.h"

#include <cstdio>

#include "kel/Errors.h"
#include "snmp/SnmpUtil.h"

namespace Modules {

namespace {

Kel::Entity* asEntity(void* held) {
  return static_cast<Kel::Entity*>(held);
}

extern "C" void* quorinHoldEntity(void* held) {
  intrusive_ptr_add_ref(static_cast<Kel::PtrInterface*>(asEntity(held)));
  return held;
}

extern "C" void quorinReleaseEntity(void* held) {
  intrusive_ptr_release(static_cast<Kel::PtrInterface*>(asEntity(held)));
}

}  // namespace

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

void holdEntity(netsnmp_handler_registration* registration, const Kel::Ptr<Kel::Entity>& entity) {
  registration->my_reg_void = entity.get();
  netsnmp_mib_handler* handler = registration->handler;
  handler->myvoid = quorinHoldEntity(entity.get());
  handler->data_clone = quorinHoldEntity;
  handler->data_free = quorinReleaseEntity;
}

Kel::Entity* heldEntity(const netsnmp_mib_handler* handler, const netsnmp_handler_registration* registration) {
  if (registration->my_reg_void != nullptr) return asEntity(registration->my_reg_void);
  return handler != nullptr ? asEntity(handler->myvoid) : nullptr;
}

}  // namespace Modules
