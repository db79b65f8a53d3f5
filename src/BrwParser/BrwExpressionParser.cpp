#include "BrwParser/BrwExpressionParser.h"

#include <algorithm>
#include <cctype>

#include "BrwLogger/BrwCheck.h"
#include "BrwLogger/BrwScriptErrorLog.h"
#include "BrwParser/BrwInputStream.h"
#include "BrwParser/BrwOMExpressionLValue.h"
#include "BrwParser/BrwOMExpressionTernary.h"
#include "BrwParser/BrwOMStored.h"
#include "BrwTask/BrwYielding.h"
#include "BrwUtils/BrwStackGuard.h"

namespace Brw {

namespace {

using NodePtr = std::shared_ptr<IOMNode>;

constexpr int AT_END = InputStream::AT_END;

bool isDigit(int c) {
    return c >= '0' && c <= '9';
}

bool isLineEnd(int c) {
    return c == 10 || c == 13;
}

bool isDefined(const NodePtr& node) {
    return node && node->getType() != OMType::Undefined;
}

// Words that act as language keywords; every other token names a built-in function.
bool isKeywordToken(Token token) {
    switch (token) {
    case _break:
    case _debugger:
    case _do:
    case _else:
    case _false:
    case _for:
    case _function:
    case _if:
    case _NaN:
    case _null:
    case _return:
    case _true:
    case _typeof:
    case _undefined:
    case _var:
    case _while:
        return true;
    default:
        return false;
    }
}

// The next link of a chain: `parent.word` or `word` (a built-in when its token is set), with the
// arguments of a call when there are any.
NodePtr makeLValue(const NodePtr& parent, const std::string& word, Token token, const OMArgs& arguments) {
    if (token != _NO_TOKEN) {
        return OMStored::factory(std::make_shared<OMExpressionLValueToken>(parent, token, arguments));
    }
    return OMStored::factory(std::make_shared<OMExpressionLValueStr>(parent, word, arguments));
}

} // namespace

bool ExpressionParser::isIdentifierStart(int c) {
    return c >= 0 && OMStored::isIdentifierChar(c, 0);
}

std::shared_ptr<OMStored> ExpressionParser::scratchNode() {
    return OMStored::undefinedFactory();
}

void ExpressionParser::reportError(const TaskPtr& task, const std::string& message) {
    if (! task->isStatementAbandoned()) {
        ScriptErrorLog::report(message);
    }
}

bool ExpressionParser::endsAtLineEnd(ParseType parseType, uint64_t parenNesting) {
    return parenNesting == 0 || parseType == PARSE_BRANCH || parseType == PARSE_RETURN_VALUE ||
           parseType == PARSE_FOR_BODY;
}

void ExpressionParser::abandonStatement_yielding(const TaskPtr& task, const StreamPtr& stream,
                                                 bool endsAtLineEnd) {
    struct LocalVariableState : OMFunctionState {
        uint64_t depth = 0;     // brackets opened in the skipped text and not yet closed
        int quote = 0;          // the quote of a text being skipped, 0 outside texts
        bool isEscaped = false; // a backslash in a text came before this character
        int c = AT_END;
    };
    YIELDING_BEGIN(LocalVariableState, frame, (void)0);
    if (! task->isStatementAbandoned()) {
        reportError(task, "expression nested too deeply");
        task->setStatementAbandoned(true);
    }
    for (;;) {
        YIELDING_CALL(OMStored::peekChar_yielding(task, frame->c, stream));
        const int c = frame->c;
        if (c == AT_END) {
            break;
        }
        if (frame->quote != 0) {
            frame->isEscaped = ! frame->isEscaped && c == '\\';
            if (! frame->isEscaped && c == frame->quote) {
                frame->quote = 0;
            }
        } else if (c == '"' || c == '\'') {
            frame->quote = c;
        } else if (c == '(' || c == '[' || c == '{') {
            ++frame->depth;
        } else if (c == ')' || c == ']' || c == '}') {
            if (frame->depth == 0) {
                break;
            }
            --frame->depth;
        } else if (frame->depth == 0 && (c == ',' || c == ';' || (endsAtLineEnd && isLineEnd(c)))) {
            break;
        }
        stream->next();
    }
    YIELDING_END;
}

void ExpressionParser::takeBackAbandonedStatement_yielding(const TaskPtr& task, bool& wasAbandoned,
                                                           bool isParsed, const StreamPtr& stream) {
    struct LocalVariableState : OMFunctionState {
        int c = AT_END;
    };
    YIELDING_BEGIN(LocalVariableState, frame, wasAbandoned = task->isStatementAbandoned());
    if (! wasAbandoned) {
        YIELDING_FINISH;
    }
    // A statement that didn't parse stopped anywhere in its text: what is left of its line goes with it.
    while (! isParsed) {
        YIELDING_CALL(OMStored::peekChar_yielding(task, frame->c, stream));
        if (frame->c == AT_END || isLineEnd(frame->c)) {
            break;
        }
        stream->next();
    }
    task->setStatementAbandoned(false);
    YIELDING_END;
}

// ---- characters ----

void ExpressionParser::peekCode_yielding(const TaskPtr& task, bool& success, int& c,
                                         const StreamPtr& stream) {
    struct LocalVariableState : OMFunctionState {
        bool isComment = false;
        std::string errorMessage;
    };
    YIELDING_BEGIN(LocalVariableState, frame, success = false);
    for (;;) {
        YIELDING_CALL(OMStored::peekChar_yielding(task, c, stream));
        if (c != '/') {
            break;
        }
        // A comment counts as nothing at all; a slash that starts none is a division.
        stream->next();
        YIELDING_CALL(OMStored::parseComment_yielding(task, frame->isComment, frame->errorMessage, stream));
        if (! frame->isComment) {
            if (! frame->errorMessage.empty()) {
                reportError(task, frame->errorMessage);
                YIELDING_FINISH;
            }
            c = '/';
            break;
        }
    }
    success = true;
    YIELDING_END;
}

void ExpressionParser::skipSpace_yielding(const TaskPtr& task, bool& success, int& c, const StreamPtr& stream,
                                          bool stopAtLineEnd) {
    struct LocalVariableState : OMFunctionState {};
    YIELDING_BEGIN(LocalVariableState, frame, success = false);
    for (;;) {
        YIELDING_CALL(peekCode_yielding(task, success, c, stream));
        if (! success || ! OMStored::isWhitespace(c) || (stopAtLineEnd && isLineEnd(c))) {
            break;
        }
        stream->next();
    }
    YIELDING_END;
}

// ---- the expression ----

// An expression is operands and operators in turn: after an operand an operator or the end, after an
// operator an operand. Each phase takes what it can and says which comes next.
void ExpressionParser::parseExpression_yielding(const TaskPtr& task, bool& success, NodePtr& result,
                                                const StreamPtr& stream, uint64_t parenNesting,
                                                ParseType parseType) {
    struct LocalVariableState : OMFunctionState {
        OperandList list; // what has been read so far
        Outcome outcome = OUTCOME_OPERATOR;
        bool isOperandNext = true; // which phase comes next
    };
    YIELDING_BEGIN(LocalVariableState, frame, success = false);
    if (parenNesting > MAX_NESTING_DEPTH || StackGuard::isNearlyExhausted()) {
        // The constructs around go on to their ends: the statement is dropped whole, with one message.
        YIELDING_CALL(abandonStatement_yielding(task, stream, endsAtLineEnd(parseType, parenNesting)));
        result = OMStored::errorFactory();
        success = true;
        YIELDING_FINISH;
    }
    for (;;) {
        if (frame->isOperandNext) {
            YIELDING_CALL(
                operand_yielding(task, frame->outcome, stream, parenNesting, parseType, frame->list));
        } else {
            YIELDING_CALL(
                operator_yielding(task, frame->outcome, stream, parenNesting, parseType, frame->list));
        }
        if (frame->outcome != OUTCOME_OPERAND && frame->outcome != OUTCOME_OPERATOR) {
            break;
        }
        frame->isOperandNext = frame->outcome == OUTCOME_OPERATOR;
    }
    if (frame->outcome == OUTCOME_FAILED) {
        YIELDING_FINISH;
    }
    YIELDING_CALL(fold_yielding(task, success, result, frame->list));
    YIELDING_END;
}

// Operand expected: a literal, a name, a parenthesised expression, a construct; prefix operators stay
// pending for the operand that follows them.
void ExpressionParser::operand_yielding(const TaskPtr& task, Outcome& outcome, const StreamPtr& stream,
                                        uint64_t parenNesting, ParseType parseType, OperandList& list) {
    struct LocalVariableState : OMFunctionState {
        int c = AT_END;
        int first = AT_END; // the character that decided the branch
        bool success = false;
        std::string errorMessage;
        std::shared_ptr<OMStored> literal; // a number, string or here-document being read
        NodePtr node;                      // the operand
    };
    YIELDING_BEGIN(LocalVariableState, frame, outcome = OUTCOME_FAILED);
    for (;;) {
        YIELDING_CALL(skipSpace_yielding(task, frame->success, frame->c, stream,
                                         parenNesting == 0 && list.isComplete()));
        if (! frame->success) {
            YIELDING_FINISH;
        }
        if (frame->c == AT_END || frame->c == ')' || frame->c == '}' ||
            (isLineEnd(frame->c) && parenNesting == 0 && list.isComplete())) {
            // NOTE: at depth 0 a line end ends a complete statement; elsewhere it is whitespace.
            outcome = OUTCOME_DONE;
            YIELDING_FINISH;
        }
        if (frame->c == ',' || frame->c == ';') {
            if (frame->c == ';' && (parseType == PARSE_BRANCH || parseType == PARSE_FOR_BODY ||
                                    parseType == PARSE_RETURN_VALUE)) {
                stream->next();
                outcome = OUTCOME_DONE;
                YIELDING_FINISH;
            }
            if (! list.operands.empty()) {
                outcome = OUTCOME_DONE;
                YIELDING_FINISH;
            }
            stream->next();
            continue;
        }
        frame->first = frame->c;
        if (frame->first == '+' || frame->first == '-' || frame->first == '!' || frame->first == '~') {
            if (parenNesting + list.unOps.size() >= MAX_NESTING_DEPTH) {
                YIELDING_CALL(
                    abandonStatement_yielding(task, stream, endsAtLineEnd(parseType, parenNesting)));
                YIELDING_FINISH;
            }
            stream->next();
            if (frame->first == '+' || frame->first == '-') {
                YIELDING_CALL(OMStored::peekChar_yielding(task, frame->c, stream));
                const bool isDouble = frame->c == frame->first;
                if (isDouble) {
                    stream->next();
                }
                list.unOps.push_back(frame->first == '+' ? (isDouble ? PRE_INCREMENT : POSITIVE)
                                                         : (isDouble ? PRE_DECREMENT : NEGATIVE));
            } else {
                list.unOps.push_back(frame->first == '!' ? BOOL_NOT : BIT_NOT);
            }
            continue;
        }
        if (isIdentifierStart(frame->c)) {
            YIELDING_CALL(word_yielding(task, outcome, stream, parenNesting, parseType, list));
            if (outcome == OUTCOME_PREFIX) {
                continue; // `typeof`
            }
            YIELDING_FINISH;
        }
        if (frame->c == '(') {
            stream->next();
            YIELDING_CALL(parseExpression_yielding(task, frame->success, frame->node, stream,
                                                   parenNesting + 1, PARSE_STATEMENT));
            if (! frame->success) {
                reportError(task, "parenthesized subexpression parse failed");
                YIELDING_FINISH;
            }
            YIELDING_CALL(skipSpace_yielding(task, frame->success, frame->c, stream, false));
            if (! frame->success || frame->c != ')') {
                reportError(task, "expected closing ')'");
                YIELDING_FINISH;
            }
            stream->next();
            YIELDING_CALL(chain_yielding(task, outcome, stream, parenNesting, parseType, list, frame->node,
                                         "", _NO_TOKEN, 0));
            YIELDING_FINISH;
        }
        if (frame->c == '"' || frame->c == '\'' || frame->c == '<' || isDigit(frame->c) || frame->c == '.') {
            if (frame->c == '"' || frame->c == '\'' || frame->c == '<') {
                stream->next();
            }
            frame->literal = scratchNode();
            if (frame->first == '<') {
                // `<<<` opens a here-document; nothing else begins with `<`.
                YIELDING_CALL(OMStored::peekChar_yielding(task, frame->c, stream));
                if (frame->c == '<') {
                    stream->next();
                    YIELDING_CALL(OMStored::peekChar_yielding(task, frame->c, stream));
                }
                if (frame->c != '<') {
                    reportError(task, "unexpected character");
                    YIELDING_FINISH;
                }
                stream->next();
                YIELDING_CALL(frame->literal->parseHereDocument_yielding(task, frame->success,
                                                                         frame->errorMessage, stream));
            } else if (frame->first == '"' || frame->first == '\'') {
                YIELDING_CALL(frame->literal->parseString_yielding(task, frame->success, frame->errorMessage,
                                                                   stream, frame->first));
            } else {
                YIELDING_CALL(frame->literal->parseNum_yielding(task, frame->success, stream,
                                                                OMStored::NUMBER_SCRIPT_LITERAL));
                if (! frame->success) {
                    frame->errorMessage = "number parse failed";
                }
            }
            if (! frame->success) {
                if (! frame->errorMessage.empty()) {
                    reportError(task, frame->errorMessage);
                }
                YIELDING_FINISH;
            }
            frame->node = frame->literal;
            YIELDING_CALL(pushOperand_yielding(task, frame->success, frame->node, list));
            outcome = frame->success ? OUTCOME_OPERAND : OUTCOME_FAILED;
            YIELDING_FINISH;
        }
        if (frame->c == '[' || frame->c == '{') {
            stream->next();
            if (frame->c == '[') {
                YIELDING_CALL(array_yielding(task, frame->success, frame->node, stream, parenNesting));
            } else {
                YIELDING_CALL(
                    braces_yielding(task, frame->success, frame->node, stream, parenNesting, parseType));
            }
            if (! frame->success) {
                YIELDING_FINISH;
            }
            YIELDING_CALL(pushOperand_yielding(task, frame->success, frame->node, list));
            outcome = frame->success ? OUTCOME_OPERAND : OUTCOME_FAILED;
            YIELDING_FINISH;
        }
        reportError(task, "unexpected character");
        YIELDING_FINISH;
    }
    YIELDING_END;
}

// Operator expected: a binary operator (with compound assignment), a postfix operator, `?:`, a member or
// an element of the last operand; anything else ends the expression, unread.
void ExpressionParser::operator_yielding(const TaskPtr& task, Outcome& outcome, const StreamPtr& stream,
                                         uint64_t parenNesting, ParseType parseType, OperandList& list) {
    struct LocalVariableState : OMFunctionState {
        int c = AT_END;
        int first = AT_END; // the operator's first character
        bool success = false;
        bool isCompoundAllowed = false;
        UnOp postfix = UNOP_NONE; // `x++` or `x--`
        NodePtr node;
    };
    YIELDING_BEGIN(LocalVariableState, frame, outcome = OUTCOME_FAILED);
    for (;;) {
        YIELDING_CALL(skipSpace_yielding(task, frame->success, frame->c, stream, parenNesting == 0));
        if (! frame->success) {
            YIELDING_FINISH;
        }
        frame->first = frame->c;
        if (frame->first == AT_END || isLineEnd(frame->first)) {
            outcome = OUTCOME_DONE;
            YIELDING_FINISH;
        }
        if (frame->first == '.' || frame->first == '[') {
            stream->next();
            frame->node = list.operands.back();
            list.operands.pop_back();
            YIELDING_CALL(chain_yielding(task, outcome, stream, parenNesting, parseType, list, frame->node,
                                         "", _NO_TOKEN, frame->first));
            if (outcome == OUTCOME_OPERAND) {
                continue; // still after an operand
            }
            YIELDING_FINISH;
        }
        if (frame->first == '?') {
            stream->next();
            YIELDING_CALL(conditional_yielding(task, outcome, stream, parenNesting, list));
            if (outcome == OUTCOME_OPERAND) {
                continue;
            }
            YIELDING_FINISH;
        }
        if (frame->first == ',' || frame->first == ';') {
            if (frame->first == ',' && (parseType == PARSE_STATEMENT || parseType == PARSE_FOR_CLAUSE ||
                                        parseType == PARSE_COMMA_LIST)) {
                stream->next();
                list.addBinOp(COMMA);
                outcome = OUTCOME_OPERATOR;
            } else if (frame->first == ',' &&
                       (parseType == PARSE_CONDITIONAL_FIRST || parseType == PARSE_RETURN_VALUE)) {
                reportError(task, "unexpected parseType");
            } else {
                if (frame->first == ';' && (parseType == PARSE_BRANCH || parseType == PARSE_FOR_BODY ||
                                            parseType == PARSE_RETURN_VALUE)) {
                    stream->next();
                }
                outcome = OUTCOME_DONE;
            }
            YIELDING_FINISH;
        }
        if (std::string("*/^+-<>=!&|").find(static_cast<char>(frame->first)) == std::string::npos) {
            outcome = OUTCOME_DONE;
            YIELDING_FINISH;
        }
        stream->next();
        YIELDING_CALL(OMStored::peekChar_yielding(task, frame->c, stream));
        frame->isCompoundAllowed = false;
        frame->postfix = UNOP_NONE;
        {
            const int first = frame->first;
            const int second = frame->c;
            BinOp binOp = BINOP_NONE;
            int consumed = 0; // characters taken after the first
            if (first == '*' || first == '/' || first == '^') {
                binOp = first == '*' ? MULTIPLY : (first == '/' ? DIVIDE : BIT_XOR);
                frame->isCompoundAllowed = true;
            } else if (first == '+' || first == '-') {
                if (second == first && ! list.operands.empty()) {
                    // `x++`: applies to the operand before it, which is complete now.
                    stream->next();
                    frame->node = list.operands.back();
                    list.operands.pop_back();
                    frame->postfix = first == '+' ? POST_INCREMENT : POST_DECREMENT;
                } else {
                    binOp = first == '+' ? ADD : SUBTRACT;
                    frame->isCompoundAllowed = true;
                }
            } else if (first == '<' || first == '>') {
                consumed = second == '=' ? 1 : 0;
                binOp = first == '<' ? (consumed ? COMPARE_LE : COMPARE_LT)
                                     : (consumed ? COMPARE_GE : COMPARE_GT);
            } else if (first == '&' || first == '|') {
                consumed = second == first ? 1 : 0;
                binOp = first == '&' ? (consumed ? BOOL_AND : BIT_AND) : (consumed ? BOOL_OR : BIT_OR);
                frame->isCompoundAllowed = consumed == 1;
            } else if (first == '=') {
                consumed = second == '=' ? 1 : 0;
                binOp = consumed ? COMPARE_EQ : ASSIGN;
            } else if (first == '!') {
                if (second != '=') {
                    reportError(task, "unexpected character after !");
                    YIELDING_FINISH;
                }
                consumed = 1;
                binOp = COMPARE_NE;
            }
            if (consumed == 1) {
                stream->next();
            }
            if (binOp != BINOP_NONE) {
                list.addBinOp(binOp);
            }
        }
        if (parenNesting + list.nestingBinOps > MAX_NESTING_DEPTH) {
            YIELDING_CALL(abandonStatement_yielding(task, stream, endsAtLineEnd(parseType, parenNesting)));
            YIELDING_FINISH;
        }
        if (frame->postfix != UNOP_NONE) {
            YIELDING_CALL(
                OMNode::registerUnaryOperation_yielding(task, frame->node, frame->postfix, frame->node));
            if (! frame->node) {
                reportError(task, "failed to push to operand task");
                YIELDING_FINISH;
            }
            list.operands.push_back(frame->node);
            continue;
        }
        YIELDING_CALL(OMStored::peekChar_yielding(task, frame->c, stream));
        if (list.binOps.back() == COMPARE_EQ || list.binOps.back() == COMPARE_NE) {
            // `===` and `!==`.
            if (frame->c == '=') {
                stream->next();
                list.binOps.back() =
                    list.binOps.back() == COMPARE_EQ ? COMPARE_IDENTICAL : COMPARE_NOT_IDENTICAL;
                list.usedBinOps |= 1u << list.binOps.back();
            }
        } else if (frame->isCompoundAllowed && frame->c == '=' && ! list.operands.empty()) {
            // `a op= b` is `a = a op b`: the left value is used twice.
            stream->next();
            const BinOp binOp = list.binOps.back();
            list.binOps.back() = ASSIGN;
            list.usedBinOps |= 1u << ASSIGN;
            list.operands.push_back(list.operands.back());
            list.addBinOp(binOp);
        }
        outcome = OUTCOME_OPERATOR;
        YIELDING_FINISH;
    }
    YIELDING_END;
}

// A word in operand position: a name or built-in starts a left value; a keyword its construct.
void ExpressionParser::word_yielding(const TaskPtr& task, Outcome& outcome, const StreamPtr& stream,
                                     uint64_t parenNesting, ParseType parseType, OperandList& list) {
    struct LocalVariableState : OMFunctionState {
        std::string word;
        Token token = _NO_TOKEN;
        bool success = false;
        NodePtr node;
        bool isDoneAfterPush = false; // a construct that ends its expression
    };
    YIELDING_BEGIN(LocalVariableState, frame, outcome = OUTCOME_FAILED);
    YIELDING_CALL(OMStored::parseName_yielding(task, frame->word, stream));
    if (frame->word.empty()) {
        YIELDING_FINISH;
    }
    frame->token = OMStored::getToken(frame->word);
    if (! isKeywordToken(frame->token)) {
        YIELDING_CALL(chain_yielding(task, outcome, stream, parenNesting, parseType, list, nullptr,
                                     frame->word, frame->token, 0));
        YIELDING_FINISH;
    }
    if (frame->token == _typeof) {
        list.unOps.push_back(TYPEOF);
        outcome = OUTCOME_PREFIX;
        YIELDING_FINISH;
    }
    if (frame->token == _else) {
        reportError(task, "unexpected keyword");
        YIELDING_FINISH;
    }
    if (frame->token == _function) {
        YIELDING_CALL(function_yielding(task, frame->success, frame->node, stream, parenNesting));
        if (! frame->success) {
            YIELDING_FINISH;
        }
        // A function value heads a left value: `function () {...}()` is called where it stands.
        YIELDING_CALL(chain_yielding(task, outcome, stream, parenNesting, parseType, list, frame->node, "",
                                     _NO_TOKEN, 0));
        YIELDING_FINISH;
    }
    frame->success = true;
    frame->isDoneAfterPush = true;
    if (frame->token == _if) {
        YIELDING_CALL(if_yielding(task, frame->success, frame->node, stream, parenNesting));
    } else if (frame->token == _while) {
        YIELDING_CALL(while_yielding(task, frame->success, frame->node, stream, parenNesting));
    } else if (frame->token == _do) {
        YIELDING_CALL(do_yielding(task, frame->success, frame->node, stream, parenNesting));
    } else if (frame->token == _for) {
        YIELDING_CALL(for_yielding(task, frame->success, frame->node, stream, parenNesting));
    } else if (frame->token == _return) {
        YIELDING_CALL(parseExpression_yielding(task, frame->success, frame->node, stream, parenNesting + 1,
                                               PARSE_RETURN_VALUE));
        if (! frame->success) {
            reportError(task, "parse error in return value");
        } else {
            frame->node = frame->node->wrapReturnValue();
            frame->success = static_cast<bool>(frame->node);
        }
    } else if (frame->token == _break || frame->token == _debugger || frame->token == _var) {
        YIELDING_CALL(OMNode::registerKeywordOperation_yielding(task, frame->node, frame->token));
        frame->success = static_cast<bool>(frame->node);
        frame->isDoneAfterPush = frame->token == _var && parseType != PARSE_STATEMENT &&
                                 parseType != PARSE_FOR_CLAUSE && parseType != PARSE_COMMA_LIST;
    } else {
        frame->isDoneAfterPush = false;
        if (frame->token == _true || frame->token == _false) {
            frame->node = OMStored::factory(frame->token == _true);
        } else if (frame->token == _NaN) {
            frame->node = OMStored::nanFactory();
        } else if (frame->token == _null) {
            frame->node = OMStored::nullFactory();
        } else if (frame->token == _undefined) {
            frame->node = OMStored::undefinedFactory();
        } else {
            reportError(task, "unexpected token");
            frame->success = false;
        }
    }
    if (! frame->success) {
        YIELDING_FINISH;
    }
    YIELDING_CALL(pushOperand_yielding(task, frame->success, frame->node, list));
    if (! frame->success) {
        YIELDING_FINISH;
    }
    if (frame->token == _var && ! frame->isDoneAfterPush) {
        // `var x = 1`: the declaration follows as the next statement of a sequence.
        list.addBinOp(SEMICOLON);
        stream->next();
        outcome = OUTCOME_OPERATOR;
        YIELDING_FINISH;
    }
    outcome = frame->isDoneAfterPush ? OUTCOME_DONE : OUTCOME_OPERAND;
    YIELDING_END;
}

// A chain of left values after a word or a closed part: members `.name`, elements `[i]`, calls `(args)`.
// `entry` is '.' or '[' when the chain starts right after that character.
void ExpressionParser::chain_yielding(const TaskPtr& task, Outcome& outcome, const StreamPtr& stream,
                                      uint64_t parenNesting, ParseType parseType, OperandList& list,
                                      const NodePtr& head, const std::string& headWord, Token headToken,
                                      int entry) {
    struct LocalVariableState : OMFunctionState {
        NodePtr chain;           // the left part built so far
        std::string word;        // a name waiting to become the next link
        Token token = _NO_TOKEN; // its built-in token
        OMArgs arguments;        // of the call being read
        NodePtr node;
        int c = AT_END;
        int next = 0; // '.', '[' or '(' when that link is read next
        bool success = false;
    };
    YIELDING_BEGIN(LocalVariableState, frame, outcome = OUTCOME_FAILED);
    frame->chain = head;
    frame->word = headWord;
    frame->token = headToken;
    frame->next = entry;
    for (;;) {
        if (frame->next == 0) {
            // Between a name and `(` or `.` a line end ends the name at depth 0.
            YIELDING_CALL(skipSpace_yielding(task, frame->success, frame->c, stream, parenNesting == 0));
            if (! frame->success) {
                YIELDING_FINISH;
            }
            if (frame->c == '(' || frame->c == '.' || frame->c == '[') {
                frame->next = frame->c;
                stream->next();
            }
        }
        if (frame->next == '(') {
            frame->arguments = std::make_shared<std::vector<NodePtr>>();
            YIELDING_CALL(skipSpace_yielding(task, frame->success, frame->c, stream, false));
            while (frame->success && frame->c != ')') {
                YIELDING_CALL(parseExpression_yielding(task, frame->success, frame->node, stream,
                                                       parenNesting + 1, PARSE_ARGUMENT));
                if (! frame->success) {
                    reportError(task, "argument parse failed");
                    YIELDING_FINISH;
                }
                frame->arguments->push_back(frame->node);
                YIELDING_CALL(skipSpace_yielding(task, frame->success, frame->c, stream, false));
                if (frame->success && frame->c == ',') {
                    stream->next();
                } else if (frame->success && frame->c != ')') {
                    reportError(task, "expected ',' or ')'; argument list parse failed");
                    YIELDING_FINISH;
                }
            }
            if (! frame->success) {
                YIELDING_FINISH;
            }
            stream->next();
            if (! frame->word.empty()) {
                frame->chain = makeLValue(frame->chain, frame->word, frame->token, frame->arguments);
            } else {
                frame->chain = OMStored::factory(
                    std::make_shared<OMExpressionLValueCall>(frame->chain, frame->arguments));
            }
            frame->word.clear();
            frame->token = _NO_TOKEN;
            frame->next = 0;
            continue;
        }
        if (! frame->word.empty()) {
            frame->chain = makeLValue(frame->chain, frame->word, frame->token, nullptr);
            frame->word.clear();
            frame->token = _NO_TOKEN;
        }
        if (frame->next == '.') {
            // A member name may begin with a digit; a built-in name is a built-in here too.
            for (;;) {
                YIELDING_CALL(OMStored::peekChar_yielding(task, frame->c, stream));
                if (! OMStored::isIdentifierChar(frame->c, 1)) {
                    break;
                }
                frame->word.push_back(static_cast<char>(frame->c));
                stream->next();
            }
            if (frame->word.empty()) {
                reportError(task, "unexpected character");
                YIELDING_FINISH;
            }
            frame->token = OMStored::getToken(frame->word);
            if (isKeywordToken(frame->token)) {
                frame->token = _NO_TOKEN;
            }
            frame->next = 0;
            continue;
        }
        if (frame->next == '[') {
            YIELDING_CALL(parseExpression_yielding(task, frame->success, frame->node, stream,
                                                   parenNesting + 1, PARSE_INNER));
            if (! frame->success) {
                reportError(task, "parse error in index value");
                YIELDING_FINISH;
            }
            YIELDING_CALL(skipSpace_yielding(task, frame->success, frame->c, stream, false));
            if (! frame->success || frame->c != ']') {
                reportError(task, "closing ']' expected");
                YIELDING_FINISH;
            }
            stream->next();
            if (frame->node->getType() == OMType::Int) {
                if (frame->node->getInt() < 0) {
                    reportError(task, "negative index value");
                    YIELDING_FINISH;
                }
                frame->chain = OMStored::factory(std::make_shared<OMExpressionLValueIndex>(
                    frame->chain, static_cast<uint64_t>(frame->node->getInt()), nullptr));
            } else if (frame->node->getType() == OMType::String) {
                frame->chain = OMStored::factory(
                    std::make_shared<OMExpressionLValueStr>(frame->chain, frame->node->getString(), nullptr));
            } else {
                frame->chain =
                    OMStored::factory(OMExpressionLValue::factory(frame->chain, frame->node, nullptr));
            }
            frame->next = 0;
            continue;
        }
        break;
    }
    if (frame->c == ':') {
        // Only the first value of `?:` may end at a colon; elsewhere the parse fails without a word, which
        // is how `{a: 1}` falls back to an object literal.
        if (parseType != PARSE_CONDITIONAL_FIRST) {
            YIELDING_FINISH;
        }
        YIELDING_CALL(pushOperand_yielding(task, frame->success, frame->chain, list));
        outcome = frame->success ? OUTCOME_DONE : OUTCOME_FAILED;
        YIELDING_FINISH;
    }
    YIELDING_CALL(pushOperand_yielding(task, frame->success, frame->chain, list));
    outcome = frame->success ? OUTCOME_OPERAND : OUTCOME_FAILED;
    YIELDING_END;
}

// `c ? a : b`: the two values are read now and held in a ternary with no condition yet; the fold puts
// the condition in.
void ExpressionParser::conditional_yielding(const TaskPtr& task, Outcome& outcome, const StreamPtr& stream,
                                            uint64_t parenNesting, OperandList& list) {
    struct LocalVariableState : OMFunctionState {
        NodePtr first;
        NodePtr second;
        NodePtr holder;
        bool success = false;
    };
    YIELDING_BEGIN(LocalVariableState, frame, outcome = OUTCOME_FAILED);
    YIELDING_CALL(parseExpression_yielding(task, frame->success, frame->first, stream, parenNesting + 1,
                                           PARSE_CONDITIONAL_FIRST));
    if (! frame->success) {
        reportError(task, "invalid first value");
        YIELDING_FINISH;
    }
    YIELDING_CALL(scratchNode()->parseChars_yielding(task, frame->success, stream, ":"));
    if (! frame->success) {
        reportError(task, "missing : in ?:");
        YIELDING_FINISH;
    }
    YIELDING_CALL(
        parseExpression_yielding(task, frame->success, frame->second, stream, parenNesting + 1, PARSE_INNER));
    if (! frame->success) {
        reportError(task, "invalid second value");
        YIELDING_FINISH;
    }
    YIELDING_CALL(OMNode::registerTernaryOperation_yielding(
        task, frame->holder, CONDITIONAL, OMStored::undefinedFactory(), frame->first, frame->second));
    if (! frame->holder) {
        reportError(task, "failed to register ternary operation");
        YIELDING_FINISH;
    }
    list.addBinOp(CONDITIONAL_LEVEL);
    list.operands.push_back(frame->holder);
    outcome = OUTCOME_OPERAND;
    YIELDING_END;
}

// ---- literals and blocks ----

// `[a, b,]` after its `[`; a trailing comma is allowed.
void ExpressionParser::array_yielding(const TaskPtr& task, bool& success, NodePtr& result,
                                      const StreamPtr& stream, uint64_t parenNesting) {
    struct LocalVariableState : OMFunctionState {
        NodePtr element;
        int c = AT_END;
        bool ok = false;
    };
    YIELDING_BEGIN(LocalVariableState, frame, success = false);
    result = OMStored::arrayFactory();
    for (;;) {
        YIELDING_CALL(skipSpace_yielding(task, frame->ok, frame->c, stream, false));
        if (! frame->ok) {
            YIELDING_FINISH;
        }
        if (frame->c == ']') {
            stream->next();
            break;
        }
        YIELDING_CALL(parseExpression_yielding(task, frame->ok, frame->element, stream, parenNesting + 1,
                                               PARSE_ARRAY_ELEMENT));
        if (! frame->ok) {
            reportError(task, "parse error in array");
            YIELDING_FINISH;
        }
        result->push(frame->element);
        YIELDING_CALL(skipSpace_yielding(task, frame->ok, frame->c, stream, false));
        if (! frame->ok) {
            YIELDING_FINISH;
        }
        if (frame->c == ',') {
            stream->next();
        } else if (frame->c == ']') {
            stream->next();
            break;
        } else {
            reportError(task, frame->c == AT_END ? "unexpected end of inputStream"
                                                 : "unexpected character expecting , or ] in array");
            YIELDING_FINISH;
        }
    }
    success = true;
    YIELDING_END;
}

// After `{`: a block or an object literal. The first statement is tried as an expression; when that fails
// (`a` refuses the `:` of `{a: 1}`) the text is read again as an object. A value followed by `:` was a
// key after all (`{"a": 1}`); anything else is a block.
void ExpressionParser::braces_yielding(const TaskPtr& task, bool& success, NodePtr& result,
                                       const StreamPtr& stream, uint64_t parenNesting, ParseType parseType) {
    struct LocalVariableState : OMFunctionState {
        uint64_t bracePos = 0;
        NodePtr first;
        std::string key;
        int c = AT_END;
        bool ok = false;
    };
    YIELDING_BEGIN(LocalVariableState, frame, success = false);
    YIELDING_CALL(skipSpace_yielding(task, frame->ok, frame->c, stream, false));
    if (! frame->ok) {
        YIELDING_FINISH;
    }
    if (frame->c == AT_END) {
        reportError(task, "unexpected end of inputStream");
        YIELDING_FINISH;
    }
    if (frame->c == '}') {
        stream->next();
        result = parseType == PARSE_BLOCK ? OMStored::undefinedFactory() : OMStored::mapFactory();
        success = true;
        YIELDING_FINISH;
    }
    frame->bracePos = stream->getPos();
    YIELDING_CALL(
        parseExpression_yielding(task, frame->ok, frame->first, stream, parenNesting + 1, PARSE_INNER));
    if (! frame->ok) {
        if (! stream->setPos(frame->bracePos)) {
            reportError(task, "invalid expression in sequence");
            YIELDING_FINISH;
        }
        YIELDING_CALL(objectLiteral_yielding(task, success, result, stream, parenNesting, ""));
        YIELDING_FINISH;
    }
    YIELDING_CALL(skipSpace_yielding(task, frame->ok, frame->c, stream, false));
    if (! frame->ok) {
        YIELDING_FINISH;
    }
    if (frame->c != ':') {
        YIELDING_CALL(block_yielding(task, success, result, stream, parenNesting, frame->first));
        YIELDING_FINISH;
    }
    if (frame->first->getType() == OMType::String) {
        frame->key = frame->first->getString();
    } else if (frame->first->getType() == OMType::Int) {
        frame->key = std::to_string(frame->first->getInt());
    } else {
        frame->key = frame->first->getAsIdentifier();
        if (frame->key.empty()) {
            reportError(task, "invalid property");
            YIELDING_FINISH;
        }
    }
    if (frame->key.empty()) {
        reportError(task, "empty property name");
        YIELDING_FINISH;
    }
    stream->next();
    YIELDING_CALL(objectLiteral_yielding(task, success, result, stream, parenNesting, frame->key));
    YIELDING_END;
}

// `{a: 1, "b": 2, }` from the first name on (or from the value of `firstKey`, already read).
void ExpressionParser::objectLiteral_yielding(const TaskPtr& task, bool& success, NodePtr& result,
                                              const StreamPtr& stream, uint64_t parenNesting,
                                              const std::string& firstKey) {
    struct LocalVariableState : OMFunctionState {
        std::string key;
        std::shared_ptr<OMStored> quoted; // a quoted name being read
        std::string errorMessage;
        NodePtr value;
        NodePtr stored;
        int c = AT_END;
        bool ok = false;
    };
    YIELDING_BEGIN(LocalVariableState, frame, success = false);
    result = OMStored::mapFactory();
    frame->key = firstKey;
    for (;;) {
        if (frame->key.empty()) {
            // A name: quoted, or letters, digits, '_' and '%'.
            YIELDING_CALL(skipSpace_yielding(task, frame->ok, frame->c, stream, false));
            if (! frame->ok) {
                YIELDING_FINISH;
            }
            if (frame->c == '}') {
                stream->next();
                break;
            }
            if (frame->c == '"' || frame->c == '\'') {
                stream->next();
                frame->quoted = scratchNode();
                YIELDING_CALL(frame->quoted->parseString_yielding(task, frame->ok, frame->errorMessage,
                                                                  stream, frame->c));
                if (! frame->ok) {
                    reportError(task, frame->errorMessage.empty() ? "invalid character in attribute name"
                                                                  : frame->errorMessage);
                    YIELDING_FINISH;
                }
                frame->key = frame->quoted->getString();
            } else if (isalpha(frame->c) || frame->c == '_' || frame->c == '%') {
                for (;;) {
                    YIELDING_CALL(OMStored::peekChar_yielding(task, frame->c, stream));
                    if (! (isalnum(frame->c) || frame->c == '_' || frame->c == '%')) {
                        break;
                    }
                    frame->key.push_back(static_cast<char>(frame->c));
                    stream->next();
                }
                if (frame->c != ':' && ! OMStored::isWhitespace(frame->c) && frame->c != '/') {
                    reportError(task, "invalid character in attribute name");
                    YIELDING_FINISH;
                }
            } else {
                reportError(task, frame->c == AT_END ? "unexpected end of inputStream"
                                                     : "invalid character while expecting attribute name");
                YIELDING_FINISH;
            }
            YIELDING_CALL(skipSpace_yielding(task, frame->ok, frame->c, stream, false));
            if (! frame->ok || frame->c != ':') {
                YIELDING_FINISH;
            }
            stream->next();
        }
        YIELDING_CALL(parseExpression_yielding(task, frame->ok, frame->value, stream, parenNesting + 1,
                                               PARSE_OBJECT_VALUE));
        if (! frame->ok) {
            reportError(task, "parse error in object");
            YIELDING_FINISH;
        }
        YIELDING_CALL(result->set_yielding(task, frame->stored, frame->key, frame->value));
        frame->key.clear();
        YIELDING_CALL(skipSpace_yielding(task, frame->ok, frame->c, stream, false));
        if (! frame->ok) {
            YIELDING_FINISH;
        }
        if (frame->c == '}') {
            stream->next();
            break;
        }
        if (frame->c != ',') {
            reportError(task, frame->c == AT_END ? "unexpected end of inputStream"
                                                 : "unexpected character expecting , or }");
            YIELDING_FINISH;
        }
        stream->next();
    }
    success = true;
    YIELDING_END;
}

// The statements of a brace block after its first, joined by `;` or `,`, up to `}`.
void ExpressionParser::block_yielding(const TaskPtr& task, bool& success, NodePtr& result,
                                      const StreamPtr& stream, uint64_t parenNesting,
                                      const NodePtr& firstStatement) {
    struct LocalVariableState : OMFunctionState {
        NodePtr body;
        NodePtr statement;
        BinOp separator = SEMICOLON;
        uint64_t startPos = 0;
        int c = AT_END;
        bool ok = false;
    };
    YIELDING_BEGIN(LocalVariableState, frame, success = false);
    frame->body = isDefined(firstStatement) ? firstStatement : nullptr;
    for (;;) {
        YIELDING_CALL(skipSpace_yielding(task, frame->ok, frame->c, stream, false));
        if (! frame->ok) {
            YIELDING_FINISH;
        }
        if (frame->c == AT_END) {
            reportError(task, "unexpected end of inputStream");
            YIELDING_FINISH;
        }
        if (frame->c == '}') {
            stream->next();
            break;
        }
        if (frame->c == ';' || frame->c == ',') {
            frame->separator = frame->c == ';' ? SEMICOLON : COMMA;
            stream->next();
            continue;
        }
        frame->startPos = stream->getPos();
        YIELDING_CALL(parseExpression_yielding(task, frame->ok, frame->statement, stream, parenNesting + 1,
                                               PARSE_INNER));
        if (! frame->ok || stream->getPos() == frame->startPos) {
            reportError(task, "invalid expression in sequence");
            YIELDING_FINISH;
        }
        if (isDefined(frame->statement) && ! frame->body) {
            frame->body = frame->statement;
        } else if (isDefined(frame->statement)) {
            YIELDING_CALL(OMNode::registerBinaryOperation_yielding(task, frame->body, frame->separator,
                                                                   frame->body, frame->statement));
            if (! frame->body) {
                reportError(task, "failed to register binary operation");
                YIELDING_FINISH;
            }
        }
        frame->separator = SEMICOLON;
    }
    result = frame->body ? frame->body : OMStored::undefinedFactory();
    success = true;
    YIELDING_END;
}

// ---- statements ----

// The condition of `if` and `while`: an expression that begins with `(`, parsed as a whole. NOTE: what can
// continue an expression continues it: in `if (a) - b` the condition is `(a) - b`.
void ExpressionParser::condition_yielding(const TaskPtr& task, bool& success, NodePtr& result,
                                          const StreamPtr& stream, uint64_t parenNesting,
                                          const char* missingParenMessage, const char* failureMessage) {
    struct LocalVariableState : OMFunctionState {
        int c = AT_END;
    };
    YIELDING_BEGIN(LocalVariableState, frame, success = false);
    YIELDING_CALL(skipSpace_yielding(task, success, frame->c, stream, false));
    if (! success || frame->c != '(') {
        reportError(task, missingParenMessage);
        success = false;
        YIELDING_FINISH;
    }
    YIELDING_CALL(parseExpression_yielding(task, success, result, stream, parenNesting + 1, PARSE_INNER));
    if (! success) {
        reportError(task, failureMessage);
    }
    YIELDING_END;
}

// A branch of `if` or `else`, or the body of `while`: a `;` ends it and is consumed.
void ExpressionParser::branch_yielding(const TaskPtr& task, bool& success, NodePtr& result,
                                       const StreamPtr& stream, uint64_t parenNesting) {
    struct LocalVariableState : OMFunctionState {};
    YIELDING_BEGIN(LocalVariableState, frame, success = false);
    YIELDING_CALL(parseExpression_yielding(task, success, result, stream, parenNesting + 1, PARSE_BRANCH));
    if (! success) {
        reportError(task, "invalid expression");
    }
    YIELDING_END;
}

// `if (c) a else b`.
void ExpressionParser::if_yielding(const TaskPtr& task, bool& success, NodePtr& result,
                                   const StreamPtr& stream, uint64_t parenNesting) {
    struct LocalVariableState : OMFunctionState {
        NodePtr condition;
        NodePtr yes;
        NodePtr no;
        bool hasElse = false;
        int c = AT_END;
    };
    YIELDING_BEGIN(LocalVariableState, frame, success = false);
    YIELDING_CALL(condition_yielding(task, success, frame->condition, stream, parenNesting, "expected '('",
                                     "invalid expression in condition"));
    if (! success) {
        YIELDING_FINISH;
    }
    YIELDING_CALL(branch_yielding(task, success, frame->yes, stream, parenNesting));
    if (! success) {
        YIELDING_FINISH;
    }
    YIELDING_CALL(skipSpace_yielding(task, success, frame->c, stream, false));
    if (! success) {
        YIELDING_FINISH;
    }
    YIELDING_CALL(scratchNode()->parseKeyword_yielding(task, frame->hasElse, stream, "else"));
    frame->no = OMStored::undefinedFactory();
    if (frame->hasElse) {
        YIELDING_CALL(branch_yielding(task, success, frame->no, stream, parenNesting));
        if (! success) {
            YIELDING_FINISH;
        }
    }
    YIELDING_CALL(
        OMNode::registerTernaryOperation_yielding(task, result, IF, frame->condition, frame->yes, frame->no));
    success = static_cast<bool>(result);
    if (! success) {
        reportError(task, "failed to register ternary operation");
    }
    YIELDING_END;
}

// `while (c) body`.
void ExpressionParser::while_yielding(const TaskPtr& task, bool& success, NodePtr& result,
                                      const StreamPtr& stream, uint64_t parenNesting) {
    struct LocalVariableState : OMFunctionState {
        NodePtr condition;
        NodePtr body;
    };
    YIELDING_BEGIN(LocalVariableState, frame, success = false);
    YIELDING_CALL(condition_yielding(task, success, frame->condition, stream, parenNesting, "expected '('",
                                     "invalid expression in condition"));
    if (! success) {
        YIELDING_FINISH;
    }
    YIELDING_CALL(branch_yielding(task, success, frame->body, stream, parenNesting));
    if (! success) {
        YIELDING_FINISH;
    }
    YIELDING_CALL(
        OMNode::registerBinaryOperation_yielding(task, result, WHILE, frame->condition, frame->body));
    success = static_cast<bool>(result);
    if (! success) {
        reportError(task, "failed to register binary operation");
    }
    YIELDING_END;
}

// `do body while (c)`.
void ExpressionParser::do_yielding(const TaskPtr& task, bool& success, NodePtr& result,
                                   const StreamPtr& stream, uint64_t parenNesting) {
    struct LocalVariableState : OMFunctionState {
        NodePtr body;
        NodePtr condition;
        bool hasWhile = false;
        int c = AT_END;
    };
    YIELDING_BEGIN(LocalVariableState, frame, success = false);
    YIELDING_CALL(
        parseExpression_yielding(task, success, frame->body, stream, parenNesting + 1, PARSE_BLOCK));
    if (! success) {
        reportError(task, "invalid body in do-while");
        YIELDING_FINISH;
    }
    YIELDING_CALL(skipSpace_yielding(task, success, frame->c, stream, false));
    if (success) {
        YIELDING_CALL(scratchNode()->parseKeyword_yielding(task, frame->hasWhile, stream, "while"));
    }
    if (! success || ! frame->hasWhile) {
        reportError(task, "missing while");
        success = false;
        YIELDING_FINISH;
    }
    YIELDING_CALL(condition_yielding(task, success, frame->condition, stream, parenNesting,
                                     "invalid condition in do-while", "invalid condition in do-while"));
    if (! success) {
        YIELDING_FINISH;
    }
    YIELDING_CALL(
        OMNode::registerBinaryOperation_yielding(task, result, DO_WHILE, frame->body, frame->condition));
    success = static_cast<bool>(result);
    if (! success) {
        reportError(task, "failed to parse do-while");
    }
    YIELDING_END;
}

// `for (initial; condition; iteration) body`, rewritten as `initial; while (condition) {body; iteration}`.
void ExpressionParser::for_yielding(const TaskPtr& task, bool& success, NodePtr& result,
                                    const StreamPtr& stream, uint64_t parenNesting) {
    struct LocalVariableState : OMFunctionState {
        NodePtr clauses[3]; // initial, condition, iteration; null when empty
        int clause = 0;
        NodePtr body;
        int c = AT_END;
    };
    static const char* const clauseErrors[3] = {"invalid initialization in for", "invalid condition in for",
                                                "invalid iteration in for"};
    YIELDING_BEGIN(LocalVariableState, frame, success = false);
    YIELDING_CALL(skipSpace_yielding(task, success, frame->c, stream, false));
    if (! success || frame->c != '(') {
        reportError(task, "expected '(' in for");
        success = false;
        YIELDING_FINISH;
    }
    stream->next();
    for (frame->clause = 0; frame->clause < 3; ++frame->clause) {
        YIELDING_CALL(skipSpace_yielding(task, success, frame->c, stream, false));
        if (! success) {
            YIELDING_FINISH;
        }
        if (frame->c != (frame->clause < 2 ? ';' : ')')) {
            YIELDING_CALL(parseExpression_yielding(task, success, frame->clauses[frame->clause], stream,
                                                   parenNesting + 1, PARSE_FOR_CLAUSE));
            if (! success) {
                reportError(task, clauseErrors[frame->clause]);
                YIELDING_FINISH;
            }
            YIELDING_CALL(skipSpace_yielding(task, success, frame->c, stream, false));
        }
        // The character after a clause is taken whatever it is: normally `;`, `;` and `)`.
        stream->next();
    }
    YIELDING_CALL(
        parseExpression_yielding(task, success, frame->body, stream, parenNesting + 1, PARSE_FOR_BODY));
    if (! success) {
        reportError(task, "invalid expression in 'for' body");
        YIELDING_FINISH;
    }
    success = false;
    if (isDefined(frame->body) && isDefined(frame->clauses[2])) {
        YIELDING_CALL(OMNode::registerBinaryOperation_yielding(task, frame->body, SEMICOLON, frame->body,
                                                               frame->clauses[2]));
    } else if (! isDefined(frame->body)) {
        frame->body = isDefined(frame->clauses[2]) ? frame->clauses[2] : OMStored::undefinedFactory();
    }
    if (! isDefined(frame->clauses[1])) {
        // An empty condition loops for ever, as `for (;;)` does.
        frame->clauses[1] = OMStored::factory(true);
    }
    if (frame->body) {
        YIELDING_CALL(
            OMNode::registerBinaryOperation_yielding(task, result, WHILE, frame->clauses[1], frame->body));
    }
    if (result && isDefined(frame->clauses[0])) {
        YIELDING_CALL(
            OMNode::registerBinaryOperation_yielding(task, result, SEMICOLON, frame->clauses[0], result));
    }
    success = static_cast<bool>(result);
    if (! success) {
        reportError(task, "failed to register binary operation");
    }
    YIELDING_END;
}

// `function name(a, b) {body}` after the word `function`; the name is optional.
void ExpressionParser::function_yielding(const TaskPtr& task, bool& success, NodePtr& result,
                                         const StreamPtr& stream, uint64_t parenNesting) {
    struct LocalVariableState : OMFunctionState {
        std::string name;
        std::shared_ptr<FunctionSignature> signature;
        NodePtr parameter;
        NodePtr body;
        int c = AT_END;
    };
    YIELDING_BEGIN(LocalVariableState, frame, success = false);
    YIELDING_CALL(skipSpace_yielding(task, success, frame->c, stream, false));
    if (success && isIdentifierStart(frame->c)) {
        YIELDING_CALL(OMStored::parseName_yielding(task, frame->name, stream));
        YIELDING_CALL(skipSpace_yielding(task, success, frame->c, stream, false));
    }
    if (! success || frame->c != '(') {
        reportError(task, frame->name.empty() ? "expected function name or parameter list"
                                              : "expected '(' for parameter list");
        success = false;
        YIELDING_FINISH;
    }
    stream->next();
    frame->signature = std::make_shared<FunctionSignature>();
    YIELDING_CHECK(frame->signature->addParameter(frame->name));
    YIELDING_CALL(skipSpace_yielding(task, success, frame->c, stream, false));
    while (success && frame->c != ')') {
        YIELDING_CALL(parseExpression_yielding(task, success, frame->parameter, stream, parenNesting + 1,
                                               PARSE_PARAMETER));
        if (! success) {
            reportError(task, "cannot parse parameter");
            YIELDING_FINISH;
        }
        if (frame->parameter->getAsIdentifier().empty() ||
            ! frame->signature->addParameter(frame->parameter->getAsIdentifier())) {
            reportError(task, "empty parameter name");
            success = false;
            YIELDING_FINISH;
        }
        YIELDING_CALL(skipSpace_yielding(task, success, frame->c, stream, false));
        if (success && frame->c == ',') {
            stream->next();
            YIELDING_CALL(skipSpace_yielding(task, success, frame->c, stream, false));
        } else if (success && frame->c != ')') {
            reportError(task, "expected ')' or ',' in parameter list");
            success = false;
            YIELDING_FINISH;
        }
    }
    if (! success) {
        YIELDING_FINISH;
    }
    stream->next();
    YIELDING_CALL(skipSpace_yielding(task, success, frame->c, stream, false));
    if (! success || frame->c != '{') {
        reportError(task, "no function scope '{'");
        success = false;
        YIELDING_FINISH;
    }
    stream->next();
    YIELDING_CALL(functionBody_yielding(task, success, frame->body, stream, parenNesting));
    if (! success) {
        YIELDING_FINISH;
    }
    if (frame->body->getType() == OMType::Expression && frame->body->getExpression()) {
        YIELDING_CHECK(frame->body->getExpression()->scanForLocalVariables(frame->signature, false));
        result = OMStored::factory(frame->signature, frame->body->getExpression());
    } else {
        // A body that is no expression (empty, or a constant) does nothing when called.
        result = OMStored::factory(frame->signature, std::shared_ptr<OMExpression>());
    }
    success = static_cast<bool>(result);
    YIELDING_END;
}

// The statements of a function body after its `{`, up to `}`.
void ExpressionParser::functionBody_yielding(const TaskPtr& task, bool& success, NodePtr& result,
                                             const StreamPtr& stream, uint64_t parenNesting) {
    struct LocalVariableState : OMFunctionState {
        NodePtr first;
        int c = AT_END;
    };
    YIELDING_BEGIN(LocalVariableState, frame, success = false);
    YIELDING_CALL(skipSpace_yielding(task, success, frame->c, stream, false));
    if (! success) {
        YIELDING_FINISH;
    }
    if (frame->c == '}') {
        stream->next();
        result = OMStored::undefinedFactory();
        YIELDING_FINISH;
    }
    YIELDING_CALL(
        parseExpression_yielding(task, success, frame->first, stream, parenNesting + 1, PARSE_BLOCK));
    if (! success) {
        reportError(task, "invalid scope");
        YIELDING_FINISH;
    }
    YIELDING_CALL(block_yielding(task, success, result, stream, parenNesting, frame->first));
    YIELDING_END;
}

// ---- building the tree ----

void ExpressionParser::pushOperand_yielding(const TaskPtr& task, bool& success, NodePtr& operand,
                                            OperandList& list) {
    struct LocalVariableState : OMFunctionState {};
    YIELDING_BEGIN(LocalVariableState, frame, success = false);
    // Innermost first: `-!x` is `-(!x)`.
    while (! list.unOps.empty()) {
        YIELDING_CALL(OMNode::registerUnaryOperation_yielding(task, operand, list.unOps.back(), operand));
        list.unOps.pop_back();
        if (! operand) {
            reportError(task, "failed to push to operand task");
            YIELDING_FINISH;
        }
    }
    list.operands.push_back(operand);
    success = true;
    YIELDING_END;
}

// Folds the operand list one operator level at a time, the tightest first; assignment from right to left,
// everything else from left to right.
void ExpressionParser::fold_yielding(const TaskPtr& task, bool& success, NodePtr& result, OperandList& list) {
    struct LocalVariableState : OMFunctionState {
        int level = 0;
        std::vector<NodePtr> operands; // the list before this level
        std::vector<BinOp> binOps;
        size_t i = 0;
        NodePtr current;
        NodePtr next;
        NodePtr yes; // the values of a `?:`
        NodePtr no;
        bool isRightToLeft = false;
    };
    YIELDING_BEGIN(LocalVariableState, frame, success = false);
    if (list.operands.size() == list.binOps.size()) {
        // `1 +` at the end: completed with undefined.
        list.operands.push_back(OMStored::undefinedFactory());
    }
    if (list.operands.size() != list.binOps.size() + 1) {
        YIELDING_FINISH;
    }
    for (frame->level = INDEX; frame->level <= SEMICOLON && ! list.binOps.empty(); ++frame->level) {
        if ((list.usedBinOps & (1u << frame->level)) == 0) {
            continue;
        }
        frame->operands.swap(list.operands);
        frame->binOps.swap(list.binOps);
        list.operands.clear();
        list.binOps.clear();
        frame->isRightToLeft = frame->level == ASSIGN;
        if (frame->isRightToLeft) {
            std::reverse(frame->operands.begin(), frame->operands.end());
            std::reverse(frame->binOps.begin(), frame->binOps.end());
        }
        frame->current = frame->operands[0];
        for (frame->i = 0; frame->i < frame->binOps.size(); ++frame->i) {
            frame->next = frame->operands[frame->i + 1];
            if (frame->binOps[frame->i] != frame->level) {
                list.operands.push_back(frame->current);
                list.binOps.push_back(frame->binOps[frame->i]);
                frame->current = frame->next;
            } else if (frame->level == CONDITIONAL_LEVEL) {
                // The values of `?:` wait in a ternary without a condition.
                {
                    auto holder =
                        std::dynamic_pointer_cast<OMExpressionTernary>(frame->next->getExpression());
                    YIELDING_CHECK(holder);
                    frame->yes = holder->getNode2();
                    frame->no = holder->getNode3();
                }
                YIELDING_CALL(OMNode::registerTernaryOperation_yielding(
                    task, frame->current, CONDITIONAL, frame->current, frame->yes, frame->no));
            } else if (frame->isRightToLeft) {
                // The left side stays the left side.
                YIELDING_CALL(OMNode::registerBinaryOperation_yielding(
                    task, frame->current, static_cast<BinOp>(frame->level), frame->next, frame->current));
            } else {
                YIELDING_CALL(OMNode::registerBinaryOperation_yielding(
                    task, frame->current, static_cast<BinOp>(frame->level), frame->current, frame->next));
            }
            if (! frame->current) {
                YIELDING_FINISH;
            }
        }
        list.operands.push_back(frame->current);
        if (frame->isRightToLeft) {
            std::reverse(list.operands.begin(), list.operands.end());
            std::reverse(list.binOps.begin(), list.binOps.end());
        }
    }
    if (list.operands.size() != 1 || list.operands[0]->getType() == OMType::Error) {
        YIELDING_FINISH;
    }
    result = list.operands[0];
    success = true;
    YIELDING_END;
}

void ExpressionParser::parseExpressionList_yielding(const TaskPtr& task, bool& success, NodePtr& result,
                                                    const StreamPtr& stream) {
    struct LocalVariableState : OMFunctionState {
        uint64_t statementCount = 0;
        uint64_t startPos = 0;
        bool wasAbandoned = false; // the parser gave the statement up
        NodePtr total;
        NodePtr current;
        bool ok = false;
        int c = AT_END;
    };
    YIELDING_BEGIN(LocalVariableState, frame, success = false);
    for (;;) {
        YIELDING_CALL(skipSpace_yielding(task, frame->ok, frame->c, stream, false));
        if (! frame->ok) {
            reportError(task, "parsing failed");
            YIELDING_FINISH;
        }
        if (frame->c == AT_END) {
            break;
        }
        frame->startPos = stream->getPos();
        YIELDING_CALL(parseExpression_yielding(task, frame->ok, frame->current, stream, 0, PARSE_STATEMENT));
        YIELDING_CALL(takeBackAbandonedStatement_yielding(task, frame->wasAbandoned, frame->ok, stream));
        if (! frame->ok || frame->wasAbandoned) {
            reportError(task, "parsing failed");
            YIELDING_FINISH;
        }
        if (stream->getPos() == frame->startPos) {
            // Nothing was taken (a stray `)`): step over it so that the list moves on.
            stream->next();
        }
        ++frame->statementCount;
        if (! isDefined(frame->total)) {
            frame->total = frame->current;
        } else if (isDefined(frame->current)) {
            YIELDING_CALL(OMNode::registerBinaryOperation_yielding(task, frame->total, SEMICOLON,
                                                                   frame->total, frame->current));
            if (! frame->total) {
                reportError(task, "parsing failed");
                YIELDING_FINISH;
            }
        }
    }
    result = frame->total ? frame->total : OMStored::undefinedFactory();
    success = true;
    YIELDING_END;
}

} // namespace Brw
