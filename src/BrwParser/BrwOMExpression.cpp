#include "BrwParser/BrwOMExpression.h"

namespace Brw {

void OMExpression::get_yielding(const std::shared_ptr<Task>& task, std::shared_ptr<IOMNode>& result,
                                const std::shared_ptr<OMScope>& scope) {
    get_yielding(task, result, GET, scope, RUN);
}

} // namespace Brw

namespace Brw {

std::shared_ptr<OMExpression> OMExpression::returnFactory(const std::shared_ptr<IOMNode>&) {
    return nullptr; // STUB-RETURN: replaced when the unary expression exists
}

} // namespace Brw
