#include "BrwCoordinator/BrwConfigStack.h"

#include <algorithm>

#include "BrwLogger/BrwCheck.h"
#include "BrwUtils/BrwDirs.h"

namespace Brw {

namespace {

bool isWildcardPattern(const std::string& name) {
    return name.find_first_of("*?") != std::string::npos;
}

} // namespace

void ConfigStack::setProgramPlaceholders(Ini& ini) {
    ini.setPlaceholder("APP_PATH", Dirs::getAppPath());
    ini.setPlaceholder("APP_DIR", Dirs::getAppDirPath());
    ini.setPlaceholder("DESKTOP_DIR", Dirs::getDesktopPath());
    ini.setPlaceholder("DOCUMENTS_DIR", Dirs::getDocumentsPath());
    ini.setPlaceholder("HOME_DIR", Dirs::getHomePath());
    ini.setPlaceholder("LOG_DIR", Dirs::getLogDirPath());
    ini.setPlaceholder("SYSTEMDATA_DIR", Dirs::getSystemDataPath());
    ini.setPlaceholder("TMP_DIR", Dirs::getTmpPath());
    ini.setPlaceholder("USERDATA_DIR", Dirs::getUserDataPath());
}

bool ConfigStack::addFile(const std::string& filePath) {
    bool retVal = false;
    do {
        if (! Dirs::fileExists(filePath, TrailingPathCharHandling::Ignore)) {
            retVal = true;
            break;
        }
        auto iniFile = std::make_shared<IniFile>(filePath);
        setProgramPlaceholders(*iniFile);
        if (! fFiles.empty()) {
            SANITY_CHECK(iniFile->setParent(fFiles.back()));
        }
        fFiles.push_back(iniFile);
        retVal = true;
    } while (false);
    return retVal;
}

std::vector<std::string> ConfigStack::applicableSections(const Ini& ini, const std::string& section,
                                                         const std::string& coordinatorSection) {
    bool hasSection = false;
    bool hasCoordinatorSection = false;
    std::vector<std::string> wildcards;
    for (const std::string& name : ini.getSections()) {
        if (name == section) {
            hasSection = true;
        } else if (name == coordinatorSection) {
            hasCoordinatorSection = true;
        } else if (isWildcardPattern(name) && (Utils::isWildCardMatch(section, name) ||
                                               Utils::isWildCardMatch(coordinatorSection, name))) {
            wildcards.push_back(name);
        }
    }
    // getSections gives them sorted already.
    std::vector<std::string> sections;
    if (hasSection) {
        sections.push_back(section);
    }
    sections.insert(sections.end(), wildcards.begin(), wildcards.end());
    if (hasCoordinatorSection) {
        sections.push_back(coordinatorSection);
    }
    return sections;
}

std::string ConfigStack::getValue(const std::string& section, const std::string& key,
                                  const std::string& defaultValue, const std::string& coordinatorName,
                                  std::string* sourceFilePath) const {
    std::string value = defaultValue;
    if (sourceFilePath != nullptr) {
        sourceFilePath->clear();
    }
    const std::string coordinatorSection = section + "." + coordinatorName;
    for (const std::shared_ptr<IniFile>& file : fFiles) {
        for (const std::string& name : applicableSections(*file, section, coordinatorSection)) {
            // Only the file's own entries: the parent's were applied in their turn.
            if (file->hasEntry(name, key)) {
                value = file->getResolvedEntry(name, key);
                if (sourceFilePath != nullptr) {
                    *sourceFilePath = file->getFilePath();
                }
            }
        }
    }
    return value;
}

std::map<std::string, std::string> ConfigStack::getTable(const std::string& section) const {
    std::map<std::string, std::string> table;
    for (const std::shared_ptr<IniFile>& file : fFiles) {
        for (const std::string& key : file->getEntryNames(section)) {
            table[key] = file->getResolvedEntry(section, key);
        }
    }
    return table;
}

} // namespace Brw
