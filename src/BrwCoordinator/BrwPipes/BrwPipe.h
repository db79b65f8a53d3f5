#pragma once

#include <memory>
#include <string>

namespace Brw {

// What a read pipe and a write pipe share: the proxy file that names the pipe to other processes, the
// socket behind it, the handle the Pipes layer gives out for it, and how often it was opened.
class Pipe : public std::enable_shared_from_this<Pipe> {
public:
    static constexpr const char* TYPENAME = "Pipe";
    // No handle: handles that the Pipes layer gives out are never 0.
    static constexpr int NO_EXTERNAL_HANDLE = 0;

    explicit Pipe(const std::string& namedPipePath);
    virtual ~Pipe() = default;
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    // Takes back one open; the last one ends the pipe (a write pipe once it has flushed).
    [[nodiscard]] virtual bool close() = 0;
    // One turn of the pipe's work; never waits.
    virtual bool poll() = 0;
    virtual int getPipeExternalHandle() const;
    virtual const std::string& getRawNamedPipePath() const { return fRawNamedPipePath; }
    virtual std::string getStateName() const = 0;
    [[nodiscard]] virtual bool openCountIncrement();
    [[nodiscard]] virtual bool openCountDecrement();

    const std::string& getNamedPipePath() const { return fNamedPipePath; }
    int getOpenCount() const { return fOpenCount; }

protected:
    // The trace line of a switch of the pipe's state, whose enumeration is `stateTypeName`.
    void logStateSwitch(const char* stateTypeName, const std::string& fromStateName) const;

    std::string fRawNamedPipePath; // the socket's path
    std::string fNamedPipePath;    // the proxy file's path
    int fPipeExternalHandle;       // from the Pipes layer's counter, never NO_EXTERNAL_HANDLE
    int fOpenCount = 0;            // opens less closes
};

} // namespace Brw
