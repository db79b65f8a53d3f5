#pragma once

#include <memory>
#include <string>
#include <vector>

#include "BrwMessage/BrwOpCode.h"
#include "BrwParser/BrwOMExpression.h"
#include "BrwParser/BrwToken.h"

namespace Brw {

class OutputStream;

// What one evaluation of a left value found: its written arguments, evaluated, and the value of its
// parent. The parent counts as argument 0 (so `a.f()` is `f(a)`) unless it is the `this` of a method.
class OMExpressionLValueResolution {
public:
    virtual ~OMExpressionLValueResolution() = default;
    // Argument `index`, the parent first; a new Undefined node past the end.
    virtual std::shared_ptr<IOMNode> getArgument(size_t index) const;
    virtual size_t getArgumentCount() const;
    // False, with the script error "insufficient arguments" reported, when there are fewer than `needed`.
    [[nodiscard]] bool hasArguments(size_t needed) const;
    virtual std::shared_ptr<IOMNode> getThisNode() const { return fThisNode; }
    virtual void setThisIsNoArgument(bool thisIsNoArgument) { fThisIsNoArgument = thisIsNoArgument; }
    [[nodiscard]] virtual bool setThisNode(const std::shared_ptr<IOMNode>& thisNode);

    bool fThisIsNoArgument = false;     // the parent is `this` of a method, not argument 0
    OMArgs fResolvedArgumentList;       // the written arguments, evaluated in order
    std::shared_ptr<IOMNode> fThisNode; // value of the parent
};

// Everything that names something: a name, a member, an element, a call, a built-in. A chain such as
// `a.b[1].c()` is a row of left values, each with the one before it as parent.
class OMExpressionLValue : public virtual OMExpression {
public:
    OMExpressionLValue(const std::shared_ptr<IOMNode>& parent, const OMArgs& argumentList)
        : fParent(parent), fUnresolvedArgumentList(argumentList) {}

    // `parent[indexExpression]`.
    static std::shared_ptr<OMExpressionLValue> factory(const std::shared_ptr<IOMNode>& parent,
                                                       const std::shared_ptr<IOMNode>& indexExpression,
                                                       const OMArgs& argumentList);

    using OMExpression::get_yielding;
    void get_yielding(const std::shared_ptr<Task>& task, std::shared_ptr<IOMNode>& result,
                      AccessType accessType, const std::shared_ptr<OMScope>& scope,
                      ScriptPhase phase) override;
    // The long form: with `optionalNewValue` set, the value is written where this left value names.
    virtual void get_yielding(const std::shared_ptr<Task>& task, std::shared_ptr<IOMNode>& result,
                              AccessType accessType, const std::shared_ptr<OMScope>& scope, ScriptPhase phase,
                              std::shared_ptr<IOMNode>& optionalNewValue) = 0;
    virtual bool isResolvableWithoutParentAndArguments() const { return false; }
    // Evaluates the arguments and the parent.
    void resolve_yielding(const std::shared_ptr<Task>& task, bool& resolved, AccessType accessType,
                          const std::shared_ptr<OMScope>& scope, ScriptPhase phase,
                          OMExpressionLValueResolution& resolution);
    virtual bool setArgumentList(const OMArgs& unresolvedArgumentList);
    virtual bool compareArgumentListEqual(const OMExpressionLValue& other) const;
    virtual bool compareArgumentListLess(const OMExpressionLValue& other) const;

    void set_yielding(const std::shared_ptr<Task>& task, bool& success, std::shared_ptr<IOMNode>& value,
                      const std::shared_ptr<OMScope>& scope, ScriptPhase phase) override;
    bool scanForLocalVariables(const std::shared_ptr<FunctionSignature>&, bool) override { return true; }
    bool operator==(const OMExpression& other) const override;
    bool operator<(const OMExpression& other) const override;

