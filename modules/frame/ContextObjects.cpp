#include "modules/frame/ContextObjects.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "modules/frame/Module.h"
#include "snmp/CBoundary.h"

namespace Modules {

static Kel::TraceHandle contextObjectsTrace("ContextObjects");

namespace {

// Every object that is served here is below internet.
const std::vector<oid> commonRoot{1, 3, 6, 1};

constexpr const char* defaultContext = "";

bool isBelow(Name name, Name root) {
  return netsnmp_oid_is_subtree(root.data(), root.size(), name.data(), name.size()) == 0;
}

bool hasValue(const netsnmp_variable_list& variable) {
  switch (variable.type) {
    case ASN_NULL:
    case ASN_PRIV_RETRY:
    case SNMP_NOSUCHOBJECT:
    case SNMP_NOSUCHINSTANCE:
    case SNMP_ENDOFMIBVIEW:
      return false;
    default:
      return true;
  }
}

// The first name after all those below a root.
std::vector<oid> endOf(const std::vector<oid>& root) {
  std::vector<oid> end = root;
  ++end.back();
  return end;
}

// Makes a request one for a single registration: alone, and within its objects. The destructor restores it.
class Alone {
 public:
  Alone(netsnmp_request_info& request, oid* end, std::size_t endLength, netsnmp_subtree* subtree)
      : request_(request),
        next_(std::exchange(request.next, nullptr)),
        subtree_(std::exchange(request.subtree, subtree)),
        rangeEnd_(std::exchange(request.range_end, end)),
        rangeEndLength_(std::exchange(request.range_end_len, endLength)) {}
  ~Alone() {
    request_.next = next_;
    request_.subtree = subtree_;
    request_.range_end = rangeEnd_;
    request_.range_end_len = rangeEndLength_;
  }
  Alone(const Alone&) = delete;
  Alone& operator=(const Alone&) = delete;

 private:
  netsnmp_request_info& request_;
  netsnmp_request_info* const next_;
  netsnmp_subtree* const subtree_;
  oid* const rangeEnd_;
  const std::size_t rangeEndLength_;
};

void call(netsnmp_handler_registration& registration, netsnmp_agent_request_info& info,
          netsnmp_request_info& request) {
  const int status = netsnmp_call_handlers(&registration, &info, &request);
  if (status != SNMP_ERR_NOERROR) netsnmp_request_set_error(&request, status);
}

// A registration like that of the default context, with the name, the context and the cache of another. The iterator
// helper has its cache in a record that it shares with the original; the destructor restores that.
class WithCache {
 public:
  WithCache(const netsnmp_handler_registration& original, Kel::Entity* cache, char* context)
      : registration_(original), name_(Kel::String(original.handlerName) + context) {
    registration_.handlerName = name_.data();
    registration_.my_reg_void = cache;
    registration_.contextName = context;
    for (auto* handler = original.handler; handler != nullptr; handler = handler->next) {
      if (handler->access_method != netsnmp_table_iterator_helper_handler) continue;
      iterator_ = static_cast<netsnmp_iterator_info*>(handler->myvoid);
      originalCache_ = std::exchange(iterator_->myvoid, cache);
    }
  }
  ~WithCache() {
    if (iterator_ != nullptr) iterator_->myvoid = originalCache_;
  }
  WithCache(const WithCache&) = delete;
  WithCache& operator=(const WithCache&) = delete;

  netsnmp_handler_registration& registration() { return registration_; }

 private:
  netsnmp_handler_registration registration_;
  Kel::String name_;
  netsnmp_iterator_info* iterator_ = nullptr;
  void* originalCache_ = nullptr;
};

}  // namespace

// What one context serves.
class ContextObjects::Context {
 public:
  std::vector<Served> served;  // by root, ascending

  void answer(netsnmp_agent_request_info& info, netsnmp_request_info& request, char* context) const {
    switch (info.mode) {
      case MODE_GETNEXT:
      case MODE_GETBULK:
        return getNext(info, request, context);
      default:
        getOrSet(info, request, context);
    }
  }

 private:
  static const std::vector<oid>& rootOf(const Served& object) { return object.object->first; }

  // The last object whose root is at or before the name, or the first one.
  std::vector<Served>::const_iterator at(Name name) const {
    const auto after = std::upper_bound(served.begin(), served.end(), name, [](Name asked, const Served& object) {
      return compare(asked, rootOf(object)) < 0;
    });
    return after == served.begin() ? after : after - 1;
  }

  static bool isStock(const Served& object) { return object.object->second.module == nullptr; }
  static bool isWithdrawn(const Served& object) {
    return !isStock(object) && object.object->second.original == nullptr;
  }

  static void ask(const Served& object, std::vector<oid>& end, netsnmp_agent_request_info& info,
                  netsnmp_request_info& request, char* context) {
    const Alone alone(request, end.data(), end.size(), request.subtree);
    WithCache original(*object.object->second.original, object.cache.get(), context);
    call(original.registration(), info, request);
  }

