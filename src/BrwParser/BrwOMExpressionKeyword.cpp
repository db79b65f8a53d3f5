#include "BrwParser/BrwOMExpressionKeyword.h"

#include "BrwLogger/BrwCheck.h"
#include "BrwParser/BrwOMStored.h"

namespace Brw {

void OMExpressionKeyword::get_yielding(const std::shared_ptr<Task>&, std::shared_ptr<IOMNode>& result,
                                       AccessType, const std::shared_ptr<OMScope>&, ScriptPhase phase) {
    result.reset();
    if (phase == RUN && fToken == _debugger) {
        LOG_NOTE("debugger triggered");
    }
}

void OMExpressionKeyword::set_yielding(const std::shared_ptr<Task>&, bool& success, std::shared_ptr<IOMNode>&,
                                       const std::shared_ptr<OMScope>&, ScriptPhase) {
    success = false;
    LOG_ERROR("setting value on keyword");
}

uint64_t OMExpressionKeyword::hash() const {
    if (fHash == 0) {
        const int32_t product = static_cast<int32_t>(static_cast<uint32_t>(fToken) * 327831919u);
        fHash = static_cast<uint64_t>(static_cast<int64_t>(product)) + 232322;
    }
    return fHash;
}

std::string OMExpressionKeyword::toString() const {
    return OMStored::getTokenStr(fToken);
}

bool OMExpressionKeyword::operator==(const OMExpression& other) const {
    return other.getExpressionKind() == KEYWORD && fToken == other.getToken();
}

bool OMExpressionKeyword::operator<(const OMExpression& other) const {
    if (getExpressionKind() != other.getExpressionKind()) {
        return getExpressionKind() < other.getExpressionKind();
    }
    return fToken < other.getToken();
}

} // namespace Brw
