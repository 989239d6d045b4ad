#pragma once

#include <cstdint>
#include <string>

namespace vela::kom {

// One entry of a printer folder listing.
class IPathInfo {
public:
    virtual std::wstring Name() const = 0;
    virtual bool IsFile() const = 0;
    virtual bool IsDirectory() const = 0;
    virtual int32_t Size() const = 0;
    virtual ~IPathInfo() = default;
};

class PathInfo : public IPathInfo {
public:
    PathInfo(std::wstring name, bool isFile, bool isDirectory, int32_t size)
        : m_name(std::move(name)), m_isFile(isFile), m_isDirectory(isDirectory), m_size(size) {}

    std::wstring Name() const override { return m_name; }
    bool IsFile() const override { return m_isFile; }
    bool IsDirectory() const override { return m_isDirectory; }
    int32_t Size() const override { return m_size; }

private:
    std::wstring m_name;
    bool m_isFile;
    bool m_isDirectory;
    int32_t m_size;
};

} // namespace vela::kom
