/* A C program built against the installed qrv.h and library only, driving a qrv-sim process:
 *
 *     consumer PRINTER_NAME WORK_FOLDER
 *
 * A line "@sim <command>" on standard output asks the runner to pass <command> to the simulator's
 * standard input. Prints PASSED or the failed checks; exit status 0 only when all passed. */
#if !defined(_WIN32)
#define _POSIX_C_SOURCE 199309L
#endif
#include <qrv/qrv.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#ifdef _WIN32
#include <windows.h>
#define SEPARATOR "\\"
static void pause_ms(unsigned ms) {
    Sleep(ms);
}
#else
#include <time.h>
#define SEPARATOR "/"
static void pause_ms(unsigned ms) {
    struct timespec t = {ms / 1000, (long)(ms % 1000) * 1000000L};
    nanosleep(&t, NULL);
}
#endif

static int failures;
#define CHECK(cond)                                                                                          \
    do {                                                                                                     \
        if (!(cond)) {                                                                                       \
            fprintf(stderr, "line %d: %s failed (last message: %s)\n", __LINE__, #cond,                      \
                    qrv_last_error_message());                                                               \
            ++failures;                                                                                      \
        }                                                                                                    \
    } while (0)

struct progress {
    uint64_t done, total;
    int calls, ordered, cancel;
};

static int32_t on_progress(uint64_t done, uint64_t total, void* user) {
    struct progress* p = (struct progress*)user;
    p->ordered = p->ordered && done >= p->done && done <= total;
    p->done = done;
    p->total = total;
    ++p->calls;
    return p->cancel;
}

/* Written on the monitor thread, read here after pauses; C99 has no atomics, and a test that
 * waits in sleeps for a flag needs none in practice. */
static volatile int door_open_seen, door_interrupt_seen;

static void on_status(const qrv_status_item* items, size_t count, void* user) {
    size_t i;
    for (i = 0; i < count; ++i) {
        if (items[i].kind == QRV_ITEM_CASSETTE_DOOR && items[i].value == QRV_DOOR_OPEN && user == &failures) {
            door_open_seen = 1;
        }
    }
}

static void on_interrupt(uint32_t issue, uint32_t code, uint32_t value, void* user) {
    (void)code;
    (void)value;
    if (issue == QRV_INTERRUPT_CASSETTE_DOOR_OPEN && user == &failures) {
        door_interrupt_seen = 1;
    }
}

/* Writes `size` bytes of a fixed pattern, or with `check` tells whether the file holds exactly them. */
static int pattern_file(const char* path, size_t size, int check) {
    FILE* f = fopen(path, check ? "rb" : "wb");
    size_t i;
    int ok = f != NULL;
    for (i = 0; ok && i < size; ++i) {
        int byte = (int)((i * 131 + i / 4096) & 0xFF);
        ok = check ? fgetc(f) == byte : fputc(byte, f) == byte;
    }
    ok = ok && (!check || fgetc(f) == EOF);
    return f != NULL && fclose(f) == 0 && ok;
}

/* The size of `name` in a listing of `folder`, or -1 when it is not there. */
static long listed_size(qrv_printer* printer, const char* folder, const char* name) {
    qrv_file_entry* entries = NULL;
    size_t count = 0, i;
    long size = -1;
    CHECK(qrv_list_folder(printer, folder, &entries, &count) == QRV_OK);
    for (i = 0; i < count; ++i) {
        if (strcmp(entries[i].name, name) == 0 && !entries[i].is_directory) {
            size = entries[i].size;
        }
    }
    qrv_free(entries);
    return size;
}

static void simulator(const char* command) {
    printf("@sim %s\n", command);
    fflush(stdout);
}

