#include "BrwService/BrwServiceTest.h"

#include <algorithm>

#include "BrwAddress/BrwInternalAddress.h"
#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwEvent/BrwEvent.h"
#include "BrwEvent/BrwEventListener.h"
#include "BrwEvent/BrwIEvent.h"
#include "BrwMain/BrwLogRecorder.h"
#include "BrwMessage/BrwMessage.h"
#include "BrwService/BrwServiceSampleForTests.h"
#include "BrwTask/BrwCallTask.h"

namespace Brw {

namespace {

using SamplePtr = std::shared_ptr<ServiceSampleForTests>;

std::shared_ptr<IService> coordinatorService() {
    return std::dynamic_pointer_cast<IService>(InternalCoordinator::factory());
}

// One slice of the service, run to its end. The coordinator's own slice is its endless round: for it the
// walk down its tree.
bool runSlice(const std::shared_ptr<IService>& service) {
    bool completed = false;
    auto coordinator = std::dynamic_pointer_cast<InternalCoordinator>(service);
    return CallTask::call("slice",
                          [&](const std::shared_ptr<Task>& task) {
                              if (coordinator) {
                                  coordinator->Service_abstract::timeslice_yielding(task, completed);
                              } else {
                                  service->timeslice_yielding(task, completed);
                              }
                          }) &&
           completed;
}

// Queues an event when it hears one of its own events: the queued one must wait for the next slice.
class RequeueingListener : public EventListener {
public:
    explicit RequeueingListener(SamplePtr service) : fService(std::move(service)) {}

    bool handleEvent(const std::string& eventHandlerName, const std::shared_ptr<IObject>& eventObj) override {
        bool retVal = false;
        do {
            SANITY_CHECK(EventListener::handleEvent(eventHandlerName, eventObj));
            ASSIGN_TYPED(IEvent, event, eventObj);
            fHeard.push_back(event->getName());
            if (event->getName() == "first") {
                SANITY_CHECK(fService->queueEventForTests(Event::factoryFromNamePayload("second", nullptr)));
            }
            retVal = true;
        } while (false);
        return retVal;
    }

