#pragma once

#include "BrwService/BrwIService.h"

namespace Brw {

// A coordinator: the root service of a process, or the proxy of a sibling coordinator.
class ICoordinator : public virtual IService {};

} // namespace Brw
