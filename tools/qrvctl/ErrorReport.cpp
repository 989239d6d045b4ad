#include "ErrorReport.h"

#include "CommandError.h"
#include "InterruptSignal.h"
#include "common/Exception.h"
#include "common/StringConverter.h"
#include "qrv/HostException.h"

#include <exception>

namespace vela::qrvctl {

namespace hc = vela::printer::communication;

namespace {

constexpr const char* kNoSuchName = "'Wrong file name'";
constexpr const char* kDuplicate = "'Duplicate file'";
// The channel's read and write limits end their messages so ("Unable to read data from UsbPrint
// device, timeout"): the printer was asked and did not answer.
constexpr const char* kNoAnswer = "UsbPrint device, timeout";
constexpr const char* kBusy = "Unable to acquire";

bool Has(const char* text, const char* part) {
    return std::string(text).find(part) != std::string::npos;
}

const char* const kNoAnswerHint =
    "The printer did not answer in time: is it switched on, awake and connected? "
    "Try again, or run `qrvctl doctor`.";

ErrorReport Make(ExitCode code, const std::string& message, const std::string& hint) {
    return ErrorReport{code, message, hint};
}

} // namespace

ErrorReport ErrorReport::FromCurrentException() {
    try {
        throw;
    } catch (const CommandError& e) {
        return Make(e.Code(), e.what(), e.Hint());
    } catch (const hc::OperationCancelledException& e) {
        if (InterruptSignal::TimedOut()) {
            return Make(ExitCode::communication, InterruptSignal::TimeoutMessage(),
                        "The transfer was cancelled cleanly; allow more time with --timeout.");
        }
        return Make(ExitCode::interrupted,
                    "interrupted: the transfer was cancelled (" + std::string(e.what()) + ")",
                    "Nothing was left half-written; the printer is ready for the next command.");
    } catch (const hc::PrinterNotFoundException& e) {
        return Make(ExitCode::printerNotFound, e.what(),
                    "`qrvctl list` shows the printers; `qrvctl doctor` tells why one is missing.");
    } catch (const hc::PrinterAccessViolationException& e) {
        return Make(ExitCode::accessDenied, e.what(),
                    "Only the printer's library folders can be written (`qrvctl info` names them); "
                    "check the host file's permissions too.");
    } catch (const hc::FileNotFoundException& e) {
        return Make(ExitCode::notFound, e.what(), "`qrvctl ls FOLDER` lists what the printer has.");
    } catch (const hc::DirectoryNotFoundException& e) {
        return Make(ExitCode::notFound, e.what(),
                    "The library folders are named by `qrvctl info`; printer paths start with '/'.");
    } catch (const hc::OutOfDiskspaceException& e) {
        return Make(ExitCode::diskFull, e.what(),
                    "`qrvctl df` shows the free space; `qrvctl rm PATH` makes room.");
    } catch (const hc::InvalidFileNameException& e) {
        if (Has(e.what(), kDuplicate)) {
            return Make(
                ExitCode::invalidName, e.what(),
                "The printer already has a file of that name: `--force` replaces it, or choose another "
                "name.");
        }
        return Make(
            ExitCode::invalidName, e.what(),
            "Printer paths are absolute ('/mnt/data/images/logo.png') and may not hold \\ : * ? \" < > |; "
            "an existing file must be removed (`qrvctl rm`) before it is replaced.");
    } catch (const hc::InvalidDirectoryNameException& e) {
        return Make(ExitCode::invalidName, e.what(),
                    "Printer folders are absolute paths such as '/mnt/data/images'.");
    } catch (const hc::PrinterCommunicationException& e) {
        // The printer answers "no such file or folder" with the reason 'Wrong file name'; listings
        // get it reported as a communication error, yet the printer did answer.
        if (Has(e.what(), kNoSuchName)) {
            return Make(ExitCode::notFound, e.what(), "`qrvctl ls FOLDER` lists what the printer has.");
        }
        if (Has(e.what(), kNoAnswer)) {
            return Make(ExitCode::communication, e.what(), kNoAnswerHint);
        }
        if (Has(e.what(), kBusy)) {
            return Make(ExitCode::communication, e.what(),
                        "Another program kept the printer busy for 10 s; try again when it is done.");
        }
        return Make(ExitCode::communication, e.what(),
                    "Is the printer switched on and idle? Another program may be using it; try again, "
                    "or run `qrvctl doctor`.");
    } catch (const hc::PrinterException& e) {
        // A printer that does not answer is a communication problem, whatever the kind says.
        if (Has(e.what(), kNoAnswer)) {
            return Make(ExitCode::communication, e.what(), kNoAnswerHint);
        }
        return Make(ExitCode::failure, e.what(),
                    "Is the printer still connected? `qrvctl doctor` checks the connection.");
    } catch (const hc::HostException& e) {
        return Make(ExitCode::failure, e.what(), "");
    } catch (const vela::common::Exception& e) {
        // Discovery is called directly (not through the gateway) and may fail with a system error.
        return Make(ExitCode::failure,
                    vela::common::StringConverter::ToUtf8(e.Source() + L": " + e.Message()), "");
    } catch (const std::exception& e) {
        return Make(ExitCode::failure, e.what(), "");
    } catch (...) {
        return Make(ExitCode::failure, "unexpected failure", "");
    }
}

void ErrorReport::Print(Console& console) const {
    if (console.Json()) {
        nlohmann::json error{{"kind", KindName(code)}, {"exitCode", ToInt(code)}, {"message", message}};
        error["hint"] = hint.empty() ? nlohmann::json() : nlohmann::json(hint);
        console.Result(nlohmann::json{{"error", error}}, [](TextWriter&) {});
        return;
    }
    console.ErrorLine("qrvctl: " + message);
    if (!hint.empty()) {
        console.ErrorLine("  hint: " + hint);
    }
}

} // namespace vela::qrvctl
