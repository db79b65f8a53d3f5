#include "BrwAddress/BrwAddress_abstract.h"

#include "BrwAddress/BrwInternalAddress.h"
#include "BrwAddress/BrwLocalResolvedAddress.h"
#include "BrwAddress/BrwLocalUnresolvedAddress.h"
#include "BrwAddress/BrwRemoteResolvedAddress.h"
#include "BrwAddress/BrwRemoteUnresolvedAddress.h"
#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwLogger/BrwCheck.h"
#include "BrwObject/BrwGUIDClass.h"
#include "BrwService/BrwIAddressable.h"
#include "BrwUtils/BrwUtils.h"

namespace Brw {

namespace {

// The pieces of a `brw://` URL, as the character machine of URLParser finds them.
struct URLParts {
    std::string scheme;
    std::string host;
    std::string upstream;  // the text of the coordinator's GUID, when the host was one
    std::string addressed; // the text of the service's GUID
    std::string coordinator;
    std::vector<std::string> segments; // the path
    std::string tail;                  // for the receiving service
};

// Reads a URL one character at a time, without going back. A host that is a GUID makes an address by
// GUIDs; otherwise coordinator and path follow; a "//" ends the path, and the rest is the tail.
class URLParser {
public:
    enum State { START, SCHEME, COLON, COLON_SLASH, HOST, COORDINATOR, SEGMENTS, ADDRESSED, TAIL };

    URLParts parse(const std::string& url) {
        for (char c : url) {
            feed(c);
        }
        // A host that the URL ends in is read as one followed by "/": a GUID there is no host name.
        if (fState == HOST) {
            endHost();
        }
        pushSegment();
        return fParts;
    }

private:
    void feed(char c) {
        switch (fState) {
        case START:
            feedStart(c);
            break;
        case SCHEME:
            // scheme ":"
            c == ':' ? (void)(fState = COLON) : fParts.scheme.push_back(c);
            break;
        case COLON:
        case COLON_SLASH:
            // ":" "/" "/" host: a character other than "/" already belongs to the host.
            if (c == '/') {
                fState = fState == COLON ? COLON_SLASH : HOST;
            } else {
                fParts.host.push_back(c);
                fState = HOST;
            }
            break;
        case HOST:
            c == '/' ? endHost() : fParts.host.push_back(c);
            break;
        case COORDINATOR:
            c == '/' ? (void)(fState = SEGMENTS) : fParts.coordinator.push_back(c);
            break;
        case SEGMENTS:
            feedSegments(c);
            break;
        case ADDRESSED:
            c == '/' ? (void)(fState = TAIL) : fParts.addressed.push_back(c);
            break;
        case TAIL:
            feedTail(c);
            break;
        }
    }

    // Blanks before the scheme are skipped; a "/" first means there is no scheme.
    void feedStart(char c) {
        if (c == '\t' || c == '\n' || c == '\r' || c == ' ') {
            return;
        }
        if (c == '/') {
            fState = HOST;
        } else {
            fParts.scheme.push_back(c);
            fState = SCHEME;
        }
    }

    void endHost() {
        if (GUIDClass::isGUIDString(fParts.host)) {
            fParts.upstream.swap(fParts.host);
            fParts.host.clear();
            fState = ADDRESSED;
        } else {
            fState = COORDINATOR;
        }
    }

    // name "/" number "/" ...: an empty segment ("//") ends the path.
    void feedSegments(char c) {
        if (c != '/') {
            fSegment.push_back(c);
        } else if (! fSegment.empty()) {
            pushSegment();
        } else {
            fState = TAIL;
        }
    }

    // Slashes at either end of the tail go, runs of them inside become one.
    void feedTail(char c) {
        if (c == '/') {
            fIsSlashPending = true;
            return;
        }
        if (fIsSlashPending && ! fParts.tail.empty()) {
            fParts.tail.push_back('/');
        }
        fIsSlashPending = false;
        fParts.tail.push_back(c);
    }

    void pushSegment() {
        if (! fSegment.empty()) {
            fParts.segments.push_back(fSegment);
            fSegment.clear();
        }
    }

