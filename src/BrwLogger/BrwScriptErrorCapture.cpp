#include "BrwLogger/BrwScriptErrorCapture.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <vector>

#include "BrwLogger/BrwScriptErrorLog.h"
#include "BrwMain/BrwTest.h"

namespace Brw {

ScriptErrorCapture::ScriptErrorCapture()
    : fSavedFile(ScriptErrorLog::getFile()), fFile(Test::makeTemporaryFile("brw-script-errors")) {
    if (! fFile.empty()) {
        ScriptErrorLog::setFile(fFile);
    }
}

ScriptErrorCapture::~ScriptErrorCapture() {
    if (! fFile.empty()) {
        ScriptErrorLog::setFile(fSavedFile);
        std::remove(fFile.c_str());
    }
}

std::string ScriptErrorCapture::errorsSince(uint64_t before) const {
    std::vector<std::string> lines;
    std::ifstream file(fFile);
    for (std::string line; std::getline(file, line);) {
        lines.push_back(line);
    }
    const uint64_t count = ScriptErrorLog::getReportCount() - before;
    std::string joined;
    for (size_t i = lines.size() - std::min<size_t>(count, lines.size()); i < lines.size(); ++i) {
        joined += (joined.empty() ? "" : " | ") + lines[i];
    }
    return joined;
}

} // namespace Brw
