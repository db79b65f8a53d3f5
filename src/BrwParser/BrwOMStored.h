#pragma once

#include <memory>
#include <string>
#include <unordered_map>

#include "BrwParser/BrwOMNode.h"
#include "BrwParser/BrwScriptLimits.h"
#include "BrwParser/BrwToken.h"

namespace Brw {

class InputStream;
class OMScope;

// The value that scripts hold and messages carry: one of the fourteen kinds, with a permission table per
// attribute of a map. Arrays and maps are shared between plain variables and copied into data
// structures. A stored node is also the parser's home: parsing into a node makes it the value of the text.
class OMStored : public virtual OMNode {
public:
    using IOMNode::set;
    using OMNode::getType;

    static constexpr uint32_t PERMISSION_READ = 1;
    static constexpr uint32_t PERMISSION_WRITE = 2;
    static constexpr uint32_t PERMISSION_DEFAULT = 7;
    static constexpr uint64_t CLONE_ALL_LEVELS = ~uint64_t(0);

    OMStored();
    ~OMStored() override;

    static std::shared_ptr<OMStored> undefinedFactory();
    static std::shared_ptr<OMStored> nullFactory();
    static std::shared_ptr<OMStored> nanFactory();
    static std::shared_ptr<OMStored> errorFactory();
    static std::shared_ptr<OMStored> arrayFactory();
    static std::shared_ptr<OMStored> mapFactory();
    static std::shared_ptr<OMStored> factory(bool value);
    static std::shared_ptr<OMStored> factory(OMInt value);
    static std::shared_ptr<OMStored> factory(int value) { return factory(static_cast<OMInt>(value)); }
    static std::shared_ptr<OMStored> factory(OMFloat value);
    static std::shared_ptr<OMStored> factory(const char* value);
    static std::shared_ptr<OMStored> factory(const std::string& value);
    static std::shared_ptr<OMStored> factory(const std::shared_ptr<OMArray>& array);
    static std::shared_ptr<OMStored> factory(const std::shared_ptr<OMExpression>& expression);
    static std::shared_ptr<OMStored> factory(const std::shared_ptr<FunctionSignature>& signature,
                                             const std::shared_ptr<OMExpression>& expression);
    // A new node holding a copy of `from`'s value, `cloneNestLevel` container levels deep.
    static std::shared_ptr<OMStored> cloneFactory(const IOMNode& from, uint64_t cloneNestLevel);
    // `from` itself when it is stored; else a new stored node with its value.
    static std::shared_ptr<OMStored> rewrapFactory(const IOMNode& from);
    // The number a text reads as, by the script's number rules; NaN when it isn't one.
    static double numberFromText(const std::string& text);
    // Script calls nested on the native stack now.
    static int64_t getCallDepth() { return fCallDepth; }
    // Nodes alive now: a run that leaves none behind returns this to where it was.
    static int64_t getOMStoredCount() { return fOMStoredCount; }

    // Own operations
    // Calls this node as a script function: a new frame below `scope` with the parameters bound, the body
    // evaluated there and a return value unwrapped. `useThis` makes `thisNode` the frame's "this";
    // otherwise a `thisNode` is the first parameter. Nothing happens when this isn't a function.
    virtual void callNodeAsFunction_yielding(const TaskPtr& task, NodePtr& out, bool useThis,
                                             const NodePtr& thisNode, const OMArgs& args,
                                             const ScopePtr& scope);
    // Finds the function `name` (a member of `thisNode` first when `useThis`, else in `scope`) and calls
    // it; `out` stays empty when there is none.
    static void functionOperation_yielding(const TaskPtr& task, NodePtr& out, const std::string& name,
                                           bool useThis, const NodePtr& thisNode, const OMArgs& args,
                                           const ScopePtr& scope);
    // Parses one expression of `stream` into this node (see ExpressionParser).
    virtual void parseExpression_yielding(const TaskPtr& task, bool& success,
                                          const std::shared_ptr<InputStream>& stream, uint64_t parenNesting,
                                          int32_t parseType);
    // Parses all statements of `stream` into this node, without evaluating; undefined after a failure.
    virtual void parseExpressionList_yielding(const TaskPtr& task, bool& success,
                                              const std::shared_ptr<InputStream>& stream);
    // Reads the task's stream statement by statement, evaluating each at once in `scope`; on a prompted
    // stream the value of a statement ended by a line end is echoed. A statement that fails to parse is
    // reported and the loop goes on; this node holds the value of the last statement.
    virtual void parseAndEvalStream_yielding(const TaskPtr& task, bool& success, const ScopePtr& scope);
    // The statement loop of parseAndEvalStream_yielding over a given stream.
    void parseAndEvalFrom_yielding(const TaskPtr& task, bool& success, const ScopePtr& scope,
                                   const std::shared_ptr<InputStream>& stream);
    // Runs the script file at `scriptFilePath` in `scope` statement by statement; `out` is the value of
    // its last statement, or an error value when the file can't be read.
    virtual void evalScript_yielding(const TaskPtr& task, NodePtr& out, const ScopePtr& scope,
                                     const std::string& scriptFilePath, HandleReturnValue handleReturnValue);
    virtual std::shared_ptr<OMArray> getArray() const { return fArray; }
    virtual bool getArrayBegin(OMArray::const_iterator& position) const;
    virtual std::shared_ptr<OMMap> getMap() const { return fMap; }
    virtual bool getMapBegin(OMMap::const_iterator& position) const;
    virtual uint32_t getPermissions(const std::string& attr) const;
    virtual bool setGUID(GUIDClass* guid);
    virtual bool setPermissions(const std::string& attr, uint32_t permissions);

