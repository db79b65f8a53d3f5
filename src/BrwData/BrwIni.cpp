#include "BrwData/BrwIni.h"

#include <algorithm>

#include "BrwLogger/BrwCheck.h"
#include "BrwUtils/BrwDirs.h"

namespace Brw {

namespace {

// The key suffixes of the platforms this build is not.
constexpr const char* OTHER_PLATFORM_SUFFIXES[] = {".mac", ".windows"};
// What a section header needs at least: "[", a name, "]".
constexpr size_t SHORTEST_SECTION_HEADER = 3;
constexpr const char* PLACEHOLDER_START = "${";
constexpr char PLACEHOLDER_END = '}';

bool endsWith(const std::string& text, const std::string& ending) {
    return text.size() >= ending.size() &&
           text.compare(text.size() - ending.size(), ending.size(), ending) == 0;
}

// The states of the value reader.
enum class ValueState {
    Start,    // nothing read yet
    Between,  // between quoted items: blanks, tabs and one comma are skipped
    Unquoted, // inside an item without quotes, up to the next comma
    Quoted,   // inside quotes
    Escape,   // behind a backslash inside quotes
};

} // namespace

Ini::Ini(const std::string& iniStr) {
    do {
        SANITY_CHECK(parse(iniStr));
    } while (false);
}

// ---- reading text ----

std::vector<std::string> Ini::parseValueText(const std::string& valueText) {
    std::vector<std::string> items;
    ValueState state = ValueState::Start;
    std::string item;
    for (char c : valueText) {
        switch (state) {
        case ValueState::Start:
            if (c != '"') {
                // Not quoted: the whole text is one item; commas, quotes and backslashes mean nothing.
                return {valueText};
            }
            state = ValueState::Quoted;
            break;
        case ValueState::Between:
            if (c == '"') {
                state = ValueState::Quoted;
            } else if (c != ' ' && c != '\t' && c != ',') {
                item += c;
                state = ValueState::Unquoted;
            }
            break;
        case ValueState::Unquoted:
            if (c == ',') {
                items.push_back(Utils::trim(item));
                item.clear();
                state = ValueState::Between;
            } else {
                item += c;
            }
            break;
        case ValueState::Quoted:
            if (c == '"') {
                items.push_back(Utils::decodeString(item));
                item.clear();
                state = ValueState::Between;
            } else {
                item += c;
                state = c == '\\' ? ValueState::Escape : ValueState::Quoted;
            }
            break;
        case ValueState::Escape:
            item += c;
            state = ValueState::Quoted;
            break;
        }
    }
    if (state == ValueState::Start) {
        items.emplace_back();
    } else if (state == ValueState::Unquoted) {
        items.push_back(Utils::trim(item));
    } else if (state == ValueState::Quoted || state == ValueState::Escape) {
        // A missing closing quote ends the item at the end of the line.
        items.push_back(Utils::decodeString(item));
    }
    return items;
}

std::string Ini::toRawForm(const std::vector<std::string>& values) {
    std::string raw;
    for (size_t i = 0; i < values.size(); ++i) {
        raw += (i == 0 ? "" : ",") + Utils::enquote(values[i], '"');
    }
    return raw;
}

bool Ini::parse(const std::string& iniStr) {
    fIniStr = iniStr;
    fSections.clear();
    fIsChanged = false;
    std::string section;
    for (const std::string& rawLine : Utils::splitIntoLines(iniStr)) {
        const std::string line = Utils::trim(rawLine);
        if (line.empty() || line[0] == '#') {
            continue;
        }
        if (line.size() >= SHORTEST_SECTION_HEADER && line.front() == '[' && line.back() == ']') {
            section = line.substr(1, line.size() - 2);
            continue;
        }
        const size_t equals = line.find('=');
        if (equals == std::string::npos) {
            continue;
        }
        IniEntry& entry = fSections[section][Utils::trim(line.substr(0, equals))];
        entry.fValues = parseValueText(Utils::trim(line.substr(equals + 1)));
        entry.fHash = 0;
    }
    selectPlatformKeys();
    return true;
}

void Ini::selectPlatformKeys() {
    const std::string suffix = PLATFORM_SUFFIX;
    for (auto& [sectionName, section] : fSections) {
        std::vector<std::string> platformKeys;
        for (auto iter = section.begin(); iter != section.end();) {
            const bool isOther =
                std::any_of(std::begin(OTHER_PLATFORM_SUFFIXES), std::end(OTHER_PLATFORM_SUFFIXES),
                            [&](const char* other) { return endsWith(iter->first, other); });
            if (endsWith(iter->first, suffix)) {
                platformKeys.push_back(iter->first);
            }
            iter = isOther ? section.erase(iter) : std::next(iter);
        }
        for (const std::string& key : platformKeys) {
            section[key.substr(0, key.size() - suffix.size())] = section[key];
            section.erase(key);
        }
    }
}

// ---- lookup ----

const IniEntry* Ini::findEntry(const std::string& section, const std::string& key) const {
    auto sectionIter = fSections.find(section);
    if (sectionIter != fSections.end()) {
        for (const std::string& name : {key + PLATFORM_SUFFIX, key}) {
            auto entryIter = sectionIter->second.find(name);
            if (entryIter != sectionIter->second.end()) {
                return &entryIter->second;
            }
        }
    }
    return fParentIni ? fParentIni->findEntry(section, key) : nullptr;
}

bool Ini::hasEntry(const std::string& section, const std::string& key) const {
    auto sectionIter = fSections.find(section);
    return sectionIter != fSections.end() &&
           (sectionIter->second.count(key + PLATFORM_SUFFIX) != 0 || sectionIter->second.count(key) != 0);
}

std::vector<std::string> Ini::getSections() const {
    std::vector<std::string> names;
    for (const auto& [name, section] : fSections) {
        names.push_back(name);
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::vector<std::string> Ini::getEntryNames(const std::string& section) const {
    std::vector<std::string> names;
    auto iter = fSections.find(section);
    if (iter != fSections.end()) {
        for (const auto& [key, entry] : iter->second) {
            names.push_back(key);
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

size_t Ini::getEntryCount(const std::string& section, const std::string& key) const {
    const IniEntry* entry = findEntry(section, key);
    return entry != nullptr ? entry->fValues.size() : 0;
}

std::string Ini::getEntry(const std::string& section, const std::string& key) const {
    return getEntry(section, key, 0, std::string());
}

std::string Ini::getEntry(const std::string& section, const std::string& key, size_t index) const {
    return getEntry(section, key, index, std::string());
}

std::string Ini::getEntry(const std::string& section, const std::string& key,
                          const std::string& defaultValue) const {
    return getEntry(section, key, 0, defaultValue);
}

std::string Ini::getEntry(const std::string& section, const std::string& key, size_t index,
                          const std::string& defaultValue) const {
    const IniEntry* entry = findEntry(section, key);
    return entry != nullptr && index < entry->fValues.size() ? entry->fValues[index] : defaultValue;
}

std::string Ini::getRawEntry(const std::string& section, const std::string& key) const {
    const IniEntry* entry = findEntry(section, key);
    return entry != nullptr ? toRawForm(entry->fValues) : std::string();
}

// ---- placeholders ----

void Ini::setPlaceholder(const std::string& name, const std::string& value) {
    fPlaceholders[name] = toRawForm({value});
}

bool Ini::findPlaceholder(const std::string& name, std::string& rawValue) const {
    auto iter = fPlaceholders.find(name);
    if (iter != fPlaceholders.end()) {
        rawValue = iter->second;
        return true;
    }
    auto sectionIter = fSections.find(PLACEHOLDERS_SECTION);
    if (sectionIter != fSections.end()) {
        auto entryIter = sectionIter->second.find(name);
        if (entryIter != sectionIter->second.end()) {
            rawValue = toRawForm(entryIter->second.fValues);
            return true;
        }
    }
    return fParentIni && fParentIni->findPlaceholder(name, rawValue);
}

void Ini::expandItem(const std::string& item, const std::set<std::string>& visited,
                     std::vector<std::string>& out) const {
    std::string expanded;
    size_t pos = 0;
    while (pos < item.size()) {
        const size_t start = item.find(PLACEHOLDER_START, pos);
        const size_t end = start == std::string::npos ? start : item.find(PLACEHOLDER_END, start);
        if (end == std::string::npos) {
            expanded += item.substr(pos);
            break;
        }
        expanded += item.substr(pos, start - pos);
        const std::string name = item.substr(start + 2, end - start - 2);
        std::string rawValue;
        if (visited.count(name) != 0 || ! findPlaceholder(name, rawValue)) {
            // Unknown, or on the way already: the placeholder stays as it stands, which ends a cycle.
            expanded += item.substr(start, end + 1 - start);
        } else {
            std::set<std::string> inner = visited;
            inner.insert(name);
            const std::vector<std::string> values = expandItems(parseValueText(rawValue), inner);
            if (start == 0 && end + 1 == item.size()) {
                // Nothing but the placeholder: its whole list stands in the item's place.
                out.insert(out.end(), values.begin(), values.end());
                return;
            }
            expanded += values.empty() ? std::string() : values[0];
        }
        pos = end + 1;
    }
    out.push_back(expanded);
}

std::vector<std::string> Ini::expandItems(const std::vector<std::string>& items,
                                          const std::set<std::string>& visited) const {
    std::vector<std::string> out;
    for (const std::string& item : items) {
        expandItem(item, visited, out);
    }
    return out;
}

std::vector<std::string> Ini::resolvedValues(const std::string& section, const std::string& key) const {
    const IniEntry* entry = findEntry(section, key);
    return entry != nullptr ? expandItems(entry->fValues, {}) : std::vector<std::string>();
}

std::string Ini::getResolvedEntry(const std::string& section, const std::string& key) const {
    return getResolvedEntry(section, key, 0, std::string());
}

std::string Ini::getResolvedEntry(const std::string& section, const std::string& key, size_t index) const {
    return getResolvedEntry(section, key, index, std::string());
}

std::string Ini::getResolvedEntry(const std::string& section, const std::string& key,
                                  const std::string& defaultValue) const {
    return getResolvedEntry(section, key, 0, defaultValue);
}

std::string Ini::getResolvedEntry(const std::string& section, const std::string& key, size_t index,
                                  const std::string& defaultValue) const {
    const std::vector<std::string> values = resolvedValues(section, key);
    return index < values.size() ? values[index] : defaultValue;
}

std::string Ini::getRawResolvedEntry(const std::string& section, const std::string& key) const {
    const IniEntry* entry = findEntry(section, key);
    return entry != nullptr ? toRawForm(resolvedValues(section, key)) : std::string();
}

// ---- changes ----

void Ini::noteChange() {
    fIsChanged = true;
}

void Ini::setEntry(const std::string& section, const std::string& key, const std::string& value) {
    IniEntry& entry = fSections[section][key];
    entry.fValues = {value};
    entry.fHash = 0;
    noteChange();
}

void Ini::setEntry(const std::string& section, const std::string& key, size_t index,
                   const std::string& value) {
    IniEntry& entry = fSections[section][key];
    if (entry.fValues.size() <= index) {
        entry.fValues.resize(index + 1);
    }
    entry.fValues[index] = value;
    entry.fHash = 0;
    noteChange();
}

void Ini::removeEntry(const std::string& section, const std::string& key) {
    auto iter = fSections.find(section);
    if (iter != fSections.end() && iter->second.erase(key) != 0) {
        // A section goes with its last entry, as a text without it would read.
        if (iter->second.empty()) {
            fSections.erase(iter);
        }
        noteChange();
    }
}

void Ini::removeEntry(const std::string& section, const std::string& key, size_t index) {
    auto iter = fSections.find(section);
    if (iter == fSections.end()) {
        return;
    }
    auto entryIter = iter->second.find(key);
    if (entryIter != iter->second.end() && index < entryIter->second.fValues.size()) {
        entryIter->second.fValues.erase(entryIter->second.fValues.begin() + static_cast<ptrdiff_t>(index));
        entryIter->second.fHash = 0;
        noteChange();
    }
}

bool Ini::setParent(const std::shared_ptr<Ini>& parentIni) {
    bool retVal = false;
    do {
        SANITY_CHECK(parentIni);
        SANITY_CHECK(! fParentIni);
        fParentIni = parentIni;
        retVal = true;
    } while (false);
    return retVal;
}

// ---- text and comparison ----

std::string Ini::toString() const {
    if (! fIsChanged) {
        return fIniStr;
    }
    std::string text;
    for (const std::string& section : getSections()) {
        // Entries without a section stand ahead of the first header, where they came from.
        if (! section.empty()) {
            text += "[" + section + "]\n";
        }
        const IniSection& entries = fSections.at(section);
        for (const std::string& key : getEntryNames(section)) {
            text += key + "=" + toRawForm(entries.at(key).fValues) + "\n";
        }
    }
    return text;
}

uint64_t Ini::hash() const {
    uint64_t hash = 0;
    for (const auto& [section, entries] : fSections) {
        for (const auto& [key, entry] : entries) {
            if (entry.fHash == 0) {
                uint64_t itemsHash = FNV1aHash::OFFSET_BASIS;
                for (const std::string& value : entry.fValues) {
                    // The length keeps ["ab"] apart from ["a", "b"].
                    itemsHash = FNV1aHash::hashBytes(std::to_string(value.size()) + ":" + value, itemsHash);
                }
                entry.fHash = itemsHash;
            }
            hash ^= FNV1aHash::hashBytes(key, FNV1aHash::hashBytes(section)) * FNV1aHash::PRIME + entry.fHash;
        }
    }
    return hash;
}

bool Ini::operator==(const Ini& other) const {
    if (fSections.size() != other.fSections.size()) {
        return false;
    }
    for (const auto& [section, entries] : fSections) {
        auto otherIter = other.fSections.find(section);
        if (otherIter == other.fSections.end() || otherIter->second.size() != entries.size()) {
            return false;
        }
        for (const auto& [key, entry] : entries) {
            auto otherEntry = otherIter->second.find(key);
            if (otherEntry == otherIter->second.end() || otherEntry->second.fValues != entry.fValues) {
                return false;
            }
        }
    }
    return true;
}

// ---- IniFile ----

IniFile::IniFile(const std::string& filePath) : fFilePath(filePath) {
    if (Dirs::fileExists(fFilePath, TrailingPathCharHandling::Ignore)) {
        VERIFY(parseFile());
    }
}

IniFile::~IniFile() {
    // NOTE: only unsaved changes are written: an Ini read and left alone never touches its file.
    if (fIsDirty) {
        VERIFY(save());
    }
}

void IniFile::noteChange() {
    Ini::noteChange();
    fIsDirty = true;
}

bool IniFile::parseFile() {
    bool retVal = false;
    do {
        std::string text;
        SANITY_CHECK(Dirs::readFile(fFilePath, text) == FileReadResult::READ);
        SANITY_CHECK(parse(text));
        fFileTime = Dirs::getFileTime(fFilePath);
        fIsDirty = false;
        retVal = true;
    } while (false);
    return retVal;
}

bool IniFile::isChanged() const {
    return Dirs::getFileTime(fFilePath) != fFileTime;
}

bool IniFile::readUpdate() {
    bool retVal = false;
    do {
        SANITY_CHECK(! fIsDirty);
        if (isChanged()) {
            SANITY_CHECK(parseFile());
        }
        retVal = true;
    } while (false);
    return retVal;
}

bool IniFile::save() {
    bool retVal = false;
    do {
        if (fFilePath.empty()) {
            retVal = true;
            break;
        }
        SANITY_CHECK(! Dirs::exists(fFilePath) || Dirs::fileExists(fFilePath));
        SANITY_CHECK(Dirs::writeFileWhole(fFilePath, toString()));
        fFileTime = Dirs::getFileTime(fFilePath);
        fIsDirty = false;
        retVal = true;
    } while (false);
    return retVal;
}

} // namespace Brw
