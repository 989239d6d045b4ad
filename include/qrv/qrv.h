/* qrv.h - the C interface of the QRV communication library.
 *
 * Drives QRV label printers ("VELA QRV 210", "VELA QRV 410") attached over USB, or simulated by
 * qrv-sim. C99; usable from other languages' foreign function interfaces (every type is a plain
 * integer, a pointer or a struct of those).
 *
 * Conventions that hold for every call unless its comment says otherwise:
 *
 * Results.  Every call returns a qrv_result: QRV_OK (0), or one code per failure kind of the
 *   library (QRV_ERROR_PRINTER_NOT_FOUND ... QRV_ERROR_PRINTER), or a code for misuse of this
 *   interface (QRV_ERROR_NULL_ARGUMENT ...). After a failure, qrv_last_error_message() gives the
 *   library's message line for it, exactly as the library logged it; after a success it gives "".
 *   No C++ exception leaves the library.
 * Text.  Every string, in and out, is UTF-8 and zero-terminated. Invalid UTF-8 in an argument
 *   becomes U+FFFD; it is never an error by itself. Printer paths start with "/".
 * Memory.  What a call returns through a pointer-to-pointer argument is one block allocated by the
 *   library: a string, or an array together with all the strings its records point to. The caller
 *   owns it and frees it with one qrv_free(); nothing else frees it, and the library never frees it
 *   behind the caller's back. On failure these arguments are set to NULL (and counts to 0). Empty
 *   lists may come back as NULL with a count of 0.
 * Threads.  Any thread may call any function. Calls on one printer handle from several threads run
 *   one after another (the printer's access lock, shared by all processes, serialises them).
 *   qrv_close() must not overlap other calls on the same handle.
 * Blocking.  A call that talks to the printer blocks for its transaction(s): up to 10 s waiting for
 *   the printer's access lock (another program may be using the printer), up to 3 s per USB
 *   transfer, and the fixed pauses named at each call. Read-only queries marked "retried" are tried
 *   up to 10 times, 500 ms apart, when the printer answers wrongly.
 * Callbacks.  Progress and update-phase callbacks run on the calling thread, inside the call that
 *   took them. Event callbacks (qrv_on_status_changed, qrv_on_print_interrupt) run on the
 *   library's status monitor thread. Every callback receives the `user` pointer given with it,
 *   unchanged. A callback may call into the library, except qrv_close() on its own handle.
 */
#ifndef QRV_QRV_H
#define QRV_QRV_H

#include "qrv/Export.h"
#include "qrv/Version.h"

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- results --------------------------------------------------------------------------------- */

typedef int32_t qrv_result;

enum {
    QRV_OK = 0,
    /* One code per failure kind of the library (the C++ HostException kinds). */
    QRV_ERROR_PRINTER_NOT_FOUND = 1,      /* PrinterNotFoundException: no printer open, or unusable */
    QRV_ERROR_ACCESS_VIOLATION = 2,       /* PrinterAccessViolationException: access refused */
    QRV_ERROR_FILE_NOT_FOUND = 3,         /* FileNotFoundException: on the printer or the host */
    QRV_ERROR_DIRECTORY_NOT_FOUND = 4,    /* DirectoryNotFoundException */
    QRV_ERROR_OUT_OF_DISKSPACE = 5,       /* OutOfDiskspaceException */
    QRV_ERROR_INVALID_FILE_NAME = 6,      /* InvalidFileNameException: also "file already exists" */
    QRV_ERROR_INVALID_DIRECTORY_NAME = 7, /* InvalidDirectoryNameException */
    QRV_ERROR_COMMUNICATION = 8,          /* PrinterCommunicationException: wrong answer, busy, absent */
    QRV_ERROR_CANCELLED = 9,              /* OperationCancelledException: a transfer was cancelled */
    QRV_ERROR_PRINTER = 10,               /* PrinterException: USB channel, system and other failures */
    /* Misuse of this interface, and failures outside the library's kinds. */
    QRV_ERROR_NULL_ARGUMENT = 100,    /* a required pointer argument was NULL */
    QRV_ERROR_INVALID_ARGUMENT = 101, /* a number out of its range, an unknown subscription */
    QRV_ERROR_NONZERO_RESULT = 102,   /* the operation ended without a failure kind but did not
                                         complete: the printer stayed busy past the completion poll
                                         (result -1) or answered an unknown completion code, or the
                                         update package path has no folder (-1); the message is
                                         "<operation>: nonzero result <n>" */
    QRV_ERROR_OUT_OF_MEMORY = 103,
    QRV_ERROR_INTERNAL = 104 /* anything else; the message says what */
};