    // IOMNode
    bool accessOMNodeResolved(const ScopePtr& scope, const OMArgs& args, AccessType accessType,
                              const std::string& attr, NodePtr& out) override;
    bool accessOMNodeResolved(const ScopePtr& scope, const OMArgs& args, AccessType accessType, uint64_t idx,
                              NodePtr& out) override;
    void accessOMNodeResolved_yielding(const TaskPtr& task, bool& found, const ScopePtr& scope,
                                       const OMArgs& args, AccessType accessType, const std::string& attr,
                                       NodePtr& out) override;
    void accessOMNodeResolved_yielding(const TaskPtr& task, bool& found, const ScopePtr& scope,
                                       const OMArgs& args, AccessType accessType, uint64_t idx,
                                       NodePtr& out) override;
    bool accessOMNodeReadOnlyResolved(const ScopePtr& scope, const OMArgs& args, uint64_t idx,
                                      NodePtr& out) const override;
    bool accessOMNodeReadOnlyResolved(const ScopePtr& scope, const OMArgs& args, const std::string& attr,
                                      NodePtr& out) const override;
    void accessOMNodeReadOnlyResolved_yielding(const TaskPtr& task, bool& found, const ScopePtr& scope,
                                               const OMArgs& args, uint64_t idx, NodePtr& out) const override;
    void accessOMNodeReadOnlyResolved_yielding(const TaskPtr& task, bool& found, const ScopePtr& scope,
                                               const OMArgs& args, const std::string& attr,
                                               NodePtr& out) const override;
    bool isMapEnd(const OMMap::const_iterator& iterator) const override;
    bool isArrayEnd(const OMArray::const_iterator& iterator) const override;
    NodePtr clone(uint64_t cloneNestLevel) const override;
    bool removeAttr(const std::string& attr) override;
    bool removeIdx(uint64_t idx) override;
    // Appends to the text of a String.
    [[nodiscard]] bool appendString(const std::string& text);
    // A call of this function, without frames, when its body only reads (it has no shape beyond read-only):
    // false when anything in it must take the long way, and then the call may be made again from the start.
    bool callReadOnlyDirect(const TaskPtr& task, const ScopePtr& scope, const OMArgs& args,
                            NodePtr& out) const;
    // The quick form of this function (see OMQuickFunction); null for anything else.
    const class OMQuickFunction* getQuickFunction() const;
    void eval_yielding(const TaskPtr& task, NodePtr& out, const ScopePtr& scope,
                       HandleReturnValue handleReturnValue) override;
    bool getBool() const override;
    OMInt getDate() const override;
    OMFloat getFloat() const override;
    std::shared_ptr<OMExpression> getExpression() const override { return fExpression; }
    std::shared_ptr<FunctionSignature> getFunctionSignature() const override { return fFunctionSignature; }
    GUIDClass* getGUID() const override;
    OMInt getInt() const override;
    std::vector<std::string> getKeys() const override;
    std::shared_ptr<IOMNodeIterator> getIterator() const override;
    std::shared_ptr<OMStored> getOMStoredPtr() override;
    const OMStored* getOMStoredRaw() const override { return this; }
    // Whether a write of this child stays within the element limit; says nothing when it doesn't.
    bool isStoreWithinLimit(uint64_t idx) const;
    bool isStoreWithinLimit(const std::string& attr) const;
    uint64_t getSize() const override;
    std::string getString() const override;
    // The byte count of a String's text, without a copy of it; 0 for the other kinds.
    uint64_t getTextSize() const { return fType == OMType::String ? fString.size() : 0; }
    OMType getType() const override { return fType; }
    NodePtr pop() override;
    bool push(const NodePtr& node) override;
    bool set(const std::shared_ptr<FunctionSignature>& signature,
             const std::shared_ptr<OMExpression>& expression) override;
    bool set(const std::shared_ptr<OMExpression>& expression) override;
    bool set(const std::shared_ptr<OMMap>& map) override;
    bool set(const std::shared_ptr<OMArray>& array) override;
    bool set(const char* str) override;
    bool set(const std::string& str) override;
    bool set(OMInt value) override;
    bool set(OMFloat value) override;
    bool set(bool value) override;
    void set_yielding(const TaskPtr& task, NodePtr& out, uint64_t idx, const NodePtr& fromNode) override;
    void set_yielding(const TaskPtr& task, NodePtr& out, const std::string& attr,
                      const NodePtr& fromNode) override;
    void setAndAccess_yielding(const TaskPtr& task, bool& found, uint64_t idx, NodePtr& node) override;
    void setAndAccess_yielding(const TaskPtr& task, bool& found, const std::string& attr,
                               NodePtr& node) override;
    bool setDate(OMInt date) override;
    bool setEmptyArray() override;
    bool setEmptyMap() override;
    bool setError() override;
    bool setNaN() override;
    bool setNull() override;
    bool setIsDataStructure(bool isDataStructure) override;
    bool setTo(const IOMNode& from, uint64_t cloneNestLevel) override;
    bool setUndefined() override;
    NodePtr setSync(uint64_t idx, const NodePtr& node) override;
    NodePtr setSync(const std::string& attr, const NodePtr& node) override;

private:
    // The write access to a child (SET or GET_CREATE): `out` is stored, or the child there is handed out,
    // or a new Undefined child is made; a data structure keeps its own copy.
    bool storeInMap(const std::string& attr, NodePtr& out);
    bool storeInArray(uint64_t idx, NodePtr& out);
    // The child that a write stores: a node of another tree is copied into a data structure.
    NodePtr adoptChild(const NodePtr& node, const std::string& key);
    bool readChild(const std::string& attr, NodePtr& out) const;
    bool readChild(uint64_t idx, NodePtr& out) const;
    // Grows the array with undefined elements until `idx` is in it; false past the element limit.
    [[nodiscard]] bool fillArrayUpTo(uint64_t idx);
    // Finds or makes the child `key` and gives it the value of `node`: the child, or null.
    template <class Key>
    NodePtr setChild(const Key& key, const NodePtr& node);
    // setChild, handing the child back in `node`.
    template <class Key>
    void setAndAccessChild(bool& found, const Key& key, NodePtr& node);
    // Binds a variable of a call's frame.
    // Binds a call's parameters, its locals and, when asked, "this" and "arguments" in its frame.
    static bool bindCallFrame(OMScope& callFrame, const FunctionSignature& functionSignature, bool useThis,
                              const NodePtr& thisNode, const OMArgs& args, bool isBindingFrameNames);
    // Binds "this" (the this-node, else the first argument) and "arguments" (all of them) in a call's frame.
    static void bindFrameNames(OMScope& callFrame, const NodePtr& thisNode, const OMArgs& args);
    static void bindInFrame(OMScope& callFrame, const std::string& name, const NodePtr& value,
                            NodePtr& stored);
    // Copies the children of `from` into this node's new container.
    bool copyContainerFrom(const IOMNode& from, uint64_t cloneNestLevel);

