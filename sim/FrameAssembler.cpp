#include "sim/FrameAssembler.h"

#include "common/ByteOrder.h"
#include "sim/WireFormat.h"

#include <algorithm>

namespace vela::sim {

namespace {
constexpr size_t kSampleSize = 64;
// Reserve the whole message up front only up to this size; beyond it the buffer grows as bytes
// arrive, so that a corrupt header cannot make the printer allocate a gigabyte at once.
constexpr size_t kMaxReserve = size_t{64} << 20;
} // namespace

void FrameAssembler::FlushGarbage(std::vector<FramingViolation>& violations) {
    if (m_garbageCount == 0) {
        return;
    }
    violations.push_back({ViolationKind::badStartByte,
                          std::to_string(m_garbageCount) + " byte(s) without a start byte discarded",
                          std::move(m_garbageSample)});
    m_garbageCount = 0;
    m_garbageSample.clear();
}

size_t FrameAssembler::Consume(const uint8_t* data, size_t size, std::optional<std::vector<uint8_t>>& frame,
                               std::vector<FramingViolation>& violations) {
    size_t used = 0;
    while (used < size) {
        if (m_pending.empty()) {
            uint8_t first = data[used];
            if (m_padExpected) {
                m_padExpected = false;
                if (first == 0x00) {
                    ++used;
                    continue;
                }
                if (first == wire::kStartByte) {
                    violations.push_back({ViolationKind::missingPad,
                                          "a message of a multiple of 512 bytes came without its pad byte",
                                          {}});
                }
            }
            if (first != wire::kStartByte) {
                const uint8_t* next = std::find(data + used, data + size, wire::kStartByte);
                size_t skipped = static_cast<size_t>(next - (data + used));
                size_t sample =
                    std::min(skipped, kSampleSize - std::min(kSampleSize, m_garbageSample.size()));
                m_garbageSample.insert(m_garbageSample.end(), data + used, data + used + sample);
                m_garbageCount += skipped;
                used += skipped;
                continue;
            }
            FlushGarbage(violations);
        }

        if (m_pending.size() < wire::kHeaderSize) {
            size_t take = std::min(size - used, wire::kHeaderSize - m_pending.size());
            m_pending.insert(m_pending.end(), data + used, data + used + take);
            used += take;
            if (m_pending.size() < wire::kHeaderSize) {
                break;
            }
            m_declared = common::ReadBigEndian32(m_pending.data() + 1);
            if (m_declared < wire::kHeaderSize || m_declared > m_maxMessageSize) {
                bool small = m_declared < wire::kHeaderSize;
                violations.push_back({small ? ViolationKind::lengthTooSmall : ViolationKind::lengthTooLarge,
                                      "header declares " + std::to_string(m_declared) + " bytes",
                                      std::move(m_pending)});
                m_pending.clear();
                continue;
            }
            if (m_declared <= kMaxReserve) {
                m_pending.reserve(m_declared);
            }
        }

        size_t take = std::min(size - used, size_t{m_declared} - m_pending.size());
        if (m_pending.capacity() < m_pending.size() + take) {
            // More than kMaxReserve bytes of it have come: the host means it. The buffer grows to
            // the declared size in one step (doubling would copy a large put twice more), and a
            // put then ends in a buffer of exactly its own size, which becomes the stored file.
            m_pending.reserve(m_declared);
        }
        m_pending.insert(m_pending.end(), data + used, data + used + take);
        used += take;
        if (m_pending.size() == m_declared) {
            m_padExpected = m_declared % wire::kPacketSize == 0;
            frame = std::move(m_pending);
            m_pending = {};
            return used;
        }
    }
    return used;
}

bool FrameAssembler::Abandon(std::vector<FramingViolation>& violations) {
    bool pending = HasPartialInput();
    FlushGarbage(violations);
    if (!m_pending.empty()) {
        std::string detail = "received " + std::to_string(m_pending.size()) + " byte(s)";
        if (m_pending.size() >= wire::kHeaderSize) {
            detail += " of " + std::to_string(m_declared) + " declared";
        }
        std::vector<uint8_t> sample(m_pending.begin(),
                                    m_pending.begin() +
                                        static_cast<ptrdiff_t>(std::min(m_pending.size(), kSampleSize)));
        violations.push_back({ViolationKind::truncatedMessage, detail, std::move(sample)});
        m_pending = {};
    }
    return pending;
}

void FrameAssembler::Reset() {
    m_pending = {};
    m_declared = 0;
    m_padExpected = false;
    m_garbageCount = 0;
    m_garbageSample.clear();
}

} // namespace vela::sim
