#pragma once

#include <memory>
#include <string>

#include "BrwObject/BrwIObject.h"

namespace Brw {

using FactoryFunction = std::shared_ptr<IObject> (*)();
using DeserializationFactoryFunction =
    std::shared_ptr<IObject> (*)(const std::shared_ptr<IObject>& serializer);
using ByNameFactoryFunction = std::shared_ptr<IObject> (*)(std::shared_ptr<IObject> parent,
                                                           const std::string& name);

void reportNoObjectFromFactory(); // logs "no object"

// A value holding one factory of one of the three tables; empty when the type name was unknown.
template <class Function>
class FactoryWrapper {
public:
    FactoryWrapper() = default;
    explicit FactoryWrapper(Function function) : fFunction(function) {}

    bool wrappedFactoryIsNull() const { return fFunction == nullptr; }

    template <class... Args>
    std::shared_ptr<IObject> call(Args&&... args) const {
        std::shared_ptr<IObject> result;
        if (fFunction != nullptr) {
            result = fFunction(std::forward<Args>(args)...);
        }
        if (! result) {
            reportNoObjectFromFactory();
        }
        return result;
    }

private:
    Function fFunction = nullptr; // the wrapped factory, or null
};

using FactoryWrapperClass = FactoryWrapper<FactoryFunction>;
using DeserializationFactoryWrapperClass = FactoryWrapper<DeserializationFactoryFunction>;
using ByNameFactoryWrapperClass = FactoryWrapper<ByNameFactoryFunction>;

} // namespace Brw
