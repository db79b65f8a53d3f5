#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "BrwParser/BrwIOMNode.h"
#include "BrwParser/BrwScriptLimits.h"
#include "BrwParser/BrwToken.h"

namespace Brw {

class InputStream;
class OMStored;

// What construct is being parsed, and so what ends it (see the comma and semicolon rules in
// `ExpressionParser::operator_yielding`).
enum ParseType : int32_t {
    PARSE_STATEMENT = 0, // a statement at top level, the content of ( )
    PARSE_OBJECT_VALUE = 1,
    PARSE_ARRAY_ELEMENT = 2,
    PARSE_ARGUMENT = 3,
    PARSE_PARAMETER = 4,
    PARSE_BRANCH = 5, // body of if, while, else: a `;` ends it and is consumed
    PARSE_FOR_CLAUSE = 6,
    PARSE_FOR_BODY = 7,
    PARSE_INNER = 8, // conditions, second value of ?:, index, first expression in braces
    PARSE_BLOCK = 9, // body of do, and a brace block
    PARSE_CONDITIONAL_FIRST = 10,
    PARSE_COMMA_LIST = 11,
    PARSE_RETURN_VALUE = 12,
};

// The fold level of `?:`: between `||` and `=`, a level that no binary operator has. The values of a `?:`
// wait in the operand list behind it until the fold reaches this level.
constexpr BinOp CONDITIONAL_LEVEL = static_cast<BinOp>(BOOL_OR + 1);
static_assert(CONDITIONAL_LEVEL < ASSIGN);

// The operands of one expression, flat, with the binary operators between them; folded into one tree
// when the expression ends, one operator level at a time.
struct OperandList {
    std::vector<std::shared_ptr<IOMNode>> operands; // in source order
    std::vector<BinOp> binOps;                      // between them: one fewer when complete
    uint32_t usedBinOps = 0;                        // a bit for each level that occurs
    uint64_t nestingBinOps = 0;                     // those whose chains fold into a nest of their own
    std::vector<UnOp> unOps;                        // prefix operators waiting for the next operand

    bool isComplete() const {
        return (operands.empty() && binOps.empty()) || operands.size() == binOps.size() + 1;
    }
    void addBinOp(BinOp binOp) {
        binOps.push_back(binOp);
        usedBinOps |= 1u << binOp;
        // Chains of these fold into one flat sequence; every other operator nests its left side.
        if (binOp != ADD && binOp != COMMA && binOp != SEMICOLON) {
            ++nestingBinOps;
        }
    }
};

// The language's parser: character by character from a stream that never blocks, with every wait a yield,
// so that a statement may arrive one keystroke at a time. Operands and operators are collected flat, and
// at the end of the expression folded through the `register...Operation_yielding` functions, which fold
// constants at once. Each operator has a level of its own: NOTE `a - b + c` is `a - (b + c)`, and this is
// how the language is.
class ExpressionParser {
public:
    using NodePtr = std::shared_ptr<IOMNode>;
    using TaskPtr = std::shared_ptr<Task>;
    using StreamPtr = std::shared_ptr<InputStream>;

    // Past ScriptLimits::NESTING_DEPTH the statement is given up with "expression nested too deeply" and
    // the next one is read.
    static constexpr uint64_t MAX_NESTING_DEPTH = ScriptLimits::NESTING_DEPTH;

    // One expression into `result`; on failure an error message has been reported.
    static void parseExpression_yielding(const TaskPtr& task, bool& success, NodePtr& result,
                                         const StreamPtr& stream, uint64_t parenNesting, ParseType parseType);
    // All statements of a stream, joined by `;`, into `result`, without evaluating.
    static void parseExpressionList_yielding(const TaskPtr& task, bool& success, NodePtr& result,
                                             const StreamPtr& stream);
    // Reports a parse error: one line in the script error log, unless the statement has been given up.
    static void reportError(const TaskPtr& task, const std::string& message);
    // The statement loop's part when the parser gave up a statement: the rest of a statement that didn't
    // parse is dropped up to its line end, and the mark is taken back. True when a statement was given up.
    static void takeBackAbandonedStatement_yielding(const TaskPtr& task, bool& wasAbandoned, bool isParsed,
                                                    const StreamPtr& stream);

private:
    enum Outcome : int32_t {
        OUTCOME_OPERAND = 0,  // an operand was taken: an operator or the end comes next
        OUTCOME_OPERATOR = 1, // an operator was taken: an operand comes next
        OUTCOME_PREFIX = 2,   // a prefix operator was taken: still an operand next
        OUTCOME_DONE = 3,     // the expression ends here
        OUTCOME_FAILED = 4,   // reported, or silently failed
    };

