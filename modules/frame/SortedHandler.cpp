#include "modules/frame/SortedHandler.h"

#include <algorithm>
#include <memory>
#include <optional>
#include <span>
#include <type_traits>
#include <utility>
#include <vector>

#include "modules/frame/MibTable.h"
#include "modules/frame/ServedEntity.h"
#include "snmp/CBoundary.h"

namespace Modules {

namespace {

bool isHandlerEnabled = true;

// State that the requests of one message share. A message may have thousands of requests.
struct Message {
  long transaction = -1;
  unsigned passedOver = 0;    // rows without an instance, as maxPassedOver counts them
  int lastIndex = 0;          // of the requests, counted from 1
  bool isRepeated = false;    // net-snmp repeats requests whose answers its access control refused
  int requests = -1;          // their number, which an AgentX master may change between calls for one message
  bool mayFillAhead = false;  // whether one call may fill several repetitions of a request
};

Message& messageOf(const netsnmp_agent_request_info& info, const netsnmp_request_info& request) {
  static Message message;
  const auto& session = *info.asp;
  // Queries inside the process have the number 0.
  const bool isSame = message.transaction == session.pdu->transid && session.pdu->transid != 0;
  if (!isSame) message = {.transaction = session.pdu->transid};
  if (message.requests != session.vbcount) {
    message.requests = session.vbcount;
    // net-snmp stops a message when the names so far take all its room. If some requests then have fewer repetitions
    // filled than others, it answers the missing ones with NULL.
    const auto longest = static_cast<std::size_t>(count_varbinds(session.pdu->variables)) * MAX_OID_LEN;
    message.mayFillAhead = session.vbcount == 1 || longest <= static_cast<std::size_t>(session.pdu->msgMaxSize);
  }
  if (request.index <= message.lastIndex) message.isRepeated = true;
  message.lastIndex = request.index;
  return message;
}

// The column that a request names, and the sub-identifiers after it. Column 0: after the last one.
struct Target {
  unsigned column = 0;
  Name index;
};

// None if the name is not that of an instance (GET, SET), or no column follows it (GETNEXT).
std::optional<Target> targetOf(const MibTable& table, Name root, Name name, bool isForNext) {
  const bool isBelow = name.size() >= root.size() && std::equal(root.begin(), root.end(), name.begin());
  const Name below = isBelow ? name.subspan(root.size()) : Name();
  if (!isForNext) {
    if (below.size() < 3 || below[0] != 1 || table.columnAtOrAbove(below[1]) != below[1]) return std::nullopt;
    return Target{static_cast<unsigned>(below[1]), below.subspan(2)};
  }
  if (!isBelow && compare(name, root) > 0) return std::nullopt;
  if (!below.empty() && below[0] > 1) return std::nullopt;
  if (below.size() < 2 || below[0] == 0) return Target{table.columnAtOrAbove(0), {}};
  const unsigned column = table.columnAtOrAbove(below[1]);
  if (column == 0) return std::nullopt;
  return Target{column, column == below[1] ? below.subspan(2) : Name()};
}

// The rows that one request of a message was given, for the requests after it: mostly they ask for other columns of the
// same rows. net-snmp frees it with the message.
class SharedRows {
 public:
  static constexpr const char* name = "quorin_shared_rows";

  SharedRows(const MibTable& table, const Kel::Entity* cache, Name asked)
      : table_(&table), cache_(cache), asked_(asked.begin(), asked.end()), live_(table.find(cache, asked, true)) {}

  bool areFor(const MibTable& table, const Kel::Entity* cache, Name asked) const {
    return table_ == &table && cache_ == cache &&
           std::equal(asked_.begin(), asked_.end(), asked.begin(), asked.end());
  }

  // The rows from the first one on. Lifetime: that of this object.
  std::unique_ptr<RowCursor> cursor() { return std::make_unique<Cursor>(*this); }

 private:
  struct Row {
    std::unique_ptr<RowCursor> cursor;
    std::vector<oid> index;  // empty: not served
  };

  class Cursor final : public RowCursor {
   public:
    explicit Cursor(SharedRows& rows) : rows_(rows) { rows_.reach(at_); }

