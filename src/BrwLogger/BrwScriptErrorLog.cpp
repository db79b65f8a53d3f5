#include "BrwLogger/BrwScriptErrorLog.h"

#include <cstdio>

namespace Brw {

void ScriptErrorLog::report(const std::string& text) {
    ++fReportCount;
    FILE* output = fFile.empty() ? stderr : fopen(fFile.c_str(), "a");
    if (output != nullptr) {
        fprintf(output, "%s\n", text.c_str());
        if (output != stderr) {
            fclose(output);
        }
    }
}

} // namespace Brw
