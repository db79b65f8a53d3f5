// What a script learns of its build, its platform, its process and the coordinator's folders through
// sysInfo().

#include <utility>

#include "BrwCoordinator/BrwInternalCoordinator.h"
#include "BrwLogger/BrwCheck.h"
#include "BrwParser/BrwOMStored.h"
#include "BrwUtils/BrwDirs.h"
#include "BrwUtils/BrwProcess.h"

namespace Brw {

namespace {

// The platform this build is for; a build for another platform states its own.
constexpr const char* PLATFORM_NAME = "linux";
constexpr bool IS_LINUX = true;
constexpr bool IS_MAC = false;
constexpr bool IS_WINDOWS = false;
// The console program is a process of its own, never hosted inside another program.
constexpr bool IS_EMBEDDED = false;

} // namespace

std::shared_ptr<IOMNode> InternalCoordinator::buildSysInfo() const {
    std::shared_ptr<IOMNode> retVal;
    do {
        std::shared_ptr<OMStored> sysInfo = OMStored::mapFactory();
        SANITY_CHECK(sysInfo);
        // Entered in the documented order; a script sees the keys sorted, as of every map.
        const std::pair<const char*, std::shared_ptr<OMStored>> members[] = {
            {"buildDate", OMStored::factory(__DATE__)},
            {"buildTime", OMStored::factory(__TIME__)},
            {"isEmbedded", OMStored::factory(IS_EMBEDDED)},
            {"pathSeparator", OMStored::factory(std::string(1, Dirs::PLATFORM_SEPARATOR))},
            {"pipeFolderPath", OMStored::factory(getPipeFolderPath())},
            {"platform", OMStored::factory(PLATFORM_NAME)},
            {"pid", OMStored::factory(static_cast<OMInt>(Process::getCurrentProcessId()))},
            {"remoteCoordinatorURL", OMStored::factory(fRemoteCoordinatorURL)},
            {"scriptFilePath", OMStored::factory(fScriptFilePath)},
            {"sessionDataFolderPath", OMStored::factory(getSessionDataFolderPath())},
            {"sessionDataPath", OMStored::factory(getSessionDataPath())},
            {"version", OMStored::factory(VERSION)},
            {"buildNumber", OMStored::factory(BUILD)},
            {"isMac", OMStored::factory(IS_MAC)},
            {"isLinux", OMStored::factory(IS_LINUX)},
            {"isWindows", OMStored::factory(IS_WINDOWS)},
        };
        bool isEveryMemberSet = true;
        for (const auto& [key, value] : members) {
            isEveryMemberSet = SANITY_CHECKED(value && sysInfo->setSync(key, value)) && isEveryMemberSet;
        }
        SANITY_CHECK(isEveryMemberSet);
        retVal = sysInfo;
    } while (false);
    return retVal;
}

} // namespace Brw
