#include "sim/StatusFields.h"

namespace vela::sim {

StatusBlock StatusFields::ToBlock() const {
    StatusBlock b{};
    b[0] = uint8_t((power & 0x3) | ((door & 0x3) << 2) | ((cassette & 0x3) << 4) | ((printHead & 0x3) << 6));
    b[1] = uint8_t((cutter & 0x7) | ((label & 0x7) << 3) | ((cassetteMemory & 0x3) << 6));
    b[2] = uint8_t((print & 0x7) | ((externalPower & 0x3) << 3) | ((battery & 0x7) << 5));
    b[3] = uint8_t((charging & 0x3) | ((spare3 & 0x1F) << 2) | (sleeping ? 0x80 : 0));
    b[4] = spare4;
    b[5] = spare5;
    b[6] = uint8_t(counter & 0xFF);
    b[7] = uint8_t(counter >> 8);
    return b;
}

StatusFields StatusFields::FromBlock(const StatusBlock& b) {
    StatusFields f;
    f.power = b[0] & 0x3;
    f.door = (b[0] >> 2) & 0x3;
    f.cassette = (b[0] >> 4) & 0x3;
    f.printHead = (b[0] >> 6) & 0x3;
    f.cutter = b[1] & 0x7;
    f.label = (b[1] >> 3) & 0x7;
    f.cassetteMemory = (b[1] >> 6) & 0x3;
    f.print = b[2] & 0x7;
    f.externalPower = (b[2] >> 3) & 0x3;
    f.battery = (b[2] >> 5) & 0x7;
    f.charging = b[3] & 0x3;
    f.spare3 = (b[3] >> 2) & 0x1F;
    f.sleeping = (b[3] & 0x80) != 0;
    f.spare4 = b[4];
    f.spare5 = b[5];
    f.counter = uint16_t(b[6] | (b[7] << 8));
    return f;
}

StatusBlock DefaultStatusBlock() {
    return StatusFields{}.ToBlock();
}

} // namespace vela::sim
