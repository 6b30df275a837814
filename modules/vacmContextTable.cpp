// vacmContextTable (RFC 3415): the contexts that are there now. net-snmp's own table lists every context that ever had
// an object.

#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
// The agent headers need the library's.
#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <algorithm>
#include <set>
#include <string_view>
#include <vector>

#include "agentstate/AgentMib.h"
#include "modules/MibModules.h"
#include "modules/frame/IteratorTable.h"
#include "snmp/Contexts.h"
#include "snmp/SnmpUtil.h"

namespace {

Kel::TraceHandle vacmContextTrace("VacmContext");
Modules::Module vacmContext("vacmContextTable", vacmContextTrace, Modules::Module::Facts::own);

constexpr std::size_t longestContext = 32;  // vacmContextName

// The contexts that this process ever entered. net-snmp keeps parts of their trees after they were left.
std::set<Kel::String>& ourContexts() {
  static auto* const names = new std::set<Kel::String>;
  return *names;
}

// Whether the context of another module or subagent has an object. For ours, the record of entered contexts tells.
bool isThere(const subtree_context_cache& context) {
  if (ourContexts().contains(context.context_name)) return Snmp::isMibContext(context.context_name);
  for (const auto* subtree = context.first_subtree; subtree != nullptr; subtree = subtree->next) {
    if (subtree->reginfo != nullptr) return true;
  }
  return false;
}

// Visits net-snmp's own list of contexts once for each request, as net-snmp itself does to find the request's context.
// The names are put in order only as far as the walk goes, so a step costs no further visit.
class ContextWalker {
 public:
  using Cache = AgentSnmp::AgentMib;
  using Row = Snmp::String;
  using Key = Snmp::String;

  explicit ContextWalker(const Kel::Ptr<const Cache>& cache) : ContextWalker(cache, Key()) {}
  ContextWalker(const Kel::Ptr<const Cache>& cache, const Key& key) {
    const std::string_view lowest = key.raw();
    const auto* context = cache ? get_top_context_cache() : nullptr;
    for (; context != nullptr; context = context->next) {
      const std::string_view name = context->context_name;
      if (name.size() <= longestContext && !isAbove(lowest, name) && isThere(*context)) ahead_.push_back(name);
    }
    std::make_heap(ahead_.begin(), ahead_.end(), isAbove);
    readRow();
  }

  bool isAtEnd() const { return ahead_.empty(); }
  const Row& row() const { return row_; }
  const Key& key() const { return row_; }
  void advance() {
    if (isAtEnd()) return;
    std::pop_heap(ahead_.begin(), ahead_.end(), isAbove);
    ahead_.pop_back();
    readRow();
  }

 private:
  // In the SNMP order: by length first.
  static bool isAbove(std::string_view a, std::string_view b) {
    return a.size() != b.size() ? a.size() > b.size() : a > b;
  }
  void readRow() {
    if (!isAtEnd()) row_ = Row(ahead_.front());
  }

  std::vector<std::string_view> ahead_;  // a heap: the lowest name is in front. net-snmp frees no name
  Row row_;
};

constexpr Modules::Conversion<const Snmp::String&> snmpStringToAsnOctetString{"SnmpStringToAsnOctetString",
                                                                              SnmpStringToAsnOctetStringF};

const auto table = Modules::makeIteratorTable<ContextWalker>(
    {.module = vacmContext,
     .name = "vacmContextTable",
     .identifier = {1, 3, 6, 1, 6, 3, 16, 1, 1},
     .modes = HANDLER_CAN_RONLY,
     .source = Modules::entitySource<AgentSnmp::AgentMib>("snmp/agentmib", nullptr)},
    Modules::Index(
        "Snmp::String", +[](const Snmp::String& name) { return name; },
        Modules::octetStringIndex<Snmp::String>(
            "vacmContextName", "contextName", [](const Snmp::String& key) -> const Snmp::String& { return key; })),
    {Modules::column<Snmp::String>(1, "vacmContextName", ASN_OCTET_STR, snmpStringToAsnOctetString, "contextName",
                                   [](const Snmp::String& name) -> const Snmp::String& { return name; })});

// A subagent knows only its own contexts, and its master has those of all.
bool isSubagent() {
  return netsnmp_ds_get_boolean(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_ROLE) != 0;
}

}  // namespace

ITERATOR_TABLE(vacmContextTable, table)

void init_vacmContextTable(Kel::String context) {
  const auto config = SnmpUtil::getSnmpConfig();
  vacmContext.entering(context, __func__);
  ourContexts().insert(context);
  if (!isSubagent()) initialize_table_vacmContextTable(config, context);
  vacmContext.entered(context);
}

MIB_MODULE(vacmContextTable, vacmContext)