    const std::shared_ptr<IOMNode>& getParent() const { return fParent; }
    const OMArgs& getArgumentList() const { return fUnresolvedArgumentList; }

protected:
    // The name a method of the parent map would have; empty for the kinds that have none.
    virtual std::string getMemberName() const { return std::string(); }
    // Compares the own field of two left values of one kind.
    virtual bool ownFieldEqual(const OMExpressionLValue& other) const = 0;
    virtual bool ownFieldLess(const OMExpressionLValue& other) const = 0;
    // Sum of the hashes of the parent and the written arguments.
    uint64_t parentAndArgumentHash() const;
    // The parent's text, "" at the head of a chain.
    std::string parentText() const;
    // "(a, b)", or "" without an argument list.
    std::string argumentListText() const;
    // A script error and the Error value that stands for what couldn't be reached.
    static std::shared_ptr<IOMNode> reportUnreachable(const char* scriptError);

public:
    // The same, for the helpers of the concrete kinds.
    static std::shared_ptr<IOMNode> unreachable(const char* scriptError);

protected:
    std::shared_ptr<IOMNode> fParent; // the left part of a chain; null at its head
    OMArgs fUnresolvedArgumentList;   // null without an argument list, which differs from an empty one
    mutable uint64_t fHash = 0;       // 0: not computed yet
};

// `parent(args)` where the callee is itself an expression: `fns[1](2)`.
class OMExpressionLValueCall : public OMExpressionLValue {
public:
    using OMExpressionLValue::get_yielding;
    using OMExpressionLValue::OMExpressionLValue;
    void get_yielding(const std::shared_ptr<Task>& task, std::shared_ptr<IOMNode>& result,
                      AccessType accessType, const std::shared_ptr<OMScope>& scope, ScriptPhase phase,
                      std::shared_ptr<IOMNode>& optionalNewValue) override;
    Kind getExpressionKind() const override { return LVALUE_CALL; }
    uint64_t hash() const override;
    std::string toString() const override;

protected:
    bool ownFieldEqual(const OMExpressionLValue&) const override { return true; }
    bool ownFieldLess(const OMExpressionLValue&) const override { return false; }
};

// `parent[3]`.
class OMExpressionLValueIndex : public OMExpressionLValue {
public:
    OMExpressionLValueIndex(const std::shared_ptr<IOMNode>& parent, uint64_t index,
                            const OMArgs& argumentList)
        : OMExpressionLValue(parent, argumentList), fIndex(index) {}
    using OMExpressionLValue::get_yielding;
    void get_yielding(const std::shared_ptr<Task>& task, std::shared_ptr<IOMNode>& result,
                      AccessType accessType, const std::shared_ptr<OMScope>& scope, ScriptPhase phase,
                      std::shared_ptr<IOMNode>& optionalNewValue) override;
    Kind getExpressionKind() const override { return LVALUE_INDEX; }
    uint64_t getIndex() const { return fIndex; }
    uint64_t hash() const override;
    std::string toString() const override;

protected:
    bool ownFieldEqual(const OMExpressionLValue& other) const override;
    bool ownFieldLess(const OMExpressionLValue& other) const override;

private:
    uint64_t fIndex; // the element
};

// `parent[expression]`: a number picks an element, anything else names a member by its text.
class OMExpressionLValueIndexByExpression : public OMExpressionLValue {
public:
    OMExpressionLValueIndexByExpression(const std::shared_ptr<IOMNode>& parent,
                                        const std::shared_ptr<IOMNode>& indexExpression,
                                        const OMArgs& argumentList)
        : OMExpressionLValue(parent, argumentList), fIndexExpression(indexExpression) {}
    using OMExpressionLValue::get_yielding;
    void get_yielding(const std::shared_ptr<Task>& task, std::shared_ptr<IOMNode>& result,
                      AccessType accessType, const std::shared_ptr<OMScope>& scope, ScriptPhase phase,
                      std::shared_ptr<IOMNode>& optionalNewValue) override;
    // For `name[index] = value` without frames: true when the parent is a plain name and the index pure.
    bool isDirectElementTarget();
    // The element such an assignment writes, made if new, as its first step makes it. False when the name
    // holds no stored container or the element belongs to a data structure; nothing was changed then that
    // the long way wouldn't do again.
    bool findElementDirect(const std::shared_ptr<Task>& task, const std::shared_ptr<OMScope>& scope,
                           std::shared_ptr<IOMNode>& element);
    Kind getExpressionKind() const override { return LVALUE_INDEX_BY_EXPRESSION; }
    uint64_t hash() const override;
    std::string toString() const override;

