// Helpers shared by the commands of the qlmail tool.
#ifndef QLMAIL_TOOLS_TOOLCOMMON_H
#define QLMAIL_TOOLS_TOOLCOMMON_H

#include <map>
#include <string>
#include <vector>

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

// The arguments behind a command's name, split into options and operands. Flags take no
// value; valued options take the next argument, or the text behind "=" (--to=UTF-8). "--"
// ends the options, so that a file name may begin with "-".
struct ToolArgs {
    std::map<std::string, std::string> mapOptions; // a flag maps to ""
    std::vector<std::string> vOperands;
    bool Has(const std::string& strOption) const { return mapOptions.count(strOption) != 0; }
    std::string Get(const std::string& strOption, const std::string& strDefault) const;
};
// False with the reason for bad usage in strError.
bool ParseArgs(const std::vector<std::string>& vArgs, const std::vector<std::string>& vFlags,
               const std::vector<std::string>& vValued, ToolArgs& args, std::string& strError);

// A file written under a temporary name beside its target and renamed over the target when
// committed, so that the target is never seen half written. A temporary that is not
// committed is removed. Temporaries are hidden and carry ".qlmail-" in their name.
class CAtomicFile {
public:
    explicit CAtomicFile(const std::string& strTarget);
    ~CAtomicFile();
    CAtomicFile(const CAtomicFile&) = delete;
    CAtomicFile& operator=(const CAtomicFile&) = delete;

    // Each false result leaves the reason in GetLastError, with the target's path.
    bool Open();
    bool Write(const char* pData, size_t nLen);
    bool Commit();
    const std::string& GetLastError() const { return m_strLastError; }

private:
    bool Failed();
    void Discard();

    std::string m_strTarget;
    std::string m_strTemp;
    std::string m_strLastError;
    int m_nFD;
};

// The whole of strData into strTarget through a CAtomicFile; false with the reason.
bool WriteFileAtomic(const std::string& strTarget, const std::string& strData,
                     std::string& strError);
// A temporary of CAtomicFile, by its base name.
bool IsToolTemp(const std::string& strName);

#endif
