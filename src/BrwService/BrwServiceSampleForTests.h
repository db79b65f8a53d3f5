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
    static constexpr const char* SERVICE_NAME = "net.braidwell.service.sample";

    // A sample named `name` (the service name when empty), attached below `parentObj` when one is given.
    static std::shared_ptr<ServiceSampleForTests>
    factory(const std::string& name = std::string(), const std::shared_ptr<IObject>& parentObj = nullptr);

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

} // namespace Brw
