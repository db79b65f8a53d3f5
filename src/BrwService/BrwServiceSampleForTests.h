#pragma once

#include <memory>
#include <string>
#include <vector>

#include "BrwService/BrwService_abstract.h"

namespace Brw {

// A service for tests: it takes every message, counts its slices and can be made busy.
class ServiceSampleForTests : public Service_abstract {
public:
    static constexpr const char* TYPENAME = "ServiceSampleForTests";
    static constexpr const char* SERVICE_NAME = "net.braidwell.service.test.sample";

    // A sample named `name` (the service name when empty), attached below `parentObj` when one is given.
    static std::shared_ptr<ServiceSampleForTests>
    factoryFromParentName(const std::shared_ptr<IObject>& parentObj, const std::string& name);
    // Nothing to register: tests make samples by name below a parent of their choice.
    [[nodiscard]] static bool registerDeregisterClass(RegisterDeregister registerDeregister);

    std::string typeName() const override { return TYPENAME; }
    std::string getServiceName() const override { return SERVICE_NAME; }
    bool isIdle() override { return ! fIsBusy && Service_abstract::isIdle(); }
    bool receiveMessage(const std::shared_ptr<IObject>& messageObj) override;
    void timeslice_yielding(const std::shared_ptr<Task>& task, bool& completed) override;

    // Queues an event for its next slice, as a service does for itself.
    [[nodiscard]] bool queueEventForTests(const std::shared_ptr<IObject>& eventObj) {
        return queueEvent(eventObj);
    }
    void setBusy(bool isBusy) { fIsBusy = isBusy; }
    const std::vector<std::shared_ptr<IObject>>& getReceivedMessages() const { return fReceivedMessages; }
    uint64_t getSliceCount() const { return fSliceCount; }

protected:
    explicit ServiceSampleForTests(std::string name) : Service_abstract(std::move(name)) {}
    friend class Object;

private:
    bool fIsBusy = false;                                    // not idle while set
    std::vector<std::shared_ptr<IObject>> fReceivedMessages; // in the order of arrival
    uint64_t fSliceCount = 0;                                // slices it had
};

// Samples made for one test, below the coordinator unless told otherwise; taken out of the tree at the end
// of the test.
class SampleTree {
public:
    SampleTree() = default;
    ~SampleTree();
    SampleTree(const SampleTree&) = delete;
    SampleTree& operator=(const SampleTree&) = delete;

    std::shared_ptr<ServiceSampleForTests> add(const std::string& name,
                                               const std::shared_ptr<IObject>& parent = nullptr);

private:
    std::vector<std::shared_ptr<ServiceSampleForTests>> fServices; // the services made, parents first
};

} // namespace Brw
