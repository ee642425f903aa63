#include "foundation/DefineParser.h"

std::string CDefineParser::GetVersion() {
    return "1.00.0032";
}
