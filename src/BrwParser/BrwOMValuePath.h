#pragma once

#include <vector>

namespace Brw {

class IOMNode;

// The containers that a recursive walk over a value is inside, outermost first. Containers are shared, so
// a value may hold itself, and a loop can nest one far deeper than a walk may recurse: a walk steps into
// each container through a Step, which is refused for a container already on the path and past the
// nesting limit, and the walk then treats that container as a leaf. Walks don't wait, so each kind of walk
// keeps one path of its own for the process.
class OMValuePath {
public:
    class Step {
    public:
        Step(OMValuePath& path, const IOMNode& container);
        ~Step();
        Step(const Step&) = delete;
        Step& operator=(const Step&) = delete;

        bool isEntered() const { return fIsEntered; }
        // Refused because the container holds itself (else because the path was too deep).
        bool isCycle() const { return fIsCycle; }

    private:
        OMValuePath& fPath; // where the container was added
        bool fIsEntered;    // the container was added and is taken off at the end
        bool fIsCycle;      // the container was on the path already
    };

    // The storage that stands for a container: values that share it are the same container.
    static const void* identityOf(const IOMNode& container);

private:
    std::vector<const void*> fContainers; // the identities on the path
};

} // namespace Brw
