#include "sim/VirtualFileSystem.h"

#include <stdexcept>

namespace vela::sim {

namespace {

constexpr size_t kMaxNameLength = 255;

bool IsLegalName(const std::string& name) {
    if (name.empty() || name == "." || name == ".." || name.size() > kMaxNameLength) {
        return false;
    }
    for (unsigned char c : name) {
        if (c < 0x20 || c == 0x7F) {
            return false;
        }
        switch (c) {
        case '\\':
        case ':':
        case ',':
        case '*':
        case '?':
        case '"':
        case '<':
        case '>':
        case '|':
            return false;
        default:
            break;
        }
    }
    return true;
}

std::vector<uint8_t> Text(const char* text) {
    std::string s(text);
    return std::vector<uint8_t>(s.begin(), s.end());
}

const char* const kWritableRoots[] = {VirtualFileSystem::kJobFolder, VirtualFileSystem::kTemplateFolder,
                                      VirtualFileSystem::kImageFolder, VirtualFileSystem::kUpdateFolder};

} // namespace

VirtualFileSystem::VirtualFileSystem(uint64_t capacity) : m_capacity(capacity) {
    m_nodes["/"].directory = true;
    for (const char* folder : kWritableRoots) {
        AddFolder(folder);
    }
    AddFolder(kSettingsFolder);
    WriteFile("/mnt/data/settings/syslog",
              Text("Jan  1 00:00:01 qrv syslogd started\n"
                   "Jan  1 00:00:02 qrv kernel: usb gadget: printer and hid functions ready\n"
                   "Jan  1 00:00:03 qrv printerd: cassette detected\n"),
              true);
    WriteFile("/mnt/data/settings/syslog.1",
              Text("Dec 31 23:59:58 qrv printerd: battery level 4\n"
                   "Dec 31 23:59:59 qrv syslogd: log rotated\n"),
              true);
    WriteFile("/mnt/data/settings/printer.conf", Text("darkness=5\nspeed=3\nautocut=1\n"), true);
}

std::optional<std::string> VirtualFileSystem::Normalize(const std::string& path) {
    if (path.empty() || path[0] != '/') {
        return std::nullopt;
    }
    std::string canonical;
    size_t at = 0;
    while (at < path.size()) {
        size_t slash = path.find('/', at);
        if (slash == std::string::npos) {
            slash = path.size();
        }
        std::string name = path.substr(at, slash - at);
        at = slash + 1;
        if (name.empty()) {
            continue;
        }
        if (!IsLegalName(name)) {
            return std::nullopt;
        }
        canonical += '/';
        canonical += name;
    }
    return canonical.empty() ? std::string("/") : canonical;
}

std::string VirtualFileSystem::ParentOf(const std::string& canonical) {
    size_t slash = canonical.rfind('/');
    return slash == 0 ? std::string("/") : canonical.substr(0, slash);
}

std::string VirtualFileSystem::NameOf(const std::string& canonical) {
    return canonical.substr(canonical.rfind('/') + 1);
}

const VirtualFileSystem::Node* VirtualFileSystem::Lookup(const std::string& canonical) const {
    auto it = m_nodes.find(canonical);
    return it == m_nodes.end() ? nullptr : &it->second;
}

bool VirtualFileSystem::IsWritablePlace(const std::string& folder) const {
    for (const char* root : kWritableRoots) {
        std::string r(root);
        if (folder == r || folder.compare(0, r.size() + 1, r + "/") == 0) {
            return true;
        }
    }
    return false;
}

uint8_t VirtualFileSystem::CheckPut(const std::string& path, uint64_t size) const {
    auto target = Normalize(path);
    if (!target || *target == "/") {
        return result::illegalName;
    }
    std::string parent = ParentOf(*target);
    if (!IsWritablePlace(parent)) {
        return result::accessDenied;
    }
    const Node* folder = Lookup(parent);
    if (folder == nullptr || !folder->directory) {
        return result::missing;
    }
    if (Lookup(*target) != nullptr) {
        return result::duplicate;
    }
    if (size > Free()) {
        return result::diskFull;
    }
    return result::ok;
}

void VirtualFileSystem::Store(const std::string& path, std::vector<uint8_t> data) {
    WriteFile(path, std::move(data), false);
}

uint8_t VirtualFileSystem::CheckGet(const std::string& path) const {
    auto target = Normalize(path);
    if (!target) {
        return result::illegalName;
    }
    const Node* node = Lookup(*target);
    return node == nullptr || node->directory ? result::missing : result::ok;
}

const std::vector<uint8_t>* VirtualFileSystem::Find(const std::string& path) const {
    auto target = Normalize(path);
    const Node* node = target ? Lookup(*target) : nullptr;
    return node == nullptr || node->directory ? nullptr : &node->data;
}

uint8_t VirtualFileSystem::CheckDelete(const std::string& path) const {
    auto target = Normalize(path);
    if (!target || *target == "/") {
        return result::illegalName;
    }
    const Node* node = Lookup(*target);
    if (node == nullptr) {
        return result::missing;
    }
    // Folders cannot be made over the wire, so none may be removed over it either.
    if (node->directory || node->readOnly || !IsWritablePlace(ParentOf(*target))) {
        return result::accessDenied;
    }
    return result::ok;
}

void VirtualFileSystem::Delete(const std::string& path) {
    Remove(path);
}

uint8_t VirtualFileSystem::CheckRename(const std::string& oldPath, const std::string& newPath) const {
    auto from = Normalize(oldPath);
    auto to = Normalize(newPath);
    if (!from || !to || *from == "/" || *to == "/") {
        return result::illegalName;
    }
    const Node* node = Lookup(*from);
    if (node == nullptr) {
        return result::missing;
    }
    std::string toParent = ParentOf(*to);
    if (node->directory || node->readOnly || !IsWritablePlace(ParentOf(*from)) ||
        !IsWritablePlace(toParent)) {
        return result::accessDenied;
    }
    const Node* folder = Lookup(toParent);
    if (folder == nullptr || !folder->directory) {
        return result::missing;
    }
    if (Lookup(*to) != nullptr) {
        return result::duplicate;
    }
    return result::ok;
}

void VirtualFileSystem::Rename(const std::string& oldPath, const std::string& newPath) {
    std::string from = Canonical(oldPath);
    std::string to = Canonical(newPath);
    auto it = m_nodes.find(from);
    if (it == m_nodes.end() || m_nodes.count(to) != 0) {
        throw std::invalid_argument("cannot rename " + oldPath + " to " + newPath);
    }
    Node node = std::move(it->second);
    m_nodes.erase(it);
    m_nodes[to] = std::move(node);
}

uint8_t VirtualFileSystem::CheckList(const std::string& path) const {
    auto target = Normalize(path);
    if (!target) {
        return result::illegalName;
    }
    const Node* node = Lookup(*target);
    return node == nullptr || !node->directory ? result::missing : result::ok;
}

std::string VirtualFileSystem::ListingText(const std::string& path) const {
    std::string text;
    auto folder = Normalize(path);
    if (!folder) {
        return text;
    }
    std::string prefix = *folder == "/" ? "/" : *folder + "/";
    for (auto it = m_nodes.lower_bound(prefix); it != m_nodes.end(); ++it) {
        const std::string& key = it->first;
        if (key.compare(0, prefix.size(), prefix) != 0) {
            break;
        }
        if (key.size() == prefix.size() || key.find('/', prefix.size()) != std::string::npos) {
            continue; // the folder itself, or deeper down
        }
        text += key.substr(prefix.size());
        text += it->second.directory ? "::d," : ":" + std::to_string(it->second.data.size()) + ":f,";
    }
    return text;
}

std::string VirtualFileSystem::Canonical(const std::string& path) const {
    auto canonical = Normalize(path);
    if (!canonical) {
        throw std::invalid_argument("illegal printer path: " + path);
    }
    return *canonical;
}

void VirtualFileSystem::AddFolder(const std::string& path) {
    std::string canonical = Canonical(path);
    std::string walked;
    size_t at = 1;
    while (at <= canonical.size()) {
        size_t slash = canonical.find('/', at);
        if (slash == std::string::npos) {
            slash = canonical.size();
        }
        walked = canonical.substr(0, slash);
        at = slash + 1;
        if (walked.empty()) {
            continue;
        }
        Node& node = m_nodes[walked];
        if (!node.directory && (node.sequence != 0 || !node.data.empty())) {
            throw std::invalid_argument("a file stands where a folder must be: " + walked);
        }
        node.directory = true;
    }
}

void VirtualFileSystem::WriteFile(const std::string& path, std::vector<uint8_t> data, bool readOnly) {
    std::string canonical = Canonical(path);
    if (canonical == "/") {
        throw std::invalid_argument("the root is a folder");
    }
    AddFolder(ParentOf(canonical));
    Node& node = m_nodes[canonical];
    if (node.directory) {
        throw std::invalid_argument("a folder stands where the file must be: " + canonical);
    }
    m_used = m_used - node.data.size() + data.size();
    node.data = std::move(data);
    node.readOnly = readOnly;
    node.sequence = ++m_sequence;
}

std::optional<std::vector<uint8_t>> VirtualFileSystem::ReadFile(const std::string& path) const {
    const std::vector<uint8_t>* data = Find(path);
    if (data == nullptr) {
        return std::nullopt;
    }
    return *data;
}

bool VirtualFileSystem::Remove(const std::string& path) {
    auto canonical = Normalize(path);
    if (!canonical || *canonical == "/") {
        return false;
    }
    auto it = m_nodes.find(*canonical);
    if (it == m_nodes.end()) {
        return false;
    }
    if (it->second.directory) {
        std::string prefix = *canonical + "/";
        auto child = m_nodes.lower_bound(prefix);
        if (child != m_nodes.end() && child->first.compare(0, prefix.size(), prefix) == 0) {
            return false; // not empty
        }
    }
    m_used -= it->second.data.size();
    m_nodes.erase(it);
    return true;
}

bool VirtualFileSystem::IsFolder(const std::string& path) const {
    auto canonical = Normalize(path);
    const Node* node = canonical ? Lookup(*canonical) : nullptr;
    return node != nullptr && node->directory;
}

void VirtualFileSystem::SetReadOnly(const std::string& path, bool readOnly) {
    auto it = m_nodes.find(Canonical(path));
    if (it == m_nodes.end()) {
        throw std::invalid_argument("no such printer path: " + path);
    }
    it->second.readOnly = readOnly;
}

std::vector<FileInfo> VirtualFileSystem::Files() const {
    std::vector<FileInfo> files;
    for (const auto& [path, node] : m_nodes) {
        if (!node.directory) {
            files.push_back({path, node.data.size(), node.readOnly});
        }
    }
    return files;
}

std::optional<std::string> VirtualFileSystem::NewestFileIn(const std::string& folder) const {
    auto canonical = Normalize(folder);
    if (!canonical) {
        return std::nullopt;
    }
    std::string prefix = *canonical == "/" ? "/" : *canonical + "/";
    std::optional<std::string> newest;
    uint64_t newestSequence = 0;
    for (auto it = m_nodes.lower_bound(prefix); it != m_nodes.end(); ++it) {
        if (it->first.compare(0, prefix.size(), prefix) != 0) {
            break;
        }
        bool direct = it->first.find('/', prefix.size()) == std::string::npos;
        if (direct && !it->second.directory && it->second.sequence >= newestSequence) {
            newest = it->first.substr(prefix.size());
            newestSequence = it->second.sequence;
        }
    }
    return newest;
}

} // namespace vela::sim
