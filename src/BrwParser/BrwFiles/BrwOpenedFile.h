#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

namespace Brw {

// How a script opened a file: for appending, reading or writing.
enum class FileMode { Append, Read, Write };

// A file a script opened with fileOpen, known by a number: the first is 1, and numbers are never used
// again. The table of open files keeps them until fileClose, or until the process's teardown.
class OpenedFile {
public:
    static constexpr const char* TYPENAME = "OpenedFile";

    OpenedFile(int64_t fileId, FILE* file, FileMode fileMode)
        : fFileId(fileId), fFile(file), fFileMode(fileMode) {}
    ~OpenedFile();
    OpenedFile(const OpenedFile&) = delete;
    OpenedFile& operator=(const OpenedFile&) = delete;

    // Opens the file and enters it in the table; null on failure.
    static std::shared_ptr<OpenedFile> open(const std::string& filePath, FileMode fileMode);
    // The open file of that number, or null.
    static std::shared_ptr<OpenedFile> getFile(int64_t fileId);
    // Closes the file and takes it out of the table.
    [[nodiscard]] bool close();
    // Closes every file still open: part of the process's teardown.
    static void closeAll();

    int64_t getFileId() const { return fFileId; }
    FILE* getFile() const { return fFile; }
    FileMode getFileMode() const { return fFileMode; }

private:
    int64_t fFileId;    // its number for scripts
    FILE* fFile;        // null once closed
    FileMode fFileMode; // as opened

    static inline int64_t fLastFileId = 0; // the number given last
};

} // namespace Brw
