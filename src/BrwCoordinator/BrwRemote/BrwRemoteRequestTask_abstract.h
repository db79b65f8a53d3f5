#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "BrwMessage/BrwOpCode.h"
#include "BrwTask/BrwTask.h"
#include "BrwUtils/BrwClock.h"

namespace Brw {

class IObject;
class OMScope;
class OMStored;

// A request to a service of another coordinator (or of this one) that may wait for its reply: the
// coordinator sends it under a sequence number of the process, keeps the task in its table of pending
// requests by that number, and the reply that repeats the number ends the wait. The wait has a time-out of
// its own rather than the task's, so that a callback still runs when no reply came; a reply that comes
// after it finds no task.
class RemoteRequestTask_abstract : public Task {
public:
    // A time-out of this value sends and doesn't wait for a reply.
    static constexpr int64_t NO_WAIT = 0;

    const std::shared_ptr<const IObject>& getTargetAddressObj() const { return fTargetAddressObj; }
    // The target as its URL, for the messages that name it.
    std::string getTargetURL() const;
    OpCode getOpCode() const { return fOpCode; }
    uint64_t getSequenceNumber() const { return fSequenceNumber; }
    const std::shared_ptr<OMScope>& getScope() const { return fScope; }
    int64_t getReplyTimeoutMicroseconds() const { return fReplyTimeoutMicroseconds; }
    // True when the request waits for a reply at all.
    bool isWaitingForReply() const { return fReplyTimeoutMicroseconds > NO_WAIT; }

    // The reply has come with this value; the next slice ends the wait.
    void handleReply(const std::shared_ptr<IOMNode>& replyNode, bool isSuccess);
    bool hasReply() const { return fHasReply; }
    // True when the reply came and said that the request succeeded.
    bool isReplySuccess() const { return fIsReplySuccess; }
    // The value of the reply: undefined until one came.
    const std::shared_ptr<IOMNode>& getReplyNode() const { return fReplyNode; }
    // True when the wait ended without a reply.
    bool isReplyTimedOut() const { return fIsReplyTimedOut; }
    // A script function called with the reply's value once the wait is over.
    void setCallBack(const std::shared_ptr<OMStored>& callBack) { fCallBack = callBack; }

    // Sends, waits when it does, and calls the callback.
    void timeslice() override;
    // Leaves the table of pending requests, whatever ended the task.
    void handleCompletion() override;

    // Waits for the reply of a request that was sent; sets `isDone` once the wait is over either way.
    void awaitReply_yielding(const std::shared_ptr<Task>& task, bool& isDone);
    // Starts this request as a child of `callerTask`, so that it ends with the caller at the latest.
    [[nodiscard]] bool startForCaller(const std::shared_ptr<Task>& callerTask);
    // The wait of the caller's `task` for the request it started; sets `isDone` once the request has ended.
    void awaitCompletion_yielding(const std::shared_ptr<Task>& task, bool& isDone);
    // What went wrong, for the person who asked, naming the target as `targetText`: the missing reply,
    // or `failedText` and the target when the reply says the request failed; empty after success.
    std::string getFailureText(const std::string& targetText, const char* failedText) const;

protected:
    RemoteRequestTask_abstract(const char* name, std::shared_ptr<const IObject> targetAddressObj,
                               OpCode opCode, int64_t replyTimeoutMicroseconds, uint64_t sequenceNumber,
                               std::shared_ptr<OMScope> scope);

    // Sends the request and waits for its reply, through the coordinator.
    virtual void sendAndWait_yielding(const std::shared_ptr<Task>& task, bool& completed) = 0;

private:
    void run_yielding(const std::shared_ptr<Task>& task, bool& success);

    std::shared_ptr<const IObject> fTargetAddressObj; // where the request goes
    OpCode fOpCode;                                   // of the request
    int64_t fReplyTimeoutMicroseconds;                // NO_WAIT, or how long a reply is waited for
    uint64_t fSequenceNumber;                         // the reply repeats it
    std::shared_ptr<OMScope> fScope;                  // of the script that sent it
    std::shared_ptr<OMStored> fCallBack;              // called with the reply, or null
    std::shared_ptr<IOMNode> fReplyNode;              // the reply's value
    bool fHasReply = false;                           // a reply came
    bool fIsReplySuccess = false;                     // the reply said the request succeeded
    bool fIsReplyTimedOut = false;                    // the wait ended without a reply
};

} // namespace Brw
