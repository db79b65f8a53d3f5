// Scripts and data between coordinators: the object-model service answering messages, eval and sendData
// from a script of this process to siblings, and a sibling killed while data streams to it.

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "BrwCoordinator/BrwRemote/BrwRemoteRequestTask_abstract.h"
#include "BrwCoordinatorTestSupport.h"
#include "BrwMain/BrwLogRecorder.h"
#include "BrwParser/BrwOMScope.h"
#include "BrwParser/BrwOMStored.h"
#include "BrwService/BrwServiceOM.h"
#include "BrwTask/BrwParseScriptTask.h"

namespace {

using namespace BrwCoordinatorTests;

// Runs a script session in this process, turning the event loop until it has ended; its output.
std::string runScript(const std::string& script) {
    const auto session =
        ParseScriptTask::factory(script, "", OMScope::factory(nullptr, OMScope::READS_PARENT));
    EXPECT_TRUE(session && session->start());
    EXPECT_TRUE(runUntil([&] { return session->isTaskCompleted(); })) << script;
    return session->getOutput();
}

// Sends an object-model request from `sender` and waits for the EVAL_RESULT; its payload as a node.
std::shared_ptr<IOMNode> request(const std::shared_ptr<ServiceSampleForTests>& sender,
                                 const std::string& name, const std::string& service, OpCode opCode,
                                 const std::string& payload) {
    const size_t count = sender->getReceivedMessages().size() + 1;
    EXPECT_TRUE(queueTo(sender, name, service, opCode, payload));
    EXPECT_TRUE(runUntil([&] { return sender->getReceivedMessages().size() == count; }));
    auto reply = lastReceived(sender);
    EXPECT_EQ(reply->getOpCode(), OpCode::EVAL_RESULT);
    return reply->getAsOMNode();
}

std::string member(const std::shared_ptr<IOMNode>& node, const char* key) {
    return node && node->containsAttr(key) ? node->getOMNode(key)->toString() : "<missing>";
}

TEST(ObjectModelServiceTest, SampleAnswersASenderInThisProcessAndASiblingAlike) {
    Sibling sibling;
    ASSERT_TRUE(sibling.waitUntilListening());
    SampleTree tree;
    auto sender = tree.add("sender");
    for (const std::string& name : {InternalCoordinator::getCoordinatorName(), sibling.name()}) {
        auto reply = request(sender, name, ServiceOM::SAMPLE_INSTANCE_NAME, OpCode::EVAL,
                             "{clientSequenceNr: 17, script: \"return abc\"}");
        EXPECT_EQ(member(reply, "result"), "\"sampleValue\"") << name;
        EXPECT_EQ(member(reply, "success"), "true");
        EXPECT_EQ(member(reply, "clientSequenceNr"), "17");
        // Without a session the session keys say so, as truth values.
        EXPECT_EQ(member(reply, "serviceSessionId"), "false");
    }
    EXPECT_TRUE(terminateAndWait(sender, sibling.name()));
}

TEST(ObjectModelServiceTest, SessionsKeepTheirOwnVariablesUntilClosed) {
    SampleTree tree;
    auto sender = tree.add("sender");
    const std::string self = InternalCoordinator::getCoordinatorName();
    const std::string clientSession = "{11111111-2222-3333-4444-555555555555}";
    auto opened = request(sender, self, ServiceOM::DEFAULT_INSTANCE_NAME, OpCode::OPEN_SESSION,
                          "{clientSequenceNr: 1, clientSessionId: \"" + clientSession + "\"}");
    EXPECT_EQ(member(opened, "success"), "true");
    const std::string serviceSession = opened->getOMNode("serviceSessionId")->getAsString();
    EXPECT_TRUE(GUIDClass::isGUIDString(serviceSession)) << serviceSession;
    const std::string inSession = "clientSessionId: \"" + clientSession + "\"";
    auto set =
        request(sender, self, ServiceOM::DEFAULT_INSTANCE_NAME, OpCode::EVAL,
                "{clientSequenceNr: 2, " + inSession + ", script: \"sessionOnly = 5; sessionOnly * 2\"}");
    EXPECT_EQ(member(set, "result"), "10");
    EXPECT_EQ(member(set, "clientSessionId"), "true");
    auto outside = request(sender, self, ServiceOM::DEFAULT_INSTANCE_NAME, OpCode::EVAL,
                           "{clientSequenceNr: 3, script: \"sessionOnly\"}");
    EXPECT_EQ(member(outside, "result"), "error");
    auto closed = request(sender, self, ServiceOM::DEFAULT_INSTANCE_NAME, OpCode::CLOSE_SESSION,
                          "{clientSequenceNr: 4, " + inSession + "}");
    EXPECT_EQ(member(closed, "success"), "true");
    EXPECT_EQ(std::dynamic_pointer_cast<ServiceOM>(ServiceOM::factory())->getSessionCount(), 0u);
}

TEST(ObjectModelServiceTest, RequestsItCannotServeAreReportedAndAnsweredAsFailed) {
    SampleTree tree;
    auto sender = tree.add("sender");
    const std::string self = InternalCoordinator::getCoordinatorName();
    std::shared_ptr<IOMNode> reply;
    auto lines = LogRecorder::record(1, [&] {
        reply = request(sender, self, ServiceOM::DEFAULT_INSTANCE_NAME, OpCode::DATA_REQUEST,
                        "{clientSequenceNr: 5, data: 1}");
    });
    EXPECT_TRUE(LogRecorder::hasLineWith(lines, "no callBackID"));
    EXPECT_EQ(member(reply, "success"), "false");
    lines = LogRecorder::record(1, [&] {
        reply = request(sender, self, ServiceOM::DEFAULT_INSTANCE_NAME, OpCode::EVAL_RESULT, "{}");
    });
    EXPECT_TRUE(LogRecorder::hasLineWith(lines, "unhandled opcode"));
    lines = LogRecorder::record(1, [&] {
        reply = request(sender, self, ServiceOM::DEFAULT_INSTANCE_NAME, OpCode::DATA_REQUEST,
                        "{clientSequenceNr: 6, data: 1, callBackID: \"nobody.listens\"}");
    });
    EXPECT_TRUE(LogRecorder::hasLineWith(lines, "callBackID not found nobody.listens"));
    EXPECT_EQ(member(reply, "success"), "false");
    // A service for a scope of one's own answers under its own name.
    auto scope = OMScope::factory(nullptr, OMScope::READS_PARENT);
    ASSERT_TRUE(scope->set(*OMStored::factory("dummyValue")) || true);
    auto dummy = ServiceOM::factoryFromNameOMScope("sample.dummy", scope);
    ASSERT_TRUE(dummy);
    reply = request(sender, self, "sample.dummy", OpCode::EVAL, "{clientSequenceNr: 7, script: \"40 + 2\"}");
    EXPECT_EQ(member(reply, "result"), "42");
    EXPECT_TRUE(dummy->deregisterObject());
}

TEST(RemoteScriptTest, EvalStartsAConfiguredSiblingAndKeepsItsVariables) {
    const std::string name = BrwTests::uniqueName("net.braidwell.coordinator.beta");
    addConfig("[config." + name + "]\nappPath = '" + kBinary + "' -s\n");
    LaunchedSiblings launched(name);
    const std::string target = "\"brw:///" + name + "/default\"";
    const std::string output = runScript("eval(\"6 * 7\", " + target + ")\neval(\"kept = 3\", " + target +
                                         ")\neval(\"kept * 2\", " + target + ")\n");
    launched.note();
    EXPECT_EQ(output, "42\n3\n6\n");
    SampleTree tree;
    EXPECT_TRUE(terminateAndWait(tree.add("sender"), name));
}

// Counts the messages that reach the coordinator itself.
struct MessageCounter : EventListener {
    bool handleEvent(const std::string& handlerName, const std::shared_ptr<IObject>& eventObj) override {
        ++fCount;
        return EventListener::handleEvent(handlerName, eventObj);
    }
    int fCount = 0;
};

TEST(RemoteScriptTest, AnUnansweredEvalEndsAtItsTimeOutWhileTheProcessGoesOn) {
    Sibling sibling;
    ASSERT_TRUE(sibling.waitUntilListening());
    const std::string target = "\"brw:///" + sibling.name() + "/default\"";
    // The sibling answers after the caller has given up.
    const auto session = ParseScriptTask::factory("eval(\"yield(1500); 1\", " + target + ", 300)", "",
                                                  OMScope::factory(nullptr, OMScope::READS_PARENT));
    ASSERT_TRUE(session && session->start());
    EXPECT_EQ(runScript("1 + 1"), "2\n");
    EXPECT_FALSE(session->isTaskCompleted());
    ASSERT_TRUE(runUntil([&] { return session->isTaskCompleted(); }));
    EXPECT_EQ(session->getOutput(), "undefined\n");
    EXPECT_EQ(coordinator()->getPendingRequestCount(), 0u);
    // The late reply is taken, reported, and changes nothing.
    auto replies = std::make_shared<MessageCounter>();
    ASSERT_TRUE(
        coordinator()->attachDetachEventHandler(AttachDetach::ATTACH, "messageReceived", "test", replies));
    const auto lines =
        LogRecorder::record(2, [&] { EXPECT_TRUE(runUntil([&] { return replies->fCount > 0; })); });
    ASSERT_TRUE(coordinator()->attachDetachEventHandler(AttachDetach::DETACH, "messageReceived", "test"));
    EXPECT_TRUE(LogRecorder::hasLineWith(lines, "unmatched clientSessionId"));
    EXPECT_EQ(session->getOutput(), "undefined\n");
    SampleTree tree;
    EXPECT_TRUE(terminateAndWait(tree.add("sender"), sibling.name()));
}

// The sibling's handler of data requests appends each number to a file, flushed at once, so that what
// arrived survives its being killed.
std::string writeCountingHandler(const fs::path& countFile) {
    const fs::path script = fs::path(BrwTests::isolatedHome()) / (BrwTests::uniqueName("counter") + ".bwq");
    std::ofstream(script, std::ios::binary)
        << "setDataRequestCallBack(\"count\", function(n) { f = fileOpen(\"" << countFile.string()
        << "\", \"a\"); fileWrite(f, n + \"\\n\"); fileClose(f); })\n"
        << "setDataRequestCallBack(\"double\", function(n) { sendData(n * 2) })\n";
    return script.string();
}

std::vector<int> readNumbers(const fs::path& path) {
    std::vector<int> numbers;
    std::ifstream in(path);
    for (std::string line; std::getline(in, line);) {
        numbers.push_back(std::atoi(line.c_str()));
    }
    return numbers;
}

TEST(DataRequestTest, AHandlerOnASiblingRepliesToTheRequester) {
    const std::string name = BrwTests::uniqueName("net.braidwell.coordinator.handler");
    const fs::path countFile = fs::path(BrwTests::isolatedHome()) / (name + ".count");
    addConfig("[config." + name + "]\nappPath = '" + kBinary + "' -s -F '" + writeCountingHandler(countFile) +
              "'\n");
    LaunchedSiblings launched(name);
    const std::string target = "\"brw:///" + name + "/default\"";
    EXPECT_EQ(runScript("sendData(21, " + target + ", \"double\", 10000)\nsendData(\"x\", " + target +
                        ", \"unknown.id\", 10000)\n"),
              "42\nundefined\n");
    launched.note();
    SampleTree tree;
    EXPECT_TRUE(terminateAndWait(tree.add("sender"), name));
}

TEST(DataRequestTest, NothingQueuedIsLostWhenTheSiblingIsKilledMidStream) {
    constexpr int REQUEST_COUNT = 10000;
    const std::string name = BrwTests::uniqueName("net.braidwell.coordinator.victim");
    const fs::path countFile = fs::path(BrwTests::isolatedHome()) / (name + ".count");
    addConfig("[config." + name + "]\nappPath = '" + kBinary + "' -s -F '" + writeCountingHandler(countFile) +
              "'\n");
    LaunchedSiblings launched(name);
    const std::string target = "\"brw:///" + name + "/default\"";
    const auto session =
        ParseScriptTask::factory("i = 0; while (i < " + std::to_string(REQUEST_COUNT) + ") { sendData(i, " +
                                     target + ", \"count\", 0); i = i + 1 }",
                                 "", OMScope::factory(nullptr, OMScope::READS_PARENT));
    ASSERT_TRUE(session && session->start());
    // Killed once it has taken some, while the rest still waits at this end.
    ASSERT_TRUE(runUntil([&] {
        launched.note();
        return readNumbers(countFile).size() >= 200;
    }));
    const uint32_t victim = PidFile::readPublished(pidPathOf(name));
    ASSERT_NE(victim, 0u);
    ASSERT_TRUE(runUntil([&] { return session->isTaskCompleted(); }));
    auto proxy = SiblingCoordinator::getSiblingCoordinator(name);
    ASSERT_TRUE(proxy);
    ASSERT_EQ(::kill(static_cast<pid_t>(victim), SIGKILL), 0);
    // Counted once it is gone, without a turn of this loop meanwhile: what went into its pipe before is lost
    // with it, what is still queued here must all arrive.
    ASSERT_TRUE(BrwTests::waitFor([&] { return ! Process::isRunning(victim); }, 10000));
    // The head of a sending proxy is in the pipe already.
    const size_t queuedAtKill =
        proxy->getQueuedMessageCount() - (proxy->getSiblingState() == SiblingState::SENDING ? 1 : 0);
    ASSERT_GT(queuedAtKill, 0u);
    ASSERT_TRUE(runUntil([&] {
        launched.note();
        const std::vector<int> numbers = readNumbers(countFile);
        return ! numbers.empty() && numbers.back() == REQUEST_COUNT - 1;
    })) << readNumbers(countFile).size()
        << " arrived, the last " << readNumbers(countFile).back() << ", " << proxy->getQueuedMessageCount()
        << " queued, state " << static_cast<int>(proxy->getSiblingState());
    const std::vector<int> numbers = readNumbers(countFile);
    // What arrived came in order; what was still queued when the sibling died all came.
    EXPECT_TRUE(std::is_sorted(numbers.begin(), numbers.end()));
    const int firstQueued = REQUEST_COUNT - static_cast<int>(queuedAtKill);
    const auto fromQueued = std::lower_bound(numbers.begin(), numbers.end(), firstQueued);
    EXPECT_EQ(static_cast<size_t>(numbers.end() - fromQueued), queuedAtKill);
    EXPECT_NE(PidFile::readPublished(pidPathOf(name)), victim);
    SampleTree tree;
    EXPECT_TRUE(terminateAndWait(tree.add("sender"), name));
}

} // namespace
