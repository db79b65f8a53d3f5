#include "BrwFuzzRuntime.h"

#include <cstdio>
#include <cstdlib>

#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwData/BrwDataNull.h"
#include "BrwLogger/BrwLogger.h"
#include "BrwLogger/BrwScriptErrorLog.h"
#include "BrwMain/BrwMain.h"
#include "BrwParser/BrwOMContainerRegistry.h"
#include "BrwTask/BrwTask.h"
#include "BrwTestEnvironment.h"
#include "BrwUtils/BrwUtils.h"

namespace BrwFuzz {

namespace {

// Names the log level of a run; 0, no logging, when it is not set.
constexpr const char* LOG_LEVEL_VARIABLE = "BRW_FUZZ_LOG_LEVEL";

void tearDownRuntime() {
    Brw::tearDown();
    if (! Brw::verifyNoObjectLeft()) {
        std::fprintf(stderr, "runtime objects left at exit: %llu\n",
                     static_cast<unsigned long long>(Brw::Object::getObjectCount()));
        std::_Exit(EXIT_FAILURE);
    }
}

} // namespace

void startRuntime(const char* programName) {
    BrwTests::isolateHome();
    // Malformed input fails checks by the thousand: only crashes, leaks and hangs count here. A developer
    // who replays an input sets BRW_FUZZ_LOG_LEVEL to see them.
    const char* logLevel = std::getenv(LOG_LEVEL_VARIABLE);
    Brw::Logger::setLogLevel(logLevel != nullptr ? static_cast<int32_t>(Brw::Utils::toInt64(logLevel)) : 0);
    if (logLevel == nullptr) {
        Brw::ScriptErrorLog::setFile("/dev/null");
    }
    char* args[] = {const_cast<char*>(programName), nullptr};
    if (! Brw::InternalCoordinator::init(1, args)) {
        fail("the runtime did not start");
    }
    // Nothing outside the process wakes a task here: waiting for activity would only slow the fuzzer down.
    Brw::InternalCoordinator::fEventLoopSleepMicroseconds = 0;
    // Made on first use: made here, so that the first input that needs it isn't blamed for it.
    if (! Brw::DataNull::factory()) {
        fail("no DataNull");
    }
    std::atexit(tearDownRuntime);
}

void fail(const char* why) {
    std::fprintf(stderr, "%s\n", why);
    std::abort();
}

InputScope::InputScope()
    : fContainerMark(Brw::OMContainerRegistry::getMark()), fObjectCount(Brw::Object::getObjectCount()),
      fTaskCount(Brw::Task::getRegisteredTaskCount()) {}

InputScope::~InputScope() {
    Brw::OMContainerRegistry::releaseElementsSince(fContainerMark);
    if (Brw::Object::getObjectCount() != fObjectCount) {
        fail("the input left a runtime object behind");
    }
    if (Brw::Task::getRegisteredTaskCount() != fTaskCount) {
        fail("the input left a task behind");
    }
}

} // namespace BrwFuzz
