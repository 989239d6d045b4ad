#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace vela::printer::communication {

// The subscriber shapes of the simple events: one text (printer name, cassette identifier,
// failure message) or one number (battery status or percentage).
using StringPassDelegate = std::function<void(const std::wstring&)>;
using UnsignedIntPassDelegate = std::function<void(uint32_t)>;

} // namespace vela::printer::communication
