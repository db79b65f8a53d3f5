#pragma once

#include <memory>
#include <string>

#include "BrwData/BrwData_abstract.h"
#include "BrwParser/BrwIOMNode.h"

namespace Brw {

// A script value as a data object: it travels as its stringified text and is parsed back on arrival.
// Two are equal when they travel as the same text. The text forms are not exact (floats keep six
// decimals, strings go out unescaped), so a value may arrive changed, and a string with a double quote in
// it doesn't parse back at all.
class DataOM : public Data_abstract {
public:
    static constexpr const char* TYPENAME = "DataOM";
    // The text of a DataOM without a node.
    static constexpr const char* NULL_TEXT = "null";
    // How much of the value toString shows.
    static constexpr size_t TO_STRING_LENGTH = 34;

    // Holds `node` itself, which may be null.
    static std::shared_ptr<IObject> factoryFromOMNode(const std::shared_ptr<IOMNode>& node);
    // Holds the value that `text` parses to; null when it doesn't parse.
    static std::shared_ptr<IObject> factoryFromJSONStr(const std::string& text);
    static std::shared_ptr<IObject> factoryFromSerialized(const std::shared_ptr<IObject>& serializerObj);
    [[nodiscard]] static bool registerDeregisterClass(RegisterDeregister registerDeregister);

    std::string typeName() const override { return TYPENAME; }
    const std::shared_ptr<IOMNode>& getOMNode() const { return fOMNode; }
    bool serializeDeserializeContent(SerializeDeserialize mode,
                                     const std::shared_ptr<IObject>& serializerObj) override;
    uint64_t hash() const override;
    bool operator==(const IObject* other) const override;
    // The object's text, then " OM = " and the start of the value's.
    std::string toString() const override;
    // The line that the value travels as, unescaped.
    std::string getContentText() const;

protected:
    explicit DataOM(std::shared_ptr<IOMNode> node) : fOMNode(std::move(node)) {}
    friend class Object;

private:
    // Parses `jsonString` into a new node.
    [[nodiscard]] static bool parseNode(const std::string& jsonString, std::shared_ptr<IOMNode>& node);

    std::shared_ptr<IOMNode> fOMNode; // the value; may be null
};

} // namespace Brw