/* The message line of the last failed call on the calling thread; "" when the last call succeeded.
 * Owned by the library, valid until the next qrv_ call on this thread (copy it to keep it); lines
 * longer than 4095 bytes are cut at a character boundary. Never blocks; never NULL. */
QRV_API const char* qrv_last_error_message(void);

/* The stable name of a result code: "OK", the C++ kind for the library's kinds
 * ("PrinterNotFoundException", ..., "OperationCancelledException", "PrinterException"), and
 * "NullArgument", "InvalidArgument", "NonzeroResult", "OutOfMemory", "InternalError"; "Unknown" for
 * any other number. Static storage; never blocks; never NULL. */
QRV_API const char* qrv_result_name(qrv_result result);

/* ---- library --------------------------------------------------------------------------------- */

/* The library's version, "MAJOR.MINOR.PATCH" (compare with QRV_VERSION_STRING of the header you
 * compiled with). Static storage; never blocks. */
QRV_API const char* qrv_version(void);

/* Frees a block that a qrv_ call returned. NULL is allowed and does nothing. Never blocks. */
QRV_API void qrv_free(void* block);

/* Log levels of the library's own log lines (failures are logged as warnings). */
enum { QRV_LOG_OFF = -1, QRV_LOG_ERROR = 0, QRV_LOG_WARNING = 1, QRV_LOG_INFO = 2 };

/* Lines at or below `level` are logged; QRV_LOG_OFF turns logging off. The default is warning, or
 * the QRV_LOG_LEVEL environment variable (off, error, warning, info). */
QRV_API qrv_result qrv_set_log_level(int32_t level);

/* Receives each logged line (UTF-8, valid during the call) instead of standard error (or the
 * QRV_LOG_FILE environment variable). It is called on the thread that logs: a caller's thread or
 * the status monitor thread, possibly several at once; it must not call into the library.
 * NULL restores the default. */
typedef void (*qrv_log_fn)(int32_t level, const char* line, void* user);
QRV_API qrv_result qrv_set_log_callback(qrv_log_fn callback, void* user);

/* ---- printers -------------------------------------------------------------------------------- */

/* One attached (or simulated) printer as discovery sees it. */
typedef struct qrv_printer_info {
    const char* name;         /* what qrv_open() takes: the print-queue name or, for a printer
                                 without a queue (Linux), the stable name "<model> (<serial>)" */
    const char* model;        /* "VELA QRV 410" or "VELA QRV 210" */
    const char* serial;       /* "" when the printer reports none */
    const char* channel_path; /* the printer channel's device path; "" when there is none */
    const char* status_path;  /* the HID status node; "" when there is none */
    uint32_t vendor_id;
    uint32_t product_id;
    int32_t is_queue_name; /* 1: `name` is a print-queue name; 0: the fallback name */
    int32_t is_virtual;    /* 1: registered through QRV_VIRTUAL_PRINTERS (a simulator) */
} qrv_printer_info;

/* The supported printers attached to this machine, real ones first, then those of
 * QRV_VIRTUAL_PRINTERS. Blocks on device enumeration and, on Linux, one request to the print
 * scheduler (at most 3 s to connect, 5 s to answer). `*printers` is one block: qrv_free() it. */
QRV_API qrv_result qrv_list_printers(qrv_printer_info** printers, size_t* count);

/* An open printer. Opaque; made by qrv_open(), released by qrv_close(). */
typedef struct qrv_printer qrv_printer;

