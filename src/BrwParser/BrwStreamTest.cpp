#include "BrwParser/BrwStreamTest.h"

#include <unistd.h>
#include <vector>

#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwParser/BrwIOStreamPrompted.h"
#include "BrwParser/BrwInputStreamConsole.h"
#include "BrwParser/BrwInputStreamStdIn.h"
#include "BrwParser/BrwOMStored.h"
#include "BrwParser/BrwOutputStreamString.h"
#include "BrwTask/BrwYielding.h"

namespace Brw {

namespace {

// Characters typed by a person: each one is preceded by `gapPolls` polls that find nothing; then the
// input ends.
class SlowInputStream : public virtual InputStream {
public:
    SlowInputStream(std::string text, int gapPolls)
        : fText(std::move(text)), fGapPolls(gapPolls), fPollsLeft(gapPolls) {}

    bool next() override {
        if (fPollsLeft > 0 || fPos >= fText.size()) {
            return false;
        }
        ++fPos;
        fPollsLeft = fGapPolls;
        return true;
    }
    bool clear() override { return true; }
    int getChar() override {
        if (fPollsLeft > 0) {
            --fPollsLeft;
            return NOTHING_YET;
        }
        if (fPos < fText.size()) {
            return static_cast<unsigned char>(fText[fPos]);
        }
        setAtEOF();
        return AT_END;
    }
    uint64_t getPos() const override { return fPos; }
    bool setPos(uint64_t pos) override { return pos == fPos; }

    size_t getConsumed() const { return fPos; }

private:
    std::string fText; // everything that will be typed
    size_t fPos = 0;   // characters consumed
    int fGapPolls;     // empty polls before each character
    int fPollsLeft;    // empty polls before the next character
};

// Reads its stream to the end as a parser does, peeking with the wait and then consuming. For each
// character it notes the stream position and how much its source had consumed by then.
class ReaderTask : public Task {
public:
    ReaderTask(const std::shared_ptr<InputStream>& stream, const SlowInputStream* source)
        : Task("ReaderTask", -2, stream), fSource(source) {}

    static std::shared_ptr<ReaderTask> factory(const std::shared_ptr<InputStream>& stream,
                                               const SlowInputStream* source = nullptr) {
        auto task = std::make_shared<ReaderTask>(stream, source);
        Task::registerTask(task);
        return task;
    }

    void timeslice() override { read_yielding(shared_from_this(), fSuccess); }

    void read_yielding(const std::shared_ptr<Task>& task, bool& success) {
        struct LocalVariableState : OMFunctionState {
            int c = InputStream::NOTHING_YET; // the character peeked
        };
        YIELDING_BEGIN(LocalVariableState, frame, success = false);
        while (frame->c != InputStream::AT_END) {
            YIELDING_CALL(fIOStream->getChar_yielding(task, frame->c));
            if (frame->c >= 0) {
                fText.push_back(static_cast<char>(frame->c));
                fPositions.push_back(fIOStream->getPos());
                fConsumedBySource.push_back(fSource != nullptr ? fSource->getConsumed() : 0);
                fIOStream->next();
            } else if (frame->c == InputStream::NOTHING_YET) {
                ++fNothingYetCount;
            }
        }
        success = true;
        YIELDING_END;
    }

