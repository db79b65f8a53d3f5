#pragma once

#include "BrwMain/BrwTest.h"

namespace Brw {

// The pipes inside one process: the packets on the wire, strings whole through reader and writer, the pool
// of instances, the protocol errors that poison one connection, and the writer's retries and flushing.
class PipesTest : public Test {
public:
    PipesTest() : Test("PipesTest") {}
    std::string getClassTypeName() const override { return "Pipes"; }
    bool test() override;

private:
    static bool testPacketsOnTheWire();
    static bool testStringsArriveWhole();
    static bool testPoolOfInstances();
    static bool testProtocolErrorsPoisonOneConnection();
    static bool testWriterRetriesMissingReader();
    static bool testFlushingAndReconnecting();
};

} // namespace Brw