/* Opens the printer of that exact (case-sensitive) name and starts listening to its status
 * reports. Blocks on discovery and one probe of the printer (up to about 4 s more when its channel
 * fails). Fails with QRV_ERROR_COMMUNICATION when no such printer is attached or it answers wrongly
 * ("QRVDeviceGateway::CreateQRVDevice(): Printer Communication Error '<name>': <reason>"), with
 * QRV_ERROR_PRINTER for other failures. On success `*printer` is the handle; on failure NULL. */
QRV_API qrv_result qrv_open(const char* name, qrv_printer** printer);

/* Stops listening, removes every subscription and releases the handle (NULL: nothing to do).
 * Blocks until the status monitor thread has stopped (at most 9 s). Not from inside a callback of
 * this handle: that fails with QRV_ERROR_PRINTER and leaves the handle open. */
QRV_API qrv_result qrv_close(qrv_printer* printer);

/* ---- status ---------------------------------------------------------------------------------- */

/* The status fields, in order; their numbers are the `kind` of a qrv_status_item. */
enum {
    QRV_ITEM_POWER = 0,
    QRV_ITEM_CASSETTE_DOOR = 1,
    QRV_ITEM_CASSETTE_PRESENCE = 2,
    QRV_ITEM_PRINT_HEAD_TEMPERATURE = 3,
    QRV_ITEM_CUTTER = 4,
    QRV_ITEM_LABEL = 5,
    QRV_ITEM_CASSETTE_MEMORY = 6,
    QRV_ITEM_PRINT = 7,
    QRV_ITEM_EXTERNAL_POWER = 8,
    QRV_ITEM_BATTERY = 9,
    QRV_ITEM_CHARGING = 10
};
#define QRV_STATUS_ITEM_COUNT 11

/* The values of each field. */
enum { QRV_POWER_OK = 0, QRV_POWER_LOW = 1, QRV_POWER_CRITICAL = 2, QRV_POWER_UNKNOWN = 3 };
enum { QRV_DOOR_CLOSED = 0, QRV_DOOR_OPEN = 1, QRV_DOOR_ERROR = 2, QRV_DOOR_UNKNOWN = 3 };
enum {
    QRV_CASSETTE_PRESENT = 0,
    QRV_CASSETTE_ABSENT = 1,
    QRV_CASSETTE_PRESENT_UNVERIFIED = 2,
    QRV_CASSETTE_UNKNOWN = 3,
    QRV_CASSETTE_INVALID = 4
};
enum { QRV_HEAD_NORMAL = 0, QRV_HEAD_WARM = 1, QRV_HEAD_HOT = 2, QRV_HEAD_UNKNOWN = 3, QRV_HEAD_INVALID = 4 };
enum {
    QRV_CUTTER_OK = 0,
    QRV_CUTTER_BUSY = 1,
    QRV_CUTTER_JAMMED = 2,
    QRV_CUTTER_BLADE_ERROR = 3,
    QRV_CUTTER_ERROR = 4,
    QRV_CUTTER_UNKNOWN = 5
};
enum {
    QRV_LABEL_OK = 0,
    QRV_LABEL_OUT = 1,
    QRV_LABEL_JAMMED = 2,
    QRV_LABEL_LOW = 3,
    QRV_LABEL_NOT_TAKEN = 4,
    QRV_LABEL_ERROR = 5,
    QRV_LABEL_UNKNOWN = 6
};
enum { QRV_MEMORY_OK = 0, QRV_MEMORY_UNREADABLE = 1, QRV_MEMORY_ERROR = 2, QRV_MEMORY_UNKNOWN = 3 };
enum {
    QRV_PRINT_IDLE = 0,
    QRV_PRINT_PRINTING = 1,
    QRV_PRINT_PAUSED = 2,
    QRV_PRINT_ABORTED = 3,
    QRV_PRINT_COOLING = 4,
    QRV_PRINT_ERROR = 5,
    QRV_PRINT_UNKNOWN = 6
};
enum {
    QRV_EXTERNAL_POWER_DISCONNECTED = 0,
    QRV_EXTERNAL_POWER_CONNECTED = 1,
    QRV_EXTERNAL_POWER_ERROR = 2,
    QRV_EXTERNAL_POWER_UNKNOWN = 3
};
enum {
    QRV_BATTERY_EMPTY = 0, /* 1..4: levels */
    QRV_BATTERY_FULL = 5,
    QRV_BATTERY_ERROR = 6,
    QRV_BATTERY_UNKNOWN = 7
};
enum { QRV_CHARGING_OFF = 0, QRV_CHARGING_ON = 1, QRV_CHARGING_ERROR = 2, QRV_CHARGING_UNKNOWN = 3 };

