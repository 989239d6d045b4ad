#pragma once

#include "sim/FramingViolation.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace vela::sim {

// Cuts the byte stream that the host writes into messages by their headers. It accepts and drops
// the 0x00 pad byte after a message whose length is a non-zero multiple of 512, discards bytes
// that cannot start a message, and reports every such irregularity as a framing violation.
// Not thread-safe (the printer engine serialises its use).
class FrameAssembler {
public:
    // The largest total length a message may declare; a larger header is taken for garbage.
    explicit FrameAssembler(uint32_t maxMessageSize) : m_maxMessageSize(maxMessageSize) {}

    // Takes bytes from `data` up to and including the last byte of the next complete message and
    // returns how many it took. A complete message lands in `frame`; violations are appended.
    size_t Consume(const uint8_t* data, size_t size, std::optional<std::vector<uint8_t>>& frame,
                   std::vector<FramingViolation>& violations);

    // The host fell silent: a half-received message is reported as truncated and dropped, and
    // discarded garbage is reported. Returns true when something was pending.
    bool Abandon(std::vector<FramingViolation>& violations);
    // Forgets everything half-received without reporting it (the channel went down on purpose).
    void Reset();

    // True while a message is partly received (or garbage is being skipped).
    bool HasPartialInput() const { return !m_pending.empty() || m_garbageCount != 0; }
    // Bytes received of the message in progress, and where they are (valid until the next call).
    size_t PartialSize() const { return m_pending.size(); }
    const uint8_t* PartialData() const { return m_pending.data(); }

private:
    void FlushGarbage(std::vector<FramingViolation>& violations);

    uint32_t m_maxMessageSize;
    std::vector<uint8_t> m_pending;
    uint32_t m_declared = 0; // total length of the message in m_pending, once its header is in
    bool m_padExpected = false;
    size_t m_garbageCount = 0;
    std::vector<uint8_t> m_garbageSample;
};

} // namespace vela::sim