    bool isAtEnd() const override { return at_ >= rows_.rows_.size(); }
    bool gaveUp() const override { return isAtEnd() && rows_.live_->gaveUp(); }
    void advance() override { rows_.reach(++at_); }
    const void* row() const override { return here().cursor->row(); }
    void printKey(std::ostream& out) const override { here().cursor->printKey(out); }
    void traceRow() const override { here().cursor->traceRow(); }
    std::size_t writeIndex(std::span<oid> to) const override {
      std::copy(here().index.begin(), here().index.end(), to.begin());
      return here().index.size();
    }
    std::unique_ptr<RowCursor> clone() const override { return here().cursor->clone(); }

   private:
    const Row& here() const { return rows_.rows_[at_]; }

    SharedRows& rows_;
    std::size_t at_ = 0;
  };

  // Takes rows in until there is one at this position, or the table ends.
  void reach(std::size_t at) {
    while (rows_.size() <= at && !live_->isAtEnd()) {
      oid index[MAX_OID_LEN];
      const std::size_t length = live_->writeIndex(index);
      rows_.push_back({live_->clone(), {index, index + length}});
      live_->advance();
    }
  }

  const MibTable* table_;
  const Kel::Entity* cache_;
  std::vector<oid> asked_;
  std::unique_ptr<RowCursor> live_;  // behind the last of the rows
  std::vector<Row> rows_;
};

extern "C" void quorinFreeSharedRows(void* rows) {
  delete static_cast<SharedRows*>(rows);
}

// Answers one request.
class Answer {
 public:
  Answer(const MibTable& table, const Kel::Entity* cache, Name root, netsnmp_agent_request_info* info,
         netsnmp_request_info* request)
      : table_(table),
        cache_(cache),
        prefixLength_(root.size() + 2),
        info_(info),
        request_(request),
        message_(messageOf(*info, *request)) {
    std::copy(root.begin(), root.end(), name_);
    name_[root.size()] = 1;  // the entry
  }

  int get(const Target& target) {
    standIn(target.column);
    const auto cursor = guarded([&] { return table_.find(cache_, target.index, false); });
    const bool isFound = isOnRow(cursor.get());
    table_.traceRequest(MODE_GET);
    if (!isFound) {
      table_.traceNoRow();
      return SNMP_ERR_NOERROR;  // net-snmp answers noSuchInstance
    }
    switch (table_.setValue(target.column, *cursor, request_->requestvb)) {
      case MibTable::Outcome::value:
        return SNMP_ERR_NOERROR;
      case MibTable::Outcome::noInstance:
        netsnmp_request_set_error(request_, SNMP_NOSUCHINSTANCE);
        return SNMP_ERR_NOERROR;
      default:
        return failed();
    }
  }

  // GETNEXT, and as many repetitions of a GETBULK as may be filled in one call.
  int next(Target target) {
    // SNMPv1 has no GETBULK; if one comes, each Counter64 is out of view.
    const bool mayFillAhead = info_->mode == MODE_GETBULK && info_->asp->pdu->version != SNMP_VERSION_1 &&
                              request_->repeat > 0 && message_.mayFillAhead;
    for (;; target = {table_.columnAtOrAbove(target.column + 1), {}}) {
      standIn(target.column > 0 ? target.column : table_.lastColumn() + 1);
      if (target.column == 0 || isBeyondRange(prefixLength_)) return leaveBehind(prefixLength_);
      const int view = info_->mode == MODE_GETBULK || message_.isRepeated
                           ? netsnmp_acm_check_subtree(info_->asp->pdu, name_, prefixLength_)
                           : VACM_SUBTREE_UNKNOWN;
      if (view == VACM_NOTINVIEW) continue;
      mustCheckRows_ = info_->mode == MODE_GETBULK && view != VACM_SUCCESS;
      const auto cursor = guarded([&] {
        const bool areShared = mayFillAhead && message_.requests > 1;
        return areShared ? shared(target.index) : table_.find(cache_, target.index, true);
      });
      if (!cursor) continue;
      const auto status = guarded([&] { return fill(target.column, *cursor, mayFillAhead); });
      if (status) return *status;
    }
  }

