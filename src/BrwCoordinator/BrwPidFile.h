#pragma once

#include <cstdint>
#include <string>

#include "BrwUtils/BrwFileDescriptor.h"

namespace Brw {

// The published process identifier of a coordinator: a file holding it as decimal text, and an advisory
// lock on that file held for the life of the process. The lock, not the text, says whether the
// coordinator runs: two processes of one name can't both take it, however close their starts, and the
// lock of a killed process is gone with it, so the file it left is stale and no obstacle.
class PidFile {
public:
    static constexpr const char* TYPENAME = "PidFile";

    PidFile() = default;
    // Lets go of the lock; the file stays unless remove() was called.
    ~PidFile() = default;
    PidFile(const PidFile&) = delete;
    PidFile& operator=(const PidFile&) = delete;

    // The identifier published in the file while its publisher holds the lock; 0 when there is none, and
    // a stale file is removed.
    static uint32_t readPublished(const std::string& filePath);
    // Takes the lock and writes `processId` whole into the file; false when another process holds it.
    [[nodiscard]] bool publish(const std::string& filePath, uint32_t processId);
    // Removes the file while the lock is still held, then lets go. True when nothing is published.
    [[nodiscard]] bool remove();
    bool isPublished() const { return fLock.isOpen(); }
    // What stands at the published path now: this process's file, nothing, or a file that replaced it.
    enum class Standing { OWN, GONE, REPLACED };
    Standing getStanding() const;
    // Publishes anew after the file went from under the process.
    [[nodiscard]] bool republish(uint32_t processId);
    const std::string& getFilePath() const { return fFilePath; }

private:
    // Takes the lock of the file at `filePath` as it is now; false when another process holds it.
    [[nodiscard]] bool lockCurrentFile(const std::string& filePath, FileDescriptor& lockedFile);
    // Writes the identifier into a new locked file and renames it over the published one.
    [[nodiscard]] bool replaceLocked(const std::string& filePath, uint32_t processId,
                                     FileDescriptor& newFile);

    std::string fFilePath; // the published file, once published
    FileDescriptor fLock;  // the file whose lock this process holds
};

} // namespace Brw
