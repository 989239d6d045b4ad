#pragma once

#include "kom/protocol/PrinterStatus.h"

#include <cstdint>

namespace vela::kom {

// Receives the printer's status changes and print interruptions. Called on the status monitor
// thread, one call after another; an implementation must not block for long (the next report is
// read only after every listener returned) and must not throw.
class INativeQRVListener {
public:
    virtual ~INativeQRVListener() = default;
    // `status` carries the new value in each changed field and the unchanged marker elsewhere;
    // it is valid only during the call.
    virtual void OnPrinterStatusChangedEvent(const PrinterStatus& status) = 0;
    // `code`: the interrupt code (0..13); `value`: the thirteenth field of the new status.
    virtual void OnPrinterInterruptEvent(uint32_t code, uint32_t value) = 0;
};

} // namespace vela::kom
