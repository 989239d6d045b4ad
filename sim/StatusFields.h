#pragma once

#include <array>
#include <cstdint>

namespace vela::sim {

// The eight status bytes b0..b7 the printer reports, in the status reply (payload bytes 2..9) and,
// without b7, in every HID report.
using StatusBlock = std::array<uint8_t, 8>;

// The status block field by field. Values are stored as they go on the wire, masked to their bit
// width; values the host does not accept (door 2, cutter 3..5, ...) can be set on purpose.
// Converting to a block and back loses nothing.
struct StatusFields {
    uint8_t power = 0;          // b0 bits 0-1: 0 ok, 1 low, 2 critical, 3 unknown
    uint8_t door = 0;           // b0 bits 2-3: 0 closed, 1 open, 3 error
    uint8_t cassette = 0;       // b0 bits 4-5: 0 present, 1 absent, 2 present (unverified), 3 unknown
    uint8_t printHead = 0;      // b0 bits 6-7: 0 ok, 1 warm, 2 hot, 3 unknown
    uint8_t cutter = 0;         // b1 bits 0-2: 0 ok, 1 busy, 2 jammed, 6 blade error, 7 error
    uint8_t label = 0;          // b1 bits 3-5: 0 ok, 1 out, 2 jammed, 3 low, 6 not taken, 7 error
    uint8_t cassetteMemory = 0; // b1 bits 6-7: 0 ok, 1 unreadable, 3 error
    uint8_t print = 0;          // b2 bits 0-2: 0 idle, 1 printing, 2 paused, 3 aborted, 4 cooling, 7 error
    uint8_t externalPower = 0;  // b2 bits 3-4: 0 disconnected, 1 connected, 3 error
    uint8_t battery = 4;        // b2 bits 5-7: 0 empty, 1..4 levels, 5 full, 7 error
    uint8_t charging = 0;       // b3 bits 0-1: 0 off, 1 on, 3 error
    uint8_t spare3 = 0;         // b3 bits 2-6 (not decoded by the host)
    bool sleeping = false;      // b3 bit 7
    uint8_t spare4 = 0;         // b4 (0xF0 here marks the special HID report)
    uint8_t spare5 = 0;         // b5
    uint16_t counter = 0;       // b6 (low) and b7 (high)

    StatusBlock ToBlock() const;
    static StatusFields FromBlock(const StatusBlock& block);
};

// Ready, cassette in, door closed, on battery at level 4.
StatusBlock DefaultStatusBlock();

} // namespace vela::sim
