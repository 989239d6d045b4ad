#pragma once

#include <map>
#include <string>

namespace vela::kom {

// An IEEE 1284 device id ("MFG:VELA;MDL:QRV 410;CMD:...;SN:...;"), as a printer reports it on
// its printer-class interface. Keys are compared without regard to letter case; values are
// trimmed of white space. Pure; never throws.
class Ieee1284DeviceId {
public:
    explicit Ieee1284DeviceId(const std::string& text);

    // The value of MANUFACTURER or MFG, MODEL or MDL, SERIALNUMBER, SERN or SN; empty when absent.
    std::string Manufacturer() const { return First({"MANUFACTURER", "MFG"}); }
    std::string Model() const { return First({"MODEL", "MDL"}); }
    std::string SerialNumber() const { return First({"SERIALNUMBER", "SERN", "SN"}); }
    std::string Value(const std::string& key) const;

private:
    std::string First(std::initializer_list<const char*> keys) const;

    std::map<std::string, std::string> m_values; // upper-case key -> value
};

} // namespace vela::kom
