#pragma once

#include <cstddef>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>
#include <vector>

namespace vela::kom {

// One malloc'd block that the C interface hands to its caller: `count` records of type Record
// followed by copies of the texts they point to, so that one qrv_free releases everything.
//
//     RecordBlock<qrv_file_entry> block(names.size(), names);
//     block[i].name = block.Text(i);
//     *entries = block.Release();
//
// Record must be a plain C struct. Throws std::bad_alloc; frees the block unless released.
template <class Record> class RecordBlock {
public:
    RecordBlock(size_t count, const std::vector<std::string>& texts) : m_count(count) {
        size_t size = sizeof(Record) * count;
        m_offsets.reserve(texts.size());
        for (const std::string& text : texts) {
            m_offsets.push_back(size);
            size += text.size() + 1;
        }
        m_block.reset(static_cast<char*>(std::malloc(size == 0 ? 1 : size)));
        if (!m_block) {
            throw std::bad_alloc();
        }
        for (size_t i = 0; i < count; ++i) {
            new (m_block.get() + sizeof(Record) * i) Record{};
        }
        for (size_t i = 0; i < texts.size(); ++i) {
            texts[i].copy(m_block.get() + m_offsets[i], texts[i].size());
            m_block.get()[m_offsets[i] + texts[i].size()] = '\0';
        }
    }

    Record& operator[](size_t index) { return reinterpret_cast<Record*>(m_block.get())[index]; }
    // The copy of texts[index] inside the block.
    char* Text(size_t index) { return m_block.get() + m_offsets[index]; }
    size_t Count() const { return m_count; }
    Record* Release() { return reinterpret_cast<Record*>(m_block.release()); }

private:
    struct Free {
        void operator()(char* block) const { std::free(block); }
    };
    size_t m_count;
    std::vector<size_t> m_offsets;
    std::unique_ptr<char, Free> m_block;
};

// A single UTF-8 string in a block of its own.
inline char* CopyText(const std::string& text) {
    RecordBlock<char> block(0, {text});
    return block.Release(); // the text starts the block
}

} // namespace vela::kom
