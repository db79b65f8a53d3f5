#pragma once

namespace Brw {

// The process's entry: brings the coordinator up, optionally runs the self-tests, hands the process to
// one loop, then tears everything down and checks that no runtime object is left. Returns 0 on every
// path: failures show in the log only.
int main(int argc, char** argv);

// Standard input, read by two tasks: the first joins and cleans raw lines into statements, the second
// evaluates them and prints the value of each statement that ends at a line end. Stops a grace time
// after the input has ended.
bool stdInLoop();
// A person at the console: one task reads, evaluates and echoes; the session ends with its input.
bool consoleLoop();
// Stays up until the coordinator is told to stop and is idle.
bool serverLoop();
// Runs for the grace time, then stops without waiting for idleness.
bool shortStartThenStopLoop();

// Drops every process-wide table, the coordinator first.
void tearDown();
// The leak check: true when no runtime object is left; otherwise logs one EXPECTED line.
bool verifyNoObjectLeft();

} // namespace Brw