/* The whole status, one member per field, holding that field's value. */
typedef struct qrv_status {
    uint32_t power;
    uint32_t cassette_door;
    uint32_t cassette_presence;
    uint32_t print_head_temperature;
    uint32_t cutter;
    uint32_t label;
    uint32_t cassette_memory;
    uint32_t print;
    uint32_t external_power;
    uint32_t battery;
    uint32_t charging;
} qrv_status;

/* One field: its kind (QRV_ITEM_...) and its value. */
typedef struct qrv_status_item {
    uint32_t kind;
    uint32_t value;
} qrv_status_item;

/* Retried. Fills `*status`. */
QRV_API qrv_result qrv_get_status(qrv_printer* printer, qrv_status* status);

/* Retried. Only the conditions a user has to act on, in field order: power critical; door open or
 * in error; cassette absent; print head hot; cutter jammed, blade error or error; label out,
 * jammed, not taken or error; cassette memory unreadable or in error; print error; external power
 * error; battery empty or in error; charging error. `items` is the caller's array of
 * QRV_STATUS_ITEM_COUNT; `*count` tells how many were filled (0: nothing to act on). */
QRV_API qrv_result qrv_get_error_status(qrv_printer* printer, qrv_status_item* items, size_t* count);

/* Retried. 0, 20, 40, 60, 80 or 100; 0 when the battery reports an error or is unknown. */
QRV_API qrv_result qrv_get_battery_percentage(qrv_printer* printer, uint32_t* percent);
/* Retried. A QRV_BATTERY_..., QRV_CHARGING_... or QRV_EXTERNAL_POWER_... value. */
QRV_API qrv_result qrv_get_battery_status(qrv_printer* printer, uint32_t* battery);
QRV_API qrv_result qrv_get_charging_status(qrv_printer* printer, uint32_t* charging);
QRV_API qrv_result qrv_get_external_power_status(qrv_printer* printer, uint32_t* external_power);

/* ---- identity -------------------------------------------------------------------------------- */

/* One version text of the printer. */
typedef struct qrv_version_entry {
    const char* component; /* "OS", "Firmware", "Application", "Overall", "Auxiliary", "DeviceID",
                              "RootFS", in this order */
    const char* version;
} qrv_version_entry;

/* Retried. `*versions` is one block: qrv_free() it. */
QRV_API qrv_result qrv_get_versions(qrv_printer* printer, qrv_version_entry** versions, size_t* count);
/* Retried ("" when the printer gives none). `*id`: qrv_free() it. */
QRV_API qrv_result qrv_get_device_id(qrv_printer* printer, char** id);
/* The printer has no type query: "Not implemented yet!". Does not block. `*type`: qrv_free() it. */
QRV_API qrv_result qrv_get_printer_type(qrv_printer* printer, char** type);
/* Retried. The inserted cassette's identifier (SKU); "" when there is no cassette. qrv_free() it. */
QRV_API qrv_result qrv_get_cassette_id(qrv_printer* printer, char** id);

/* The printer's folders. */
enum { QRV_LIBRARY_IMAGE = 0, QRV_LIBRARY_JOB_FILE = 1, QRV_LIBRARY_TEMPLATE = 2, QRV_LIBRARY_UPDATE = 3 };

/* The printer path of one of its folders (QRV_LIBRARY_...; another number: QRV_ERROR_INVALID_ARGUMENT).
 * `*path`: qrv_free() it. */
QRV_API qrv_result qrv_get_library_path(qrv_printer* printer, int32_t library, char** path);

/* ---- control --------------------------------------------------------------------------------- */

