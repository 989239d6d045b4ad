#include "gateway/CPrinterHandle.h"

namespace {

thread_local const qrv_printer::CallCallbacks* t_callbacks = nullptr;

} // namespace

qrv_printer::qrv_printer() {
    m_gateway.SetProgressCallback([this](uint64_t done, uint64_t total) {
        const CallCallbacks* callbacks = t_callbacks;
        if (callbacks != nullptr && callbacks->progress != nullptr &&
            callbacks->progress(done, total, callbacks->user) != 0) {
            m_gateway.CancelTransfer();
        }
    });
    m_gateway.SetUpdatePhaseCallback([](vela::kom::ManagedQRVDeviceGateway::UpdatePhase phase) {
        const CallCallbacks* callbacks = t_callbacks;
        if (callbacks != nullptr && callbacks->phase != nullptr) {
            callbacks->phase(static_cast<int32_t>(phase), callbacks->user);
        }
    });
}

qrv_printer::CallbackScope::CallbackScope(const CallCallbacks& callbacks)
    : m_callbacks(callbacks), m_previous(t_callbacks) {
    t_callbacks = &m_callbacks;
}

qrv_printer::CallbackScope::~CallbackScope() {
    t_callbacks = m_previous;
}
