// brw_pipe_bench: the pipes between two processes, timed. Each side reads its own pipe and writes the
// other's, in a loop that sleeps in Pipes::waitForActivity with a 5 ms cap, as a coordinator would.
// Prints one "name value" line per figure; bench/transport.sh puts them in a table.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwCoordinator/BrwPipes/BrwPipes.h"
#include "BrwCoordinator/BrwPipes/BrwReadPipe.h"
#include "BrwCoordinator/BrwPipes/BrwWritePipe.h"

namespace {

using namespace Brw;
using SteadyClock = std::chrono::steady_clock;

constexpr int64_t LOOP_CAP_MICROSECONDS = 5000;
constexpr int ROUND_TRIPS = 10000;
constexpr int WARM_UP_ROUND_TRIPS = 200;
constexpr int RESTED_ROUND_TRIPS = 5;
constexpr auto REST = std::chrono::seconds(1);
constexpr size_t SMALL_SIZE = 64;
constexpr size_t LARGE_SIZE = 65536;
constexpr int SMALL_COUNT = 200000;
constexpr int LARGE_COUNT = 2000;
// The lines that steer the other side.
const std::string kSink = "sink\n"; // count what comes, say "got N" at each "fence"
const std::string kFence = "fence\n";
const std::string kQuit = "quit\n";

// A line of `size` characters, the line feed last.
std::string line(size_t size, char fill) {
    return std::string(size - 1, fill) + "\n";
}

struct Side {
    int fReadHandle = 0;
    int fWriteHandle = 0;

    // Turns the loop until `onLine` returns true for a line read.
    void serveUntil(const std::function<bool(std::string&)>& onLine) const {
        std::string text;
        bool readComplete = false;
        for (;;) {
            WritePipe::timeslice();
            ReadPipe::timeslice();
            while (Pipes::readFromNamedPipe(text, fReadHandle, readComplete, '\n') && readComplete) {
                if (onLine(text)) {
                    return;
                }
            }
            Pipes::waitForActivity(LOOP_CAP_MICROSECONDS, {});
        }
    }
    void send(const std::string& text) const { (void)Pipes::writeToNamedPipe(fWriteHandle, text); }
};

int openWhenThere(const std::string& path) {
    while (! Pipes::namedPipeExists(path)) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return Pipes::openWriteNamedPipe(path);
}

// The other side: echoes, or counts in sink mode, until told to quit.
void runEcho(const std::string& ownPath, const std::string& peerPath) {
    Side side;
    side.fReadHandle = Pipes::openReadNamedPipe(ownPath);
    side.fWriteHandle = openWhenThere(peerPath);
    bool isSink = false;
    uint64_t count = 0;
    side.serveUntil([&](std::string& text) {
        if (text == kQuit) {
            return true;
        }
        if (text == kSink) {
            isSink = true;
            count = 0;
        } else if (text == kFence) {
            side.send("got " + std::to_string(count) + "\n");
            isSink = false;
        } else if (isSink) {
            ++count;
        } else {
            side.send(text);
        }
        return false;
    });
    // What is queued goes before the process does.
    (void)Pipes::closeNamedPipe(side.fWriteHandle);
    while (! WritePipe::isAllIdle()) {
        WritePipe::timeslice();
        Pipes::waitForActivity(LOOP_CAP_MICROSECONDS, {});
    }
    Pipes::closeAll();
}

double microsecondsSince(SteadyClock::time_point start) {
    return std::chrono::duration<double, std::micro>(SteadyClock::now() - start).count();
}

double roundTrip(const Side& side, const std::string& text) {
    const auto start = SteadyClock::now();
    side.send(text);
    side.serveUntil([&](std::string& echoed) { return echoed == text; });
    return microsecondsSince(start);
}

double percentile(std::vector<double> values, double fraction) {
    std::sort(values.begin(), values.end());
    return values[std::min(values.size() - 1,
                           static_cast<size_t>(fraction * static_cast<double>(values.size())))];
}

// Strings per second of `count` strings of `size`, from the first write to the other side's count.
double throughput(const Side& side, size_t size, int count) {
    const std::string text = line(size, 't');
    side.send(kSink);
    const auto start = SteadyClock::now();
    for (int index = 0; index < count; ++index) {
        side.send(text);
    }
    side.send(kFence);
    side.serveUntil([&](std::string& reply) { return reply.rfind("got ", 0) == 0; });
    return count / (microsecondsSince(start) / 1e6);
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: brw_pipe_bench NAME\n");
        return 2;
    }
    const std::string folder = InternalCoordinator::getPipeFolderPath();
    const std::string ownPath = folder + argv[1] + ".a";
    const std::string peerPath = folder + argv[1] + ".b";
    // Before any pipe is open: a child mustn't share the parent's sockets.
    const pid_t child = fork();
    if (child == 0) {
        runEcho(peerPath, ownPath);
        return 0;
    }
    Side side;
    side.fReadHandle = Pipes::openReadNamedPipe(ownPath);
    side.fWriteHandle = openWhenThere(peerPath);
    const std::string small = line(SMALL_SIZE, 'r');
    for (int index = 0; index < WARM_UP_ROUND_TRIPS; ++index) {
        roundTrip(side, small);
    }
    std::vector<double> times;
    for (int index = 0; index < ROUND_TRIPS; ++index) {
        times.push_back(roundTrip(side, small));
    }
    printf("round_trip_median_us %.1f\n", percentile(times, 0.5));
    printf("round_trip_p99_us %.1f\n", percentile(times, 0.99));
    std::vector<double> rested;
    for (int index = 0; index < RESTED_ROUND_TRIPS; ++index) {
        std::this_thread::sleep_for(REST);
        rested.push_back(roundTrip(side, small));
    }
    printf("rested_round_trip_us %.1f\n", percentile(rested, 0.5));
    printf("small_strings_per_s %.0f\n", throughput(side, SMALL_SIZE, SMALL_COUNT));
    printf("large_mb_per_s %.0f\n", throughput(side, LARGE_SIZE, LARGE_COUNT) * LARGE_SIZE / 1e6);
    side.send(kQuit);
    (void)Pipes::closeNamedPipe(side.fWriteHandle);
    while (! WritePipe::isAllIdle()) {
        WritePipe::timeslice();
        Pipes::waitForActivity(LOOP_CAP_MICROSECONDS, {});
    }
    waitpid(child, nullptr, 0);
    Pipes::closeAll();
    return 0;
}
