#pragma once

#include <memory>
#include <string>

#include "BrwData/BrwIData.h"
#include "BrwMessage/BrwOpCode.h"

namespace Brw {

class IOMNode;

// What travels between services, in a process and between coordinators: from whom, to whom, what kind,
// and a payload of script text.
class IMessage : public virtual IData {
public:
    virtual const std::shared_ptr<const IObject>& getSenderAddressObj() const = 0;
    virtual const std::shared_ptr<const IObject>& getReceiverAddressObj() const = 0;
    virtual OpCode getOpCode() const = 0;
    virtual const std::string& getPayloadStr() const = 0;
    // The payload parsed as script text into a new value; null for an empty payload.
    virtual std::shared_ptr<IOMNode> getAsOMNode() const = 0;
    // Replaces the receiver: only the router does, to keep the resolved form.
    [[nodiscard]] virtual bool
    setReceiverAddressObj(const std::shared_ptr<const IObject>& newReceiverAddressObj) = 0;
};

} // namespace Brw