    std::string fText;                     // what was read
    std::vector<uint64_t> fPositions;      // stream position of each character
    std::vector<size_t> fConsumedBySource; // source characters consumed when each was handed out
    int fNothingYetCount = 0;              // NOTHING_YET results handed to the reader
    bool fSuccess = false;                 // the end was reached

private:
    const SlowInputStream* fSource; // the slow source below, if any
};

// What is left to read in a string stream, read.
std::string drain(InputStream& stream) {
    std::string text;
    for (; stream.getChar() >= 0; stream.next()) {
        text.push_back(static_cast<char>(stream.getChar()));
    }
    return text;
}

void closeAll(int (&fds)[2]) {
    for (int fd : fds) {
        if (fd >= 0) {
            close(fd);
        }
    }
}

// Gives the task slices until it completes or `maxSlices` have run; true when it completed.
bool runUntilCompleted(const std::shared_ptr<Task>& task, int maxSlices = 1000) {
    for (int slice = 0; slice < maxSlices && ! task->isTaskCompleted(); ++slice) {
        if (! task->runTimeslice(1000)) {
            return false;
        }
    }
    return task->isTaskCompleted();
}

} // namespace

bool StreamTest::setup() {
    fSavedSleepMicroseconds = InternalCoordinator::fEventLoopSleepMicroseconds;
    fSavedPrompt = InternalCoordinator::fPrompt;
    fSavedPromptContinuation = InternalCoordinator::fPromptContinuation;
    InternalCoordinator::fEventLoopSleepMicroseconds = 0;
    InternalCoordinator::fPrompt = "> ";
    InternalCoordinator::fPromptContinuation = ". ";
    IOStreamPrompted::setConsumerTask(nullptr);
    return true;
}

bool StreamTest::teardown() {
    InternalCoordinator::fEventLoopSleepMicroseconds = fSavedSleepMicroseconds;
    InternalCoordinator::fPrompt = fSavedPrompt;
    InternalCoordinator::fPromptContinuation = fSavedPromptContinuation;
    IOStreamPrompted::setConsumerTask(nullptr);
    return true;
}

bool StreamTest::test() {
    REPORT_CLASS_TEST;
    bool allOK = true;
    allOK = testStringPositionsAcrossDiscardedText() && allOK;
    allOK = testStdInPipeNeverBlocks() && allOK;
    allOK = testMissingCharacterWaitsOrEnds() && allOK;
    allOK = testPromptedHandsOutWholeLines() && allOK;
    allOK = testPromptedBackspaceAndEcho() && allOK;
    allOK = testPromptWaitsForIdleConsumer() && allOK;
    allOK = testPromptNodeOrConfiguredPrompt() && allOK;
    return allOK;
}

bool StreamTest::testStringPositionsAcrossDiscardedText() {
    bool retVal = false;
    do {
        // What the output face takes, the input face reads.
        auto stream = std::make_shared<OutputStreamString>();
        CHECK_EQUAL(stream->getChar(), InputStream::NOTHING_YET);
        SANITY_CHECK(stream->write("abc"));
        CHECK_EQUAL(stream->getChar(), 'a');
        CHECK_EQUAL(stream->getChar(), 'a');
        SANITY_CHECK(stream->next() && stream->next() && stream->next() && ! stream->next());
        SANITY_CHECK(stream->setPos(1));
        CHECK_EQUAL(drain(*stream), "bc");
        // Caught up: the read text is dropped, out of reach, and positions go on counting.
        CHECK_EQUAL(stream->getBufferSize(), 0u);
        SANITY_CHECK(! stream->setPos(1));
        CHECK_EQUAL(stream->getPos(), 3u);
        SANITY_CHECK(stream->write("def"));
        SANITY_CHECK(stream->next());
        SANITY_CHECK(stream->compact());
        SANITY_CHECK(! stream->setPos(3) && ! stream->setPos(7));
        SANITY_CHECK(stream->setPos(6) && stream->setPos(4));
        CHECK_EQUAL(stream->getChar(), 'e');
        // The writer's end doesn't cut off what the reader has not reached.
        stream->setAtEOF();
        SANITY_CHECK(! stream->atEOF());
        CHECK_EQUAL(drain(*stream), "ef");
        CHECK_EQUAL(stream->getChar(), InputStream::AT_END);
        SANITY_CHECK(stream->atEOF());
        retVal = true;
    } while (false);
    return retVal;
}

bool StreamTest::testStdInPipeNeverBlocks() {
    bool retVal = false;
    int fds[2] = {-1, -1};
    do {
        SANITY_CHECK(pipe(fds) == 0);
        InputStreamStdIn stream(fds[0]);
        // An open pipe without data: a blocking read would hang here.
        CHECK_EQUAL(stream.getChar(), InputStream::NOTHING_YET);
        SANITY_CHECK(write(fds[1], "ab", 2) == 2);
        CHECK_EQUAL(drain(stream), "ab");
        CHECK_EQUAL(stream.getChar(), InputStream::NOTHING_YET);
        {
            LogLevelScope quiet(0);
            SANITY_CHECK(! stream.next());
        }
        SANITY_CHECK(! stream.setPos(1) && stream.setPos(2));
        SANITY_CHECK(write(fds[1], "c", 1) == 1);
        close(fds[1]);
        fds[1] = -1;
        CHECK_EQUAL(drain(stream), "c");
        CHECK_EQUAL(stream.getChar(), InputStream::AT_END);
        SANITY_CHECK(stream.atEOF());
        CHECK_EQUAL(stream.getPos(), 3u);
        retVal = true;
    } while (false);
    closeAll(fds);
    return retVal;
}

bool StreamTest::testMissingCharacterWaitsOrEnds() {
    bool retVal = false;
    do {
        // With asynchronous input the reader waits once, is handed NOTHING_YET, and comes back.
        auto source = std::make_shared<SlowInputStream>("q", 1);
        auto reader = ReaderTask::factory(source, source.get());
        SANITY_CHECK(reader->pushInteractionLevel(ASYNC_IO_ON));
        SANITY_CHECK(reader->runTimeslice(1000));
        CHECK_EQUAL(reader->getFunctionStateCount(), 2u);
        SANITY_CHECK(reader->isWaitingForInput());
        SANITY_CHECK(reader->runTimeslice(1000));
        CHECK_EQUAL(reader->fNothingYetCount, 1);
        CHECK_EQUAL(reader->fText, "q");
        SANITY_CHECK(runUntilCompleted(reader) && reader->fSuccess);
        // Without it a missing character is the end of the stream.
        auto plainSource = std::make_shared<SlowInputStream>("q", 1);
        auto plainReader = ReaderTask::factory(plainSource, plainSource.get());
        SANITY_CHECK(runUntilCompleted(plainReader));
        CHECK_EQUAL(plainReader->fText, "");
        SANITY_CHECK(plainSource->atEOF());
        retVal = true;
    } while (false);
    return retVal;
}

bool StreamTest::testPromptedHandsOutWholeLines() {
    bool retVal = false;
    do {
        auto source = std::make_shared<SlowInputStream>("ab\ncd\n", 3);
        auto output = std::make_shared<OutputStreamString>();
        auto prompted = std::make_shared<IOStreamPrompted>(source, output);
        auto reader = ReaderTask::factory(prompted, source.get());
        SANITY_CHECK(runUntilCompleted(reader));
        CHECK_EQUAL(reader->fText, "ab\ncd\n");
        // Nothing of a line is handed out before its line end was typed.
        CHECK_EQUAL(reader->fConsumedBySource, (std::vector<size_t>{3, 3, 3, 6, 6, 6}));
        CHECK_EQUAL(reader->fPositions, (std::vector<uint64_t>{0, 1, 2, 3, 4, 5}));
        SANITY_CHECK(prompted->atEOF());
        // One prompt for each line, and one before the end.
        CHECK_EQUAL(drain(*output), "> > > ");
        // A rollback stays within the current line.
        SANITY_CHECK(prompted->setPos(6) && ! prompted->setPos(5));
        retVal = true;
    } while (false);
    return retVal;
}

bool StreamTest::testPromptedBackspaceAndEcho() {
    bool retVal = false;
    int fds[2] = {-1, -1};
    do {
        SANITY_CHECK(pipe(fds) == 0);
        // A backspace on the empty line, then "ab", a delete that erases the b, and "c".
        const std::string typed = "\x7f"
                                  "ab\x7f"
                                  "c\n";
        SANITY_CHECK(write(fds[1], typed.data(), typed.size()) == static_cast<ssize_t>(typed.size()));
        close(fds[1]);
        fds[1] = -1;
        auto output = std::make_shared<OutputStreamString>();
        auto prompted =
            std::make_shared<IOStreamPrompted>(std::make_shared<InputStreamConsole>(1, fds[0]), output);
        auto reader = ReaderTask::factory(prompted);
        SANITY_CHECK(runUntilCompleted(reader));
        CHECK_EQUAL(reader->fText, "ac\n");
        CHECK_EQUAL(reader->fPositions, (std::vector<uint64_t>{0, 1, 2}));
        CHECK_EQUAL(drain(*output), "> ab\b\x1b[Kc\n> ");
        retVal = true;
    } while (false);
    closeAll(fds);
    return retVal;
}

bool StreamTest::testPromptWaitsForIdleConsumer() {
    bool retVal = false;
    do {
        auto consumer = ReaderTask::factory(std::make_shared<InputStreamString>());
        consumer->setWaitingForInput(false);
        IOStreamPrompted::setConsumerTask(consumer);
        auto source = std::make_shared<SlowInputStream>("x\ny\n", 3);
        auto output = std::make_shared<OutputStreamString>();
        auto prompted = std::make_shared<IOStreamPrompted>(source, output);
        auto reader = ReaderTask::factory(prompted, source.get());
        for (int slice = 0; slice < 100 && reader->fText.size() < 2; ++slice) {
            SANITY_CHECK(reader->runTimeslice(1000));
        }
        // Characters came while the consumer was busy: no prompt.
        CHECK_EQUAL(reader->fText, "x\n");
        SANITY_CHECK(output->getBufferSize() == 0 && ! prompted->isPromptShown());
        consumer->setWaitingForInput(true);
        SANITY_CHECK(runUntilCompleted(reader));
        CHECK_EQUAL(drain(*output), "> > ");
        IOStreamPrompted::setConsumerTask(nullptr);
        Task::deregisterTask(consumer->getTaskId());
        retVal = true;
    } while (false);
    return retVal;
}

bool StreamTest::testPromptNodeOrConfiguredPrompt() {
    bool retVal = false;
    do {
        auto output = std::make_shared<OutputStreamString>();
        auto prompted = std::make_shared<IOStreamPrompted>(std::make_shared<InputStreamString>(), output);
        auto task = ReaderTask::factory(prompted);
        prompted->setPromptNode(OMStored::factory(std::string("$ ")));
        SANITY_CHECK(prompted->showPrompt(task, false));
        prompted->setPromptNode(OMStored::factory(42));
        SANITY_CHECK(prompted->showPrompt(task, false));
        SANITY_CHECK(task->updateParsingNestLevel(1));
        SANITY_CHECK(prompted->showPrompt(task, false));
        prompted->setContinuationPromptNode(OMStored::factory(std::string()));
        SANITY_CHECK(prompted->showPrompt(task, false));
        CHECK_EQUAL(drain(*output), "$ > . ");
        Task::deregisterTask(task->getTaskId());
        retVal = true;
    } while (false);
    return retVal;
}

} // namespace Brw
