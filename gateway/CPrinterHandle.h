#pragma once

#include "qrv/ManagedQRVDeviceGateway.h"
#include "qrv/qrv.h"

#include <cstdint>

// The C interface's printer handle: one gateway, and the per-call callbacks of the transfers and
// updates that run on it.
//
// The gateway has one progress callback and one update-phase callback for all calls, and calls
// them on the thread that runs the operation. The handle sets them once and lets each call name
// its own C callbacks in a thread-local slot (CallbackScope), so that calls on several threads
// each reach their own callbacks.
struct qrv_printer {
    qrv_printer();

    // The C callbacks of the call that runs on this thread.
    struct CallCallbacks {
        qrv_progress_fn progress = nullptr;
        qrv_update_phase_fn phase = nullptr;
        void* user = nullptr;
    };

    // Installs a call's callbacks on this thread for the scope's lifetime.
    class CallbackScope {
    public:
        explicit CallbackScope(const CallCallbacks& callbacks);
        ~CallbackScope();
        CallbackScope(const CallbackScope&) = delete;
        CallbackScope& operator=(const CallbackScope&) = delete;

    private:
        CallCallbacks m_callbacks;
        const CallCallbacks* m_previous;
    };

    vela::kom::ManagedQRVDeviceGateway m_gateway;
};
