// The request loop of the tables.

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
    QTRACE(trace(), 2) << name() << "_handler";
    QTRACE(trace(), 2) << name() << "_handler: request mode " << requestInfo->mode;
    return requestInfo->mode == MODE_GET ? get(requests) : refuseSet(requests);
  });
}

bool MibTable::isProcessed(const netsnmp_request_info* request) const {
  if (request->processed == 0) return false;
  QTRACE(trace(), 2) << name() << "_handler: request " << static_cast<const void*>(request) << " already processed";
  return true;
}

const ColumnBase* MibTable::column(unsigned number) const {
  const auto at = std::find_if(columns_.begin(), columns_.end(),
                               [number](const ColumnBase& column) { return column.number == number; });
  return at == columns_.end() ? nullptr : &*at;
}

int MibTable::get(netsnmp_request_info* requests) const {
  for (auto* request = requests; request != nullptr; request = request->next) {
    if (isProcessed(request)) continue;
    const void* dataContext = netsnmp_extract_iterator_context(request);
    if (dataContext == nullptr || row(dataContext) == nullptr) {
      QTRACE(trace(), 2) << name() << "_handler: null data context in request";
      return SNMP_ERR_NOERROR;
    }
    const unsigned number = columnNumber(request);
    const auto* requested = column(number);
    if (requested == nullptr) {
      QTRACE(trace(), 0) << name() << " invalid column " << number;
      netsnmp_request_set_error(request, SNMP_NOSUCHOBJECT);
      return SNMP_ERR_NOERROR;
    }
    const auto encoded = encodeValue(*requested, dataContext, request);
    if (encoded == Encoded::value) continue;
    if (encoded == Encoded::noInstance) {
      // Of a GETNEXT, net-snmp's table helper repeats such a request from this row on.
      netsnmp_request_set_error(request, SNMP_NOSUCHINSTANCE);
      continue;
    }
    netsnmp_request_set_error(description_.firstRequestTakesGenErr ? requests : request, SNMP_ERR_GENERR);
    return SNMP_ERR_GENERR;
  }
  return SNMP_ERR_NOERROR;
}

MibTable::Encoded MibTable::encodeValue(const ColumnBase& requested, const void* dataContext,
                                        netsnmp_request_info* request) const {
  if (trace().enabled(2)) {
    Kel::TraceLine line(trace(), 2);
    line.stream() << name() << "_handler: request GET for column " << requested.object << ", key ";
    printKey(line.stream(), dataContext);
  }
  // Large enough for every column, so that no value needs an allocation.
  unsigned char buffer[ColumnBase::maxBufferLength];
  const auto encoded = Snmp::atCBoundary(trace(), name(), std::optional(-1), [&] {
    return requested.encode(row(dataContext), buffer, requested.limit);
  });
  if (!encoded) {
    QTRACE(trace(), 2) << name() << "_handler: the row has no instance of " << requested.object << " now";
    return Encoded::noInstance;
  }
  const int length = *encoded;
  const bool isOutOfRange = requested.limitedEntity != nullptr && length > requested.limit;
  if (isOutOfRange) {
    QTRACE(trace(), 2) << "handle_" << name() << " - entity /<sysname>/" << requested.limitedEntity
                       << " length out of range: " << requested.attribute << " (" << length << ")";
  } else if (length > requested.limit ||
             !Snmp::setVarbindValue(request->requestvb, requested.asnType, buffer, length)) {
    QTRACE(trace(), 2) << "handle_" << name() << " - " << requested.conversion
                       << " failed for: " << requested.attribute;
  } else {
    return Encoded::value;
  }
  return Encoded::failure;
}

int MibTable::refuseSet(netsnmp_request_info* requests) const {
  for (auto* request = requests; request != nullptr; request = request->next) {
    if (isProcessed(request)) continue;
    const unsigned number = columnNumber(request);
    const auto* requested = column(number);
    if (requested != nullptr && requested->isRefusable) {
      QTRACE(trace(), 2) << name() << "_handler: SET is not configured for column " << requested->object;
    } else {
      QTRACE(trace(), 0) << name() << " invalid column " << number;
    }
    netsnmp_request_set_error(request, SNMP_ERR_NOTWRITABLE);
    return SNMP_ERR_NOERROR;
  }
  return SNMP_ERR_NOERROR;
}

}  // namespace Modules
