#include "kom/discovery/linux/PrintSchedulerClient.h"

#include <dlfcn.h>

namespace vela::kom {

namespace {

constexpr const char* kLibrary = "libcups.so.2";

template <class F> bool Resolve(void* library, const char* name, F& entry, std::string& missing) {
    entry = reinterpret_cast<F>(::dlsym(library, name));
    if (entry == nullptr && missing.empty()) {
        missing = name;
    }
    return entry != nullptr;
}

} // namespace

const PrintSchedulerClient& PrintSchedulerClient::Load() {
    static const PrintSchedulerClient client; // thread-safe, once per process
    return client;
}

PrintSchedulerClient::PrintSchedulerClient() {
    // Kept loaded for the life of the process: its per-thread state must not outlive its code.
    void* library = ::dlopen(kLibrary, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        const char* reason = ::dlerror();
        m_problem = std::string("the print scheduler's client library ") + kLibrary + " cannot be loaded (" +
                    (reason != nullptr ? reason : "not found") +
                    "); install the package libcups2 to have printers named by their print queue";
        return;
    }
    std::string missing;
    Resolve(library, "httpConnect2", httpConnect2, missing);
    Resolve(library, "httpClose", httpClose, missing);
    Resolve(library, "httpSetTimeout", httpSetTimeout, missing);
    Resolve(library, "ippNewRequest", ippNewRequest, missing);
    Resolve(library, "ippDelete", ippDelete, missing);
    Resolve(library, "ippAddStrings", ippAddStrings, missing);
    Resolve(library, "ippAddString", ippAddString, missing);
    Resolve(library, "ippFirstAttribute", ippFirstAttribute, missing);
    Resolve(library, "ippNextAttribute", ippNextAttribute, missing);
    Resolve(library, "ippGetGroupTag", ippGetGroupTag, missing);
    Resolve(library, "ippGetName", ippGetName, missing);
    Resolve(library, "ippGetString", ippGetString, missing);
    Resolve(library, "ippGetValueTag", ippGetValueTag, missing);
    Resolve(library, "ippGetInteger", ippGetInteger, missing);
    Resolve(library, "ippPort", ippPort, missing);
    Resolve(library, "cupsDoRequest", cupsDoRequest, missing);
    Resolve(library, "cupsLastError", cupsLastError, missing);
    Resolve(library, "cupsLastErrorString", cupsLastErrorString, missing);
    Resolve(library, "cupsUser", cupsUser, missing);
    Resolve(library, "cupsServer", cupsServer, missing);
    Resolve(library, "cupsEncryption", cupsEncryption, missing);
    if (!missing.empty()) {
        m_problem = std::string("the print scheduler's client library ") + kLibrary + " lacks " + missing +
                    " (too old a version)";
        return;
    }
    m_loaded = true;
}

} // namespace vela::kom
