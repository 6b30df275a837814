#pragma once
// Reads the fields and attributes of rtnetlink messages, with every length checked before the read. Internal to the
// decoder (RtMessage.h).

#include <fmt/format.h>
#include <libmnl/libmnl.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <span>

#include "mirror/rtnetlink/RtMessage.h"

namespace Mirror {

using Payload = std::span<const std::uint8_t>;

// The first bytes of `payload` as a T. Throws MalformedMessageException, with `what`, if there are too few.
template <class T>
T readAs(Payload payload, const char* what) {
  if (payload.size() < sizeof(T)) {
    throw MalformedMessageException(
        fmt::format("rtnetlink: {} of {} bytes, expected {}", what, payload.size(), sizeof(T)));
  }
  T value;
  std::memcpy(&value, payload.data(), sizeof(T));
  return value;
}

// The payload after the first `size` bytes and their padding.
inline Payload after(Payload payload, std::size_t size) {
  constexpr std::size_t alignment = NLMSG_ALIGNTO;
  return payload.subspan(std::min(payload.size(), (size + alignment - 1) / alignment * alignment));
}

inline Payload payloadOf(const nlmsghdr& message) {
  return {static_cast<const std::uint8_t*>(mnl_nlmsg_get_payload(&message)), mnl_nlmsg_get_payload_len(&message)};
}

// Calls `use(type, payload)` for each attribute of `payload`. Throws MalformedMessageException for one that does not
// fit.
template <class Use>
void forEachAttribute(Payload payload, const Use& use) {
  while (payload.size() >= sizeof(nlattr)) {
    const auto header = readAs<nlattr>(payload, "attribute header");
    if (header.nla_len < sizeof(nlattr) || header.nla_len > payload.size()) {
      throw MalformedMessageException(fmt::format("rtnetlink: attribute {} of {} bytes where {} are left",
                                                  header.nla_type & NLA_TYPE_MASK, header.nla_len, payload.size()));
    }
    use(header.nla_type & NLA_TYPE_MASK, payload.subspan(sizeof(nlattr), header.nla_len - sizeof(nlattr)));
    payload = after(payload, header.nla_len);
  }
}

// The same for the attributes after a fixed header of `headerSize` bytes.
template <class Use>
void forEachAttribute(Payload payload, std::size_t headerSize, const Use& use) {
  forEachAttribute(after(payload, headerSize), use);
}

inline Vantu::Af afOf(unsigned family) {
  return family == AF_INET ? Vantu::ipv4_ : family == AF_INET6 ? Vantu::ipv6_ : Vantu::unknown_;
}

// Requires: `af` is known. Throws MalformedMessageException if `value` is not as long as such an address.
inline Vantu::IpGenAddr addressOf(Vantu::Af af, Payload value) {
  const std::size_t size = af == Vantu::ipv4_ ? 4 : 16;
  if (value.size() != size) {
    throw MalformedMessageException(
        fmt::format("rtnetlink: {} address of {} bytes", Vantu::afName(af), value.size()));
  }
  if (af == Vantu::ipv4_) return Vantu::IpAddr::fromBytes(value);
  return Vantu::Ip6Addr::fromBytes(value);
}

// Routes and next-hop objects (RtMessage_routes.cpp).
RtMessage decodeRoute(const nlmsghdr& message);
RtMessage decodeNexthop(const nlmsghdr& message);

}  // namespace Mirror
