#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace vela::sim {

// Result codes of file-system work, reported in the completion poll.
namespace result {
constexpr uint8_t ok = 0;
constexpr uint8_t duplicate = 1;
constexpr uint8_t missing = 2;
constexpr uint8_t diskFull = 3;
constexpr uint8_t badChecksum = 4;
constexpr uint8_t illegalName = 5;
constexpr uint8_t accessDenied = 6;
constexpr uint8_t unknownError = 7;
} // namespace result

struct FileInfo {
    std::string path;
    uint64_t size = 0;
    bool readOnly = false;
};

// The printer's file system, held in memory. It starts with the four library folders (job files,
// templates, images, update packages) and /mnt/data/settings with the printer's log files.
// Only the library folders and what lies below them can be written; the rest is read-only.
//
// Paths are absolute, '/'-separated UTF-8; empty components ("//") are ignored. A name must not be
// "." or "..", longer than 255 bytes, or hold control characters or any of \ : , * ? " < > |
// (the listing text uses ':' and ',' as separators). Not thread-safe: the engine serialises it.
class VirtualFileSystem {
public:
    static constexpr const char* kJobFolder = "/mnt/data/jobs";           // folder selector 1
    static constexpr const char* kTemplateFolder = "/mnt/data/templates"; // folder selector 2
    static constexpr const char* kImageFolder = "/mnt/data/images";       // folder selector 3
    static constexpr const char* kUpdateFolder = "/mnt/data/update";      // folder selector 4
    static constexpr const char* kSettingsFolder = "/mnt/data/settings";

    explicit VirtualFileSystem(uint64_t capacity);

    // The canonical form of a path ("/a/b"; "/" for the root), or none when it is illegal.
    static std::optional<std::string> Normalize(const std::string& path);

    // --- what the host asks for. The checks return a result code and change nothing.
    // Put checks, in order: illegal name (5), read-only place (6), missing folder (2), existing
    // entry (1), no room for `size` bytes (3).
    uint8_t CheckPut(const std::string& path, uint64_t size) const;
    void Store(const std::string& path, std::vector<uint8_t> data);
    // Get: illegal (5), missing or a folder (2).
    uint8_t CheckGet(const std::string& path) const;
    // The file's bytes, or null.
    const std::vector<uint8_t>* Find(const std::string& path) const;
    // Delete: illegal (5), missing (2), read-only place or a folder (6).
    uint8_t CheckDelete(const std::string& path) const;
    void Delete(const std::string& path);
    // Rename: illegal (5), old missing (2), old or new in a read-only place, or a folder (6),
    // new folder missing (2), new exists (1).
    uint8_t CheckRename(const std::string& oldPath, const std::string& newPath) const;
    void Rename(const std::string& oldPath, const std::string& newPath);
    // Listing: illegal (5), missing or a file (2).
    uint8_t CheckList(const std::string& path) const;
    // "name:size:f," for a file, "name::d," for a folder, in name order.
    std::string ListingText(const std::string& path) const;

    // --- direct access for tests and tools (no capacity or read-only checks).
    // Throw std::invalid_argument for illegal paths or when a file stands where a folder must be.
    void AddFolder(const std::string& path); // with missing parents
    void WriteFile(const std::string& path, std::vector<uint8_t> data, bool readOnly = false);
    std::optional<std::vector<uint8_t>> ReadFile(const std::string& path) const;
    bool Remove(const std::string& path); // a file, or an empty folder
    bool IsFolder(const std::string& path) const;
    void SetReadOnly(const std::string& path, bool readOnly);
    std::vector<FileInfo> Files() const; // every file, in path order

    uint64_t Capacity() const { return m_capacity; }
    void SetCapacity(uint64_t capacity) { m_capacity = capacity; }
    uint64_t Used() const { return m_used; }
    uint64_t Free() const { return m_used >= m_capacity ? 0 : m_capacity - m_used; }

    // The file most recently stored directly in `folder`, by name; none when the folder is empty.
    std::optional<std::string> NewestFileIn(const std::string& folder) const;

private:
    struct Node {
        bool directory = false;
        bool readOnly = false;
        uint64_t sequence = 0; // store order
        std::vector<uint8_t> data;
    };

    static std::string ParentOf(const std::string& canonical);
    static std::string NameOf(const std::string& canonical);
    const Node* Lookup(const std::string& canonical) const;
    bool IsWritablePlace(const std::string& folder) const;
    std::string Canonical(const std::string& path) const; // throws std::invalid_argument

    std::map<std::string, Node> m_nodes;
    uint64_t m_capacity;
    uint64_t m_used = 0;
    uint64_t m_sequence = 0;
};

} // namespace vela::sim
