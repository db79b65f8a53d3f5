#pragma once

#include "BrwParser/BrwOMExpression.h"
#include "BrwParser/BrwToken.h"

namespace Brw {

// `break`, `debugger` and `var`: words with no value of their own. A `break` is recognised by the
// expressions around it; `var` marks the assignments after it as declarations of locals.
class OMExpressionKeyword : public virtual OMExpression {
public:
    explicit OMExpressionKeyword(Token token) : fToken(token) {}

    static std::shared_ptr<OMExpressionKeyword> factory(Token token) {
        return std::make_shared<OMExpressionKeyword>(token);
    }

    using OMExpression::get_yielding;
    void get_yielding(const std::shared_ptr<Task>& task, std::shared_ptr<IOMNode>& result,
                      AccessType accessType, const std::shared_ptr<OMScope>& scope,
                      ScriptPhase phase) override;
    bool scanForLocalVariables(const std::shared_ptr<FunctionSignature>&, bool) override { return true; }
    void set_yielding(const std::shared_ptr<Task>& task, bool& success, std::shared_ptr<IOMNode>& value,
                      const std::shared_ptr<OMScope>& scope, ScriptPhase phase) override;
    Kind getExpressionKind() const override { return KEYWORD; }
    uint64_t hash() const override;
    std::string toString() const override;
    bool operator==(const OMExpression& other) const override;
    bool operator<(const OMExpression& other) const override;
    int32_t getToken() const override { return fToken; }

private:
    Token fToken;               // _break, _debugger or _var
    mutable uint64_t fHash = 0; // 0: not computed yet
};

} // namespace Brw
