#include "BrwEvent/BrwEventTest.h"

#include <algorithm>

#include "BrwData/BrwDataString.h"
#include "BrwEvent/BrwEvent.h"
#include "BrwEvent/BrwEventListener.h"
#include "BrwEvent/BrwEventSource.h"
#include "BrwMain/BrwLogRecorder.h"

namespace Brw {

namespace {

class SampleEventSource : public EventSource {
public:
    static constexpr const char* TYPENAME = "SampleEventSource";
    std::string typeName() const override { return TYPENAME; }
    static std::shared_ptr<SampleEventSource> factory() {
        return Object::makeRegistered<SampleEventSource>();
    }
};

// Notes each call as "handler:event" with the source it saw; may skip the base listener on purpose.
class RecordingListener : public EventListener {
public:
    explicit RecordingListener(bool isCallingBase = true) : fIsCallingBase(isCallingBase) {}

    bool handleEvent(const std::string& eventHandlerName, const std::shared_ptr<IObject>& eventObj) override {
        bool retVal = false;
        do {
            if (fIsCallingBase) {
                SANITY_CHECK(EventListener::handleEvent(eventHandlerName, eventObj));
            }
            ASSIGN_TYPED(IEvent, event, eventObj);
            fCalls.push_back(eventHandlerName + ":" + event->getName());
            fSourcesSeen.push_back(event->getEventSource());
            retVal = true;
        } while (false);
        return retVal;
    }

