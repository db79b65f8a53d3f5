#pragma once

#include <memory>

#include "BrwParser/BrwIOMNode.h"

namespace Brw {

// Evaluates a node to its end for a caller that can't wait.
class EvalTask {
public:
    // The value, or null when the task refused to run.
    static std::shared_ptr<IOMNode> call(const std::shared_ptr<IOMNode>& node,
                                         const std::shared_ptr<OMScope>& scope,
                                         HandleReturnValue handleReturnValue);
};

// Runs a script file to its end for a caller that can't wait.
class EvalScriptTask {
public:
    // The value of the script's last statement, an error value when it can't be read, or null when the
    // task refused to run.
    static std::shared_ptr<IOMNode> call(const std::shared_ptr<OMStored>& node,
                                         const std::shared_ptr<OMScope>& scope,
                                         const std::string& scriptFilePath,
                                         HandleReturnValue handleReturnValue);
};

// Parses a text into a node, without evaluating it.
class ParseTask {
public:
    // False when the text doesn't parse (reported) or the task refused to run.
    [[nodiscard]] static bool call(const std::shared_ptr<OMStored>& node, const std::string& text);
};

} // namespace Brw
