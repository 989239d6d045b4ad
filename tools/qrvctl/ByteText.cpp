#include "ByteText.h"

#include <cstdio>

namespace vela::qrvctl {

std::string FormatBytes(uint64_t bytes) {
    static const char* const units[] = {"KiB", "MiB", "GiB", "TiB"};
    if (bytes < 1024) {
        return std::to_string(bytes) + " B";
    }
    double value = static_cast<double>(bytes) / 1024.0;
    size_t unit = 0;
    while (value >= 1024.0 && unit + 1 < sizeof units / sizeof units[0]) {
        value /= 1024.0;
        ++unit;
    }
    char text[32];
    std::snprintf(text, sizeof text, "%.1f %s", value, units[unit]);
    return text;
}

} // namespace vela::qrvctl