    bool fIsCallingBase;                     // false: the override forgets the base call
    std::vector<std::string> fCalls;         // "handler:event", in the order of the calls
    std::vector<IEventSource*> fSourcesSeen; // the event's source during each call
};

std::shared_ptr<IEvent> makeEvent(const std::string& name,
                                  const std::shared_ptr<IObject>& payloadObj = nullptr) {
    return std::dynamic_pointer_cast<IEvent>(Event::factoryFromNamePayload(name, payloadObj));
}

// The serialized form of `depth` events, each the payload of the one before.
std::string nestedEventsText(int depth) {
    std::string text;
    for (int level = 0; level < depth; ++level) {
        text += "Event\nlevel\n";
    }
    return text + "DataNull\n";
}

} // namespace

std::string EventTest::getClassTypeName() const {
    return Event::TYPENAME;
}

bool EventTest::test() {
    REPORT_CLASS_TEST;
    bool allOK = testFiringReachesListeners();
    allOK = testListenerThatSkipsTheBase() && allOK;
    allOK = testAttachAndDetachChecks() && allOK;
    allOK = testEventRoundTrip() && allOK;
    allOK = testNestedPayloads() && allOK;
    return allOK;
}

bool EventTest::testFiringReachesListeners() {
    bool retVal = false;
    do {
        std::shared_ptr<SampleEventSource> source = SampleEventSource::factory();
        std::shared_ptr<IEvent> event = makeEvent("DUMMY", DataString::factoryFromString("payload"));
        SANITY_CHECK(source && event && source->fireEvent(event));

        auto listener = std::make_shared<RecordingListener>();
        SANITY_CHECK(source->attachDetachEventHandler(AttachDetach::ATTACH, "DUMMY", "first", listener));
        SANITY_CHECK(source->attachDetachEventHandler(AttachDetach::ATTACH, "DUMMY", "second", listener));
        SANITY_CHECK(source->attachDetachEventHandler(AttachDetach::ATTACH, "OTHER", "first", listener));
        SANITY_CHECK(source->fireEvent(event));
        std::sort(listener->fCalls.begin(), listener->fCalls.end());
        CHECK_EQUAL(listener->fCalls, std::vector<std::string>({"first:DUMMY", "second:DUMMY"}));
        // The source is there during each call, and only then.
        const std::vector<IEventSource*> sourcesSeen(2, source.get());
        SANITY_CHECK(listener->fSourcesSeen == sourcesSeen && event->getEventSource() == nullptr);
        SANITY_CHECK(
            LogRecorder::failsWith([&] { return source->fireEvent(DataString::factoryFromString("x")); },
                                   "ASSIGN_TYPED failed: 'IEvent event = eventObj;'"));
        retVal = true;
    } while (false);
    return retVal;
}

bool EventTest::testListenerThatSkipsTheBase() {
    bool retVal = false;
    do {
        std::shared_ptr<SampleEventSource> source = SampleEventSource::factory();
        std::shared_ptr<IEvent> event = makeEvent("DUMMY");
        auto forgetful = std::make_shared<RecordingListener>(false);
        SANITY_CHECK(source->attachDetachEventHandler(AttachDetach::ATTACH, "DUMMY", "forgetful", forgetful));
        SANITY_CHECK(LogRecorder::failsWith([&] { return source->fireEvent(event); },
                                            "'event->wasRootListenerCalled()' evaluates to false"));
        SANITY_CHECK(forgetful->fCalls.size() == 1 && event->getEventSource() == nullptr);
        // A listener that has gone without detaching fails the walk.
        forgetful.reset();
        SANITY_CHECK(
            LogRecorder::failsWith([&] { return source->fireEvent(event); },
                                   "'IEventListener eventListener = eventListenerIter->second.lock();'"));
        retVal = true;
    } while (false);
    return retVal;
}

bool EventTest::testAttachAndDetachChecks() {
    bool retVal = false;
    do {
        std::shared_ptr<SampleEventSource> source = SampleEventSource::factory();
        auto listener = std::make_shared<RecordingListener>();
        auto attachDetach = [&](AttachDetach attachDetach, const char* eventName) {
            return [=] { return source->attachDetachEventHandler(attachDetach, eventName, "h", listener); };
        };
        SANITY_CHECK(
            LogRecorder::failsWith(attachDetach(AttachDetach::DETACH, "E"), "'fEventNameMap' evaluates"));
        SANITY_CHECK(attachDetach(AttachDetach::ATTACH, "E")() && attachDetach(AttachDetach::ATTACH, "F")());
        SANITY_CHECK(LogRecorder::failsWith(attachDetach(AttachDetach::ATTACH, "E"),
                                            "'eventListenerIter == eventListenerMap->end()' evaluates"));
        SANITY_CHECK(LogRecorder::failsWith(attachDetach(AttachDetach::DETACH, "G"),
                                            "'eventNameIter != fEventNameMap->end()' evaluates"));
        SANITY_CHECK(LogRecorder::failsWith(
            [&] { return source->attachDetachEventHandler(AttachDetach::DETACH, "E", "never"); },
            "'eventHandlerEntryIter != eventListenerMap->end()' evaluates"));
        // Once every handler has gone, nobody listens and the table is gone too.
        SANITY_CHECK(attachDetach(AttachDetach::DETACH, "E")() && attachDetach(AttachDetach::DETACH, "F")());
        SANITY_CHECK(source->fireEvent(makeEvent("E")) && listener->fCalls.empty());
        SANITY_CHECK(
            LogRecorder::failsWith(attachDetach(AttachDetach::DETACH, "E"), "'fEventNameMap' evaluates"));
        retVal = true;
    } while (false);
    return retVal;
}

bool EventTest::testEventRoundTrip() {
    bool retVal = false;
    do {
        auto event = makeEvent("null", DataString::factoryFromString("test1223"));
        const std::string text = Data_abstract::serializeToStr(event);
        CHECK_EQUAL(text, "Event\nnull\nDataString\ntest1223\n");
        ASSIGN_TYPED(IEvent, copy, Data_abstract::deserializeFromStr(text));
        SANITY_CHECK(copy != event && *copy == event.get() && copy->hash() == event->hash());
        SANITY_CHECK(*copy != makeEvent("null", DataString::factoryFromString("test1224")).get());
        // A null payload travels as the DataNull and comes back as null.
        ASSIGN_TYPED(IEvent, bare, Data_abstract::deserializeFromStr("Event\nbare\nDataNull\n"));
        SANITY_CHECK(! bare->getPayloadObj() && *bare == makeEvent("bare").get());

        SANITY_CHECK(LogRecorder::failsWith([] { return Event::factoryFromNamePayload("", nullptr); },
                                            "'! name.empty()' evaluates"));
        SANITY_CHECK(
            LogRecorder::failsWith([] { return Data_abstract::deserializeFromStr("Event\n\nDataNull\n"); },
                                   "'! fName.empty()' evaluates"));
        // Only data travel as payloads.
        SANITY_CHECK(LogRecorder::failsWith(
            [] { return Data_abstract::deserializeFromStr("Event\nx\nSimpleSerializer\n"); },
            "cannot deserialize"));
        retVal = true;
    } while (false);
    return retVal;
}

bool EventTest::testNestedPayloads() {
    bool retVal = false;
    do {
        const int deepest = Data_abstract::MAX_NESTED_OBJECTS - 1;
        const std::shared_ptr<IObject> nested = Data_abstract::deserializeFromStr(nestedEventsText(deepest));
        SANITY_CHECK(nested && Data_abstract::serializeToStr(nested) == nestedEventsText(deepest));
        // One level more is refused, not followed down the stack.
        SANITY_CHECK(LogRecorder::failsWith(
            [&] { return Data_abstract::deserializeFromStr(nestedEventsText(deepest + 1)); },
            "'gNestedObjectCount <= MAX_NESTED_OBJECTS'"));
        retVal = true;
    } while (false);
    return retVal;
}

} // namespace Brw
