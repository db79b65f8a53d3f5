#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "BrwData/BrwIni.h"

namespace Brw {

// The ordered configuration files of a coordinator. Each file is linked to the one before it and gets
// the program's folders as placeholders; a later file's values are stronger. Within a file, for a section
// S and the coordinator C, the section "S.C" is stronger than wildcard sections that match S or "S.C",
// and these than S itself.
class ConfigStack {
public:
    static constexpr const char* TYPENAME = "ConfigStack";

    // Adds the file when it exists; a missing file is skipped silently. False only when it can't be
    // linked.
    [[nodiscard]] bool addFile(const std::string& filePath);
    void clear() { fFiles.clear(); }
    const std::vector<std::shared_ptr<IniFile>>& getFiles() const { return fFiles; }

    // The value of `key` in `section` for the coordinator `coordinatorName`, placeholders expanded;
    // `defaultValue` when no file has it. `sourceFilePath`, when given, gets the file the value came from,
    // or "" for the default.
    std::string getValue(const std::string& section, const std::string& key, const std::string& defaultValue,
                         const std::string& coordinatorName, std::string* sourceFilePath = nullptr) const;
    // Every entry of a table section in all files, later files winning; the first item of each.
    std::map<std::string, std::string> getTable(const std::string& section) const;

    // The placeholders every file gets: the program's folders.
    static void setProgramPlaceholders(Ini& ini);

private:
    // The sections of one file that apply, weakest first: S, the matching wildcards sorted, "S.C".
    static std::vector<std::string> applicableSections(const Ini& ini, const std::string& section,
                                                       const std::string& coordinatorSection);

    std::vector<std::shared_ptr<IniFile>> fFiles; // first the main file, then the extra ones
};

} // namespace Brw