    State fState = START;
    URLParts fParts;
    std::string fSegment;         // the path segment being read
    bool fIsSlashPending = false; // a "/" of the tail waits for what follows it
};

std::string joinedSegments(const std::vector<std::string>& segments) {
    std::string joined;
    for (const std::string& segment : segments) {
        joined += (joined.empty() ? "" : "/") + segment;
    }
    return joined;
}

// The GUID of a text, or null for one without digits.
GUIDClass* guidOrNull(const std::string& text) {
    GUIDClass* guid = GUIDClass::factory(text);
    return guid != nullptr && ! guid->isNull() ? guid : nullptr;
}

// The address of a URL whose host was a GUID.
std::shared_ptr<IObject> factoryFromGUIDTexts(const URLParts& parts) {
    std::shared_ptr<IObject> retVal;
    do {
        ASSIGN_TYPED(IInternalCoordinator, internalCoordinator, InternalCoordinator::factory());
        GUIDClass* guid = guidOrNull(parts.addressed);
        SANITY_CHECK(guid);
        GUIDClass* upstreamCoordinatorGUID = guidOrNull(parts.upstream);
        SANITY_CHECK(upstreamCoordinatorGUID);
        const std::string hostName = internalCoordinator->getHostName(upstreamCoordinatorGUID);
        retVal = ! hostName.empty() && ! InternalCoordinator::isLocalHostName(hostName)
                     ? RemoteResolvedAddress::factoryFromGUIDs(guid, upstreamCoordinatorGUID)
                     : LocalResolvedAddress::factoryFromGUIDs(guid, upstreamCoordinatorGUID);
    } while (false);
    return retVal;
}

} // namespace

std::shared_ptr<IObject> Address_abstract::factoryFromURL(const std::string& url, std::string& tail) {
    tail.clear();
    const URLParts parts = URLParser().parse(url);
    tail = parts.tail;
    if (parts.scheme != SCHEME) {
        return nullptr;
    }
    if (! parts.upstream.empty()) {
        return factoryFromGUIDTexts(parts);
    }
    const std::string indices = joinedSegments(parts.segments);
    const std::string& ownName = InternalCoordinator::getCoordinatorName();
    const std::string coordinatorName = parts.coordinator.empty() ? ownName : parts.coordinator;
    if (! parts.host.empty() && ! InternalCoordinator::isLocalHostName(parts.host)) {
        return RemoteUnresolvedAddress::factoryFromCoordinatorNameIndicesHostName(coordinatorName, indices,
                                                                                  parts.host);
    }
    if (coordinatorName == ownName) {
        return InternalAddress::factoryFromIndices(indices);
    }
    return LocalUnresolvedAddress::factoryFromCoordinatorNameIndices(coordinatorName, indices);
}

std::string Address_abstract::getHostName() const {
    return InternalCoordinator::LOCAL_HOST_NAME;
}

std::string Address_abstract::getHostAddress() const {
    return InternalCoordinator::getHostAddress(getHostName());
}

std::string Address_abstract::toString() const {
    return Object::toString() + " " + getURL();
}

std::shared_ptr<IInternalCoordinator> Address_abstract::internalCoordinatorOf() {
    std::shared_ptr<IInternalCoordinator> retVal;
    do {
        ASSIGN_TYPED(IInternalCoordinator, internalCoordinator, InternalCoordinator::factory());
        retVal = internalCoordinator;
    } while (false);
    return retVal;
}

uint64_t Address_abstract::hashOfFields(const char* typeName, const std::vector<std::string>& fields) {
    uint64_t hash = FNV1aHash::hashBytes(typeName);
    for (const std::string& field : fields) {
        hash = FNV1aHash::hashBytes(field, hash);
    }
    return hash;
}

std::shared_ptr<IObject> Address_abstract::getSelfObj() const {
    return Object::getObjectFromID(getID());
}

std::shared_ptr<IObject> Address_abstract::resolvedThroughService() const {
    std::shared_ptr<IObject> retVal;
    do {
        std::shared_ptr<IInternalCoordinator> internalCoordinator = internalCoordinatorOf();
        SANITY_CHECK(internalCoordinator);
        auto service =
            std::dynamic_pointer_cast<const IAddressable>(internalCoordinator->resolveAddress(getSelfObj()));
        if (service) {
            retVal = service->getAddressObj();
        }
    } while (false);
    return retVal;
}

bool Address_abstract::isKnownMode(SerializeDeserialize mode) {
    const bool isKnown = mode == SerializeDeserialize::SERIALIZE || mode == SerializeDeserialize::DESERIALIZE;
    if (! isKnown) {
        LOG_ERROR("no serializeDeserialize");
    }
    return isKnown;
}

bool Address_abstract::readName(const std::shared_ptr<ISerializer>& serializer, std::string& name) {
    if (! serializer->isStringAvailable()) {
        LOG_ERROR("serializer at end");
        return false;
    }
    name = serializer->getString();
    return true;
}

bool Address_abstract::isSameClass(const IObject* other) const {
    return other != nullptr && other->typeName() == typeName();
}

} // namespace Brw