    const std::shared_ptr<IOMNode>& getIndexExpression() const { return fIndexExpression; }

protected:
    // `a[i]` read with pure parts, from a stored container, is pure.
    DirectShape computeDirectShape() override;
    bool evalDirectShape(const std::shared_ptr<Task>& task, const std::shared_ptr<OMScope>& scope,
                         std::shared_ptr<IOMNode>& result) override;
    bool ownFieldEqual(const OMExpressionLValue& other) const override;
    bool ownFieldLess(const OMExpressionLValue& other) const override;

private:
    // The element `index` picks in a stored `parent`, read or made.
    static bool accessElementDirect(const std::shared_ptr<OMScope>& scope,
                                    const std::shared_ptr<IOMNode>& parent,
                                    const std::shared_ptr<IOMNode>& index, AccessType accessType,
                                    std::shared_ptr<IOMNode>& element);

    class OMExpressionLValueStr* fParentName = nullptr; // the parent, when it is a plain name
    OMExpression* fDirectParent = nullptr; // the pure expressions of the parent and the index, if any
    OMExpression* fDirectIndex = nullptr;
    std::shared_ptr<IOMNode> fIndexExpression; // evaluated to pick the element or member
};

// A built-in: `toUpperCase(x)`, `x.length`.
class OMExpressionLValueToken : public OMExpressionLValue {
public:
    OMExpressionLValueToken(const std::shared_ptr<IOMNode>& parent, Token token, const OMArgs& argumentList)
        : OMExpressionLValue(parent, argumentList), fToken(token) {}
    using OMExpressionLValue::get_yielding;
    void get_yielding(const std::shared_ptr<Task>& task, std::shared_ptr<IOMNode>& result,
                      AccessType accessType, const std::shared_ptr<OMScope>& scope, ScriptPhase phase,
                      std::shared_ptr<IOMNode>& optionalNewValue) override;
    Kind getExpressionKind() const override { return LVALUE_TOKEN; }
    uint64_t hash() const override;
    std::string toString() const override;
    int32_t getToken() const override { return fToken; }
    std::string getIdentifier() const override;

    // A built-in: reads its arguments from the resolution and gives its value; the yielding kind may wait.
    using Builtin = std::shared_ptr<IOMNode> (*)(AccessType accessType, const std::shared_ptr<OMScope>& scope,
                                                 OMExpressionLValueResolution& resolution);
    using Builtin_yielding = void (*)(const std::shared_ptr<Task>& task, std::shared_ptr<IOMNode>& result,
                                      AccessType accessType, const std::shared_ptr<OMScope>& scope,
                                      OMExpressionLValueResolution& resolution);
    // Enters the function of a built-in word; one of the two is null.
    static void registerBuiltin(Token token, Builtin builtin, Builtin_yielding builtin_yielding);

    // ---- Built-ins on values and text (BrwOMExpressionLValueBuiltins.cpp) ----
    // Argument 0 is `this`: `a.f(b)` and `f(a, b)` are one call. Each makes its result first, reports
    // "insufficient arguments" when `this` or a required argument is missing, and then keeps that result.

