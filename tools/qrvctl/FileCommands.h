#pragma once

#include "Console.h"
#include "PrinterSession.h"

#include <string>

namespace vela::qrvctl {

// The printer's file system: `ls`, `get`, `put`, `mv`, `rm`, `df` and `logs`. Printer paths are
// absolute, '/'-separated UTF-8 ("/mnt/data/images/logo.png"); host paths are the system's.
// `get` and `put` show their progress (see ProgressReporter). A get writes the host file
// completely or not at all (the library writes a temporary file and renames it).
// Each call blocks on its printer transactions (and the fixed pauses named below), runs on the
// command's thread, and throws CommandError or the gateway's host exceptions (ErrorReport.h
// turns them into messages and exit codes).
class FileCommands {
public:
    static void List(Console& console, PrinterSession& session, const std::string& printerFolder);
    // `hostFile` may be a folder (the file then keeps its printer name) or "-" (standard
    // output). The host side is checked before the printer is touched; `noClobber` refuses an
    // existing host file. Ctrl+C cancels the transfer cleanly (InterruptSignal).
    static void Get(Console& console, PrinterSession& session, const std::string& printerPath,
                    const std::string& hostFile, bool noClobber);
    // `printerPath` may end with '/': the file then keeps its host name. The host file is checked
    // before the printer is touched. A file of more than a few MiB is first looked for in its
    // printer folder, so that an existing one is refused before it is sent; `force` deletes an
    // existing printer file first. Ctrl+C cancels the transfer cleanly.
    static void Put(Console& console, PrinterSession& session, const std::string& hostFile,
                    const std::string& printerPath, bool force);
    // Deletes a printer file if it is there; true when one was deleted.
    static bool RemoveIfPresent(vela::kom::ManagedQRVDeviceGateway& gateway, const std::string& printerPath);
    static void Move(Console& console, PrinterSession& session, const std::string& from,
                     const std::string& to);
    static void Remove(Console& console, PrinterSession& session, const std::string& printerPath);
    static void DiskSpace(Console& console, PrinterSession& session);
    // Lists the printer's log files; with a folder, fetches each into it (made when missing).
    static void Logs(Console& console, PrinterSession& session, const std::string& fetchFolder);
};

} // namespace vela::qrvctl
