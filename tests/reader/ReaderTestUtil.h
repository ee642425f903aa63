#ifndef QLMAIL_TESTS_READER_READERTESTUTIL_H
#define QLMAIL_TESTS_READER_READERTESTUTIL_H

#include "mime/MimeTestUtil.h"
#include "reader/QLMimeMsgInfo.h"

#include <string>
#include <utility>
#include <vector>

// A message kept as the application keeps it: the file, and the format string written by
// parsing that file once.
struct Stored {
    std::string strPath;
    std::string strFormat;
};

inline Stored Store(const CTempDir& dir, const std::string& strBytes) {
    Stored s{dir.MakeFile(strBytes), ""};
    CQLMimeMsg msg;
    EXPECT_TRUE(msg.Open(s.strPath, true)) << msg.GetLastError();
    s.strFormat = msg.GetFormat();
    return s;
}

// A message written with LF, in its LF and its CR LF form.
inline std::vector<std::pair<std::string, std::string>> BothForms(const std::string& strLF) {
    return {{"LF", strLF}, {"CRLF", ToCRLF(strLF)}};
}

// The format string with one field of one record replaced.
inline std::string SetField(const std::string& strFormat, size_t nRecord, size_t nField,
                            const std::string& strValue) {
    std::string strOut;
    size_t nRec = 0, nFld = 0;
    for (size_t i = 0; i < strFormat.size(); ++i) {
        const char c = strFormat[i];
        const bool bTarget = nRec == nRecord && nFld == nField;
        if (c == '\x05') {
            ++nRec;
            nFld = 0;
        } else if (c == ',') {
            if (bTarget) strOut += strValue;
            ++nFld;
        } else if (bTarget) {
            continue;
        }
        strOut += c;
    }
    return strOut;
}

// Every block of one stream, decoded or raw.
inline std::vector<std::string> StreamBlocks(CQLMimeMsgInfo& info, const CQLMimeAttachInfo& a,
                                             bool bDecode) {
    std::vector<std::string> v;
    if (!info.OpenAttach(a)) return v;
    std::string strBlock;
    while (info.GetAttachContentNext(strBlock, bDecode)) v.push_back(strBlock);
    info.CloseAttach();
    return v;
}

inline std::string Joined(const std::vector<std::string>& v) {
    std::string s;
    for (const std::string& b : v) s += b;
    return s;
}

#endif
