#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "BrwTask/BrwOMFunctionState.h"
#include "BrwUtils/BrwHash.h"

namespace Brw {

class IOMNode;
class InputStream;
class CallNodeAsFunctionForDataReplyTask;
class EvalThenSendMessageTask;
class HandleDataRequestTask;

enum AsyncIOType : int32_t {
    ASYNC_IO_INHERIT = 1, // decide by the stream, or ask the parent
    ASYNC_IO_ON = 2,
    ASYNC_IO_OFF = 3,
};

// The cooperative unit of work. A task runs its body in slices; resumable (`_yielding`) functions keep
// their frames in fFunctionStates, so that a wait unwinds the native stack to the scheduler and the next
// slice walks back in to where it stopped. Always held by a shared pointer.
class Task : public std::enable_shared_from_this<Task> {
public:
    using TaskMap = std::unordered_map<uint64_t, std::shared_ptr<Task>>;

    // A time-out of this value never expires; any other negative one means the default time-out.
    static constexpr int64_t NO_TIMEOUT = -2;
    // The time-out that follows the process's default time-out.
    static constexpr int64_t DEFAULT_TIMEOUT = -1;
    // A slice of this length runs the task to its end; any other negative one is a slice without limit.
    static constexpr int64_t RUN_TO_COMPLETION = -2;

    Task(const char* name, int64_t timeoutMicroseconds, const std::shared_ptr<InputStream>& stream);
    virtual ~Task();

    virtual bool runTimeslice_(int64_t timesliceMicroseconds);
    virtual bool hasPendingFunctionState() const { return fFunctionStateIndex < fFunctionStates.size(); }
    virtual void exit();
    virtual void yieldAndSleep();
    // The nearest task of each kind that carries a remote party's request, this task included, walking
    // the parents: how a script finds whom it answers. Searched once, then kept. Each is defined beside
    // its class, which the tasks of this folder don't know.
    virtual std::shared_ptr<CallNodeAsFunctionForDataReplyTask> getCallNodeAsFunctionForDataReplyTask();
    virtual std::shared_ptr<EvalThenSendMessageTask> getEvalThenSendMessageTask();
    virtual std::shared_ptr<HandleDataRequestTask> getHandleDataRequestTask();
    virtual std::shared_ptr<InputStream> getIOStream();
    virtual bool isExitRequested() const { return fIsExitRequested; }
    virtual bool isInTimeslice() const { return fIsInTimeslice; }
    virtual bool isTaskCompleted() const { return fIsTaskCompleted; }
    virtual bool isWaitingForInput() const { return fIsWaitingForInput; }
    virtual const std::string& getName() const { return fName; }
    virtual std::shared_ptr<Task> getParentTask() const { return fParentTask.lock(); }
    virtual uint64_t getParsingNestLevel() const { return fParsingNestLevel; }
    virtual std::shared_ptr<IOMNode> getResult();
    virtual bool getDefaultResult() const { return fDefaultResult; }
    virtual uint64_t getTaskId() const { return fTaskId; }
    virtual void handleChildCompletion(const std::shared_ptr<Task>& childTask);
    virtual void handleCompletion();
    virtual bool isIdle();
    // True when the running function must stop at its next check: the slice is used up or the task has
    // timed out. Reads the clock.
    virtual bool isYieldDue();
    // True when the task has timed out; reads the clock only when it has a deadline. Unlike isYieldDue,
    // a used-up slice doesn't count.
    bool isPastDeadline();
    virtual AsyncIOType popInteractionLevel();
    virtual bool pushInteractionLevel(AsyncIOType level);
    // The last act of every resumable function: keeps its frame for resumption, or drops it when the
    // function finished or the task timed out.
    virtual bool releaseFunctionState(const OMFunctionState* state);
    virtual bool runTimeslice(int64_t timesliceMicroseconds);
    virtual bool runToCompletion() { return runTimeslice(RUN_TO_COMPLETION); }
    virtual void registerChildTask(const std::shared_ptr<Task>& childTask);
    virtual void setParentTask(const std::shared_ptr<Task>& parent) { fParentTask = parent; }
    virtual bool setExitRequested(bool isExitRequested);
    virtual void setKeptAlive(bool isKeptAlive) { fIsKeptAlive = isKeptAlive; }
    virtual void setWaitingForInput(bool isWaitingForInput) { fIsWaitingForInput = isWaitingForInput; }
    virtual void setName(const std::string& name);
    virtual void setResult(const std::shared_ptr<IOMNode>& result) { fResult = result; }
    virtual void yield() { fIsTimesliceOver = true; }
    // The task's body: calls its top-level resumable function once.
    virtual void timeslice() = 0;
    virtual bool updateParsingNestLevel(int step);
    // The parser gave up the statement it reads because it passed a limit: until the statement loop
    // takes the mark back, the constructs around the point add no messages of their own.
    void setStatementAbandoned(bool isAbandoned) { fIsStatementAbandoned = isAbandoned; }
    bool isStatementAbandoned() const { return fIsStatementAbandoned; }
    virtual bool usesAsyncIO();

    static void registerTask(const std::shared_ptr<Task>& task);
    static void deregisterTask(uint64_t taskId);
    static bool startTask(const std::shared_ptr<Task>& task);
    // Shares `availableMicroseconds` among the started tasks, the last started first; what a task leaves
    // unused goes to the next one, and the rest is handed back.
    static bool runActiveTasks(int64_t& availableMicroseconds);

