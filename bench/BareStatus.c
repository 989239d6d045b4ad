/* The status exchange of `qrvctl status` and nothing around it: open the printer channel named on
 * the command line, write the status request, read the reply, print its status block in hex.
 * No library, no lock, no discovery: the floor a command-line status query is measured against,
 * process start included.
 *
 *   qrv-bench-bare-status CHANNEL_PATH
 *
 * Exit status 0 with the block printed; 1 with a message when the channel cannot be opened, the
 * printer stays silent for 3 s or the reply is not a status reply. */

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

enum { kHeaderSize = 7, kMaxReply = 4096, kTimeoutMs = 3000 };

/* Start byte, total length 9 (big-endian), request group 0x60, printer unit 0x10; then the
 * request marker and the query code. */
static const unsigned char kStatusRequest[] = {0xC3, 0x00, 0x00, 0x00, 0x09, 0x60, 0x10, 0x01, 0x80};

static int wait_for(int fd, short events) {
    struct pollfd p;
    p.fd = fd;
    p.events = events;
    p.revents = 0;
    for (;;) {
        const int ready = poll(&p, 1, kTimeoutMs);
        if (ready > 0) {
            return 0;
        }
        if (ready == 0 || errno != EINTR) {
            return -1;
        }
    }
}

static int write_all(int fd, const unsigned char* data, size_t size) {
    size_t done = 0;
    while (done < size) {
        const ssize_t n = write(fd, data + done, size - done);
        if (n > 0) {
            done += (size_t)n;
        } else if (n < 0 && errno != EINTR && errno != EAGAIN) {
            return -1;
        } else if (n < 0 && errno == EAGAIN && wait_for(fd, POLLOUT) != 0) {
            return -1;
        }
    }
    return 0;
}

static int read_exactly(int fd, unsigned char* buffer, size_t size) {
    size_t held = 0;
    while (held < size) {
        if (wait_for(fd, POLLIN) != 0) {
            return -1;
        }
        const ssize_t n = read(fd, buffer + held, size - held);
        if (n > 0) {
            held += (size_t)n;
        } else if (n == 0 || (errno != EINTR && errno != EAGAIN)) {
            return -1;
        }
    }
    return 0;
}

int main(int argc, char** argv) {
    unsigned char reply[kMaxReply];
    size_t total;
    size_t i;
    int fd;
    if (argc != 2) {
        fprintf(stderr, "usage: qrv-bench-bare-status CHANNEL_PATH\n");
        return 2;
    }
    fd = open(argv[1], O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) {
        fprintf(stderr, "qrv-bench-bare-status: cannot open %s: %s\n", argv[1], strerror(errno));
        return 1;
    }
    if (write_all(fd, kStatusRequest, sizeof kStatusRequest) != 0 ||
        read_exactly(fd, reply, kHeaderSize) != 0) {
        fprintf(stderr, "qrv-bench-bare-status: no reply from %s\n", argv[1]);
        close(fd);
        return 1;
    }
    total = ((size_t)reply[1] << 24) | ((size_t)reply[2] << 16) | ((size_t)reply[3] << 8) | reply[4];
    /* A status reply repeats the query code in byte 1 of its payload. */
    if (reply[0] != 0xC3 || total < kHeaderSize + 2 || total > kMaxReply ||
        read_exactly(fd, reply + kHeaderSize, total - kHeaderSize) != 0 || reply[kHeaderSize + 1] != 0x80) {
        fprintf(stderr, "qrv-bench-bare-status: not a status reply from %s\n", argv[1]);
        close(fd);
        return 1;
    }
    close(fd);
    printf("status:");
    for (i = kHeaderSize + 2; i < total; ++i) {
        printf(" %02x", reply[i]);
    }
    printf("\n");
    return 0;
}
