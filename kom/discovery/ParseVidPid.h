#pragma once

#include <cstdint>
#include <string>

namespace vela::kom {

// Reads the vendor and product id out of a hardware or instance id such as
// "USB\VID_0922&PID_0025&REV_0100" (any letter case). Each id is the 4 characters that follow
// "VID_" / "PID_", read as hexadecimal; a revision or interface group behind them is ignored.
// The reading is lenient on purpose: a missing marker is not an error, its position counts as
// -1 and the 4 characters from position 3 are read instead (what they spell is what you get;
// too short an id reads as 0). Never throws. Pure; callable from any thread.
void ParseVidPid(const std::wstring& hardwareId, uint32_t& vendorId, uint32_t& productId);

} // namespace vela::kom