    // Enters all of them into the dispatch table; the table's first look-up runs it.
    static void registerBuiltins();
    // eval(map?, text, target?...) and evalScript(map?, path, target?...): run script text or a script
    // file here, in the caller's scope or in a map's; a target address runs it on another coordinator.
    static void ftn_eval_yielding(const std::shared_ptr<Task>& task, std::shared_ptr<IOMNode>& result,
                                  AccessType accessType, const std::shared_ptr<OMScope>& scope,
                                  OMExpressionLValueResolution& resolution);
    static void ftn_evalScript_yielding(const std::shared_ptr<Task>& task, std::shared_ptr<IOMNode>& result,
                                        AccessType accessType, const std::shared_ptr<OMScope>& scope,
                                        OMExpressionLValueResolution& resolution);
    // parseScript(script, unused, options...): runs script text as a standard-input session and gives
    // what it echoed (BrwOMExpressionLValueParseScript.cpp).
    static void ftn_parseScript_yielding(const std::shared_ptr<Task>& task, std::shared_ptr<IOMNode>& result,
                                         AccessType accessType, const std::shared_ptr<OMScope>& scope,
                                         OMExpressionLValueResolution& resolution);
    static std::shared_ptr<IOMNode> ftn_abs(AccessType accessType, const std::shared_ptr<OMScope>& scope,
                                            OMExpressionLValueResolution& resolution);
    static std::shared_ptr<IOMNode> ftn_enquote(AccessType accessType, const std::shared_ptr<OMScope>& scope,
                                                OMExpressionLValueResolution& resolution);
    static std::shared_ptr<IOMNode> ftn_indexOf(AccessType accessType, const std::shared_ptr<OMScope>& scope,
                                                OMExpressionLValueResolution& resolution);
    static std::shared_ptr<IOMNode> ftn_isNaN(AccessType accessType, const std::shared_ptr<OMScope>& scope,
                                              OMExpressionLValueResolution& resolution);
    static std::shared_ptr<IOMNode> ftn_keys(AccessType accessType, const std::shared_ptr<OMScope>& scope,
                                             OMExpressionLValueResolution& resolution);
    static void ftn_length_yielding(const std::shared_ptr<Task>& task, std::shared_ptr<IOMNode>& result,
                                    AccessType accessType, const std::shared_ptr<OMScope>& scope,
                                    OMExpressionLValueResolution& resolution);
    static std::shared_ptr<IOMNode> ftn_parseFloat(AccessType accessType,
                                                   const std::shared_ptr<OMScope>& scope,
                                                   OMExpressionLValueResolution& resolution);
    static std::shared_ptr<IOMNode> ftn_parseInt(AccessType accessType, const std::shared_ptr<OMScope>& scope,
                                                 OMExpressionLValueResolution& resolution);
    static std::shared_ptr<IOMNode> ftn_pop(AccessType accessType, const std::shared_ptr<OMScope>& scope,
                                            OMExpressionLValueResolution& resolution);
    static std::shared_ptr<IOMNode> ftn_push(AccessType accessType, const std::shared_ptr<OMScope>& scope,
                                             OMExpressionLValueResolution& resolution);
    static void ftn_reference_yielding(const std::shared_ptr<Task>& task, std::shared_ptr<IOMNode>& result,
                                       AccessType accessType, const std::shared_ptr<OMScope>& scope,
                                       OMExpressionLValueResolution& resolution);
    static std::shared_ptr<IOMNode> ftn_scriptFilePath(AccessType accessType,
                                                       const std::shared_ptr<OMScope>& scope,
                                                       OMExpressionLValueResolution& resolution);
    static std::shared_ptr<IOMNode> ftn_size(AccessType accessType, const std::shared_ptr<OMScope>& scope,
                                             OMExpressionLValueResolution& resolution);
    static std::shared_ptr<IOMNode> ftn_sqr(AccessType accessType, const std::shared_ptr<OMScope>& scope,
                                            OMExpressionLValueResolution& resolution);
    static std::shared_ptr<IOMNode> ftn_sqrt(AccessType accessType, const std::shared_ptr<OMScope>& scope,
                                             OMExpressionLValueResolution& resolution);
    static std::shared_ptr<IOMNode> ftn_stringify(AccessType accessType,
                                                  const std::shared_ptr<OMScope>& scope,
                                                  OMExpressionLValueResolution& resolution);
    static std::shared_ptr<IOMNode> ftn_substr(AccessType accessType, const std::shared_ptr<OMScope>& scope,
                                               OMExpressionLValueResolution& resolution);
    static std::shared_ptr<IOMNode> ftn_toLowerCase(AccessType accessType,
                                                    const std::shared_ptr<OMScope>& scope,
                                                    OMExpressionLValueResolution& resolution);
    static std::shared_ptr<IOMNode> ftn_toString(AccessType accessType, const std::shared_ptr<OMScope>& scope,
                                                 OMExpressionLValueResolution& resolution);
    static std::shared_ptr<IOMNode> ftn_toUpperCase(AccessType accessType,
                                                    const std::shared_ptr<OMScope>& scope,
                                                    OMExpressionLValueResolution& resolution);

