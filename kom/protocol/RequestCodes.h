#pragma once

#include <cstdint>

namespace vela::kom {

// The bytes that say what a request asks for. Every request payload starts with kRequestMarker;
// the next byte is the operation, and the printer repeats it in byte 1 of its reply.
namespace RequestCode {
constexpr uint8_t kRequestMarker = 0x01;
constexpr uint8_t kQuery = 0x80;          // completion poll and status query
constexpr uint8_t kDeviceControl = 0x3A;  // followed by a device order
constexpr uint8_t kPrintControl = 0x50;   // followed by a print order and two zero bytes
constexpr uint8_t kVersion = 0x39;        // the seven version texts
constexpr uint8_t kCassetteMemory = 0x47; // the cassette's EEPROM
constexpr uint8_t kUpdateStatus = 0x3C;   // the firmware updater's state
} // namespace RequestCode

// Orders of the device as a whole; no reply is awaited.
namespace DeviceOrder {
constexpr uint8_t kStartUpdate = 0x01;
constexpr uint8_t kReboot = 0x02;
} // namespace DeviceOrder

// Orders of the print engine; the printer acknowledges each.
namespace PrintOrder {
constexpr uint8_t kResumePrinting = 0x01;
constexpr uint8_t kClearError = 0x03;
constexpr uint8_t kCutLabel = 0x04;
constexpr uint8_t kFeedForward = 0x0A;
constexpr uint8_t kClearCutterJamError = 0x0F;
} // namespace PrintOrder

} // namespace vela::kom
