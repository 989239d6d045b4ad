#pragma once

#include "qrv/PrinterStatusItem.h"

#include <functional>
#include <utility>
#include <vector>

namespace vela::printer::communication {

// A status change: one item per field that changed, in field order.
class PrinterStatusEventArgs {
public:
    explicit PrinterStatusEventArgs(std::vector<PrinterStatusItem> items) : m_items(std::move(items)) {}
    const std::vector<PrinterStatusItem>& Items() const { return m_items; }

private:
    std::vector<PrinterStatusItem> m_items;
};

using PrinterStatusChangedHandler = std::function<void(const PrinterStatusEventArgs&)>;

} // namespace vela::printer::communication