    // ---- Built-ins that talk to other coordinators (BrwOMExpressionLValueMessaging.cpp) ----

    // Enters them into the dispatch table; registerBuiltins calls it.
    static void registerMessagingBuiltins();
    // sendData(data, target, callBackID, timeout, callBack): a data request, or with the data alone inside
    // a handler, the reply to the request being handled.
    static void ftn_sendData_yielding(const std::shared_ptr<Task>& task, std::shared_ptr<IOMNode>& result,
                                      AccessType accessType, const std::shared_ptr<OMScope>& scope,
                                      OMExpressionLValueResolution& resolution);
    // stdOut(values...) and stdErr(values...): the process's standard stream, or, in a script run for
    // another coordinator, that coordinator's.
    static void ftn_stdOut_yielding(const std::shared_ptr<Task>& task, std::shared_ptr<IOMNode>& result,
                                    AccessType accessType, const std::shared_ptr<OMScope>& scope,
                                    OMExpressionLValueResolution& resolution);
    static void ftn_stdErr_yielding(const std::shared_ptr<Task>& task, std::shared_ptr<IOMNode>& result,
                                    AccessType accessType, const std::shared_ptr<OMScope>& scope,
                                    OMExpressionLValueResolution& resolution);
    static void ftn_stdErrOrOut_yielding(const std::shared_ptr<Task>& task, std::shared_ptr<IOMNode>& result,
                                         AccessType accessType, const std::shared_ptr<OMScope>& scope,
                                         OpCode opCode, OMExpressionLValueResolution& resolution);
    // setDataRequestCallBack(callBackID, function): the function answers data requests for the id;
    // undefined removes it.
    static std::shared_ptr<IOMNode> ftn_setDataRequestCallBack(AccessType accessType,
                                                               const std::shared_ptr<OMScope>& scope,
                                                               OMExpressionLValueResolution& resolution);

    // ---- Built-ins on files and paths (BrwFiles/BrwOMExpressionLValueFiles.cpp) ----
    // A relative path is taken against the folder of the running script, or the current folder.

    // Enters them into the dispatch table; registerBuiltins calls it.
    static void registerFileBuiltins();
    // fileOpen(path, mode): the number of the opened file; the first letter of mode is a, r or w.
    static std::shared_ptr<IOMNode> ftn_fileOpen(AccessType accessType, const std::shared_ptr<OMScope>& scope,
                                                 OMExpressionLValueResolution& resolution);
    static std::shared_ptr<IOMNode> ftn_fileClose(AccessType accessType,
                                                  const std::shared_ptr<OMScope>& scope,
                                                  OMExpressionLValueResolution& resolution);
    // fileRead(id, limit): to the end, `limit` bytes, or up to and with the text `limit`.
    static std::shared_ptr<IOMNode> ftn_fileRead(AccessType accessType, const std::shared_ptr<OMScope>& scope,
                                                 OMExpressionLValueResolution& resolution);
    static std::shared_ptr<IOMNode> ftn_fileWrite(AccessType accessType,
                                                  const std::shared_ptr<OMScope>& scope,
                                                  OMExpressionLValueResolution& resolution);
    static std::shared_ptr<IOMNode> ftn_fileExists(AccessType accessType,
                                                   const std::shared_ptr<OMScope>& scope,
                                                   OMExpressionLValueResolution& resolution);
    static std::shared_ptr<IOMNode> ftn_dirExists(AccessType accessType,
                                                  const std::shared_ptr<OMScope>& scope,
                                                  OMExpressionLValueResolution& resolution);
    static std::shared_ptr<IOMNode> ftn_readFile(AccessType accessType, const std::shared_ptr<OMScope>& scope,
                                                 OMExpressionLValueResolution& resolution);
    static std::shared_ptr<IOMNode> ftn_writeFile(AccessType accessType,
                                                  const std::shared_ptr<OMScope>& scope,
                                                  OMExpressionLValueResolution& resolution);
    // fileSystem(path): the path as a tree of maps, read from the disk as far as it is walked.
    static std::shared_ptr<IOMNode> ftn_fileSystem(AccessType accessType,
                                                   const std::shared_ptr<OMScope>& scope,
                                                   OMExpressionLValueResolution& resolution);
    static std::shared_ptr<IOMNode> ftn_parentPath(AccessType accessType,
                                                   const std::shared_ptr<OMScope>& scope,
                                                   OMExpressionLValueResolution& resolution);
    static std::shared_ptr<IOMNode> ftn_pathSegmentFromLeft(AccessType accessType,
                                                            const std::shared_ptr<OMScope>& scope,
                                                            OMExpressionLValueResolution& resolution);
    static std::shared_ptr<IOMNode> ftn_pathSegmentFromRight(AccessType accessType,
                                                             const std::shared_ptr<OMScope>& scope,
                                                             OMExpressionLValueResolution& resolution);