  // Asks net-snmp's own objects, but not a subagent: that answers later, and only requests of the default context.
  static void askStock(netsnmp_subtree& subtree, std::vector<oid>& end, netsnmp_agent_request_info& info,
                       netsnmp_request_info& request) {
    if (subtree.reginfo == nullptr || subtree.session != nullptr) return;
    const Alone alone(request, end.data(), end.size(), &subtree);
    call(*subtree.reginfo, info, request);
  }

  static void adjust(const Served& object, netsnmp_variable_list& variable, const char* context) {
    const auto adjust = object.object->second.adjust;
    if (adjust != nullptr && hasValue(variable)) adjust(variable, context);
  }

  void getOrSet(netsnmp_agent_request_info& info, netsnmp_request_info& request, char* context) const {
    const auto name = nameOf(*request.requestvb);
    const auto object = at(name);
    if (object == served.end() || isWithdrawn(*object) || !isBelow(name, rootOf(*object))) {
      // As net-snmp answers where nothing is registered.
      netsnmp_request_set_error(&request, info.mode == MODE_GET ? SNMP_NOSUCHOBJECT : SNMP_ERR_NOTWRITABLE);
    } else if (!isStock(*object)) {
      auto end = endOf(rootOf(*object));
      ask(*object, end, info, request, context);
    } else if (info.mode != MODE_GET) {
      netsnmp_request_set_error(&request, SNMP_ERR_NOTWRITABLE);
    } else if (auto* const subtree = netsnmp_subtree_find(name.data(), name.size(), nullptr, defaultContext)) {
      std::vector<oid> end(subtree->end_a, subtree->end_a + subtree->end_len);
      askStock(*subtree, end, info, request);
      adjust(*object, *request.requestvb, context);
    }
  }

  // Asks one object after another, as the agent asks registrations. Restores the name if none has a next value.
  void getNext(netsnmp_agent_request_info& info, netsnmp_request_info& request, char* context) const {
    const auto first = nameOf(*request.requestvb);
    const std::vector<oid> asked(first.begin(), first.end());
    const std::vector<oid> rangeEnd(request.range_end, request.range_end + request.range_end_len);
    for (auto object = at(asked); object != served.end() && compare(rootOf(*object), rangeEnd) < 0; ++object) {
      auto root = rootOf(*object);
      // Another module's objects may be inside this one.
      auto end = std::min(endOf(root), rangeEnd);
      if (compare(asked, end) >= 0 || isWithdrawn(*object)) continue;
      if (netsnmp_acm_check_subtree(info.asp->pdu, root.data(), root.size()) == VACM_NOTINVIEW) continue;
      const bool isFound = isStock(*object)
                               ? hasNextOfStock(*object, asked, end, info, request, context)
                               : hasNext(request, end, [&] { ask(*object, end, info, request, context); });
      if (isFound) return;
      restore(request, asked);
    }
  }

  // Asks the registrations of the default context between the names `asked` and `end`, one after another.
  static bool hasNextOfStock(const Served& object, const std::vector<oid>& asked, const std::vector<oid>& end,
                             netsnmp_agent_request_info& info, netsnmp_request_info& request, const char* context) {
    // One value at a time, so that each can be adjusted.
    const int mode = std::exchange(info.mode, MODE_GETNEXT);
    bool isFound = false;
    const auto& start = std::max(asked, rootOf(object));
    for (auto* subtree = netsnmp_subtree_find(start.data(), start.size(), nullptr, defaultContext);
         subtree != nullptr && compare({subtree->start_a, subtree->start_len}, end) < 0; subtree = subtree->next) {
      auto subtreeEnd = std::min(end, {subtree->end_a, subtree->end_a + subtree->end_len});
      isFound = hasNext(request, subtreeEnd, [&] { askStock(*subtree, subtreeEnd, info, request); });
      if (isFound) break;
      restore(request, asked);
    }
    info.mode = mode;
    if (!isFound) return false;
    adjust(object, *request.requestvb, context);
    if (mode == MODE_GETBULK) {
      const Alone alone(request, request.range_end, request.range_end_len, request.subtree);
      netsnmp_bulk_to_next_fix_requests(&request);
    }
    return true;
  }

  // Whether handlers have a value after the request's name, or an error. A handler that meets a hole names it, and must
  // be called again from there.
  template <class Ask>
  static bool hasNext(netsnmp_request_info& request, Name end, const Ask& ask) {
    const auto* const variable = request.requestvb;
    while (true) {
      const auto name = nameOf(*variable);
      const std::vector<oid> before(name.begin(), name.end());
      ask();
      // A GETBULK that has filled the variable continues with the next one.
      if (request.requestvb != variable || request.status != SNMP_ERR_NOERROR) return true;
      if (compare(nameOf(*variable), end) >= 0) return false;
      if (hasValue(*variable)) return true;
      if (variable->type != ASN_PRIV_RETRY || compare(nameOf(*variable), before) <= 0) return false;
      clear(request);
    }
  }

