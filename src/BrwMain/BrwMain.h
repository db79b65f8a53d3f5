#pragma once

namespace Brw {

// The process's entry: brings the coordinator up, optionally runs the self-tests, hands the process to
// one loop, then tears everything down and checks that no runtime object is left. Returns 0 on every
// path: failures show in the log only.
int main(int argc, char** argv);

// Stays up until the coordinator is told to stop and is idle.
bool serverLoop();
// Runs for the grace time, then stops without waiting for idleness.
bool shortStartThenStopLoop();

// Drops every process-wide table, the coordinator first.
void tearDown();
// The leak check: true when no runtime object is left; otherwise logs one EXPECTED line.
bool verifyNoObjectLeft();

} // namespace Brw
