#include "modules/frame/HeldEntity.h"

namespace Modules {

namespace {

Kel::Entity* entity(void* held) {
  return static_cast<Kel::Entity*>(held);
}

extern "C" void* quorinHoldEntity(void* held) {
  intrusive_ptr_add_ref(static_cast<Kel::PtrInterface*>(entity(held)));
  return held;
}

extern "C" void quorinReleaseEntity(void* held) {
  intrusive_ptr_release(static_cast<Kel::PtrInterface*>(entity(held)));
}

}  // namespace

void heldEntityIs(netsnmp_handler_registration* registration, const Kel::Ptr<Kel::Entity>& held) {
  registration->my_reg_void = held.get();
  netsnmp_mib_handler* handler = registration->handler;
  handler->myvoid = quorinHoldEntity(held.get());
  handler->data_clone = quorinHoldEntity;
  handler->data_free = quorinReleaseEntity;
}

Kel::Entity* heldEntity(const netsnmp_mib_handler* handler, const netsnmp_handler_registration* registration) {
  if (registration->my_reg_void != nullptr) return entity(registration->my_reg_void);
  return handler != nullptr ? entity(handler->myvoid) : nullptr;
}

}  // namespace Modules
