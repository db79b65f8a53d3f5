#include "BrwParser/BrwInputStreamPolled_abstract.h"

#include "BrwLogger/BrwCheck.h"

namespace Brw {

bool InputStreamPolled_abstract::next() {
    bool retVal = false;
    do {
        SANITY_CHECK(fPeekedChar >= 0);
        ++fPos;
        fPeekedChar = NOTHING_YET;
        retVal = true;
    } while (false);
    return retVal;
}

bool InputStreamPolled_abstract::clear() {
    if (fPeekedChar != AT_END) {
        fPeekedChar = NOTHING_YET;
    }
    return true;
}

int InputStreamPolled_abstract::getChar() {
    if (fIsAtEOF) {
        return AT_END;
    }
    const int coordinatorState = coordinatorInputState();
    if (coordinatorState != 0) {
        if (coordinatorState == AT_END) {
            fPeekedChar = AT_END;
            setAtEOF();
        }
        return coordinatorState;
    }
    if (fPeekedChar == NOTHING_YET) {
        fPeekedChar = readChar();
        if (fPeekedChar == AT_END) {
            setAtEOF();
        }
    }
    return fPeekedChar;
}

} // namespace Brw