/* Print orders; each is followed by a fixed 5 s pause while the printer acts. */
QRV_API qrv_result qrv_feed(qrv_printer* printer);
QRV_API qrv_result qrv_cut(qrv_printer* printer);
QRV_API qrv_result qrv_resume(qrv_printer* printer);
QRV_API qrv_result qrv_clear_errors(qrv_printer* printer);
QRV_API qrv_result qrv_clear_cutter_jam(qrv_printer* printer);
/* The printer leaves the USB bus and comes back after a while; reopen it then. */
QRV_API qrv_result qrv_reboot(qrv_printer* printer);

enum { QRV_CUT_EACH_LABEL = 0, QRV_CUT_AFTER_JOB = 1, QRV_CUT_NONE = 2 };
/* The printer decides how it cuts: the mode is checked (another number:
 * QRV_ERROR_INVALID_ARGUMENT) and otherwise ignored. Does not block. */
QRV_API qrv_result qrv_set_cutter_mode(qrv_printer* printer, int32_t mode);

/* ---- files ----------------------------------------------------------------------------------- */

/* Progress of a transfer: bytes of the host file moved so far, and the file's size. Called on the
 * calling thread, inside qrv_put/qrv_get/qrv_update, after each chunk. Return 0 to go on; any
 * other value asks to cancel, as qrv_cancel() does. */
typedef int32_t (*qrv_progress_fn)(uint64_t done, uint64_t total, void* user);

/* Copies host file `host_path` to `printer_path` on the printer. `progress` may be NULL. A file
 * of that name already on the printer: QRV_ERROR_INVALID_FILE_NAME. Blocks for the transfer and
 * the printer's completion poll (250 ms, then 500 ms steps). Cancelled: QRV_ERROR_CANCELLED, and
 * the printer stores nothing. */
QRV_API qrv_result qrv_put(qrv_printer* printer, const char* host_path, const char* printer_path,
                           qrv_progress_fn progress, void* user);

/* Copies `printer_path` from the printer to host file `host_path` (replaced when it exists). The
 * host file is written under a temporary name and renamed when complete: after a failure or a
 * cancel it is untouched (or absent). `progress` may be NULL. Blocks as qrv_put. */
QRV_API qrv_result qrv_get(qrv_printer* printer, const char* printer_path, const char* host_path,
                           qrv_progress_fn progress, void* user);

/* Asks the transfer that runs on this handle (qrv_put, qrv_get, the copy step of qrv_update) to
 * stop at its next chunk; that call then fails with QRV_ERROR_CANCELLED and the printer is ready
 * for the next call. A transfer that completes before it sees the request succeeds; without a
 * transfer running it has no effect. Only sets a flag: async-signal-safe (callable from a signal
 * handler), never blocks, any thread. It does not touch qrv_last_error_message(). Returns
 * QRV_ERROR_NULL_ARGUMENT for a NULL handle, else QRV_OK. */
QRV_API qrv_result qrv_cancel(qrv_printer* printer);

/* Renames (or moves) the printer file `old_path` to `new_path`. The printer's refusal comes back
 * as a file kind (QRV_ERROR_FILE_NOT_FOUND, QRV_ERROR_INVALID_FILE_NAME, ...) whose message names
 * both paths. Blocks for one transaction and the printer's completion poll. */
QRV_API qrv_result qrv_rename(qrv_printer* printer, const char* old_path, const char* new_path);
/* Deletes the printer file `printer_path`; failures as qrv_rename. Blocks as qrv_rename. */
QRV_API qrv_result qrv_delete(qrv_printer* printer, const char* printer_path);

/* One entry of a folder listing. */
typedef struct qrv_file_entry {
    const char* name; /* as the printer lists it, without the folder */
    int32_t is_directory;
    int32_t size; /* bytes, as the printer reports them */
} qrv_file_entry;

/* The entries of a printer folder. Blocks 1 s (fixed pause) before the listing. `*entries` is one
 * block: qrv_free() it. */
QRV_API qrv_result qrv_list_folder(qrv_printer* printer, const char* printer_path, qrv_file_entry** entries,
                                   size_t* count);

/* The printer's system log files, as full printer paths. Blocks like qrv_list_folder. `*paths` is
 * one block (the array and its strings): qrv_free() it. */
