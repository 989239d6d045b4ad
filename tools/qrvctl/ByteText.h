#pragma once

#include <cstdint>
#include <string>

namespace vela::qrvctl {

// "512 B", "1.5 KiB", "20.0 MiB", "1.2 GiB": sizes and rates for people (JSON keeps numbers).
std::string FormatBytes(uint64_t bytes);

} // namespace vela::qrvctl