    // ---- Built-ins on the system, the process and its streams (BrwOMExpressionLValueSystem.cpp) ----

    // Enters them into the dispatch table; registerBuiltins calls it.
    static void registerSystemBuiltins();
    // sysInfo(key?): the map of InternalCoordinator::buildSysInfo, or its member `key`.
    static std::shared_ptr<IOMNode> ftn_sysInfo(AccessType accessType, const std::shared_ptr<OMScope>& scope,
                                                OMExpressionLValueResolution& resolution);
    // getEnv(name): the value of the environment variable; undefined when it isn't set.
    static std::shared_ptr<IOMNode> ftn_getEnv(AccessType accessType, const std::shared_ptr<OMScope>& scope,
                                               OMExpressionLValueResolution& resolution);
    // quit(): asks the coordinator to end. The script goes on; the process ends once the event loop
    // sees the coordinator terminating.
    static std::shared_ptr<IOMNode> ftn_quit(AccessType accessType, const std::shared_ptr<OMScope>& scope,
                                             OMExpressionLValueResolution& resolution);
    // exit(): ends the running task; nothing behind the call runs.
    static void ftn_exit_yielding(const std::shared_ptr<Task>& task, std::shared_ptr<IOMNode>& result,
                                  AccessType accessType, const std::shared_ptr<OMScope>& scope,
                                  OMExpressionLValueResolution& resolution);
    // yield(milliseconds, callBack): waits for the time, at least 1 ms, giving the thread away each turn;
    // a callback is called each turn, and a true result ends the wait early.
    static void ftn_yield_yielding(const std::shared_ptr<Task>& task, std::shared_ptr<IOMNode>& result,
                                   AccessType accessType, const std::shared_ptr<OMScope>& scope,
                                   OMExpressionLValueResolution& resolution);
    // output(values...): writes the string form of each to `outputStream`, or, when it is null, to the
    // running task's stream.
    static void ftn_output_yielding(const std::shared_ptr<Task>& task, std::shared_ptr<IOMNode>& result,
                                    AccessType accessType, const std::shared_ptr<OMScope>& scope,
                                    OMExpressionLValueResolution& resolution,
                                    const std::shared_ptr<OutputStream>& outputStream);
    // The form of the dispatch table: the running task's stream.
    static void ftn_output_yielding(const std::shared_ptr<Task>& task, std::shared_ptr<IOMNode>& result,
                                    AccessType accessType, const std::shared_ptr<OMScope>& scope,
                                    OMExpressionLValueResolution& resolution);
    // stdIn(): the next line of the running task's input, without its line end, waiting until it is
    // there; undefined once the input has ended.
    static void ftn_stdIn_yielding(const std::shared_ptr<Task>& task, std::shared_ptr<IOMNode>& result,
                                   AccessType accessType, const std::shared_ptr<OMScope>& scope,
                                   OMExpressionLValueResolution& resolution);
    // logError(text), logWarning(text), logNote(text), logTrace(text): the text to the Logger at that
    // level; undefined.
    static std::shared_ptr<IOMNode> ftn_logError(AccessType accessType, const std::shared_ptr<OMScope>& scope,
                                                 OMExpressionLValueResolution& resolution);
    static std::shared_ptr<IOMNode> ftn_logWarning(AccessType accessType,
                                                   const std::shared_ptr<OMScope>& scope,
                                                   OMExpressionLValueResolution& resolution);
    static std::shared_ptr<IOMNode> ftn_logNote(AccessType accessType, const std::shared_ptr<OMScope>& scope,
                                                OMExpressionLValueResolution& resolution);
    static std::shared_ptr<IOMNode> ftn_logTrace(AccessType accessType, const std::shared_ptr<OMScope>& scope,
                                                 OMExpressionLValueResolution& resolution);

protected:
    std::string getMemberName() const override;
    bool ownFieldEqual(const OMExpressionLValue& other) const override;
    bool ownFieldLess(const OMExpressionLValue& other) const override;

private:
    Token fToken; // the built-in; never _NO_TOKEN
};

// A name, a member `parent.name`, or a call by name `name(args)`, `parent.name(args)`.
class OMExpressionLValueStr : public OMExpressionLValue {
public:
    OMExpressionLValueStr(const std::shared_ptr<IOMNode>& parent, const std::string& identifier,
                          const OMArgs& argumentList)
        : OMExpressionLValue(parent, argumentList), fIdentifier(identifier) {
        if (identifier == "this" || identifier == "arguments") {
            fIsFrameNameRead = true;
        }
    }
    // True once any script named "this" or "arguments": until then a call that runs without frames needn't
    // bind them, since no name can read them (the long way always binds them).
    static bool isFrameNameRead() { return fIsFrameNameRead; }
    using OMExpressionLValue::get_yielding;
    void get_yielding(const std::shared_ptr<Task>& task, std::shared_ptr<IOMNode>& result,
                      AccessType accessType, const std::shared_ptr<OMScope>& scope, ScriptPhase phase,
                      std::shared_ptr<IOMNode>& optionalNewValue) override;
    Kind getExpressionKind() const override { return LVALUE_STR; }
    uint64_t hash() const override;
    std::string toString() const override;
    std::string getIdentifier() const override;
    // The name itself, also of a member or a call.
    const std::string& getName() const { return fIdentifier; }

