#ifndef QLMAIL_TOOLS_TOOLTEXT_H
#define QLMAIL_TOOLS_TOOLTEXT_H

#include <string>

// Text fields on one line of output: control bytes escaped, "-" for an empty field.
std::string Printable(const std::string& strText);
// A JSON string; bytes that are not UTF-8 are given as the code points of their values.
std::string Json(const std::string& strText);
// The top of the message has the empty number; people and scripts call it "top".
std::string PartName(const std::string& strDepth);

#endif