 private:
  // An exception is traced, and the column ends there, as it does for the iterator helper: a table that cannot be read
  // must not keep a walk from the tables behind it.
  template <class Work>
  std::invoke_result_t<Work> guarded(Work&& work) {
    return Snmp::atCBoundary(table_.trace(), table_.name(), std::invoke_result_t<Work>(), work);
  }

  std::unique_ptr<RowCursor> shared(Name index) {
    auto* rows = static_cast<SharedRows*>(netsnmp_agent_get_list_data(info_, SharedRows::name));
    if (rows == nullptr) {
      auto made = std::make_unique<SharedRows>(table_, cache_, index);
      auto* const node = netsnmp_create_data_list(SharedRows::name, made.get(), quorinFreeSharedRows);
      if (node == nullptr) return table_.find(cache_, index, true);
      netsnmp_agent_add_list_data(info_, node);
      rows = made.release();
    } else if (!rows->areFor(table_, cache_, index)) {
      *rows = SharedRows(table_, cache_, index);
    }
    return rows->cursor();
  }

  void standIn(unsigned column) { name_[prefixLength_ - 1] = column; }

  // Sets the name to that of the cursor's row. Returns its length; 0 if the row is not served.
  std::size_t nameRow(const RowCursor& cursor) {
    cursor.traceRow();
    const std::size_t length = cursor.writeIndex(std::span(name_).subspan(prefixLength_));
    return length > 0 ? prefixLength_ + length : 0;
  }

  // Advances the cursor to the row with the name of the request, or behind it.
  bool isOnRow(RowCursor* cursor) {
    for (; cursor != nullptr && !cursor->isAtEnd(); cursor->advance()) {
      const std::size_t length = nameRow(*cursor);
      const int order = length > 0 ? compare({name_, length}, nameOf(*request_->requestvb)) : -1;
      if (order >= 0) return order == 0;
    }
    return false;
  }

  bool isBeyondRange(std::size_t length) const {
    return compare({name_, length}, {request_->range_end, request_->range_end_len}) >= 0;
  }

  // net-snmp's own check covers only the first variables of a binding.
  bool isInView(std::size_t length) { return in_a_view(name_, &length, info_->asp->pdu, ASN_NULL) == VACM_SUCCESS; }

  // Fills the request with rows of one column, from the cursor on. None if the column ends before the first answer.
  std::optional<int> fill(unsigned column, RowCursor& cursor, bool mayFillAhead) {
    for (; !cursor.isAtEnd(); cursor.advance()) {
      const std::size_t length = nameRow(cursor);
      if (length == 0 || compare({name_, length}, nameOf(*request_->requestvb)) <= 0) continue;
      if (isBeyondRange(length)) return leaveBehind(length);
      if (mustCheckRows_ && !isInView(length)) continue;
      table_.traceRequest(MODE_GET);
      const auto outcome = table_.setValue(column, cursor, request_->requestvb);
      if (outcome == MibTable::Outcome::failure) return failed();
      if (outcome == MibTable::Outcome::noInstance) {
        message_.passedOver += table_.readsStore() ? SortedHandler::rowsForStoredRow : 1;
        if (message_.passedOver >= SortedHandler::maxPassedOver) return failed();
        continue;
      }
      snmp_set_var_objid(request_->requestvb, name_, length);
      if (!hasFurtherSlot() || !mayFillAhead) return SNMP_ERR_NOERROR;
    }
    return cursor.gaveUp() ? std::optional(failed()) : std::nullopt;
  }

  // Makes the variable of the next repetition the request's, as net-snmp's bulk_to_next does. It gets the name just
  // answered and is marked to be searched from there. Returns false if there is no further repetition.
  bool hasFurtherSlot() {
    auto* const filled = request_->requestvb;
    if (info_->mode != MODE_GETBULK || request_->repeat <= 0 || filled->next_variable == nullptr) return false;
    --request_->repeat;
    ++filledAhead_;
    request_->requestvb = filled->next_variable;
    snmp_set_var_objid(request_->requestvb, filled->name, filled->name_length);
    request_->requestvb->type = ASN_PRIV_RETRY;
    if (request_->inclusive == 2) request_->inclusive = 0;  // set by net-snmp for the variable just filled
    return true;
  }

