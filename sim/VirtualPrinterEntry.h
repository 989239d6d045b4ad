#pragma once

#include <string>
#include <vector>

namespace vela::sim {

// One printer of the QRV_VIRTUAL_PRINTERS variable, which lets discovery list printers that are
// not on USB (simulators). The variable holds entries separated by ';', each
//     name|channelPath|hidPath|model[|serial]
// with model "210" or "410"; hidPath may be empty (no status reports). Names and paths cannot
// hold '|' or ';'.
struct VirtualPrinterEntry {
    std::string name;
    std::string channelPath;
    std::string hidPath;
    std::string model;
    std::string serial; // optional

    // The entry's text. Throws std::invalid_argument for a field that holds '|' or ';', an empty
    // name or channel path, or a model other than "210" and "410".
    std::string Format() const;
    // Parses a whole variable value; malformed entries are skipped.
    static std::vector<VirtualPrinterEntry> ParseAll(const std::string& value);
    // Joins entries with ';'.
    static std::string JoinAll(const std::vector<VirtualPrinterEntry>& entries);
};

} // namespace vela::sim
