#include "BrwParser/BrwOutputStream.h"

#include "BrwTask/BrwYielding.h"

namespace Brw {

void OutputStream::write_yielding(const std::shared_ptr<Task>& task, bool& success, const std::string& text) {
    struct LocalVariableState : OMFunctionState {};
    YIELDING_BEGIN(LocalVariableState, frame, success = false);
    while (! write(text)) {
        YIELDING_STEP;
    }
    flush();
    success = true;
    YIELDING_END;
}

} // namespace Brw