    static std::shared_ptr<Task> getTaskById(uint64_t taskId);
    static std::shared_ptr<Task> getTaskByName(const std::string& name);
    static const std::vector<std::shared_ptr<Task>>& getActiveTasks() { return fActiveTasks; }
    static size_t getRegisteredTaskCount() { return fTasksById.size(); }
    // Drops every task: part of the process's teardown.
    static void deregisterAll();

    // Entry into a resumable function: the frame saved at this depth, or a new one of type Frame on the
    // first call (then `isFirstEntry` is set). See BrwYielding.h.
    template <class Frame>
    Frame* enterFunctionState(bool& isFirstEntry) {
        if (fFunctionStateIndex < fFunctionStates.size()) {
            OMFunctionState* state = fFunctionStates[fFunctionStateIndex++].get();
            return checkedFrameCast<Frame>(state);
        }
        isFirstEntry = true;
        fFunctionStates.push_back(std::make_unique<Frame>());
        ++fFunctionStateIndex;
        return static_cast<Frame*>(fFunctionStates.back().get());
    }

    // Number of frames saved now; tests look at it.
    size_t getFunctionStateCount() const { return fFunctionStates.size(); }
    bool isStarted() const { return fIsStarted; }
    bool isTimedOut() const { return fIsTimedOut; }
    bool isTimesliceOver() const { return fIsTimesliceOver; }
    int64_t getDeadline() const { return fDeadline; }
    int64_t getLastTimesliceEnd() const { return fLastTimesliceEnd; }
    void setEndWithChildren(bool isEndWithChildren) { fIsEndWithChildren = isEndWithChildren; }
    bool isEndWithChildren() const { return fIsEndWithChildren; }
    size_t getChildTaskCount() const { return fChildTasks.size(); }
    void setDefaultResult(bool defaultResult) { fDefaultResult = defaultResult; }
    AsyncIOType getInteractionLevel() const { return fInteractionLevel; }

protected:
    // The kinds of task that the getters of a request's context look for.
    enum class RequestContext : uint8_t {
        CALL_NODE_AS_FUNCTION_FOR_DATA_REPLY,
        EVAL_THEN_SEND_MESSAGE,
        HANDLE_DATA_REQUEST,
    };
    static constexpr size_t REQUEST_CONTEXT_COUNT = 3;
    // True for a task of that kind; the request tasks say so of themselves.
    virtual bool isRequestContext(RequestContext) const { return false; }
    // The nearest task of the kind, this one included; null when there is none.
    std::shared_ptr<Task> findRequestContext(RequestContext context);

    // A resumed frame must be of the type that the same function saved at this depth; anything else
    // means a function called its callees in another order than before, which can't be recovered from.
    template <class Frame>
    static Frame* checkedFrameCast(OMFunctionState* state) {
        auto* frame = dynamic_cast<Frame*>(state);
        if (frame == nullptr) {
            reportFrameMismatch();
        }
        return frame;
    }
    [[noreturn]] static void reportFrameMismatch();

    TaskMap fChildTasks{8};                                        // running children, by task id
    std::vector<std::unique_ptr<OMFunctionState>> fFunctionStates; // saved frames, outermost first
    std::shared_ptr<InputStream> fIOStream;           // stream given at construction, or made on request
    bool fIsWaitingForInput = true;                   // the body waits for a character
    AsyncIOType fInteractionLevel = ASYNC_IO_INHERIT; // whether a missing character is waited for
    std::vector<int> fInteractionLevelStack;          // saved levels
    bool fIsExitRequested = false;                    // complete at the end of this slice
    bool fIsInTimeslice = false;                      // runTimeslice is active: guards against re-entry
    int64_t fLastTimesliceEnd = 0;                    // clock at the end of the last slice, 0 at first
    bool fIsKeptAlive = false;                        // stay alive when idle
    bool fIsTaskCompleted = false;                    // ended; handleCompletion ran or runs
    bool fIsStarted = false;                          // timeslice has been called
    bool fIsTimedOut = false;                         // the deadline passed
    bool fIsEndWithChildren = false;                  // end as soon as no child is left; passed to children
    bool fIsTimesliceOver = false;                    // every resumable function stops at its next check
    bool fIsSleepRequested = false;                   // sleep once at the end of this pass
    uint64_t fFunctionStateIndex = 0;                 // frame to be entered next
    std::string fName;                                // task name; the class name by default
    std::weak_ptr<Task> fParentTask;                  // null for a root task
    uint64_t fParsingNestLevel = 0;                   // how deep the parser has nested on this task
    bool fIsStatementAbandoned = false;               // the parser gave up the statement being read
    bool fDefaultResult = false;                      // result when fResult is empty
    std::shared_ptr<IOMNode> fResult;                 // result of the task
    uint64_t fTaskId;                                 // from the process-wide counter; the first is 1
    int64_t fDeadline = 0;                            // absolute deadline, 0 for none
    int64_t fTimeoutMicroseconds; // NO_TIMEOUT, another negative: the default; else a limit
    int64_t fTimesliceEnd = 0;    // absolute end of this slice, 0 for none
    std::weak_ptr<Task> fFoundRequestContexts[REQUEST_CONTEXT_COUNT]; // see findRequestContext
    bool fIsRequestContextSearched[REQUEST_CONTEXT_COUNT] = {};       // the search was done

    static TaskMap fTasksById;                              // every registered task
    static std::vector<std::shared_ptr<Task>> fActiveTasks; // started tasks, in start order
    static std::unordered_map<std::string, uint64_t, FNV1aHash> fTaskIdsByName; // named tasks
    static uint64_t fNextTaskId;                                                // id of the next task
    static int fRunActiveTasksDepth;                                            // nesting of runActiveTasks

private:
    int64_t computeDeadline(int64_t now) const;
};

} // namespace Brw
