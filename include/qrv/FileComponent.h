#pragma once

#include <cstdint>
#include <string>
#include <utility>

namespace vela::printer::communication {

// The printer's own folders.
enum class DirectoryType : uint32_t {
    imageLibrary = 0,
    jobFileLibrary = 1,
    templateLibrary = 2,
    updateLibrary = 3,
    logFiles = 4
};

enum class FileType : uint32_t { file = 0, directory = 1 };

// One entry of a printer folder listing (GetFiles): its name as the printer lists it (without the
// folder), whether it is a file or a folder, and its size in bytes as the printer reports it.
class FileComponent {
public:
    FileComponent(std::wstring name, FileType type, int32_t size)
        : m_name(std::move(name)), m_type(type), m_size(size) {}

    const std::wstring& Name() const { return m_name; }
    FileType Type() const { return m_type; }
    int32_t Size() const { return m_size; }

private:
    std::wstring m_name;
    FileType m_type;
    int32_t m_size;
};

} // namespace vela::printer::communication
