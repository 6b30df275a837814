// The values of rows, and the request loop behind net-snmp's iterator helper.

#include <algorithm>
#include <ostream>

#include "modules/frame/MibTable.h"
#include "snmp/CBoundary.h"
#include "snmp/Varbind.h"

namespace Modules {

namespace {

// Returns 0, which is not a column, if the table helper has not seen the request.
unsigned columnNumber(netsnmp_request_info* request) {
  const auto* info = netsnmp_extract_table_info(request);
  return info != nullptr ? info->colnum : 0;
}

}  // namespace

int MibTable::handle(const netsnmp_agent_request_info* requestInfo, netsnmp_request_info* requests) const noexcept {
  return Snmp::atCBoundary(trace(), name(), SNMP_ERR_GENERR, [&] {
    traceRequest(requestInfo->mode);
    return requestInfo->mode == MODE_GET ? get(requests) : refuseSets(requests);
  });
}

void MibTable::traceRequest(int mode) const {
  QTRACE(trace(), 2) << name() << "_handler";
  QTRACE(trace(), 2) << name() << "_handler: request mode " << mode;
}

bool MibTable::isProcessed(const netsnmp_request_info* request) const {
  if (request->processed == 0) return false;
  QTRACE(trace(), 2) << name() << "_handler: request " << static_cast<const void*>(request) << " already processed";
  return true;
}

unsigned MibTable::columnAtOrAbove(oid number) const {
  const auto at = std::find_if(columns_.begin(), columns_.end(),
                               [number](const ColumnBase& column) { return column.number >= number; });
  return at == columns_.end() ? 0 : at->number;
}

const ColumnBase* MibTable::column(unsigned number) const {
  const auto at = std::find_if(columns_.begin(), columns_.end(),
                               [number](const ColumnBase& column) { return column.number == number; });
  return at == columns_.end() ? nullptr : &*at;
}

int MibTable::get(netsnmp_request_info* requests) const {
  for (auto* request = requests; request != nullptr; request = request->next) {
    if (isProcessed(request)) continue;
    const auto* cursor = static_cast<const RowCursor*>(netsnmp_extract_iterator_context(request));
    if (cursor == nullptr || cursor->isAtEnd()) {
      traceNoRow();
      return SNMP_ERR_NOERROR;
    }
    const unsigned number = columnNumber(request);
    if (column(number) == nullptr) {
      QTRACE(trace(), 0) << name() << " invalid column " << number;
      netsnmp_request_set_error(request, SNMP_NOSUCHOBJECT);
      return SNMP_ERR_NOERROR;
    }
    switch (setValue(number, *cursor, request->requestvb)) {
      case Outcome::value:
        break;
      case Outcome::noInstance:
        // Of a GETNEXT, net-snmp's table helper repeats such a request from this row on.
        netsnmp_request_set_error(request, SNMP_NOSUCHINSTANCE);
        break;
      case Outcome::failure:
        netsnmp_request_set_error(description_.firstRequestTakesGenErr ? requests : request, SNMP_ERR_GENERR);
        return SNMP_ERR_GENERR;
    }
  }
  return SNMP_ERR_NOERROR;
}

void MibTable::traceNoRow() const {
  QTRACE(trace(), 2) << name() << "_handler: null data context in request";
}

MibTable::Outcome MibTable::setValue(unsigned number, const RowCursor& cursor,
                                     netsnmp_variable_list* variable) const {
  const ColumnBase& requested = *column(number);
  if (trace().enabled(2)) {
    Kel::TraceLine line(trace(), 2);
    line.stream() << name() << "_handler: request GET for column " << requested.object << ", key ";
    cursor.printKey(line.stream());
  }
  // Large enough for every column, so that no value needs an allocation.
  unsigned char buffer[ColumnBase::maxBufferLength];
  const auto encoded = Snmp::atCBoundary(trace(), name(), std::optional(-1),
                                         [&] { return requested.encode(cursor.row(), buffer, requested.limit); });
  if (!encoded) {
    QTRACE(trace(), 2) << name() << "_handler: the row has no instance of " << requested.object << " now";
    return Outcome::noInstance;
  }
  const int length = *encoded;
  const bool isOutOfRange = requested.limitedEntity != nullptr && length > requested.limit;
  if (isOutOfRange) {
    QTRACE(trace(), 2) << "handle_" << name() << " - entity /<sysname>/" << requested.limitedEntity
                       << " length out of range: " << requested.attribute << " (" << length << ")";
  } else if (length > requested.limit || !Snmp::setVarbindValue(variable, requested.asnType, buffer, length)) {
    QTRACE(trace(), 2) << "handle_" << name() << " - " << requested.conversion
                       << " failed for: " << requested.attribute;
  } else {
    return Outcome::value;
  }
  return Outcome::failure;
}

int MibTable::refuseSets(netsnmp_request_info* requests) const {
  for (auto* request = requests; request != nullptr; request = request->next) {
    if (isProcessed(request)) continue;
    refuseSet(columnNumber(request), request);
    return SNMP_ERR_NOERROR;
  }
  return SNMP_ERR_NOERROR;
}

void MibTable::refuseSet(unsigned number, netsnmp_request_info* request) const {
  const auto* requested = column(number);
  if (requested != nullptr && requested->isRefusable) {
    QTRACE(trace(), 2) << name() << "_handler: SET is not configured for column " << requested->object;
  } else {
    QTRACE(trace(), 0) << name() << " invalid column " << number;
  }
  netsnmp_request_set_error(request, SNMP_ERR_NOTWRITABLE);
}

}  // namespace Modules
