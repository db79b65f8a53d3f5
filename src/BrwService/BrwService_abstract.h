#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "BrwEvent/BrwEventSource.h"
#include "BrwService/BrwIService.h"
#include "BrwUtils/BrwHash.h"

namespace Brw {

class GUIDClass;

// The common base of services. A service keeps its children in two tables: those with a GUID, and those
// that have none yet (a GUID is handed out on the first request, which moves the child to the other table
// exactly once). A child is found by GUID, or by its name and its number among the children of that name:
// the numbers are ranks in a walk over the two tables, stable between attaches and detaches. A service
// owns the queue of its events and carries the cooperative time slice down the tree.
class Service_abstract : public virtual IService, public EventSource {
public:
    // A number that stands for none: of the root, and of a child that isn't there.
    static constexpr uint64_t NO_INDEX = ~uint64_t{0};

    std::string getName() const override { return fName.empty() ? getServiceName() : fName; }
    bool isIdle() override;
    bool hasParent() const override { return ! fParent.expired(); }
    std::shared_ptr<IObject> getParentObj() const override { return fParent.lock(); }
    [[nodiscard]] bool detachFromParent() override;
    [[nodiscard]] bool attachToParent(const std::shared_ptr<IObject>& parentObj) override;
    uint64_t getIndexInNameMap() const override;
    [[nodiscard]] bool attachChildObj(const std::shared_ptr<IObject>& childObj) override;
    [[nodiscard]] bool detachChildObj(const std::shared_ptr<IObject>& childObj) override;
    uint64_t getChildIndexInNameMap(const std::shared_ptr<IObject>& childObj) override;
    bool ownsChild(const std::shared_ptr<IObject>& childObj) const override;
    std::shared_ptr<IObject> getChild(const std::string& name, uint64_t index) override;
    std::vector<std::shared_ptr<IObject>> getChildren() const override;
    std::shared_ptr<IObject> getAddressObj() const override;
    // Fires "messageReceived" with the message at once. Overrides call this first.
    bool receiveMessage(const std::shared_ptr<IObject>& messageObj) override;
    // Delivers the events queued before this slice, then gives every child its slice.
    void timeslice_yielding(const std::shared_ptr<Task>& task, bool& completed) override;
    // A service gets its GUID on the first request, and moves to its parent's table of children that
    // have one.
    GUIDClass* createGUID() const override;
    // Out of the tree, with all its children, and out of the registry.
    bool deregisterObject() override;

protected:
    // The numbers of children by name, rebuilt on demand after attaches and detaches.
    struct NameEntry {
        std::vector<std::shared_ptr<IObject>> childByNumericalIndex;                          // by number
        std::unordered_map<const IObject*, uint64_t, FNV1aPointerHash> numericalIndexByChild; // by child
    };
    using RegisteredChildren = std::unordered_map<GUIDClass*, std::shared_ptr<IObject>, FNV1aPointerHash>;
    using UnregisteredChildren =
        std::unordered_map<const IObject*, std::shared_ptr<IObject>, FNV1aPointerHash>;

    explicit Service_abstract(std::string name = std::string()) : fName(std::move(name)) {}

    virtual void clearChildIndexLookupTables();
    [[nodiscard]] virtual bool refreshChildIndexLookupTables();
    [[nodiscard]] virtual bool refreshChildIndexInNameMap(const std::shared_ptr<IObject>& childObj);
    [[nodiscard]] virtual bool attachRegisteredChildObj(const std::shared_ptr<IObject>& childObj);
    [[nodiscard]] virtual bool attachUnregisteredChildObj(const std::shared_ptr<IObject>& childObj);
    [[nodiscard]] virtual bool detachRegisteredChildObj(const std::shared_ptr<IObject>& childObj);
    [[nodiscard]] virtual bool detachUnregisteredChildObj(const std::shared_ptr<IObject>& childObj);
    virtual uint64_t getChildCountByName(const std::string& name);
    virtual bool isRegisteredChild(const std::shared_ptr<IObject>& childObj) const;
    virtual bool isUnregisteredChild(const std::shared_ptr<IObject>& childObj) const;
    // Appends an event for the next time slice; nothing is delivered here.
    [[nodiscard]] virtual bool queueEvent(const std::shared_ptr<IObject>& eventObj);

    // The service's own shared pointer, reached through the registry as every writable self is.
    std::shared_ptr<IObject> getSelfObj() const;
    // True for the root of the tree, which has no parent and takes none.
    bool isRootService() const;

    std::weak_ptr<IObject> fParent; // empty for the root and for a detached service
    std::string fName;              // the instance's name when it differs from the service name

private:
    // Detaches and deregisters every child; false when one failed.
    [[nodiscard]] bool deregisterChildren();

    std::unique_ptr<RegisteredChildren> fRegisteredChildren;        // children with a GUID; made on first use
    std::unique_ptr<UnregisteredChildren> fUnregisteredChildren;    // children without one; made on first use
    bool fChildIndexLookupTablesDirty = false;                      // set by every attach and detach
    std::unordered_map<std::string, NameEntry, FNV1aHash> fNameMap; // child numbers by name
    std::vector<std::shared_ptr<IObject>> fEventQueue;              // events for the next time slice
};

} // namespace Brw
