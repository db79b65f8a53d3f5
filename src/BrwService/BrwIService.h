#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "BrwEvent/BrwIEventSource.h"
#include "BrwService/BrwIAddressable.h"
#include "BrwService/BrwIReceiver.h"
#include "BrwService/BrwITimeConsumer.h"

namespace Brw {

// A node of the tree of services of a process: it has a parent (but the root), children found by name and
// number or by GUID, an address, and takes messages.
class IService : public virtual IAddressable,
                 public virtual IReceiver,
                 public virtual IEventSource,
                 public virtual ITimeConsumer {
public:
    // What kind of service it is, such as "net.braidwell.service.null".
    virtual std::string getServiceName() const = 0;
    // The instance's name: its own when it has one, else the service name.
    virtual std::string getName() const = 0;
    // True when nothing is moving below it.
    virtual bool isIdle() = 0;
    virtual bool hasParent() const = 0;
    virtual std::shared_ptr<IObject> getParentObj() const = 0;
    [[nodiscard]] virtual bool detachFromParent() = 0;
    [[nodiscard]] virtual bool attachToParent(const std::shared_ptr<IObject>& parentObj) = 0;
    // Its number among the children of its name; all ones for the root and when unknown.
    virtual uint64_t getIndexInNameMap() const = 0;
    [[nodiscard]] virtual bool attachChildObj(const std::shared_ptr<IObject>& childObj) = 0;
    [[nodiscard]] virtual bool detachChildObj(const std::shared_ptr<IObject>& childObj) = 0;
    virtual uint64_t getChildIndexInNameMap(const std::shared_ptr<IObject>& childObj) = 0;
    virtual bool ownsChild(const std::shared_ptr<IObject>& childObj) const = 0;
    // The child of that name and number, or null.
    virtual std::shared_ptr<IObject> getChild(const std::string& name, uint64_t index) = 0;
    // The children with a GUID first, then the others.
    virtual std::vector<std::shared_ptr<IObject>> getChildren() const = 0;
};

} // namespace Brw
