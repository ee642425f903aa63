#ifndef QLMAIL_TESTS_MIME_MIMETESTUTIL_H
#define QLMAIL_TESTS_MIME_MIMETESTUTIL_H

#include "foundation/TempDir.h"
#include "mime/QLMimeMsg.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

// One list entry as the format string carries it.
struct Entry {
    uint32_t hso, heo, tso, teo, mso, meo, bso, beo;
    std::string depth;
    int ct, subct;
    char enc;
    int lines;
    std::string charset, cid, filename;
};

inline Entry EntryOf(const CQLMimeMsg& m) {
    return Entry{m.m_nHSO,     m.m_nHEO,       m.m_nTSO,   m.m_nTEO,
                 m.m_nMSO,     m.m_nMEO,       m.m_nBSO,   m.m_nBEO,
                 m.m_strDepth, m.m_CT,         m.m_SubCT,  static_cast<char>(m.m_Encoder),
                 m.m_nLineCnt, m.m_strCharSet, m.m_strCID, m.m_strFilename};
}

inline std::vector<Entry> Entries(const CQLMimeMsg& msg) {
    std::vector<Entry> v;
    for (const CQLMimeMsg* p : msg) v.push_back(EntryOf(*p));
    return v;
}

// Offsets as eight numbers, for compact expectations.
inline std::vector<uint32_t> Offsets(const Entry& e) {
    return {e.hso, e.heo, e.tso, e.teo, e.mso, e.meo, e.bso, e.beo};
}

// Compares two lists entry by entry; line counts only when asked, since a file source
// counts lines by its own rules.
inline void ExpectSameEntries(const std::vector<Entry>& a, const std::vector<Entry>& b, bool bLines,
                              const std::string& strWhat) {
    ASSERT_EQ(a.size(), b.size()) << strWhat;
    for (size_t i = 0; i < a.size(); ++i) {
        SCOPED_TRACE(strWhat + " entry " + std::to_string(i));
        EXPECT_EQ(Offsets(a[i]), Offsets(b[i]));
        EXPECT_EQ(a[i].depth, b[i].depth);
        EXPECT_EQ(a[i].ct, b[i].ct);
        EXPECT_EQ(a[i].subct, b[i].subct);
        EXPECT_EQ(a[i].enc, b[i].enc);
        if (bLines) {
            EXPECT_EQ(a[i].lines, b[i].lines);
        }
        EXPECT_EQ(a[i].charset, b[i].charset);
        EXPECT_EQ(a[i].cid, b[i].cid);
        EXPECT_EQ(a[i].filename, b[i].filename);
    }
}

inline std::string ToCRLF(const std::string& strLF) {
    std::string strOut;
    for (char c : strLF) {
        if (c == '\n') strOut += '\r';
        strOut += c;
    }
    return strOut;
}

struct NamedMessage {
    std::string strName;
    std::string strBytes;
};

// The messages every structural test runs over: each in LF and in CR LF form.
std::vector<NamedMessage> TestMessages();

#endif
