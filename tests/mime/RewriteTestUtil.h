#ifndef QLMAIL_TESTS_MIME_REWRITETESTUTIL_H
#define QLMAIL_TESTS_MIME_REWRITETESTUTIL_H

#include "mime/MimeTestUtil.h"
#include "mime/RewriteCheck.h"

#include <filesystem>

using namespace rewrite_check;

// Every offset of the patched list is the table's move of the offset before the edit.
inline void ExpectPatchedByTable(const std::vector<Cells>& before, const std::vector<Cells>& after,
                                 bool bBody, int k, int64_t nDelta, const std::string& strWhat) {
    EXPECT_EQ(PatchedByTable(before, after, bBody, k, nDelta), "") << strWhat;
}

// The message's bytes as they stand now.
inline std::string Current(CQLMimeMsg& msg) {
    std::string s;
    msg.Save(s);
    return s;
}

// Checks a write-back of node k that has just happened: the bytes outside the edited range are
// those of before, the patched list follows the table, the main message mirrors its first
// entry, and a fresh parse of the rewritten message agrees, whose format string goes to
// pFreshFormat. Returns whether the patched list differs from the fresh parse where the table
// allows it.
inline bool ExpectRewritten(CQLMimeMsg& msg, const std::vector<Cells>& before,
                            const std::string& strOld, bool bBody, int k,
                            const std::string& strWhat, std::string* pFreshFormat = nullptr) {
    const std::string strNew = Current(msg);
    const int64_t nDelta =
        static_cast<int64_t>(strNew.size()) - static_cast<int64_t>(strOld.size());
    const auto range = EditedRange(before.at(k), bBody);
    EXPECT_EQ(strNew.substr(0, range.first), strOld.substr(0, range.first)) << strWhat;
    EXPECT_EQ(strNew.substr(range.second + nDelta), strOld.substr(range.second)) << strWhat;
    const std::vector<Cells> after = Snapshot(msg);
    ExpectPatchedByTable(before, after, bBody, k, nDelta, strWhat);
    EXPECT_EQ(msg.m_nBSO, msg.front()->m_nBSO) << strWhat;
    EXPECT_EQ(msg.m_nBEO, msg.front()->m_nBEO) << strWhat;
    EXPECT_EQ(msg.m_nHEO, msg.front()->m_nHEO) << strWhat;
    CQLMimeMsg fresh;
    if (msg.m_bFileSource)
        EXPECT_TRUE(fresh.Open(msg.m_pSource->GetData(), true)) << strWhat;
    else
        EXPECT_TRUE(fresh.Open(strNew, false)) << strWhat;
    bool bDiffers = false;
    EXPECT_EQ(LikeFresh(before, after, Snapshot(fresh), nDelta, bDiffers), "") << strWhat;
    if (pFreshFormat != nullptr) *pFreshFormat = fresh.GetFormat();
    return bDiffers;
}

// The names in a directory, sorted.
inline std::vector<std::string> DirNames(const std::string& strDir) {
    std::vector<std::string> v;
    for (const auto& e : std::filesystem::directory_iterator(strDir))
        v.push_back(e.path().filename().string());
    std::sort(v.begin(), v.end());
    return v;
}

#endif
