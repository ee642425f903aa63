// Helpers shared by the commands of the qlmail tool.
#ifndef QLMAIL_TOOLS_TOOLCOMMON_H
#define QLMAIL_TOOLS_TOOLCOMMON_H

#include <string>

// One line on standard error; the exit code of bad usage (2) or of a failure (1).
int Usage(const std::string& strWhy);
int Fail(const std::string& strWhy);

// Text fields on one line: control bytes escaped, the empty text as "-".
std::string Printable(const std::string& strText);
// A JSON string; bytes that are not UTF-8 are given as the code points of their values.
std::string Json(const std::string& strText);

// Names of the CQLMimeConst values, "unknown" for anything else.
std::string TypeName(int nCT);
std::string SubTypeName(int nSubCT);
std::string EncodingName(int nEncoder);

// The top of the message has the empty number; people and scripts call it "top".
std::string PartName(const std::string& strDepth);

#endif
