#pragma once

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "BrwUtils/BrwHash.h"

namespace Brw {

// One key's value: a list of strings, stored decoded (quotes gone, escapes turned into their bytes).
struct IniEntry {
    std::vector<std::string> fValues; // the items
    mutable uint64_t fHash = 0;       // hash of the items; 0: not computed yet
};

using IniSection = std::unordered_map<std::string, IniEntry, FNV1aHash>;

// Configuration text: sections of keys whose values are lists of strings. A value may hold placeholders
// "${NAME}", expanded on reading, and a key may have a variant for one platform (".linux", ".mac",
// ".windows"). Get operations never fail and never write: a missing entry is "" or the default.
class IIni {
public:
    virtual ~IIni() = default;

    [[nodiscard]] virtual bool parse(const std::string& iniStr) = 0;
    virtual std::vector<std::string> getSections() const = 0;
    virtual std::vector<std::string> getEntryNames(const std::string& section) const = 0;
    virtual size_t getEntryCount(const std::string& section, const std::string& key) const = 0;
    virtual std::string getEntry(const std::string& section, const std::string& key, size_t index,
                                 const std::string& defaultValue) const = 0;
    virtual std::string getRawEntry(const std::string& section, const std::string& key) const = 0;
    virtual std::string getResolvedEntry(const std::string& section, const std::string& key, size_t index,
                                         const std::string& defaultValue) const = 0;
    virtual std::string getRawResolvedEntry(const std::string& section, const std::string& key) const = 0;
    virtual void setEntry(const std::string& section, const std::string& key, size_t index,
                          const std::string& value) = 0;
    virtual void removeEntry(const std::string& section, const std::string& key) = 0;
    virtual void removeEntry(const std::string& section, const std::string& key, size_t index) = 0;
    virtual void setPlaceholder(const std::string& name, const std::string& value) = 0;
    virtual std::string toString() const = 0;
    virtual uint64_t hash() const = 0;
};

class Ini : public virtual IIni {
public:
    static constexpr const char* TYPENAME = "Ini";
    // The section whose entries are also placeholders of the whole file.
    static constexpr const char* PLACEHOLDERS_SECTION = "placeholders";
    // The key suffix this build takes; the other platforms' suffixes are dropped.
    static constexpr const char* PLATFORM_SUFFIX = ".linux";

    explicit Ini(const std::string& iniStr = std::string());
    ~Ini() override = default;

    // Replaces the sections and the file's placeholders by those of the text; true for any text: lines
    // that can't be read are skipped.
    [[nodiscard]] bool parse(const std::string& iniStr) override;

    std::vector<std::string> getSections() const override;
    std::vector<std::string> getEntryNames(const std::string& section) const override;
    // True when this Ini itself, not its parent chain, has the entry.
    bool hasEntry(const std::string& section, const std::string& key) const;
    // The number of items; 0 for a missing entry.
    size_t getEntryCount(const std::string& section, const std::string& key) const override;
    // An item as stored, placeholders left as text.
    std::string getEntry(const std::string& section, const std::string& key) const;
    std::string getEntry(const std::string& section, const std::string& key, size_t index) const;
    std::string getEntry(const std::string& section, const std::string& key,
                         const std::string& defaultValue) const;
    std::string getEntry(const std::string& section, const std::string& key, size_t index,
                         const std::string& defaultValue) const override;
    // The text that parses to the same list: each item quoted and escaped, joined by ",".
    std::string getRawEntry(const std::string& section, const std::string& key) const override;
    // The same four forms as getEntry, with the placeholders expanded.
    std::string getResolvedEntry(const std::string& section, const std::string& key) const;
    std::string getResolvedEntry(const std::string& section, const std::string& key, size_t index) const;
    std::string getResolvedEntry(const std::string& section, const std::string& key,
                                 const std::string& defaultValue) const;
    std::string getResolvedEntry(const std::string& section, const std::string& key, size_t index,
                                 const std::string& defaultValue) const override;
    std::string getRawResolvedEntry(const std::string& section, const std::string& key) const override;

