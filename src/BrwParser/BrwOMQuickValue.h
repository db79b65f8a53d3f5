#pragma once

#include <cstdint>
#include <memory>

#include "BrwParser/BrwIOMNode.h"

namespace Brw {

class OMStored;

// A value as quick code computes with it: numbers, truth values and the empty values held without a node;
// a text as a node of its own that nothing else holds or changes; a container as the shared node. The
// operations give exactly what the operators of the language give on nodes.
struct OMQuickValue {
    OMType fType = OMType::Undefined;
    union {
        OMInt fInt;
        OMFloat fFloat;
        bool fBool;
    };
    std::shared_ptr<IOMNode> fNode; // set for a String, Map or Array

    OMQuickValue() : fInt(0) {}
    // False when `node` holds a value of another type, or one that isn't final. A text is copied.
    static bool fromNode(const std::shared_ptr<IOMNode>& node, OMQuickValue& value);
    // A whole number in range is an Int, NaN is NaN, anything else a Float: as a node stores a number.
    static OMQuickValue fromNum(double number);
    static OMQuickValue fromInt(OMInt number);
    static OMQuickValue fromBool(bool truth);
    // A node with this value: a new one, but for a container.
    std::shared_ptr<IOMNode> toNode() const;
    // Gives `node` this value; false when the node refuses.
    [[nodiscard]] bool storeInto(IOMNode& node) const;

    // Held without a node.
    bool isPlain() const { return ! fNode; }
    bool isContainer() const { return fType == OMType::Map || fType == OMType::Array; }
    double asNum() const;
    bool asBool() const;
    int64_t asBits() const;

    // The operators that the quick path runs; false for the others, and for a container operand. `result`
    // may be one of the operands.
    static bool binary(BinOp op, const OMQuickValue& left, const OMQuickValue& right, OMQuickValue& result) {
        if (left.isPlain() && right.isPlain()) {
            return plainBinary(op, left, right, result);
        }
        return nodeBinary(op, left, right, result);
    }
    static bool unary(UnOp op, const OMQuickValue& operand, OMQuickValue& result);
    static bool isQuickBinary(int32_t op);
    static bool isQuickUnary(int32_t op);

private:
    // A result nobody else holds: a text is taken as it is.
    static bool fromOwnNode(const std::shared_ptr<IOMNode>& node, OMQuickValue& value);
    // The same for two plain values, without nodes, and for the others, with nodes.
    static bool plainBinary(BinOp op, const OMQuickValue& left, const OMQuickValue& right,
                            OMQuickValue& result);
    static bool nodeBinary(BinOp op, const OMQuickValue& left, const OMQuickValue& right,
                           OMQuickValue& result);
};

} // namespace Brw