int main(int argc, char** argv) {
    enum { kSmall = 300000, kLarge = 8 << 20 };
    char in[1024], out[1024], large[1024], file[1024], missing[1024], large_file[1024], expected[2048];
    qrv_printer_info* printers = NULL;
    qrv_printer* printer = NULL;
    qrv_status status;
    qrv_subscription on_change = 0, on_stop = 0;
    struct progress put = {0, 0, 0, 1, 0}, cancelled = {0, 0, 0, 1, 1};
    char* folder = NULL;
    size_t count = 0, i;
    int listed = 0, waits;
    if (argc != 3) {
        fprintf(stderr, "usage: consumer PRINTER_NAME WORK_FOLDER\n");
        return 2;
    }
    sprintf(in, "%s" SEPARATOR "in.bin", argv[2]);
    sprintf(out, "%s" SEPARATOR "out.bin", argv[2]);
    sprintf(large, "%s" SEPARATOR "large.bin", argv[2]);
    CHECK(strcmp(qrv_version(), QRV_VERSION_STRING) == 0);
    CHECK(qrv_open(NULL, &printer) == QRV_ERROR_NULL_ARGUMENT && printer == NULL &&
          strcmp(qrv_last_error_message(), "qrv_open(): null argument 'name'") == 0);

    CHECK(qrv_list_printers(&printers, &count) == QRV_OK);
    for (i = 0; i < count; ++i) {
        listed |= strcmp(printers[i].name, argv[1]) == 0 && printers[i].is_virtual &&
                  strcmp(printers[i].model, "VELA QRV 410") == 0;
    }
    CHECK(listed);
    qrv_free(printers);

    if (qrv_open(argv[1], &printer) != QRV_OK) {
        fprintf(stderr, "cannot open '%s': %s\n", argv[1], qrv_last_error_message());
        return 1;
    }
    CHECK(qrv_get_status(printer, &status) == QRV_OK && status.cassette_door == QRV_DOOR_CLOSED &&
          status.cassette_presence == QRV_CASSETTE_PRESENT && status.battery == 4);
    CHECK(qrv_on_status_changed(printer, on_status, &failures, &on_change) == QRV_OK);
    CHECK(qrv_on_print_interrupt(printer, on_interrupt, &failures, &on_stop) == QRV_OK);
    CHECK(qrv_get_library_path(printer, QRV_LIBRARY_IMAGE, &folder) == QRV_OK && folder != NULL);
    if (folder == NULL) {
        return 1;
    }
    sprintf(file, "%s/c-consumer.bin", folder);
    sprintf(missing, "%s/missing.bin", folder);
    sprintf(large_file, "%s/c-consumer-large.bin", folder);

    /* put with progress, get, compare, listing */
    CHECK(pattern_file(in, kSmall, 0) && pattern_file(large, kLarge, 0));
    CHECK(qrv_put(printer, in, file, on_progress, &put) == QRV_OK);
    CHECK(put.calls > 0 && put.ordered && put.done == kSmall && put.total == kSmall);
    CHECK(qrv_get(printer, file, out, NULL, NULL) == QRV_OK && pattern_file(out, kSmall, 1));
    CHECK(listed_size(printer, folder, "c-consumer.bin") == kSmall);

    /* an error: its code and its line */
    CHECK(qrv_get(printer, missing, out, NULL, NULL) == QRV_ERROR_FILE_NOT_FOUND);
    sprintf(expected, "QRVDeviceGateway::GetFile(): File not Found '%s': 'Wrong file name'", missing);
    CHECK(strcmp(qrv_last_error_message(), expected) == 0);
    CHECK(qrv_get_status(printer, &status) == QRV_OK && qrv_last_error_message()[0] == '\0');

    /* a status change and the print interrupt it means, on the monitor thread */
    simulator("door open");
    for (waits = 0; waits < 100 && !(door_open_seen && door_interrupt_seen); ++waits) {
        pause_ms(100);
    }
    CHECK(door_open_seen && door_interrupt_seen);
    simulator("door closed");
    CHECK(qrv_unsubscribe(printer, on_change) == QRV_OK && qrv_unsubscribe(printer, on_stop) == QRV_OK);
    CHECK(qrv_unsubscribe(printer, on_stop) == QRV_ERROR_INVALID_ARGUMENT);

    /* a large put cancelled from its progress callback leaves nothing; the next call works */
    CHECK(qrv_put(printer, large, large_file, on_progress, &cancelled) == QRV_ERROR_CANCELLED);
    CHECK(cancelled.calls >= 1 && cancelled.done < kLarge);
    CHECK(listed_size(printer, folder, "c-consumer-large.bin") == -1);
    CHECK(qrv_delete(printer, file) == QRV_OK && listed_size(printer, folder, "c-consumer.bin") == -1);

    qrv_free(folder);
    CHECK(qrv_close(printer) == QRV_OK);
    printf("%s\n", failures == 0 ? "PASSED" : "FAILED");
    return failures == 0 ? 0 : 1;
}
