// Scripts of this process, the main coordinator, timed against a sibling coordinator that it launches:
// eval round trips, one after a rest, one-way data requests, and the first eval that has to start the
// sibling. Prints "key value" lines; bench/coordinators.sh makes the table. Run in a home of its own.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwMain/BrwMain.h"
#include "BrwParser/BrwOMScope.h"
#include "BrwTask/BrwParseScriptTask.h"

namespace {

using Brw::InternalCoordinator;
using Clock = std::chrono::steady_clock;

constexpr int ROUND_TRIPS = 10000;
constexpr int DATA_REQUESTS = 20000;
const std::string kSibling = "net.braidwell.coordinator.benchsibling";
const std::string kTarget = "\"brw:///" + kSibling + "/default\"";

std::shared_ptr<InternalCoordinator> coordinator() {
    return std::dynamic_pointer_cast<InternalCoordinator>(InternalCoordinator::factory());
}

// Runs a script session to its end through the event loop; its output.
std::string run(const std::string& script) {
    const auto session =
        Brw::ParseScriptTask::factory(script, "", Brw::OMScope::factory(nullptr, Brw::OMScope::READS_PARENT));
    if (! session || ! session->start()) {
        return "";
    }
    while (! session->isTaskCompleted()) {
        if (! coordinator()->runEventLoop(InternalCoordinator::getEventLoopMicroseconds())) {
            return "";
        }
    }
    return session->getOutput();
}

double microsecondsOf(Clock::duration duration) {
    return std::chrono::duration<double, std::micro>(duration).count();
}

} // namespace

int main(int, char** argv) {
    const std::string home = std::getenv("HOME");
    const std::string config = home + "/bench.ini";
    const std::string handler = home + "/handler.bwq";
    std::ofstream(handler) << "received = 0\nsetDataRequestCallBack(\"sink\", function(n) { received = received + 1 })\n";
    std::ofstream(config) << "[config." << kSibling << "]\nappPath = '" << BRW_BINARY_PATH << "' -s -F '" << handler
                          << "'\n";
    std::string program = argv[0], configSwitch = "-c";
    char* args[] = {program.data(), configSwitch.data(), const_cast<char*>(config.c_str()), nullptr};
    if (! InternalCoordinator::init(3, args)) {
        fprintf(stderr, "the coordinator did not start\n");
        return 1;
    }
    const std::string evalOne = "eval(\"1\", " + kTarget + ")";
    // The first call starts the sibling.
    Clock::time_point start = Clock::now();
    const std::string first = run(evalOne);
    printf("launch_to_answer_ms %.1f\n", microsecondsOf(Clock::now() - start) / 1000);
    if (first != "1\n") {
        fprintf(stderr, "unexpected answer: %s\n", first.c_str());
        return 1;
    }
    std::vector<double> times;
    for (int i = 0; i < ROUND_TRIPS; ++i) {
        start = Clock::now();
        run(evalOne);
        times.push_back(microsecondsOf(Clock::now() - start));
    }
    std::sort(times.begin(), times.end());
    printf("eval_median_us %.1f\n", times[times.size() / 2]);
    printf("eval_p99_us %.1f\n", times[times.size() * 99 / 100]);
    std::this_thread::sleep_for(std::chrono::seconds(1));
    start = Clock::now();
    run(evalOne);
    printf("eval_rested_us %.1f\n", microsecondsOf(Clock::now() - start));
    // One way: the requests go out without waiting; the time runs until the sibling has handled them all.
    start = Clock::now();
    run("i = 0; while (i < " + std::to_string(DATA_REQUESTS) + ") { sendData(i, " + kTarget +
        ", \"sink\", 0); i = i + 1 }");
    while (run("eval(\"received\", " + kTarget + ")") != std::to_string(DATA_REQUESTS) + "\n") {
    }
    printf("send_data_per_s %.0f\n", DATA_REQUESTS / (microsecondsOf(Clock::now() - start) / 1e6));
    run("eval(\"quit()\", " + kTarget + ", true)");
    Brw::tearDown();
    return 0;
}