    OMType fType = OMType::Undefined; // the current kind
    union {
        bool fBool;
        OMInt fInt;
        OMFloat fFloat;
        OMInt fDate; // seconds since the epoch, UTC
        GUIDClass* fGUID;
    } fUnion{};                      // the scalar, chosen by fType
    std::string fString;             // the text of a String
    std::shared_ptr<OMArray> fArray; // set only for an Array
    std::shared_ptr<OMMap> fMap;     // set only for a Map
    std::unique_ptr<std::unordered_map<std::string, uint32_t>>
        fPermissions;                                      // attributes not at 7; made on need
    std::shared_ptr<FunctionSignature> fFunctionSignature; // set for a Function
    std::shared_ptr<OMExpression> fExpression;             // an Expression, or a Function's body

    static inline int64_t fOMStoredCount = 0;           // nodes alive now
    static inline int64_t fCallDepth = 0;               // script calls nested on the native stack now
    static inline bool fIsDirectDepthExhausted = false; // a call without frames found the stack too deep

    // ---- Tokens and lexical rules (BrwOMStoredLiterals.cpp) ----
public:
    // Fills the token tables; runs once, from a static initialiser, before anything is parsed.
    [[nodiscard]] static bool initTokens();
    // Enters a word into both tables; refused when the token or the text is there already.
    [[nodiscard]] static bool defineToken(Token token, const std::string& tokenStr);
    // The token a word is, case-sensitively; _NO_TOKEN for a plain name.
    static Token getToken(const std::string& tokenStr);
    // The text of a token; empty for a number that is none.
    static std::string getTokenStr(Token token);
    // Blank, tab, line feed and carriage return; not vertical tab or form feed.
    static bool isWhitespace(int c);
    // Whether `c` may stand at `position` of a name: letters, '_' and '$', and digits after the first.
    static bool isIdentifierChar(int c, uint64_t position);

