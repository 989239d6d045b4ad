#pragma once

#include "ProgressReporter.h"
#include "qrv/ManagedQRVDeviceGateway.h"

#include <string>

namespace vela::qrvctl {

// Routes the gateway's transfer progress (and, with a phase handler, the update's phases) to a
// reporter for the life of this object, and unhooks them afterwards so that no callback outlives
// the reporter.
class GatewayProgress {
public:
    using PhaseHandler = vela::kom::ManagedQRVDeviceGateway::UpdatePhaseCallback;

    GatewayProgress(vela::kom::ManagedQRVDeviceGateway& gateway, ProgressReporter& reporter,
                    PhaseHandler phases = PhaseHandler())
        : m_gateway(gateway) {
        m_gateway.SetProgressCallback(
            [&reporter](uint64_t done, uint64_t total) { reporter.Transfer(done, total); });
        m_gateway.SetUpdatePhaseCallback(std::move(phases));
    }
    ~GatewayProgress() {
        m_gateway.SetProgressCallback(nullptr);
        m_gateway.SetUpdatePhaseCallback(nullptr);
    }
    GatewayProgress(const GatewayProgress&) = delete;
    GatewayProgress& operator=(const GatewayProgress&) = delete;

private:
    vela::kom::ManagedQRVDeviceGateway& m_gateway;
};

} // namespace vela::qrvctl
