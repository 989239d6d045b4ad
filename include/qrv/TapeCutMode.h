#pragma once

#include <cstdint>

namespace vela::printer::communication {

// How the host would like labels to be cut. The printer decides this itself; the gateway accepts
// the setting and ignores it (SetCutterMode returns at once).
enum class TapeCutMode : uint32_t { cutEachLabel = 0, cutAfterJob = 1, noCut = 2 };

} // namespace vela::printer::communication
