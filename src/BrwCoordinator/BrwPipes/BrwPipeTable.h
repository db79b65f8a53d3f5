#pragma once

#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "BrwLogger/BrwCheck.h"
#include "BrwUtils/BrwHash.h"

namespace Brw {

// The process-wide tables of one kind of pipe: by the handle the Pipes layer gave out, and by the path
// of the proxy file. A pipe is in both or in neither.
template <class PipeType>
class PipeTable {
public:
    // The lines that remove() logs: the handle found and not found, the path found and not found; each
    // takes the handle or the path.
    struct RemovalTexts {
        const char* fHandleFound;
        const char* fHandleMissing;
        const char* fPathFound;
        const char* fPathMissing;
    };

    std::shared_ptr<PipeType> get(const std::string& namedPipePath) const {
        const auto iter = fByPath.find(namedPipePath);
        if (iter == fByPath.end()) {
            LOG_TRACE_F("pipe '%s' not found", namedPipePath.c_str());
            return nullptr;
        }
        return iter->second;
    }
    std::shared_ptr<PipeType> get(int handle) const {
        const auto iter = fByHandle.find(handle);
        if (iter == fByHandle.end()) {
            LOG_TRACE_F("pipe handle %d not found", handle);
            return nullptr;
        }
        return iter->second;
    }
    void add(const std::shared_ptr<PipeType>& pipe) {
        fByHandle[pipe->getPipeExternalHandle()] = pipe;
        fByPath[pipe->getNamedPipePath()] = pipe;
    }
    void remove(const PipeType& pipe, const RemovalTexts& texts) {
        const int handle = pipe.getPipeExternalHandle();
        const bool isHandleFound = fByHandle.erase(handle) > 0;
        LOG_TRACE_F(isHandleFound ? texts.fHandleFound : texts.fHandleMissing, handle);
        const std::string& path = pipe.getNamedPipePath();
        const auto iter = fByPath.find(path);
        const bool isPathFound = iter != fByPath.end() && iter->second.get() == &pipe;
        if (isPathFound) {
            fByPath.erase(iter);
        }
        LOG_TRACE_F(isPathFound ? texts.fPathFound : texts.fPathMissing, path.c_str());
    }
    // The pipes as they are now, in the order of their handles: safe to walk while pipes close.
    std::vector<std::shared_ptr<PipeType>> snapshot() const {
        std::vector<std::shared_ptr<PipeType>> pipes;
        for (const auto& [handle, pipe] : fByHandle) {
            pipes.push_back(pipe);
        }
        return pipes;
    }
    const std::map<int, std::shared_ptr<PipeType>>& byHandle() const { return fByHandle; }

private:
    std::map<int, std::shared_ptr<PipeType>> fByHandle;
    std::unordered_map<std::string, std::shared_ptr<PipeType>, FNV1aHash> fByPath;
};

} // namespace Brw