    // The two writes of `name = value` without frames, as get_yielding makes them for a plain name: the
    // variable as it stands (made if new), and then the value stored under the name, or the Error value.
    bool findTargetDirect(const std::shared_ptr<OMScope>& scope, std::shared_ptr<IOMNode>& target);
    std::shared_ptr<IOMNode> storeDirect(const std::shared_ptr<OMScope>& scope,
                                         const std::shared_ptr<IOMNode>& value);

protected:
    std::string getMemberName() const override { return fIdentifier; }
    // A plain name is read without a frame, and so is a call by name with pure arguments of a function that
    // only reads.
    DirectShape computeDirectShape() override;
    bool evalDirectShape(const std::shared_ptr<Task>& task, const std::shared_ptr<OMScope>& scope,
                         std::shared_ptr<IOMNode>& result) override;
    bool ownFieldEqual(const OMExpressionLValue& other) const override;
    bool ownFieldLess(const OMExpressionLValue& other) const override;

private:
    // A call by name: a function value, a built-in held by a variable, or a plain value.
    void call_yielding(const std::shared_ptr<Task>& task, std::shared_ptr<IOMNode>& result,
                       AccessType accessType, const std::shared_ptr<OMScope>& scope, ScriptPhase phase,
                       const std::shared_ptr<IOMNode>& base, OMExpressionLValueResolution& resolution);

    std::string fIdentifier; // the name; never empty
    std::vector<OMExpression*>
        fDirectArguments; // the pure expressions of a call's arguments, null for values

    static inline bool fIsFrameNameRead = false; // a script named "this" or "arguments"
};

} // namespace Brw
