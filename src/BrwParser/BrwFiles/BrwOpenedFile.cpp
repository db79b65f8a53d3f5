#include "BrwParser/BrwFiles/BrwOpenedFile.h"

#include <unordered_map>
#include <vector>

#include "BrwLogger/BrwCheck.h"

namespace Brw {

namespace {

std::unordered_map<int64_t, std::shared_ptr<OpenedFile>>& openedFiles() {
    static auto* table = new std::unordered_map<int64_t, std::shared_ptr<OpenedFile>>();
    return *table;
}

// The mode of fopen; the files close when the program launches another.
const char* modeText(FileMode fileMode) {
    switch (fileMode) {
    case FileMode::Append:
        return "ae";
    case FileMode::Read:
        return "re";
    case FileMode::Write:
        return "we";
    }
    return nullptr;
}

} // namespace

OpenedFile::~OpenedFile() {
    if (fFile != nullptr) {
        fclose(fFile);
    }
}

std::shared_ptr<OpenedFile> OpenedFile::open(const std::string& filePath, FileMode fileMode) {
    std::shared_ptr<OpenedFile> retVal;
    do {
        const char* modeChar = modeText(fileMode);
        SANITY_CHECK(modeChar);
        FILE* file = fopen(filePath.c_str(), modeChar);
        SANITY_CHECK(file);
        retVal = std::make_shared<OpenedFile>(++fLastFileId, file, fileMode);
        openedFiles()[retVal->fFileId] = retVal;
    } while (false);
    return retVal;
}

std::shared_ptr<OpenedFile> OpenedFile::getFile(int64_t fileId) {
    auto iter = openedFiles().find(fileId);
    return iter == openedFiles().end() ? nullptr : iter->second;
}

bool OpenedFile::close() {
    bool retVal = false;
    do {
        SANITY_CHECK(fFile);
        const bool isClosed = fclose(fFile) == 0;
        fFile = nullptr;
        openedFiles().erase(fFileId);
        SANITY_CHECK(isClosed);
        retVal = true;
    } while (false);
    return retVal;
}

void OpenedFile::closeAll() {
    // Taken out of the table first, so that closing can't disturb the walk.
    std::vector<std::shared_ptr<OpenedFile>> files;
    for (const auto& [fileId, file] : openedFiles()) {
        files.push_back(file);
    }
    openedFiles().clear();
    for (const std::shared_ptr<OpenedFile>& file : files) {
        if (file->fFile != nullptr) {
            fclose(file->fFile);
            file->fFile = nullptr;
        }
    }
}

} // namespace Brw