QRV_API qrv_result qrv_get_log_files(qrv_printer* printer, const char*** paths, size_t* count);

/* Free and used space of the printer's disk in whole KiB. Blocks for one transaction. */
QRV_API qrv_result qrv_get_disk_space(qrv_printer* printer, uint64_t* free_kib, uint64_t* used_kib);

/* ---- firmware update ------------------------------------------------------------------------- */

/* The steps of an update, each told as it begins. */
enum {
    QRV_UPDATE_WAITING_FOR_PRINTER = 0,
    QRV_UPDATE_COPYING = 1,
    QRV_UPDATE_APPLYING = 2,
    QRV_UPDATE_WAITING = 3,
    QRV_UPDATE_CLEANING_UP = 4,
    QRV_UPDATE_DONE = 5
};
/* Called on the calling thread, inside qrv_update(). */
typedef void (*qrv_update_phase_fn)(int32_t phase, void* user);

/* Installs the update package at host path `package_path` (absolute). Blocks at least 24 s (fixed
 * pauses while the printer installs) plus the copy and the waits for a busy updater. `phase` and
 * `progress` (the copy step, which can be cancelled) may be NULL; both get `user`. Do not unplug or
 * reboot the printer meanwhile. */
QRV_API qrv_result qrv_update(qrv_printer* printer, const char* package_path, qrv_update_phase_fn phase,
                              qrv_progress_fn progress, void* user);

/* ---- events ---------------------------------------------------------------------------------- */

/* The fields that changed, in field order (1 to QRV_STATUS_ITEM_COUNT items, valid during the
 * call). */
typedef void (*qrv_status_changed_fn)(const qrv_status_item* items, size_t count, void* user);

/* Why printing stopped. `issue` is a QRV_INTERRUPT_... value, `code` the printer's own code and
 * `value` the status record's 16-bit value. */
enum {
    QRV_INTERRUPT_CASSETTE_DOOR_OPEN = 0,
    QRV_INTERRUPT_CASSETTE_MISSING = 1,
    QRV_INTERRUPT_CASSETTE_MEMORY_ERROR = 2,
    QRV_INTERRUPT_LABEL_JAMMED = 3,
    QRV_INTERRUPT_LABEL_LOW = 4,
    QRV_INTERRUPT_BATTERY_LOW = 5,
    QRV_INTERRUPT_POWER_LOW = 6,
    QRV_INTERRUPT_POWER_CRITICAL = 7,
    QRV_INTERRUPT_CUTTER_BLADE_ERROR = 10,
    QRV_INTERRUPT_CUTTER_JAMMED_OR_LABEL_NOT_TAKEN = 11,
    QRV_INTERRUPT_OTHER_ERROR = 12
};
typedef void (*qrv_print_interrupt_fn)(uint32_t issue, uint32_t code, uint32_t value, void* user);

/* Names one subscription; never 0. */
typedef uint64_t qrv_subscription;

/* Subscribe to status changes or print interrupts of this printer. The callback runs on the
 * library's status monitor thread, one call after another, and must return quickly: the printer's
 * next report waits for it. `*subscription` names it for qrv_unsubscribe(). Never blocks except on
 * a brief internal lock; may be called from inside a callback (the new one is called from the
 * next report on). */
QRV_API qrv_result qrv_on_status_changed(qrv_printer* printer, qrv_status_changed_fn callback, void* user,
                                         qrv_subscription* subscription);
QRV_API qrv_result qrv_on_print_interrupt(qrv_printer* printer, qrv_print_interrupt_fn callback, void* user,
                                          qrv_subscription* subscription);

/* Ends a subscription (an unknown one: QRV_ERROR_INVALID_ARGUMENT). The callback is not called for
 * reports that arrive afterwards; a call that the monitor thread has already begun may still be
 * running when this returns. Allowed inside a callback, also its own. Never blocks except on a
 * brief internal lock. qrv_close() ends all subscriptions of its handle. */
QRV_API qrv_result qrv_unsubscribe(qrv_printer* printer, qrv_subscription subscription);

#ifdef __cplusplus
}
#endif

#endif /* QRV_QRV_H */