    // The forms of number that parseNum reads besides an integer of a base from 2 to 36.
    static constexpr int NUMBER_SCRIPT_LITERAL = -3; // decimal or 0x hexadecimal, with fraction and exponent
    static constexpr int NUMBER_INTEGER = -2;        // decimal or 0x hexadecimal integer
    static constexpr int NUMBER_DECIMAL = -1;        // decimal, with fraction and exponent

    // Reads a number into this node; `base` is one of the NUMBER_ forms or a base from 2 to 36. The first
    // character that doesn't fit stays unread; no number at all is NaN. False only for a bad base or stream.
    [[nodiscard]] bool parseNum(const std::shared_ptr<InputStream>& stream, int base);
    void parseNum_yielding(const TaskPtr& task, bool& success, const std::shared_ptr<InputStream>& stream,
                           int base);

protected:
    // Skips whitespace, not comments: `c` is the next other character, peeked, or AT_END.
    static void skipWhitespace_yielding(const TaskPtr& task, int& c,
                                        const std::shared_ptr<InputStream>& stream);
    // Peeks, waiting while nothing is there yet: `c` is a character or AT_END, never NOTHING_YET.
    static void peekChar_yielding(const TaskPtr& task, int& c, const std::shared_ptr<InputStream>& stream);
    // Reads a name by the identifier rule; empty when the next character can't start one.
    static void parseName_yielding(const TaskPtr& task, std::string& name,
                                   const std::shared_ptr<InputStream>& stream);
    // Skips whitespace, then consumes `chars`; on a mismatch the stream goes back and `success` stays false.
    virtual void parseChars_yielding(const TaskPtr& task, bool& success,
                                     const std::shared_ptr<InputStream>& stream, const std::string& chars);
    // parseChars_yielding for a whole word: refused when a name character follows ("else" in "elsewhere").
    virtual void parseKeyword_yielding(const TaskPtr& task, bool& success,
                                       const std::shared_ptr<InputStream>& stream,
                                       const std::string& keyword);
    friend class ExpressionParser;
    // A string literal after its opening `quote`, up to and with the closing one; this node becomes the
    // decoded text. On failure `errorMessage` says why, for the caller to report.
    void parseString_yielding(const TaskPtr& task, bool& success, std::string& errorMessage,
                              const std::shared_ptr<InputStream>& stream, int quote);
    // A here-document after `<<<`: the header line with its delimiter, then the text up to the delimiter
    // at the start of a line; this node becomes the text. A malformed header fails with no message.
    void parseHereDocument_yielding(const TaskPtr& task, bool& success, std::string& errorMessage,
                                    const std::shared_ptr<InputStream>& stream);
    // After a consumed '/': skips a line or block comment (`success`). When no comment follows, the stream
    // stands on the '/' again, `success` is false and `errorMessage` empty.
    static void parseComment_yielding(const TaskPtr& task, bool& success, std::string& errorMessage,
                                      const std::shared_ptr<InputStream>& stream);

private:
    static std::unordered_map<Token, std::string> fTokenToStrMap;            // token to its text
    static std::unordered_map<std::string, Token, FNV1aHash> fStrToTokenMap; // text to its token
};

// Iterates an array or a map; any other node is at its end at once.
class OMStoredNodeIterator : public IOMNodeIterator {
public:
    explicit OMStoredNodeIterator(const std::shared_ptr<const OMStored>& node);

    bool isAtEnd() const override;
    uint64_t getIdx() const override;
    std::string getKey() const override;
    IOMNodeIterator& operator++() override;
    std::shared_ptr<IOMNode> operator*() const override;

private:
    std::shared_ptr<const OMStored> fOMStoredNode; // the node iterated
    std::shared_ptr<OMArray> fArray;               // its array, held while iterating
    std::shared_ptr<OMMap> fMap;                   // its map, held while iterating
    OMArray::const_iterator fArrayPosition;        // current element of an array
    OMArray::const_iterator fArrayFirst;           // first element of an array
    OMMap::const_iterator fMapPosition;            // current attribute of a map
};

} // namespace Brw
