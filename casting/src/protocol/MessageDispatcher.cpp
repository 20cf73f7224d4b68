#include "protocol/MessageDispatcher.h"

#include "casting/Log.h"
#include "protocol/WireCodec.h"

namespace zv::detail {

void logSkippedBody(const QString& owner, const wire::Envelope& envelope) {
    ZV_LOG(INFO) << " " << owner.toStdString() << ": skipping a message this build does not know ("
                 << bodyName(envelope).toStdString() << ", protocol " << envelope.version() << ")";
}

}  // namespace zv::detail
