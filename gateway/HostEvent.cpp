#include "qrv/HostEvent.h"

#include "common/Log.h"

namespace vela::printer::communication::detail {

void ReportStuckSubscriber(uint64_t token, uint32_t waitedMs) {
    vela::common::Log::LogWarning(
        L"HostEvent::Remove() - subscriber %u is still in a call after %u ms: it is not called again", token,
        waitedMs);
}

} // namespace vela::printer::communication::detail
