/* The floor under the pipes: the same round trips and one-way streams over a plain Unix domain stream
 * socket between two processes, with blocking calls and nothing around them. Prints "name value" lines
 * with the names of brw_pipe_bench. */

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

enum { ROUND_TRIPS = 10000, WARM_UP = 200, RESTED = 5, SMALL = 64, LARGE = 65536, SMALL_COUNT = 200000,
       LARGE_COUNT = 2000 };
enum { ROUND_TRIP = 'r', SINK_SMALL = 's', SINK_LARGE = 'l', QUIT = 'q' };

static double now_us(void) {
    struct timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return t.tv_sec * 1e6 + t.tv_nsec / 1e3;
}

static int io_all(int fd, char *buffer, size_t size, int is_write) {
    size_t done = 0;
    while (done < size) {
        ssize_t count = is_write ? write(fd, buffer + done, size - done) : read(fd, buffer + done, size - done);
        if (count <= 0) {
            return -1;
        }
        done += (size_t)count;
    }
    return 0;
}

/* The other side: a command byte, then echo one small message, or read count messages and say one byte. */
static void serve(int fd) {
    static char buffer[LARGE];
    char command;
    while (io_all(fd, &command, 1, 0) == 0 && command != QUIT) {
        if (command == ROUND_TRIP) {
            io_all(fd, buffer, SMALL, 0);
            io_all(fd, buffer, SMALL, 1);
        } else {
            size_t left = (size_t)(command == SINK_SMALL ? SMALL * (size_t)SMALL_COUNT : LARGE * (size_t)LARGE_COUNT);
            while (left > 0) {
                ssize_t count = read(fd, buffer, left < sizeof(buffer) ? left : sizeof(buffer));
                if (count <= 0) {
                    return;
                }
                left -= (size_t)count;
            }
            io_all(fd, &command, 1, 1);
        }
    }
}

static double round_trip(int fd) {
    static char message[1 + SMALL];
    double start = now_us();
    message[0] = ROUND_TRIP;
    io_all(fd, message, sizeof(message), 1);
    io_all(fd, message + 1, SMALL, 0);
    return now_us() - start;
}

static int compare(const void *a, const void *b) {
    double x = *(const double *)a, y = *(const double *)b;
    return x < y ? -1 : x > y;
}

static double per_second(int fd, char command, size_t size, int count) {
    static char message[LARGE];
    double start = now_us();
    io_all(fd, &command, 1, 1);
    for (int index = 0; index < count; ++index) {
        io_all(fd, message, size, 1);
    }
    io_all(fd, &command, 1, 0);
    return count / ((now_us() - start) / 1e6);
}

int main(void) {
    int fds[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, fds) != 0) {
        perror("socketpair");
        return 1;
    }
    pid_t child = fork();
    if (child == 0) {
        close(fds[0]);
        serve(fds[1]);
        return 0;
    }
    close(fds[1]);
    static double times[ROUND_TRIPS];
    for (int index = 0; index < WARM_UP; ++index) {
        round_trip(fds[0]);
    }
    for (int index = 0; index < ROUND_TRIPS; ++index) {
        times[index] = round_trip(fds[0]);
    }
    qsort(times, ROUND_TRIPS, sizeof(double), compare);
    printf("round_trip_median_us %.1f\n", times[ROUND_TRIPS / 2]);
    printf("round_trip_p99_us %.1f\n", times[ROUND_TRIPS * 99 / 100]);
    double rested[RESTED];
    for (int index = 0; index < RESTED; ++index) {
        sleep(1);
        rested[index] = round_trip(fds[0]);
    }
    qsort(rested, RESTED, sizeof(double), compare);
    printf("rested_round_trip_us %.1f\n", rested[RESTED / 2]);
    printf("small_strings_per_s %.0f\n", per_second(fds[0], SINK_SMALL, SMALL, SMALL_COUNT));
    printf("large_mb_per_s %.0f\n", per_second(fds[0], SINK_LARGE, LARGE, LARGE_COUNT) * LARGE / 1e6);
    char quit = QUIT;
    io_all(fds[0], &quit, 1, 1);
    waitpid(child, NULL, 0);
    return 0;
}
