#include "ChannelAccess.h"

namespace vela::qrvctl {

std::optional<AccessProblem> CheckChannelAccess(const std::wstring&) {
    // Access to a printer's interfaces is the driver's and the spooler's business on Windows.
    return std::nullopt;
}

bool ChannelPresent(const std::wstring&) {
    return true;
}

} // namespace vela::qrvctl
