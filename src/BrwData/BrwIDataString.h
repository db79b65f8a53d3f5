#pragma once

#include <string>

#include "BrwData/BrwIData.h"

namespace Brw {

// A data object that carries one text.
class IDataString : public virtual IData {
public:
    virtual const std::string& getString() const = 0;
};

} // namespace Brw
