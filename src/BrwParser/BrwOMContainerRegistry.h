#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "BrwUtils/BrwHash.h"

namespace Brw {

class IOMNode;

// Every container of nodes alive, in the order they were made. Containers are shared by reference, so a
// value can hold itself, directly or through others; reference counts never free such a cycle. The
// process breaks the cycles that are left when it ends, and a test or fuzzer may do so after each input,
// by taking the elements out of the containers made since a mark.
class OMContainerRegistry {
public:
    // The base of the containers: links a container into the registry for as long as it lives.
    class Entry {
    public:
        Entry(const Entry&) : Entry() {}
        Entry& operator=(const Entry&) { return *this; }

    protected:
        Entry();
        virtual ~Entry();
        // Moves every element into `taken`, leaving the container empty.
        virtual void takeElements(std::vector<std::shared_ptr<IOMNode>>& taken) = 0;

    private:
        friend class OMContainerRegistry;
        Entry* fPrevious; // the container made before this one, null for the oldest
        Entry* fNext;     // the container made after this one, null for the newest
        uint64_t fSerial; // the order of making, from 1
    };

    // A mark: the containers made after it are those with a later serial.
    static uint64_t getMark() { return fLastSerial; }
    // Empties every container made after `mark` that is still alive, then lets go of what they held.
    static void releaseElementsSince(uint64_t mark);
    // Containers alive now.
    static uint64_t getCount() { return fCount; }

private:
    static inline Entry* fNewest = nullptr; // the tail of the list
    static inline uint64_t fLastSerial = 0; // the serial of the container made last
    static inline uint64_t fCount = 0;      // containers alive now
};

// An array of nodes, and the attributes of a map by name.
class OMArray : public std::vector<std::shared_ptr<IOMNode>>, public OMContainerRegistry::Entry {
public:
    using std::vector<std::shared_ptr<IOMNode>>::vector;

    void takeElements(std::vector<std::shared_ptr<IOMNode>>& taken) override;
};

class OMMap : public std::unordered_map<std::string, std::shared_ptr<IOMNode>, FNV1aHash>,
              public OMContainerRegistry::Entry {
public:
    using std::unordered_map<std::string, std::shared_ptr<IOMNode>, FNV1aHash>::unordered_map;

    void takeElements(std::vector<std::shared_ptr<IOMNode>>& taken) override;
};

} // namespace Brw