    SamplePtr fService;              // where "second" is queued
    std::vector<std::string> fHeard; // event names, in the order heard
};

} // namespace

bool ServiceTest::test() {
    REPORT_CLASS_TEST;
    bool allOK = testNamesakesAreNumberedByRank();
    allOK = testParentsAndChildren() && allOK;
    allOK = testGUIDsAreHandedOutOnRequest() && allOK;
    allOK = testEventsArriveInTheNextSlice() && allOK;
    allOK = testIdlenessAndMessages() && allOK;
    return allOK;
}

bool ServiceTest::testNamesakesAreNumberedByRank() {
    bool retVal = false;
    do {
        SampleTree tree;
        SamplePtr top = tree.add("top");
        SamplePtr first = tree.add("subtest", top);
        SamplePtr second = tree.add("subtest", top);
        SamplePtr other = tree.add("", top);
        SANITY_CHECK(top && first && second && other);
        // Both namesakes are there under 0 and 1, in either order; 2 is nothing.
        std::vector<std::shared_ptr<IObject>> found = {top->getChild("subtest", 0),
                                                       top->getChild("subtest", 1)};
        SANITY_CHECK(std::is_permutation(found.begin(), found.end(),
                                         std::vector<std::shared_ptr<IObject>>{first, second}.begin()));
        SANITY_CHECK(! top->getChild("subtest", 2));
        SANITY_CHECK(first->getIndexInNameMap() != second->getIndexInNameMap());
        // A child without a name of its own goes by the service name, and is first of it.
        SANITY_CHECK(top->getChild(ServiceSampleForTests::SERVICE_NAME, 0) == other);
        CHECK_EQUAL(other->getIndexInNameMap(), 0u);
        CHECK_EQUAL(coordinatorService()->getIndexInNameMap(), Service_abstract::NO_INDEX);
        // The path of names and numbers reaches the same service.
        const std::string path = "top/0/subtest/" + std::to_string(second->getIndexInNameMap());
        auto coordinator = std::dynamic_pointer_cast<IInternalCoordinator>(InternalCoordinator::factory());
        SANITY_CHECK(coordinator->resolveAddress(InternalAddress::factoryFromIndices(path)) == second);
        retVal = true;
    } while (false);
    return retVal;
}

bool ServiceTest::testParentsAndChildren() {
    bool retVal = false;
    do {
        SampleTree tree;
        SamplePtr left = tree.add("left");
        SamplePtr right = tree.add("right");
        SamplePtr child = tree.add("child", left);
        SANITY_CHECK(left && right && child);
        // Attaching again to the same parent changes nothing; to another it is refused.
        SANITY_CHECK(child->attachToParent(left));
        SANITY_CHECK(LogRecorder::failsWith([&] { return child->attachToParent(right); },
                                            "child of different parent"));
        SANITY_CHECK(LogRecorder::failsWith([&] { return right->attachChildObj(child); },
                                            "child of different parent"));
        SANITY_CHECK(left->ownsChild(child) && ! right->ownsChild(child) && child->getParentObj() == left);
        CHECK_EQUAL(left->getChildren().size(), 1u);
        // The coordinator is nobody's child, and can't be taken out of the tree.
        const std::shared_ptr<IObject> coordinator = InternalCoordinator::factory();
        SANITY_CHECK(LogRecorder::failsWith([&] { return left->attachChildObj(coordinator); },
                                            "cannot attach coordinator"));
        SANITY_CHECK(LogRecorder::failsWith([&] { return left->detachChildObj(coordinator); },
                                            "cannot detach coordinator"));
        SANITY_CHECK(coordinatorService()->attachToParent(left) && ! coordinatorService()->hasParent());
        // A detached child can join another parent.
        SANITY_CHECK(child->detachFromParent() && ! child->hasParent() && ! left->ownsChild(child));
        SANITY_CHECK(child->attachToParent(right) && right->ownsChild(child));
        SANITY_CHECK(child->detachFromParent());
        SANITY_CHECK(LogRecorder::failsWith([&] { return child->detachFromParent(); },
                                            "SANITY_CHECK failed: 'parent' evaluates to false"));
        retVal = true;
    } while (false);
    return retVal;
}

bool ServiceTest::testGUIDsAreHandedOutOnRequest() {
    bool retVal = false;
    do {
        SampleTree tree;
        SamplePtr parent = tree.add("parent");
        SamplePtr child = tree.add("child", parent);
        SANITY_CHECK(parent && child);
        SANITY_CHECK(! child->getGUID());
        const uint64_t indexBefore = child->getIndexInNameMap();
        // Asking for the address registers the child: it moves to the other table once, and stays owned.
        auto address = std::dynamic_pointer_cast<const IGUIDAddress>(child->getAddressObj());
        SANITY_CHECK(address && child->getGUID() && address->getAddressedGUID() == child->getGUID());
        SANITY_CHECK(address->getUpstreamCoordinatorGUID() == InternalCoordinator::getOwnGUID());
        SANITY_CHECK(parent->ownsChild(child));
        CHECK_EQUAL(child->getIndexInNameMap(), indexBefore);
        SANITY_CHECK(Object::getRegisteredObject(child->getGUID()) == child);
        CHECK_EQUAL(parent->getChildren().size(), 1u);
        // A service without a parent can't have one.
        SamplePtr orphan = ServiceSampleForTests::factoryFromParentName(nullptr, "orphan");
        SANITY_CHECK(orphan);
        SANITY_CHECK(LogRecorder::failsWith([&] { return orphan->createGUID(); }, "no parent"));
        SANITY_CHECK(orphan->deregisterObject());
        retVal = true;
    } while (false);
    return retVal;
}

bool ServiceTest::testEventsArriveInTheNextSlice() {
    bool retVal = false;
    do {
        SampleTree tree;
        SamplePtr service = tree.add("eventful");
        SANITY_CHECK(service);
        auto listener = std::make_shared<RequeueingListener>(service);
        SANITY_CHECK(service->attachDetachEventHandler(AttachDetach::ATTACH, "first", "requeue", listener));
        SANITY_CHECK(service->attachDetachEventHandler(AttachDetach::ATTACH, "second", "requeue", listener));
        SANITY_CHECK(service->queueEventForTests(Event::factoryFromNamePayload("first", nullptr)));
        SANITY_CHECK(
            LogRecorder::failsWith([&] { return service->queueEventForTests(InternalAddress::factory()); },
                                   "ASSIGN_TYPED failed: 'IEvent event = eventObj;'"));
        CHECK_EQUAL(listener->fHeard.size(), 0u);
        SANITY_CHECK(runSlice(service));
        CHECK_EQUAL(listener->fHeard.size(), 1u);
        SANITY_CHECK(runSlice(service));
        const std::vector<std::string> expected = {"first", "second"};
        SANITY_CHECK(listener->fHeard == expected);
        SANITY_CHECK(service->attachDetachEventHandler(AttachDetach::DETACH, "first", "requeue"));
        SANITY_CHECK(service->attachDetachEventHandler(AttachDetach::DETACH, "second", "requeue"));
        retVal = true;
    } while (false);
    return retVal;
}

bool ServiceTest::testIdlenessAndMessages() {
    bool retVal = false;
    do {
        SampleTree tree;
        SamplePtr top = tree.add("top");
        SamplePtr leaf = tree.add("leaf", top);
        SANITY_CHECK(top && leaf);
        // A busy service deep down keeps the coordinator from being idle; its slices reach it.
        SANITY_CHECK(coordinatorService()->isIdle());
        leaf->setBusy(true);
        SANITY_CHECK(! top->isIdle() && ! coordinatorService()->isIdle());
        const uint64_t slicesBefore = leaf->getSliceCount();
        SANITY_CHECK(runSlice(coordinatorService()));
        CHECK_EQUAL(leaf->getSliceCount(), slicesBefore + 1);
        leaf->setBusy(false);
        SANITY_CHECK(coordinatorService()->isIdle());
        // A message fires "messageReceived" with itself as the payload.
        auto listener = std::make_shared<RequeueingListener>(leaf);
        SANITY_CHECK(
            leaf->attachDetachEventHandler(AttachDetach::ATTACH, "messageReceived", "watch", listener));
        std::shared_ptr<IObject> message = Message::factoryFromSenderDestinationAddressOpCodePayloadStr(
            top, leaf->getAddressObj(), OpCode::PING, "");
        SANITY_CHECK(message && leaf->receiveMessage(message));
        CHECK_EQUAL(leaf->getReceivedMessages().size(), 1u);
        CHECK_EQUAL(listener->fHeard.size(), 1u);
        SANITY_CHECK(leaf->attachDetachEventHandler(AttachDetach::DETACH, "messageReceived", "watch"));
        retVal = true;
    } while (false);
    return retVal;
}

} // namespace Brw
