#include "mirror/MirrorService.h"

namespace Mirror {

MirrorService::MirrorService(const Quillo::PublisherConfig& store, int receiveBytes)
    : tree_(Kel::makePtr<Kel::Dir>("")), socket_(receiveBytes), publisher_(tree_, store), mirror_(socket_, tree_) {
}

bool MirrorService::receive() {
  const bool mayMoreWait = mirror_.receive();
  publish();
  return mayMoreWait;
}

void MirrorService::poll() {
  mirror_.poll();
  publisher_.poll();
  publish();
}

// An incomplete picture would sweep what is still there from the store.
void MirrorService::publish() {
  if (mirror_.isComplete() && publisher_.publish()) isServing_ = true;
}

}  // namespace Mirror
