#include "BrwUtils/BrwEscapeTable.h"

namespace Brw {

namespace {

// NOTE: the letters are the wire form between processes; changing one breaks every peer.
constexpr EscapeTable::Pair kSerializerLinePairs[] = {
    {0x00, 'z'}, {0x01, 'S'}, {0x02, 's'}, {0x03, 'e'}, {0x04, 'E'}, {0x05, 'T'},  {0x06, 'A'},
    {0x07, 'b'}, {0x08, '<'}, {0x09, 't'}, {0x0A, 'n'}, {0x0B, 'V'}, {0x0C, 'f'},  {0x0D, 'r'},
    {0x0E, 'O'}, {0x0F, 'I'}, {0x10, 'L'}, {0x11, '1'}, {0x12, '2'}, {0x13, '3'},  {0x14, '4'},
    {0x15, 'K'}, {0x16, 'Y'}, {0x17, 'P'}, {0x18, 'D'}, {0x19, 'R'}, {0x1A, 'C'},  {0x1B, '!'},
    {0x1C, 'U'}, {0x1D, 'F'}, {0x1E, 'W'}, {0x1F, 'X'}, {'"', '"'},  {'\'', '\''}, {'\\', '\\'},
};

constexpr EscapeTable::Pair kTextFormPairs[] = {
    {0x00, 'z'},
    {0x0A, 'n'},
    {'"', '"'},
    {'\\', '\\'},
};

constexpr EscapeTable kSerializerLines(kSerializerLinePairs);
constexpr EscapeTable kTextForms(kTextFormPairs);

static_assert(kSerializerLines.isConsistent(), "a serializer letter stands for two bytes");
static_assert(kTextForms.isConsistent(), "a text-form letter stands for two bytes");

} // namespace

const EscapeTable& EscapeTable::serializerLines() {
    return kSerializerLines;
}

const EscapeTable& EscapeTable::textForms() {
    return kTextForms;
}

} // namespace Brw
