#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vela::kom {

// A non-owning, read-only view of bytes received from a printer (C++17 has no std::span).
// The viewed bytes must outlive the view. Every access is bounds-checked by the caller through
// size(); At() returns 0 past the end so that parsers cannot read outside the buffer.
class ByteView {
public:
    constexpr ByteView() = default;
    constexpr ByteView(const uint8_t* data, size_t size)
        : m_data(size ? data : nullptr), m_size(data ? size : 0) {}
    ByteView(const std::vector<uint8_t>& bytes) : ByteView(bytes.data(), bytes.size()) {}

    constexpr const uint8_t* data() const { return m_data; }
    constexpr size_t size() const { return m_size; }
    constexpr bool empty() const { return m_size == 0; }
    constexpr const uint8_t* begin() const { return m_data; }
    constexpr const uint8_t* end() const { return m_data + m_size; }

    // Byte `index`, or 0 when the index lies outside the view.
    constexpr uint8_t At(size_t index) const { return index < m_size ? m_data[index] : 0; }
    // The bytes from `offset` to the end (empty when offset is past the end).
    constexpr ByteView From(size_t offset) const {
        return offset < m_size ? ByteView(m_data + offset, m_size - offset) : ByteView();
    }

    std::vector<uint8_t> ToVector() const { return std::vector<uint8_t>(begin(), end()); }

private:
    const uint8_t* m_data = nullptr;
    size_t m_size = 0;
};

} // namespace vela::kom
