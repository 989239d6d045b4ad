#pragma once

#include <string>
#include <vector>

namespace vela::kom {

// One print queue as the print scheduler lists it.
struct PrintQueue {
    std::string name;      // UTF-8
    std::string deviceUri; // where the scheduler sends the jobs
    bool isRemote = false; // the queue lives on another host; it never names a local device
};

// What a USB printer says about itself, from its IEEE 1284 device id and its USB strings.
// Each list holds the candidates from both sources (empty ones left out).
struct UsbPrinterIdentity {
    std::vector<std::string> makes;
    std::vector<std::string> models;
    std::vector<std::string> serialNumbers;
};

// Decides which print queues print to one USB printer by reading their device URIs, which the
// scheduler's USB backend writes as "usb://Make/Model?serial=SERIAL[&interface=N...]" with the
// make and model from the 1284 device id (or the USB strings).
//
// Versions of the backend differ in how they write it, so the comparison is forgiving:
// - scheme, make, model and serial are compared without regard to ASCII letter case;
// - percent escapes are decoded, and '+' and a space count as the same character;
// - the model may or may not repeat the make ("VELA/QRV 410" and "VELA/VELA QRV 410");
// - other query parameters ("interface=1") are ignored;
// - a URI without a serial only matches a printer that reports none.
// Remote queues never match. Pure; never throws.
class PrintQueueMatcher {
public:
    explicit PrintQueueMatcher(UsbPrinterIdentity identity);

    bool Matches(const std::string& deviceUri) const;
    // Whether two device URIs name the same printer, by the rules above (a user's URI against
    // the one a listing shows). False when either is no usb:// URI.
    static bool SameDevice(const std::string& deviceUri, const std::string& otherUri);
    // The names of the local queues that match, in the order given.
    std::vector<std::string> MatchingQueues(const std::vector<PrintQueue>& queues) const;

private:
    UsbPrinterIdentity m_identity;
};

// The device URI the scheduler's USB backend writes for a printer: "usb://MAKE/MODEL?serial=SERIAL"
// with every character but letters, digits, '-', '_' and '.' percent-escaped ("QRV%20410"); no
// "?serial=" part when `serialNumber` is empty. Pure; never throws.
std::string UsbDeviceUri(const std::string& make, const std::string& model, const std::string& serialNumber);
// The same for a printer known only by its model table name: "VELA QRV 410" gives make "VELA"
// and model "QRV 410" (what the printers report in their device id).
std::wstring UsbDeviceUri(const std::wstring& modelName, const std::wstring& serialNumber);

// The name under which a printer without a print queue is listed: "<model> (<serial>)", or,
// for a printer that reports no serial, "<model> (USB <port>)" with its USB port path
// (e.g. "1-1.2"), which stays the same as long as it is plugged into the same port.
std::wstring FallbackPrinterName(const std::wstring& modelName, const std::wstring& serialNumber,
                                 const std::wstring& usbPort);

} // namespace vela::kom
