#include "BrwAddress/BrwTraits/BrwIndexedAddress_trait.h"

#include <cctype>

#include "BrwData/BrwData_abstract.h"
#include "BrwLogger/BrwCheck.h"
#include "BrwUtils/BrwUtils.h"

namespace Brw {

namespace {

bool isNameChar(char c, size_t position) {
    const auto byte = static_cast<unsigned char>(c);
    return std::isalpha(byte) || c == '_' || c == '$' || c == '.' || (position > 0 && std::isdigit(byte));
}

} // namespace

IndexedAddress_trait::IndexedAddress_trait(std::string indices) : fIndices(std::move(indices)) {
    splitIndices(fIndices, fIndexList);
}

bool IndexedAddress_trait::isServiceName(const std::string& name) {
    if (name.empty()) {
        return false;
    }
    for (size_t position = 0; position < name.size(); ++position) {
        if (! isNameChar(name[position], position)) {
            return false;
        }
    }
    return true;
}

void IndexedAddress_trait::splitIndices(std::string& indices, std::vector<std::string>& indexList) {
    indexList.clear();
    if (indices.empty()) {
        return;
    }
    indexList = Utils::split(indices, SEPARATOR);
    // NOTE: the first name is never tested, only the later ones: a settled asymmetry.
    for (size_t position = 1; position < indexList.size(); ++position) {
        const std::string& element = indexList[position];
        if (position % 2 == 1 && ! Utils::isNumeric(element)) {
            LOG_ERROR("invalid index number");
        } else if (position % 2 == 0 && ! isServiceName(element)) {
            LOG_ERROR("invalid index name");
        }
    }
    if (indexList.size() % 2 == 1) {
        indexList.push_back(FIRST_CHILD);
        indices += SEPARATOR + std::string(FIRST_CHILD);
    }
}

bool IndexedAddress_trait::serializeDeserializeIndices(SerializeDeserialize mode,
                                                       const std::shared_ptr<ISerializer>& serializer) {
    bool retVal = false;
    do {
        if (mode == SerializeDeserialize::SERIALIZE) {
            SANITY_CHECK(serializer->putString(fIndices));
        } else {
            SANITY_CHECK(Data_abstract::readString(serializer, fIndices));
            splitIndices(fIndices, fIndexList);
        }
        retVal = true;
    } while (false);
    return retVal;
}

} // namespace Brw