  static void restore(netsnmp_request_info& request, const std::vector<oid>& name) {
    clear(request);
    snmp_set_var_objid(request.requestvb, name.data(), name.size());
  }

  // Prepares the request for another call.
  static void clear(netsnmp_request_info& request) {
    snmp_set_var_typed_value(request.requestvb, ASN_NULL, nullptr, 0);
    request.processed = 0;
    netsnmp_free_request_data_sets(&request);
  }
};

namespace {

extern "C" int quorinContextObjects(netsnmp_mib_handler* handler, netsnmp_handler_registration* registration,
                                    netsnmp_agent_request_info* info, netsnmp_request_info* requests) {
  return Snmp::atCBoundary(contextObjectsTrace, __func__, SNMP_ERR_GENERR, [&] {
    const auto& context = *static_cast<const ContextObjects::Context*>(handler->myvoid);
    for (auto* request = requests; request != nullptr; request = request->next) {
      context.answer(*info, *request, registration->contextName);
    }
    return SNMP_ERR_NOERROR;
  });
}

// Returns false if the agent refuses.
bool registerRoot(ContextObjects::Context& served, const Kel::String& context) {
  auto* const registration =
      netsnmp_create_handler_registration("objects", quorinContextObjects, commonRoot.data(), commonRoot.size(),
                                          HANDLER_CAN_RWRITE | HANDLER_CAN_GETBULK);
  if (registration == nullptr) throw std::bad_alloc();
  registration->contextName = strdup(context.c_str());
  registration->priority = Snmp::registrationPriority();
  // Every copy that net-snmp makes of the registration shares it.
  registration->handler->myvoid = &served;
  // net-snmp frees what it refuses.
  return netsnmp_register_handler(registration) == MIB_REGISTERED_OK;
}

}  // namespace

ContextObjects& ContextObjects::instance() {
  static auto* const objects = new ContextObjects;
  return *objects;
}

static Snmp::AutoRegistree contextObjectsRegistree(&ContextObjects::instance());

void ContextObjects::offer(const Module& module, const std::vector<oid>& root,
                           const netsnmp_handler_registration& original) {
  objects_.insert_or_assign(root, Object{&module, &original, nullptr});
}

void ContextObjects::offerStock(const std::vector<oid>& root, Adjust adjust) {
  objects_.insert_or_assign(root, Object{nullptr, nullptr, adjust});
}

void ContextObjects::withdraw(const Module* module) {
  if (module == nullptr) {
    std::erase_if(objects_, [](const auto& object) { return object.second.module == nullptr; });
  }
  for (auto& [root, object] : objects_) {
    if (object.module == module) object.original = nullptr;
  }
}

bool ContextObjects::add(const Kel::String& context, const std::vector<oid>& root,
                         const Kel::Ptr<Kel::Entity>& cache) {
  const auto entered = contexts_.find(context);
  const auto object = objects_.find(root);
  if (entered == contexts_.end() || object == objects_.end() || object->second.original == nullptr) return false;
  auto& served = entered->second->served;
  const auto after =
      std::find_if(served.begin(), served.end(), [&](const Served& other) { return other.object->first > root; });
  served.insert(after, {object, cache});
  return true;
}

bool ContextObjects::isCommonRoot(Name name) {
  return compare(name, commonRoot) == 0;
}

std::vector<std::vector<oid>> ContextObjects::roots(const Kel::String& context) const {
  std::vector<std::vector<oid>> roots;
  const auto entered = contexts_.find(context);
  if (entered == contexts_.end()) return roots;
  for (const auto& served : entered->second->served) roots.push_back(served.object->first);
  return roots;
}

void ContextObjects::remove(const Kel::String& context, const Module& module) {
  const auto entered = contexts_.find(context);
  if (entered == contexts_.end()) return;
  std::erase_if(entered->second->served,
                [&](const Served& served) { return served.object->second.module == &module; });
}

void ContextObjects::initHandler(Kel::String context) {
  if (context.empty() || contexts_.contains(context)) return;
  auto entered = std::make_unique<Context>();
  if (!registerRoot(*entered, context)) {
    QTRACE(contextObjectsTrace, 0) << "the agent refuses the registration internet in context \"" << context
                                   << "\"; does another module have it there?";
    return;
  }
  entered->served.reserve(objects_.size());
  for (auto object = objects_.cbegin(); object != objects_.cend(); ++object) {
    if (object->second.module == nullptr) entered->served.push_back({object, nullptr});
  }
  contexts_.emplace(std::move(context), std::move(entered));
}

void ContextObjects::exitHandler(Kel::String context) {
  const auto entered = contexts_.find(context);
  if (entered == contexts_.end()) return;
  auto root = commonRoot;
  unregister_mib_context(root.data(), root.size(), Snmp::registrationPriority(), 0, 0, context.c_str());
  contexts_.erase(entered);
}

}  // namespace Modules
