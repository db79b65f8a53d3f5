#include "BrwAddress/BrwAddressTest.h"

#include <random>

#include "BrwAddress/BrwIGUIDAddress.h"
#include "BrwAddress/BrwIIndexedAddress.h"
#include "BrwAddress/BrwInternalAddress.h"
#include "BrwAddress/BrwLocalResolvedAddress.h"
#include "BrwAddress/BrwLocalUnresolvedAddress.h"
#include "BrwAddress/BrwRemoteResolvedAddress.h"
#include "BrwAddress/BrwRemoteUnresolvedAddress.h"
#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwMain/BrwLogRecorder.h"
#include "BrwObject/BrwGUIDClass.h"
#include "BrwService/BrwServiceNull.h"
#include "BrwService/BrwServiceSampleForTests.h"

namespace Brw {

namespace {

using ObjectPtr = std::shared_ptr<IObject>;

const std::string kNull = ServiceNull::SERVICE_NAME;

// A service that a test hangs into the tree, out of it again when the test ends.
class ServiceScope {
public:
    explicit ServiceScope(std::shared_ptr<ServiceSampleForTests> service) : fService(std::move(service)) {}
    ~ServiceScope() {
        if (fService) {
            (void)fService->deregisterObject();
        }
    }
    ServiceScope(const ServiceScope&) = delete;
    ServiceScope& operator=(const ServiceScope&) = delete;