    static void operand_yielding(const TaskPtr& task, Outcome& outcome, const StreamPtr& stream,
                                 uint64_t parenNesting, ParseType parseType, OperandList& list);
    static void operator_yielding(const TaskPtr& task, Outcome& outcome, const StreamPtr& stream,
                                  uint64_t parenNesting, ParseType parseType, OperandList& list);
    static void word_yielding(const TaskPtr& task, Outcome& outcome, const StreamPtr& stream,
                              uint64_t parenNesting, ParseType parseType, OperandList& list);
    static void chain_yielding(const TaskPtr& task, Outcome& outcome, const StreamPtr& stream,
                               uint64_t parenNesting, ParseType parseType, OperandList& list,
                               const NodePtr& head, const std::string& headWord, Token headToken, int entry);
    static void conditional_yielding(const TaskPtr& task, Outcome& outcome, const StreamPtr& stream,
                                     uint64_t parenNesting, OperandList& list);
    static void array_yielding(const TaskPtr& task, bool& success, NodePtr& result, const StreamPtr& stream,
                               uint64_t parenNesting);
    static void braces_yielding(const TaskPtr& task, bool& success, NodePtr& result, const StreamPtr& stream,
                                uint64_t parenNesting, ParseType parseType);
    static void objectLiteral_yielding(const TaskPtr& task, bool& success, NodePtr& result,
                                       const StreamPtr& stream, uint64_t parenNesting,
                                       const std::string& firstKey);
    static void block_yielding(const TaskPtr& task, bool& success, NodePtr& result, const StreamPtr& stream,
                               uint64_t parenNesting, const NodePtr& firstStatement);
    static void branch_yielding(const TaskPtr& task, bool& success, NodePtr& result, const StreamPtr& stream,
                                uint64_t parenNesting);
    static void if_yielding(const TaskPtr& task, bool& success, NodePtr& result, const StreamPtr& stream,
                            uint64_t parenNesting);
    static void while_yielding(const TaskPtr& task, bool& success, NodePtr& result, const StreamPtr& stream,
                               uint64_t parenNesting);
    static void do_yielding(const TaskPtr& task, bool& success, NodePtr& result, const StreamPtr& stream,
                            uint64_t parenNesting);
    static void for_yielding(const TaskPtr& task, bool& success, NodePtr& result, const StreamPtr& stream,
                             uint64_t parenNesting);
    static void function_yielding(const TaskPtr& task, bool& success, NodePtr& result,
                                  const StreamPtr& stream, uint64_t parenNesting);
    static void functionBody_yielding(const TaskPtr& task, bool& success, NodePtr& result,
                                      const StreamPtr& stream, uint64_t parenNesting);
    static void fold_yielding(const TaskPtr& task, bool& success, NodePtr& result, OperandList& list);
    // Applies the pending prefix operators, innermost first, and appends the operand.
    static void pushOperand_yielding(const TaskPtr& task, bool& success, NodePtr& operand, OperandList& list);

    // Peeks the next character of code, skipping comments; `c` is AT_END at the end. False when a comment
    // was broken (reported).
    static void peekCode_yielding(const TaskPtr& task, bool& success, int& c, const StreamPtr& stream);
    // Skips whitespace and comments; with `stopAtLineEnd` a line end is not skipped.
    static void skipSpace_yielding(const TaskPtr& task, bool& success, int& c, const StreamPtr& stream,
                                   bool stopAtLineEnd);
    // The condition of `if` and `while`: an expression that must begin with `(`.
    static void condition_yielding(const TaskPtr& task, bool& success, NodePtr& result,
                                   const StreamPtr& stream, uint64_t parenNesting,
                                   const char* missingParenMessage, const char* failureMessage);

    // Past the nesting limit: reports it once, marks the statement given up, and skips the rest of the
    // construct being read as balanced text (up to a closer, `,` or `;` of the enclosing construct, or the
    // line end when `endsAtLineEnd`), so that the constructs around it find where theirs end.
    static void abandonStatement_yielding(const TaskPtr& task, const StreamPtr& stream, bool endsAtLineEnd);
    // True when a construct of this kind at this nesting ends at a line end.
    static bool endsAtLineEnd(ParseType parseType, uint64_t parenNesting);

    static bool isIdentifierStart(int c);
    static std::shared_ptr<OMStored> scratchNode();
};

} // namespace Brw
