#include "common/MD5FileHash.h"

#include "common/Exception.h"
#include "common/Log.h"
#include "common/LogAndThrow.h"
#include "common/NativeHandle.h"
#include "common/StringConverter.h"

#include <algorithm>
#include <cerrno>
#include <dlfcn.h>
#include <fcntl.h>
#include <openssl/evp.h>
#include <string>
#include <unistd.h>

namespace vela::common {

namespace {

// The code the Windows provider reports for a hash object that was already finished; used so
// that a second digest on one object fails the same way on both platforms.
constexpr uint32_t kBadHashState = 0x8009000Bu;

EVP_MD_CTX* Context(uintptr_t handle) {
    return reinterpret_cast<EVP_MD_CTX*>(handle);
}

[[noreturn]] void Fail(const wchar_t* format, uint32_t code, const wchar_t* source) {
    LogAndThrow(MD5Exception(Format(format, static_cast<int32_t>(code)), source));
}

// libcrypto is loaded on the first digest, not at the start of every program that links the
// library: only a put needs it, and loading and binding it costs more than a whole status
// command of the tool. It stays loaded for the life of the process.
struct Crypto {
    decltype(&EVP_MD_CTX_new) contextNew = nullptr;
    decltype(&EVP_MD_CTX_free) contextFree = nullptr;
    decltype(&EVP_md5) md5 = nullptr;
    decltype(&EVP_DigestInit_ex) init = nullptr;
    decltype(&EVP_DigestUpdate) update = nullptr;
    decltype(&EVP_DigestFinal_ex) final = nullptr;
    std::string problem; // empty when every entry was found

    static const Crypto& Load() {
        static const Crypto crypto; // thread-safe, once per process
        return crypto;
    }

private:
    static constexpr const char* kLibrary = "libcrypto.so.3";

    Crypto() {
        void* library = ::dlopen(kLibrary, RTLD_NOW | RTLD_LOCAL);
        if (library == nullptr) {
            const char* reason = ::dlerror();
            problem = std::string(kLibrary) + " cannot be loaded (" +
                      (reason != nullptr ? reason : "not found") +
                      "); install OpenSSL's libcrypto (the package libssl3) to put files on a printer";
            return;
        }
        Resolve(library, "EVP_MD_CTX_new", contextNew);
        Resolve(library, "EVP_MD_CTX_free", contextFree);
        Resolve(library, "EVP_md5", md5);
        Resolve(library, "EVP_DigestInit_ex", init);
        Resolve(library, "EVP_DigestUpdate", update);
        Resolve(library, "EVP_DigestFinal_ex", final);
    }
    template <class F> void Resolve(void* library, const char* name, F& entry) {
        entry = reinterpret_cast<F>(::dlsym(library, name));
        if (entry == nullptr && problem.empty()) {
            problem = std::string(kLibrary) + " lacks " + name;
        }
    }
};

} // namespace

MD5FileHash::MD5FileHash() {
    const Crypto& crypto = Crypto::Load();
    if (!crypto.problem.empty()) {
        LogAndThrow(MD5Exception(StringConverter::FromUtf8(crypto.problem), L"MD5FileHash::MD5FileHash()"));
    }
    EVP_MD_CTX* context = crypto.contextNew();
    if (context == nullptr) {
        Fail(L"EVP_MD_CTX_new() failed rc = %d", ENOMEM, L"MD5FileHash::MD5FileHash()");
    }
    if (crypto.init(context, crypto.md5(), nullptr) != 1) {
        crypto.contextFree(context);
        Fail(L"EVP_DigestInit_ex() failed rc = %d", EINVAL, L"MD5FileHash::MD5FileHash()");
    }
    m_provider = 1; // libcrypto needs no provider context of its own
    m_hash = reinterpret_cast<uintptr_t>(context);
}

MD5FileHash::~MD5FileHash() {
    if (m_hash != 0) {
        Crypto::Load().contextFree(Context(m_hash));
    }
}

bool MD5FileHash::GetHash(const std::wstring& path, std::vector<uint8_t>& digest) {
    if (m_provider == 0 || m_hash == 0) {
        return false;
    }
    UniqueHandle file(::open(StringConverter::ToUtf8(path).c_str(), O_RDONLY | O_CLOEXEC));
    if (!file.IsValid()) {
        Fail(L"open() failed rc = %d", static_cast<uint32_t>(errno), L"MD5FileHash::GetHash()");
    }
    (void)::posix_fadvise(file.Get(), 0, 0, POSIX_FADV_SEQUENTIAL);
    // Large reads keep the system calls few; the hash still takes the data in 1024-byte updates.
    std::vector<uint8_t> block(kReadSize);
    for (;;) {
        ssize_t got = ::read(file.Get(), block.data(), block.size());
        if (got < 0) {
            if (errno == EINTR) {
                continue;
            }
            Fail(L"read() failed rc = %d", static_cast<uint32_t>(errno), L"MD5FileHash::GetHash()");
        }
        if (got == 0) {
            break;
        }
        for (size_t at = 0; at < static_cast<size_t>(got); at += kUpdateSize) {
            const size_t piece = std::min(kUpdateSize, static_cast<size_t>(got) - at);
            // One object digests one file: once finished, the hash refuses more data.
            if (m_finalised || Crypto::Load().update(Context(m_hash), block.data() + at, piece) != 1) {
                Fail(L"EVP_DigestUpdate() failed rc = %d", kBadHashState, L"MD5FileHash::GetHash()");
            }
        }
    }
    if (!m_finalised) {
        unsigned int length = 0;
        m_value.resize(16);
        if (Crypto::Load().final(Context(m_hash), m_value.data(), &length) != 1 || length != 16) {
            Fail(L"EVP_DigestFinal_ex() failed rc = %d", kBadHashState, L"MD5FileHash::GetHash()");
        }
        m_finalised = true;
    }
    digest = m_value;
    return true;
}

} // namespace vela::common