    const std::shared_ptr<ServiceSampleForTests>& get() const { return fService; }

private:
    std::shared_ptr<ServiceSampleForTests> fService; // made for the test
};

ObjectPtr fromURL(const std::string& url, std::string& tail) {
    return Address_abstract::factoryFromURL(url, tail);
}

bool isEqual(const std::shared_ptr<const IObject>& left, const std::shared_ptr<const IObject>& right) {
    return left && right && *left == right.get();
}

std::string typeOf(const ObjectPtr& object) {
    return object ? object->typeName() : std::string("null");
}

std::string urlOf(const ObjectPtr& object) {
    auto address = std::dynamic_pointer_cast<const IAddress>(object);
    return address ? address->getURL() : std::string("null");
}

ObjectPtr resolvedOf(const std::shared_ptr<const IObject>& object) {
    auto address = std::dynamic_pointer_cast<const IAddress>(object);
    return address ? address->resolved() : nullptr;
}

GUIDClass* randomGUID() {
    return GUIDClass::randomFactory();
}

// Makes the coordinator learn a coordinator of another machine, as a message from one of its services
// teaches it: its GUID, or null.
GUIDClass* learnRemoteCoordinator(IInternalCoordinator& coordinator, GUIDClass* serviceGUID,
                                  const std::string& coordinatorName, const std::string& hostName) {
    GUIDClass* upstream = randomGUID();
    const ObjectPtr sender = Data_abstract::deserializeFromStr(
        std::string(RemoteResolvedAddress::TYPENAME) + "\n" + serviceGUID->toSectionedString() + "\n" +
        upstream->toSectionedString() + "\n" + coordinatorName + "\n" + hostName + "\n");
    return sender && coordinator.registerSenderAddressObj(sender) ? upstream : nullptr;
}

} // namespace

bool AddressTest::test() {
    REPORT_CLASS_TEST;
    bool allOK = testURLsMakeTheirAddresses();
    allOK = testResolvedFormsAgree() && allOK;
    allOK = testUnknownGUIDsResolveToNothing() && allOK;
    allOK = testPathsAndTheirChecks() && allOK;
    allOK = testEqualityAndHashByClassAndFields() && allOK;
    allOK = testEveryClassTravelsUnchanged() && allOK;
    return allOK;
}

bool AddressTest::testURLsMakeTheirAddresses() {
    bool retVal = false;
    do {
        const auto nullService = std::dynamic_pointer_cast<IService>(ServiceNull::factory());
        SANITY_CHECK(nullService);
        const std::string own = InternalCoordinator::getCoordinatorName();
        const ObjectPtr nullAddress = InternalAddress::factoryFromIndices(kNull + "/0");
        std::string tail;

        SANITY_CHECK(isEqual(fromURL("brw://///tail", tail), InternalAddress::factory()));
        CHECK_EQUAL(tail, "tail");
        ObjectPtr address = fromURL("brw:////" + kNull + "//tail", tail);
        SANITY_CHECK(isEqual(address, nullAddress));
        CHECK_EQUAL(tail, "tail");
        CHECK_EQUAL(urlOf(address), "brw:////" + kNull + "/0");
        // A child that isn't there is still an address, and resolves to nothing.
        address = fromURL("brw:////" + kNull + "/1//tail4/tail5", tail);
        SANITY_CHECK(isEqual(address, InternalAddress::factoryFromIndices(kNull + "/1")));
        SANITY_CHECK(! resolvedOf(address));
        CHECK_EQUAL(tail, "tail4/tail5");
        SANITY_CHECK(isEqual(fromURL("brw:///" + own + "/" + kNull + "//tail11/", tail), nullAddress));
        CHECK_EQUAL(tail, "tail11");
        // Another coordinator of this machine is as resolved as it gets.
        address = fromURL("brw:///SomeCoordinator/" + kNull + "/0//tail111/", tail);
        CHECK_EQUAL(typeOf(address), LocalUnresolvedAddress::TYPENAME);
        SANITY_CHECK(isEqual(resolvedOf(address), address));
        CHECK_EQUAL(tail, "tail111");
        SANITY_CHECK(
            isEqual(fromURL("brw://127.0.0.1/SomeCoordinator/" + kNull + "/0//xxx/", tail), address));
        CHECK_EQUAL(tail, "xxx");
        // A local host names this coordinator by its name.
        SANITY_CHECK(
            isEqual(fromURL("brw://localhost/" + own + "//tail121/", tail), InternalAddress::factory()));
        CHECK_EQUAL(tail, "tail121");
        SANITY_CHECK(
            isEqual(fromURL("brw://LOCALHOST/" + own + "/" + kNull + "/0//tai91/", tail), nullAddress));
        CHECK_EQUAL(tail, "tai91");
        // Another machine.
        address = fromURL("brw://somehost.local/net.braidwell.coordinator.main//xtx/", tail);
        CHECK_EQUAL(typeOf(address), RemoteUnresolvedAddress::TYPENAME);
        SANITY_CHECK(isEqual(resolvedOf(address), address));
        CHECK_EQUAL(urlOf(address), "brw://somehost.local/net.braidwell.coordinator.main/");
        address = fromURL("brw://somehost.local/net.braidwell.coordinator.main/" + kNull + "//xtx/", tail);
        auto indexed = std::dynamic_pointer_cast<const IIndexedAddress>(address);
        SANITY_CHECK(indexed && indexed->getIndices() == kNull + "/0");
        // A GUID where the URL ends is no host name but a coordinator without its service: no address.
        for (const char* url :
             {"brw:A0000000-0000-0000-0123-456789ABCDEF", "brw://A0000000-0000-0000-0123-456789ABCDEF"}) {
            SANITY_CHECK(LogRecorder::failsWith([&] { return fromURL(url, tail) != nullptr; }, "'guid'"));
        }
        // GUIDs: the service's resolved address, without the tail in its URL.
        GUIDClass* g = InternalCoordinator::getOwnGUID();
        GUIDClass* n = nullService->createGUID();
        SANITY_CHECK(g && n);
        address =
            fromURL("brw://" + g->toSectionedString() + "/" + n->toSectionedString() + "/tail2/tail3", tail);
        CHECK_EQUAL(typeOf(address), LocalResolvedAddress::TYPENAME);
        SANITY_CHECK(isEqual(address, nullService->getAddressObj()));
        CHECK_EQUAL(tail, "tail2/tail3");
        CHECK_EQUAL(urlOf(address), "brw://" + g->toSectionedString() + "/" + n->toSectionedString());
        // No scheme, or another one: no address, and nothing logged.
        bool isAnyMade = true;
        const auto lines = LogRecorder::record(4, [&] {
            isAnyMade = fromURL("http://localhost/" + own + "/", tail) ||
                        fromURL("/" + own + "/" + kNull, tail) || fromURL("BRW:///" + own, tail);
        });
        SANITY_CHECK(! isAnyMade);
        CHECK_EQUAL(lines.size(), 0u);
        retVal = true;
    } while (false);
    return retVal;
}

bool AddressTest::testResolvedFormsAgree() {
    bool retVal = false;
    do {
        const auto nullService = std::dynamic_pointer_cast<IService>(ServiceNull::factory());
        SANITY_CHECK(nullService);
        const std::string own = InternalCoordinator::getCoordinatorName();
        GUIDClass* g = InternalCoordinator::getOwnGUID();
        GUIDClass* n = nullService->createGUID();
        const std::vector<ObjectPtr> forms = {
            InternalAddress::factoryFromIndices(kNull),
            LocalUnresolvedAddress::factoryFromCoordinatorNameIndices(own, kNull + "/0"),
            RemoteUnresolvedAddress::factoryFromCoordinatorNameIndicesHostName(own, kNull, "localhost"),
            LocalResolvedAddress::factoryFromGUIDs(n, g),
            RemoteResolvedAddress::factoryFromGUIDs(n, g),
        };
        for (const ObjectPtr& form : forms) {
            auto resolved = std::dynamic_pointer_cast<const IGUIDAddress>(resolvedOf(form));
            SANITY_CHECK(resolved);
            SANITY_CHECK(resolved->getAddressedGUID() == n);
            SANITY_CHECK(resolved->getUpstreamCoordinatorGUID() == g);
        }
        auto internal = std::dynamic_pointer_cast<const Address_abstract>(InternalAddress::factory());
        SANITY_CHECK(internal);
        CHECK_EQUAL(internal->getHostName(), "localhost");
        CHECK_EQUAL(internal->getCoordinatorName(), own);
        CHECK_EQUAL(internal->getHostAddress(), "127.0.0.1");
        // The coordinator itself prints the same from every class.
        CHECK_EQUAL(urlOf(InternalAddress::factory()), "brw:////");
        CHECK_EQUAL(urlOf(LocalUnresolvedAddress::factoryFromCoordinatorNameIndices(own, "")), "brw:////");
        CHECK_EQUAL(urlOf(LocalResolvedAddress::factoryFromGUIDs(g, g)), "brw:////");
        retVal = true;
    } while (false);
    return retVal;
}

bool AddressTest::testUnknownGUIDsResolveToNothing() {
    bool retVal = false;
    do {
        const auto nullService = std::dynamic_pointer_cast<IService>(ServiceNull::factory());
        SANITY_CHECK(nullService);
        GUIDClass* g = InternalCoordinator::getOwnGUID();
        GUIDClass* n = nullService->createGUID();
        const std::vector<std::pair<GUIDClass*, GUIDClass*>> unknown = {
            {randomGUID(), g}, {g, randomGUID()}, {n, randomGUID()}, {randomGUID(), randomGUID()}};
        for (const auto& [addressed, upstream] : unknown) {
            SANITY_CHECK(! resolvedOf(LocalResolvedAddress::factoryFromGUIDs(addressed, upstream)));
            SANITY_CHECK(! resolvedOf(RemoteResolvedAddress::factoryFromGUIDs(addressed, upstream)));
        }
        // What a sender's address tells is learnt: the name and host of its coordinator. Addresses by the
        // GUIDs of that coordinator are then remote, and as resolved as they get.
        auto coordinator = std::dynamic_pointer_cast<IInternalCoordinator>(InternalCoordinator::factory());
        SANITY_CHECK(coordinator);
        GUIDClass* farService = randomGUID();
        GUIDClass* farCoordinator =
            learnRemoteCoordinator(*coordinator, farService, "net.braidwell.coordinator.far", "Far.Example");
        SANITY_CHECK(farCoordinator);
        CHECK_EQUAL(coordinator->getCoordinatorName(farCoordinator), "net.braidwell.coordinator.far");
        CHECK_EQUAL(coordinator->getHostName(farCoordinator), "far.example");
        SANITY_CHECK(coordinator->getUpstreamCoordinatorGUID(
                         "FAR.example", "net.braidwell.coordinator.far") == farCoordinator);
        SANITY_CHECK(coordinator->isValidUpstreamCoordinatorGUID(farCoordinator));
        const ObjectPtr remote = RemoteResolvedAddress::factoryFromGUIDs(randomGUID(), farCoordinator);
        CHECK_EQUAL(typeOf(remote), RemoteResolvedAddress::TYPENAME);
        SANITY_CHECK(isEqual(resolvedOf(remote), remote));
        SANITY_CHECK(isEqual(coordinator->getAddressFromGUID(farService),
                             RemoteResolvedAddress::factoryFromGUIDs(farService, farCoordinator)));
        // Hosts: registered addresses, the fixed local names, and a host known by nothing but its name.
        SANITY_CHECK(InternalCoordinator::registerHostName("otherhost.example", "192.0.2.7"));
        CHECK_EQUAL(InternalCoordinator::getHostAddress("OtherHost.Example"), "192.0.2.7");
        CHECK_EQUAL(InternalCoordinator::getHostAddress("LOCALHOST"), "127.0.0.1");
        CHECK_EQUAL(InternalCoordinator::getHostAddress("unknown.example"), "unknown.example");
        SANITY_CHECK(! InternalCoordinator::isLocalHostName("otherhost.example"));
        SANITY_CHECK(InternalCoordinator::registerLocalHostName("Myself.Example"));
        SANITY_CHECK(InternalCoordinator::isLocalHostName("myself.example") &&
                     InternalCoordinator::isLocalHostName("::1"));
        retVal = true;
    } while (false);
    return retVal;
}

bool AddressTest::testPathsAndTheirChecks() {
    bool retVal = false;
    do {
        const auto nullService = std::dynamic_pointer_cast<IService>(ServiceNull::factory());
        SANITY_CHECK(nullService);
        const ServiceScope top(ServiceSampleForTests::factoryFromParentName(nullService, "top"));
        auto subtest0 = ServiceSampleForTests::factoryFromParentName(top.get(), "subtest");
        auto subtest1 = ServiceSampleForTests::factoryFromParentName(top.get(), "subtest");
        SANITY_CHECK(top.get() && subtest0 && subtest1);
        const std::string path = kNull + "/0/top/0/subtest/";
        SANITY_CHECK(resolvedOf(InternalAddress::factoryFromIndices(path + "0")));
        SANITY_CHECK(resolvedOf(InternalAddress::factoryFromIndices(path + "1")));
        const ObjectPtr missingAddress = InternalAddress::factoryFromIndices(path + "2");
        auto missing = std::dynamic_pointer_cast<const IIndexedAddress>(missingAddress);
        SANITY_CHECK(missing && ! resolvedOf(missingAddress));
        const std::vector<std::string> expected = {kNull, "0", "top", "0", "subtest", "2"};
        SANITY_CHECK(missing->getIndexList() == expected);
        // Only the later names are tested; a bad one is reported and the address is made all the same.
        std::string indices = "1st/x/b/0/2nd";
        std::vector<std::string> list;
        auto lines = LogRecorder::record(1, [&] { IndexedAddress_trait::splitIndices(indices, list); });
        SANITY_CHECK(LogRecorder::hasLineWith(lines, "invalid index number"));
        SANITY_CHECK(LogRecorder::hasLineWith(lines, "invalid index name"));
        CHECK_EQUAL(lines.size(), 2u);
        CHECK_EQUAL(indices, "1st/x/b/0/2nd/0");
        CHECK_EQUAL(list.size(), 6u);
        ObjectPtr badlyNamed;
        lines = LogRecorder::record(
            1, [&] { badlyNamed = LocalUnresolvedAddress::factoryFromCoordinatorNameIndices("9lives", ""); });
        SANITY_CHECK(badlyNamed && LogRecorder::hasLineWith(lines, "invalid coordinator name"));
        retVal = true;
    } while (false);
    return retVal;
}

bool AddressTest::testEqualityAndHashByClassAndFields() {
    bool retVal = false;
    do {
        const std::string own = InternalCoordinator::getCoordinatorName();
        auto hashOf = [](const ObjectPtr& object) {
            return std::dynamic_pointer_cast<const IData>(object)->hash();
        };
        const ObjectPtr local = LocalUnresolvedAddress::factoryFromCoordinatorNameIndices("beta", "a/0");
        SANITY_CHECK(isEqual(local, LocalUnresolvedAddress::factoryFromCoordinatorNameIndices("beta", "a")));
        CHECK_EQUAL(hashOf(local),
                    hashOf(LocalUnresolvedAddress::factoryFromCoordinatorNameIndices("beta", "a")));
        SANITY_CHECK(
            ! isEqual(local, LocalUnresolvedAddress::factoryFromCoordinatorNameIndices("gamma", "a")));
        SANITY_CHECK(
            ! isEqual(local, LocalUnresolvedAddress::factoryFromCoordinatorNameIndices("beta", "b")));
        // No comparison across classes, even for one service.
        SANITY_CHECK(! isEqual(InternalAddress::factoryFromIndices("a"),
                               LocalUnresolvedAddress::factoryFromCoordinatorNameIndices(own, "a")));
        const ObjectPtr remote =
            RemoteUnresolvedAddress::factoryFromCoordinatorNameIndicesHostName("beta", "a", "far.example");
        SANITY_CHECK(! isEqual(remote, RemoteUnresolvedAddress::factoryFromCoordinatorNameIndicesHostName(
                                           "beta", "a", "near.example")));
        GUIDClass* one = randomGUID();
        GUIDClass* two = randomGUID();
        SANITY_CHECK(isEqual(LocalResolvedAddress::factoryFromGUIDs(one, two),
                             LocalResolvedAddress::factoryFromGUIDs(one, two)));
        SANITY_CHECK(! isEqual(LocalResolvedAddress::factoryFromGUIDs(one, two),
                               LocalResolvedAddress::factoryFromGUIDs(two, one)));
        retVal = true;
    } while (false);
    return retVal;
}

bool AddressTest::testEveryClassTravelsUnchanged() {
    bool retVal = false;
    do {
        auto coordinator = std::dynamic_pointer_cast<IInternalCoordinator>(InternalCoordinator::factory());
        SANITY_CHECK(coordinator);
        GUIDClass* farCoordinator = learnRemoteCoordinator(
            *coordinator, randomGUID(), "net.braidwell.coordinator.travel", "travel.example");
        SANITY_CHECK(farCoordinator);
        // Seeded, so that a failure can be run again.
        std::mt19937_64 random(20261123);
        const std::vector<std::string> names = {"alpha", "net.braidwell.coordinator.main", "b.c.d", "x_1",
                                                "$y"};
        auto pick = [&] { return names[random() % names.size()]; };
        bool allOK = true;
        for (int round = 0; round < 2000 && allOK; ++round) {
            const std::string indices =
                random() % 3 == 0 ? std::string() : pick() + "/" + std::to_string(random() % 5);
            const std::vector<ObjectPtr> addresses = {
                InternalAddress::factoryFromIndices(indices),
                LocalUnresolvedAddress::factoryFromCoordinatorNameIndices(pick(), indices),
                RemoteUnresolvedAddress::factoryFromCoordinatorNameIndicesHostName(pick(), indices,
                                                                                   "travel.example"),
                LocalResolvedAddress::factoryFromGUIDs(randomGUID(), randomGUID()),
                RemoteResolvedAddress::factoryFromGUIDs(randomGUID(), farCoordinator),
            };
            for (const ObjectPtr& address : addresses) {
                const std::string text = Data_abstract::serializeToStr(address);
                if (! isEqual(address, Data_abstract::deserializeFromStr(text))) {
                    LOG_ERROR("round " + std::to_string(round) + " changed " + text);
                    allOK = false;
                    break;
                }
            }
        }
        SANITY_CHECK(allOK);
        retVal = true;
    } while (false);
    return retVal;
}

} // namespace Brw