    // Sets the entry to one item, or sets the item at `index`; sections, keys and items are made as
    // needed.
    void setEntry(const std::string& section, const std::string& key, const std::string& value);
    void setEntry(const std::string& section, const std::string& key, size_t index,
                  const std::string& value) override;
    void removeEntry(const std::string& section, const std::string& key) override;
    void removeEntry(const std::string& section, const std::string& key, size_t index) override;
    // A placeholder of plain text, set from outside: it wins over the file's own of that name.
    void setPlaceholder(const std::string& name, const std::string& value) override;
    // Links the next Ini of a stack: entries and placeholders this one lacks are looked up there. Once.
    [[nodiscard]] bool setParent(const std::shared_ptr<Ini>& parentIni);
    const std::shared_ptr<Ini>& getParent() const { return fParentIni; }

    // The text given to parse while nothing was changed; after a change the text built anew, sections
    // and keys sorted, which parses to an equal Ini.
    std::string toString() const override;
    // Over sections, keys and items, whatever their order; placeholders set from outside don't count.
    uint64_t hash() const override;
    bool operator==(const Ini& other) const;

    // The items of a value text: one unquoted item as it stands, or a list of quoted items.
    static std::vector<std::string> parseValueText(const std::string& valueText);
    // The raw form of a list of items.
    static std::string toRawForm(const std::vector<std::string>& values);

protected:
    // Marks the text as changed; an IniFile also becomes dirty.
    virtual void noteChange();

private:
    // The entry of this Ini or of the parent chain, the platform's variant first; null when none.
    const IniEntry* findEntry(const std::string& section, const std::string& key) const;
    // The raw value of a placeholder, from outside, from the section, or from the parent chain.
    bool findPlaceholder(const std::string& name, std::string& rawValue) const;
    // The items with their placeholders expanded; names in `visited` stay as they are.
    std::vector<std::string> expandItems(const std::vector<std::string>& items,
                                         const std::set<std::string>& visited) const;
    // Adds the expansion of one item to `out`: an item that is no more than one placeholder becomes that
    // placeholder's whole list; in any other item each placeholder is replaced by its first item.
    void expandItem(const std::string& item, const std::set<std::string>& visited,
                    std::vector<std::string>& out) const;
    std::vector<std::string> resolvedValues(const std::string& section, const std::string& key) const;
    // Keeps the key of this platform in place of the plain one, and drops the other platforms' keys.
    void selectPlatformKeys();

    std::string fIniStr; // the text last parsed, unchanged
    // Placeholders set from outside, name to raw value; the file's own are its section "placeholders".
    std::unordered_map<std::string, std::string, FNV1aHash> fPlaceholders;
    std::unordered_map<std::string, IniSection, FNV1aHash> fSections; // the entries
    std::shared_ptr<Ini> fParentIni;                                  // the next Ini of the stack; set once
    bool fIsChanged = false; // set since the last parse: toString builds the text anew
};

// An Ini bound to a file: read at construction, re-read when the file changed, written back whole.
class IniFile : public Ini {
public:
    static constexpr const char* TYPENAME = "IniFile";

    // Reads the file if there is one.
    explicit IniFile(const std::string& filePath);
    // Writes unsaved changes back.
    ~IniFile() override;
    IniFile(const IniFile&) = delete;
    IniFile& operator=(const IniFile&) = delete;

    [[nodiscard]] bool parseFile();
    // True when the file's modification time differs from the one of the last read or write.
    bool isChanged() const;
    // Reads the file again when it changed; a failure when there are unsaved changes.
    [[nodiscard]] bool readUpdate();
    // Writes the text whole over the file; nothing to do without a path.
    [[nodiscard]] bool save();
    const std::string& getFilePath() const { return fFilePath; }
    bool isDirty() const { return fIsDirty; }

protected:
    void noteChange() override;

private:
    std::string fFilePath; // the file; may be empty
    int64_t fFileTime = 0; // its modification time at the last read or write; 0 when there was none
    bool fIsDirty = false; // changed since the last read or write
};

} // namespace Brw
