#pragma once

#include <memory>
#include <string>

#include "BrwService/BrwICoordinator.h"

namespace Brw {

// The stand-in of another coordinator process of this machine: it takes the messages for it, knows
// whether it runs, and may start it.
class ISiblingCoordinator : public virtual ICoordinator {
public:
    // The proxy path of the other's input pipe.
    virtual const std::string& getNamedPipePath() = 0;
    // True once the other has been seen to end; it stays true.
    virtual bool hasQuit() = 0;
    // True while the other's pipe is there and the process that published it lives.
    virtual bool isRunning() = 0;
    // Starts the other when nothing runs or is starting under its name; false when it can't be started.
    [[nodiscard]] virtual bool launchIfNotRunning() = 0;
    // Queues a message for the other; it never fails.
    virtual bool relayOutgoingMessage(const std::shared_ptr<const IObject>& messageObj) = 0;
};

} // namespace Brw
