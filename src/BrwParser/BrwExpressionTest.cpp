#include "BrwParser/BrwExpressionTest.h"

#include <cstdio>
#include <filesystem>

#include "BrwLogger/BrwScriptErrorLog.h"
#include "BrwParser/BrwOMExpressionLValue.h"
#include "BrwParser/BrwOMExpressionSequence.h"
#include "BrwParser/BrwOMScope.h"
#include "BrwParser/BrwOMStored.h"
#include "BrwTask/BrwCallTask.h"

namespace Brw {

namespace {

using NodePtr = std::shared_ptr<IOMNode>;

NodePtr lit(OMInt value) {
    return OMStored::factory(value);
}

NodePtr lit(const char* value) {
    return OMStored::factory(value);
}

NodePtr lit(bool value) {
    return OMStored::factory(value);
}

NodePtr name(const char* identifier) {
    return OMStored::factory(std::make_shared<OMExpressionLValueStr>(nullptr, identifier, nullptr));
}

NodePtr member(const NodePtr& parent, const char* identifier) {
    return OMStored::factory(std::make_shared<OMExpressionLValueStr>(parent, identifier, nullptr));
}

NodePtr element(const NodePtr& parent, const NodePtr& index) {
    return OMStored::factory(OMExpressionLValue::factory(parent, index, nullptr));
}

NodePtr call(const char* identifier, std::initializer_list<NodePtr> arguments) {
    auto argumentList = std::make_shared<std::vector<NodePtr>>(arguments);
    return OMStored::factory(std::make_shared<OMExpressionLValueStr>(nullptr, identifier, argumentList));
}

NodePtr bin(BinOp op, const NodePtr& node1, const NodePtr& node2) {
    NodePtr out;
    CallTask::call("test", [&](const std::shared_ptr<Task>& task) {
        OMNode::registerBinaryOperation_yielding(task, out, op, node1, node2);
    });
    return out;
}

NodePtr un(UnOp op, const NodePtr& node) {
    NodePtr out;
    CallTask::call("test", [&](const std::shared_ptr<Task>& task) {
        OMNode::registerUnaryOperation_yielding(task, out, op, node);
    });
    return out;
}

NodePtr ifElse(const NodePtr& condition, const NodePtr& yes, const NodePtr& no) {
    NodePtr out;
    CallTask::call("test", [&](const std::shared_ptr<Task>& task) {
        OMNode::registerTernaryOperation_yielding(task, out, IF, condition, yes, no);
    });
    return out;
}

NodePtr keyword(Token token) {
    NodePtr out;
    CallTask::call("test", [&](const std::shared_ptr<Task>& task) {
        OMNode::registerKeywordOperation_yielding(task, out, token);
    });
    return out;
}

// Statements joined by `;`, as a block.
NodePtr block(std::initializer_list<NodePtr> statements) {
    NodePtr total;
    for (const NodePtr& statement : statements) {
        total = total ? bin(SEMICOLON, total, statement) : statement;
    }
    return total;
}

NodePtr ret(const NodePtr& value) {
    return value->wrapReturnValue();
}

NodePtr function(const char* functionName, std::initializer_list<const char*> parameters,
                 const NodePtr& body) {
    auto signature = std::make_shared<FunctionSignature>();
    (void)signature->addParameter(functionName);
    for (const char* parameter : parameters) {
        (void)signature->addParameter(parameter);
    }
    if (body->getType() == OMType::Expression) {
        (void)body->getExpression()->scanForLocalVariables(signature, false);
    }
    return OMStored::factory(signature, body->getType() == OMType::Expression
                                            ? body->getExpression()
                                            : OMExpression::returnFactory(body));
}

NodePtr eval(const NodePtr& node, const std::shared_ptr<OMScope>& scope) {
    NodePtr out;
    CallTask::call("test", [&](const std::shared_ptr<Task>& task) {
        node->eval_yielding(task, out, scope, UNWRAP_RETURN_VALUE);
    });
    return out;
}

// Evaluates in slices of one microsecond, as a busy task does; the number of slices it took.
NodePtr evalInTinySlices(const NodePtr& node, const std::shared_ptr<OMScope>& scope, int& slices) {
    NodePtr out;
    auto task = CallTask::factory("slices", [&](const std::shared_ptr<Task>& self) {
        node->eval_yielding(self, out, scope, UNWRAP_RETURN_VALUE);
    });
    for (slices = 0; ! task->isTaskCompleted() && slices < 1000000; ++slices) {
        (void)task->runTimeslice(1);
    }
    return out;
}

std::shared_ptr<OMScope> freshScope() {
    return OMScope::factory(nullptr, OMScope::READS_PARENT);
}

} // namespace

bool ExpressionTest::setup() {
    fScriptErrors = std::make_unique<ScriptErrorCapture>();
    return fScriptErrors->isCapturing();
}

bool ExpressionTest::teardown() {
    fScriptErrors.reset();
    return true;
}

bool ExpressionTest::test() {
    REPORT_CLASS_TEST;
    bool allOK = testFolding();
    allOK = testEvaluationYieldingMidway() && allOK;
    allOK = testLoopsAndBreak() && allOK;
    allOK = testFunctionsAndReturn() && allOK;
    allOK = testRecursion() && allOK;
    allOK = testNamesAndElements() && allOK;
    allOK = testPrintedForms() && allOK;
    return allOK;
}

bool ExpressionTest::testFolding() {
    bool retVal = false;
    do {
        NodePtr sum = bin(ADD, lit(OMInt(1)), bin(MULTIPLY, lit(OMInt(2)), lit(OMInt(3))));
        SANITY_CHECK(sum);
        CHECK_EQUAL(sum->getType(), OMType::Int);
        CHECK_EQUAL(sum->getInt(), 7);
        NodePtr negated = un(NEGATIVE, lit(true));
        SANITY_CHECK(negated && negated->getType() == OMType::Int && negated->getInt() == -1);
        NodePtr notNot = un(BOOL_NOT, un(BOOL_NOT, lit(true)));
        SANITY_CHECK(notNot && notNot->getType() == OMType::Bool && notNot->getBool());
        NodePtr concatenated = bin(ADD, bin(ADD, lit("a"), lit(OMInt(1))), lit("b"));
        CHECK_EQUAL(concatenated->getAsString(), "a1b");
        NodePtr chosen = ifElse(lit(false), lit(OMInt(1)), lit(OMInt(2)));
        SANITY_CHECK(chosen && chosen->getType() == OMType::Int && chosen->getInt() == 2);

        // Anything that names, assigns or calls stays a tree.
        SANITY_CHECK(bin(ADD, name("a"), lit(OMInt(1)))->getType() == OMType::Expression);
        SANITY_CHECK(bin(ASSIGN, name("a"), lit(OMInt(12)))->getType() == OMType::Expression);
        SANITY_CHECK(bin(ADD, call("f", {lit(OMInt(1))}), lit(OMInt(2)))->getType() == OMType::Expression);
        SANITY_CHECK(bin(WHILE, lit(false), lit(OMInt(1)))->getType() == OMType::Expression);
        // Only a left value can be assigned to.
        SANITY_CHECK(! bin(ASSIGN, lit(OMInt(7)), name("a")));
        retVal = true;
    } while (false);
    return retVal;
}

bool ExpressionTest::testEvaluationYieldingMidway() {
    bool retVal = false;
    do {
        // s = 0; i = 0; while (i < 2000) { s = s + i; i = i + 1 }; s
        NodePtr program = block({
            bin(ASSIGN, name("s"), lit(OMInt(0))),
            bin(ASSIGN, name("i"), lit(OMInt(0))),
            bin(WHILE, bin(COMPARE_LT, name("i"), lit(OMInt(2000))),
                block({bin(ASSIGN, name("s"), bin(ADD, name("s"), name("i"))),
                       bin(ASSIGN, name("i"), bin(ADD, name("i"), lit(OMInt(1))))})),
            name("s"),
        });
        NodePtr whole = eval(program, freshScope());
        int slices = 0;
        NodePtr sliced = evalInTinySlices(program, freshScope(), slices);
        SANITY_CHECK(whole && sliced);
        CHECK_EQUAL(whole->getInt(), 1999000);
        CHECK_EQUAL(sliced->getInt(), 1999000);
        // It really was cut into many slices.
        SANITY_CHECK(slices > 10);
        retVal = true;
    } while (false);
    return retVal;
}

bool ExpressionTest::testLoopsAndBreak() {
    bool retVal = false;
    do {
        // i = 0; s = 0; while (true) { i = i + 1; if (i == 5) break; s = s + i }
        auto scope = freshScope();
        NodePtr loop = block({
            bin(ASSIGN, name("i"), lit(OMInt(0))),
            bin(ASSIGN, name("s"), lit(OMInt(0))),
            bin(WHILE, lit(true),
                block({bin(ASSIGN, name("i"), bin(ADD, name("i"), lit(OMInt(1)))),
                       ifElse(bin(COMPARE_EQ, name("i"), lit(OMInt(5))), keyword(_break),
                              OMStored::undefinedFactory()),
                       bin(ASSIGN, name("s"), bin(ADD, name("s"), name("i")))})),
        });
        NodePtr value = eval(loop, scope);
        SANITY_CHECK(value && value->getType() == OMType::Undefined);
        CHECK_EQUAL(scope->getOMNode("s")->getInt(), 10);
        CHECK_EQUAL(scope->getOMNode("i")->getInt(), 5);

        // A break leaves only the inner loop.
        NodePtr nested = block({
            bin(ASSIGN, name("n"), lit(OMInt(0))),
            bin(ASSIGN, name("k"), lit(OMInt(0))),
            bin(WHILE, bin(COMPARE_LT, name("k"), lit(OMInt(3))),
                block({bin(ASSIGN, name("k"), bin(ADD, name("k"), lit(OMInt(1)))),
                       bin(WHILE, lit(true),
                           block({bin(ASSIGN, name("n"), bin(ADD, name("n"), lit(OMInt(1)))),
                                  keyword(_break)}))})),
        });
        SANITY_CHECK(eval(nested, scope));
        CHECK_EQUAL(scope->getOMNode("n")->getInt(), 3);

        // do { n = n + 1 } while (false): the body runs once, before any test.
        NodePtr doWhile =
            bin(DO_WHILE, bin(ASSIGN, name("n"), bin(ADD, name("n"), lit(OMInt(1)))), lit(false));
        SANITY_CHECK(eval(doWhile, scope));
        CHECK_EQUAL(scope->getOMNode("n")->getInt(), 4);
        retVal = true;
    } while (false);
    return retVal;
}

bool ExpressionTest::testFunctionsAndReturn() {
    bool retVal = false;
    do {
        auto scope = freshScope();
        // function twice(x) { return x * 2 }; function bla4(x) { return a + x }
        SANITY_CHECK(eval(function("twice", {"x"}, ret(bin(MULTIPLY, name("x"), lit(OMInt(2))))), scope));
        SANITY_CHECK(eval(function("bla4", {"x"}, ret(bin(ADD, name("a"), name("x")))), scope));
        CHECK_EQUAL(eval(call("twice", {lit(OMInt(21))}), scope)->getInt(), 42);
        // The function reads its caller's variable.
        SANITY_CHECK(eval(bin(ASSIGN, name("a"), lit(OMInt(11))), scope));
        CHECK_EQUAL(eval(call("bla4", {lit(OMInt(2))}), scope)->getInt(), 13);

        // A return deep in nested loops ends the function with its value.
        NodePtr deep = function(
            "deep", {},
            block({bin(WHILE, lit(true), bin(WHILE, lit(true), ret(lit(OMInt(42))))), lit(OMInt(0))}));
        SANITY_CHECK(eval(deep, scope));
        CHECK_EQUAL(eval(call("deep", {}), scope)->getInt(), 42);

        // a = 10; return 'a'; a = 20: the sequence stops at the return.
        NodePtr early = block(
            {bin(ASSIGN, name("a"), lit(OMInt(10))), ret(lit("a")), bin(ASSIGN, name("a"), lit(OMInt(20)))});
        CHECK_EQUAL(eval(early, scope)->getString(), "a");
        CHECK_EQUAL(scope->getOMNode("a")->getInt(), 10);

        // Missing arguments are Undefined; a name unknown to the caller stays local to the frame.
        SANITY_CHECK(
            eval(function("probe", {"p", "q"},
                          block({bin(ASSIGN, name("local"), lit(OMInt(1))), ret(un(TYPEOF, name("q")))})),
                 scope));
        CHECK_EQUAL(eval(call("probe", {lit(OMInt(1))}), scope)->getString(), "undefined");
        SANITY_CHECK(! scope->containsAttr("local"));
        retVal = true;
    } while (false);
    return retVal;
}

bool ExpressionTest::testRecursion() {
    bool retVal = false;
    do {
        auto scope = freshScope();
        // function sum(n) { if (n == 0) return 0; return n + sum(n - 1) }
        NodePtr sum = function(
            "sum", {"n"},
            block({ifElse(bin(COMPARE_EQ, name("n"), lit(OMInt(0))), ret(lit(OMInt(0))),
                          OMStored::undefinedFactory()),
                   ret(bin(ADD, name("n"), call("sum", {bin(SUBTRACT, name("n"), lit(OMInt(1)))})))}));
        SANITY_CHECK(eval(sum, scope));
        NodePtr deep = eval(call("sum", {lit(OMInt(1000))}), scope);
        SANITY_CHECK(deep && deep->getType() == OMType::Int);
        CHECK_EQUAL(deep->getInt(), 500500);

        // function runaway(n) { return runaway(n + 1) }: a clear error, never a crash.
        SANITY_CHECK(eval(
            function("runaway", {"n"}, ret(call("runaway", {bin(ADD, name("n"), lit(OMInt(1)))}))), scope));
        const uint64_t errorsBefore = ScriptErrorLog::getReportCount();
        NodePtr runaway = eval(call("runaway", {lit(OMInt(0))}), scope);
        SANITY_CHECK(runaway && runaway->getType() == OMType::Error);
        CHECK_EQUAL(ScriptErrorLog::getReportCount(), errorsBefore + 1);
        retVal = true;
    } while (false);
    return retVal;
}

bool ExpressionTest::testNamesAndElements() {
    bool retVal = false;
    do {
        auto scope = freshScope();
        const uint64_t errorsBefore = ScriptErrorLog::getReportCount();
        NodePtr unknown = eval(name("nowhere"), scope);
        SANITY_CHECK(unknown && unknown->getType() == OMType::Error);
        CHECK_EQUAL(ScriptErrorLog::getReportCount(), errorsBefore + 1);
        CHECK_EQUAL(eval(un(TYPEOF, name("nowhere")), scope)->getString(), "error");

        // m = {}; m.x = 5; m["y"] = m.x + 1; a = [1, 2, 3]; a[1] = 9
        auto map = OMStored::mapFactory();
        SANITY_CHECK(eval(bin(ASSIGN, name("m"), map), scope));
        SANITY_CHECK(eval(bin(ASSIGN, member(name("m"), "x"), lit(OMInt(5))), scope));
        SANITY_CHECK(
            eval(bin(ASSIGN, element(name("m"), lit("y")), bin(ADD, member(name("m"), "x"), lit(OMInt(1)))),
                 scope));
        CHECK_EQUAL(scope->getOMNode("m")->getOMNode("y")->getInt(), 6);
        auto array = OMStored::arrayFactory();
        for (OMInt i = 1; i <= 3; ++i) {
            array->push(lit(i));
        }
        SANITY_CHECK(eval(bin(ASSIGN, name("a"), array), scope));
        SANITY_CHECK(eval(bin(ASSIGN, element(name("a"), lit(OMInt(1))), lit(OMInt(9))), scope));
        CHECK_EQUAL(scope->getOMNode("a")->getOMNode(1)->getInt(), 9);
        CHECK_EQUAL(eval(element(name("a"), lit("1")), scope)->getInt(), 9);
        NodePtr outside = eval(element(name("a"), lit(OMInt(5))), scope);
        SANITY_CHECK(outside && outside->getType() == OMType::Error);

        // b = a shares the array; a number is copied.
        SANITY_CHECK(eval(bin(ASSIGN, name("b"), name("a")), scope));
        SANITY_CHECK(eval(bin(ASSIGN, element(name("a"), lit(OMInt(0))), lit(OMInt(7))), scope));
        CHECK_EQUAL(scope->getOMNode("b")->getOMNode(0)->getInt(), 7);
        SANITY_CHECK(eval(bin(ASSIGN, name("x"), lit(OMInt(12))), scope));
        SANITY_CHECK(eval(bin(ASSIGN, name("y"), name("x")), scope));
        SANITY_CHECK(eval(un(PRE_INCREMENT, name("x")), scope));
        CHECK_EQUAL(scope->getOMNode("x")->getInt(), 13);
        CHECK_EQUAL(scope->getOMNode("y")->getInt(), 12);
        retVal = true;
    } while (false);
    return retVal;
}

bool ExpressionTest::testPrintedForms() {
    bool retVal = false;
    do {
        CHECK_EQUAL(bin(ASSIGN, name("a"), bin(ADD, name("b"), lit(OMInt(1))))->toString(), "a = (b + 1)");
        CHECK_EQUAL(bin(WHILE, name("c"), bin(ASSIGN, name("a"), lit(OMInt(1))))->toString(),
                    "while (c) {a = 1}");
        CHECK_EQUAL(block({bin(ASSIGN, name("a"), lit(OMInt(1))), name("a")})->toString(), "a = 1; a");
        CHECK_EQUAL(ifElse(name("c"), name("a"), name("b"))->toString(), "if (c) {a} else {b}");
        CHECK_EQUAL(call("f", {lit(OMInt(1)), lit("x")})->toString(), "f(1, \"x\")");
        CHECK_EQUAL(element(member(name("o"), "k"), name("i"))->toString(), "o.k[i]");
        CHECK_EQUAL(ret(name("a"))->toString(), "return a");
        // Two trees of the same text compare equal and hash alike.
        NodePtr one = bin(ADD, name("a"), lit(OMInt(2)));
        NodePtr two = bin(ADD, name("a"), lit(OMInt(2)));
        SANITY_CHECK(one->cmpOp_EQ(*two, KEEP_NODE) && one->hash() == two->hash());
        SANITY_CHECK(! one->cmpOp_EQ(*bin(ADD, name("a"), lit(OMInt(3))), KEEP_NODE));
        retVal = true;
    } while (false);
    return retVal;
}

} // namespace Brw
