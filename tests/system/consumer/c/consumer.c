/* A C program built against the installed qrv.h and library only, driving a qrv-sim process:
 *
 *     consumer PRINTER_NAME WORK_FOLDER
 *
 * Prints PASSED or the failed checks; exit status 0 only when all passed. */
#include <qrv/qrv.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#ifdef _WIN32
#define SEPARATOR "\\"
#else
#define SEPARATOR "/"
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

/* The bytes done as last reported. */
static int32_t on_progress(uint64_t done, uint64_t total, void* user) {
    (void)total;
    *(uint64_t*)user = done;
    return 0;
}

static void on_status(const qrv_status_item* items, size_t count, void* user) {
    (void)items;
    (void)count;
    (void)user;
}

static void on_interrupt(uint32_t issue, uint32_t code, uint32_t value, void* user) {
    (void)issue;
    (void)code;
    (void)value;
    (void)user;
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

int main(int argc, char** argv) {
    enum { kSmall = 300000 };
    char in[1024], out[1024], file[1024], missing[1024];
    qrv_printer_info* printers = NULL;
    qrv_printer* printer = NULL;
    qrv_status status;
    qrv_subscription on_change = 0;
    qrv_subscription on_jam = 0;
    uint64_t put = 0;
    char* folder = NULL;
    size_t count = 0;
    if (argc != 3) {
        fprintf(stderr, "usage: consumer PRINTER_NAME WORK_FOLDER\n");
        return 2;
    }
    sprintf(in, "%s" SEPARATOR "in.bin", argv[2]);
    sprintf(out, "%s" SEPARATOR "out.bin", argv[2]);
    CHECK(strcmp(qrv_version(), QRV_VERSION_STRING) == 0);
    CHECK(qrv_open(NULL, &printer) == QRV_ERROR_NULL_ARGUMENT && printer == NULL &&
          strcmp(qrv_last_error_message(), "qrv_open(): null argument 'name'") == 0);

    CHECK(qrv_list_printers(&printers, &count) == QRV_OK && count > 0);
    qrv_free(printers);

    if (qrv_open(argv[1], &printer) != QRV_OK) {
        fprintf(stderr, "cannot open '%s': %s\n", argv[1], qrv_last_error_message());
        return 1;
    }
    CHECK(qrv_get_status(printer, &status) == QRV_OK && status.cassette_door == QRV_DOOR_CLOSED &&
          status.cassette_presence == QRV_CASSETTE_PRESENT && status.battery == 4);
    CHECK(qrv_get_library_path(printer, QRV_LIBRARY_IMAGE, &folder) == QRV_OK && folder != NULL);
    if (folder == NULL) {
        return 1;
    }
    sprintf(file, "%s/c-consumer.bin", folder);
    sprintf(missing, "%s/missing.bin", folder);

    /* put with progress, get, compare */
    CHECK(pattern_file(in, kSmall, 0));
    CHECK(qrv_put(printer, in, file, on_progress, &put) == QRV_OK && put == kSmall);
    CHECK(qrv_get(printer, file, out, NULL, NULL) == QRV_OK && pattern_file(out, kSmall, 1));

    /* an error: its code and its line, emptied by the next success */
    CHECK(qrv_get(printer, missing, out, NULL, NULL) == QRV_ERROR_FILE_NOT_FOUND &&
          strstr(qrv_last_error_message(), missing) != NULL);
    CHECK(qrv_get_status(printer, &status) == QRV_OK && qrv_last_error_message()[0] == '\0');

    /* a subscription ends once, and only itself: each event counts its tokens from 1 */
    CHECK(qrv_on_status_changed(printer, on_status, NULL, &on_change) == QRV_OK);
    CHECK(qrv_on_print_interrupt(printer, on_interrupt, NULL, &on_jam) == QRV_OK);
    CHECK(qrv_unsubscribe(printer, on_jam) == QRV_OK);
    CHECK(qrv_unsubscribe(printer, on_change) == QRV_OK);
    CHECK(qrv_unsubscribe(printer, on_change) == QRV_ERROR_INVALID_ARGUMENT);
    CHECK(qrv_delete(printer, file) == QRV_OK);

    qrv_free(folder);
    CHECK(qrv_close(printer) == QRV_OK);
    printf("%s\n", failures == 0 ? "PASSED" : "FAILED");
    return failures == 0 ? 0 : 1;
}