  // Ends the search without an answer: makes net-snmp continue after the first `length` sub-identifiers of the name. If
  // repetitions were filled in this call, leaves the next one to another call instead.
  int leaveBehind(std::size_t length) {
    if (filledAhead_ > 0) return SNMP_ERR_NOERROR;
    snmp_set_var_objid(request_->requestvb, name_, length);
    request_->processed = 1;
    return SNMP_ERR_NOERROR;
  }

  // Returns genErr; if repetitions were filled in this call, leaves the failed one to another call, which fails for it.
  int failed() { return filledAhead_ > 0 ? SNMP_ERR_NOERROR : SNMP_ERR_GENERR; }

  const MibTable& table_;
  const Kel::Entity* cache_;
  const std::size_t prefixLength_;  // of the name, up to the column
  netsnmp_agent_request_info* info_;
  netsnmp_request_info* request_;
  Message& message_;
  unsigned filledAhead_ = 0;
  bool mustCheckRows_ = false;  // a part of the column may be out of view
  oid name_[MAX_OID_LEN];
};

// Returns an SNMP error status; none for a request that net-snmp's helpers must answer.
std::optional<int> answer(const MibTable& table, const netsnmp_mib_handler* handler,
                          const netsnmp_handler_registration* registration, netsnmp_agent_request_info* info,
                          netsnmp_request_info* request) {
  const int mode = info->mode;
  const bool isForNext = mode == MODE_GETNEXT || mode == MODE_GETBULK;
  if (!isForNext && mode != MODE_GET && mode != MODE_SET_RESERVE1) return std::nullopt;
  if (!isHandlerEnabled || request->next != nullptr || request->processed != 0) return std::nullopt;
  if (mode == MODE_GET && request->requestvb->type != ASN_NULL) return std::nullopt;
  while (handler->next != nullptr) handler = handler->next;
  const auto* const cache = heldEntity(handler, registration);
  const Name root(registration->rootoid, registration->rootoid_len);
  const auto target = targetOf(table, root, nameOf(*request->requestvb), isForNext);
  if (!target || cache == nullptr) return std::nullopt;
  if (mode == MODE_SET_RESERVE1) {
    // For a row that does not exist, the iterator helper would walk the whole table before it is refused.
    if (!table.isWholeIndex(target->index)) return std::nullopt;
    table.traceRequest(mode);
    table.refuseSet(target->column, request);
    return SNMP_ERR_NOERROR;
  }
  Answer answer(table, cache, root, info, request);
  return isForNext ? answer.next(*target) : answer.get(*target);
}

extern "C" int quorinSortedHandler(netsnmp_mib_handler* handler, netsnmp_handler_registration* registration,
                                   netsnmp_agent_request_info* info, netsnmp_request_info* requests) {
  const auto& table = *static_cast<const MibTable*>(handler->myvoid);
  constexpr std::optional<int> fault = SNMP_ERR_GENERR;
  const auto result = Snmp::atCBoundary(table.trace(), table.name(), fault,
                                        [&] { return answer(table, handler, registration, info, requests); });
  if (!result) return netsnmp_call_next_handler(handler, registration, info, requests);
  if (result == fault) netsnmp_request_set_error(requests, SNMP_ERR_GENERR);
  return *result;
}

}  // namespace

bool SortedHandler::inject(netsnmp_handler_registration* registration, const MibTable& table) {
  auto* const handler = netsnmp_create_handler("quorin_sorted", quorinSortedHandler);
  if (handler == nullptr) return false;
  handler->myvoid = const_cast<MibTable*>(&table);  // only read
  if (netsnmp_inject_handler(registration, handler) == SNMPERR_SUCCESS) return true;
  netsnmp_handler_free(handler);
  return false;
}

void SortedHandler::setEnabled(bool enabled) {
  isHandlerEnabled = enabled;
}

}  // namespace Modules
