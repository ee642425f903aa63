#ifndef QLMAIL_TESTS_MIME_REWRITETESTUTIL_H
#define QLMAIL_TESTS_MIME_REWRITETESTUTIL_H

#include "mime/MimeTestUtil.h"

#include <array>
#include <filesystem>

// The offsets of one node and what the tables tell apart, in the tables' column order.
enum Col { C_HSO, C_HEO, C_HDR_START, C_HDR_END, C_TSO, C_TEO, C_MSO, C_MEO, C_BSO, C_BEO, C_N };
struct Cells {
    std::array<uint64_t, C_N> v;
    int ct, subct;
    std::string depth;
    bool Container() const { return ct == CQLMimeConst::MULTIPART || ct == CQLMimeConst::MESSAGE; }
};

inline std::vector<Cells> Snapshot(const CQLMimeMsg& msg) {
    std::vector<Cells> v;
    for (const CQLMimeMsg* p : msg)
        v.push_back(Cells{{p->m_nHSO, p->m_nHEO, p->m_Hdr.m_nHdrStart, p->m_Hdr.m_nHdrEnd,
                           p->m_nTSO, p->m_nTEO, p->m_nMSO, p->m_nMEO, p->m_nBSO, p->m_nBEO},
                          p->m_CT,
                          p->m_SubCT,
                          p->m_strDepth});
    return v;
}

// The patching tables as the behaviour is specified, kept apart from the library's own copy.
enum Rule { S, A, I, B }; // stays, always, if set, both TSO and TEO if both set
// Rows: earlier container, earlier leaf, this container, this leaf, later container, later leaf.
// clang-format off
const Rule kHdrRules[6][C_N] = {
    // HSO HEO HdrS HdrE TSO TEO MSO MEO BSO BEO
    {S, S, S, S, S, A, S, S, S, A},
    {S, S, S, S, S, S, S, S, S, S},
    {S, I, S, S, I, I, S, I, A, A},
    {S, I, S, S, I, I, S, I, A, A},
    {I, I, S, S, I, I, I, I, A, A},
    {S, I, S, S, B, B, A, I, A, A},
};
const Rule kBodyRules[6][C_N] = {
    {S, S, S, S, S, A, S, S, S, A},
    {S, S, S, S, S, S, S, S, S, S},
    {S, S, S, S, I, I, I, I, A, A},
    {S, S, S, S, S, I, S, S, S, A},
    {I, I, A, A, I, I, I, I, A, A},
    {S, S, A, A, S, I, A, A, A, A},
};
// clang-format on

// An offset moved by delta, in the width it is held in.
inline uint64_t Moved(Col c, uint64_t n, int64_t nDelta) {
    const uint64_t m = n + static_cast<uint64_t>(nDelta);
    return c == C_HDR_START || c == C_HDR_END ? m : static_cast<uint32_t>(m);
}

inline uint64_t ByRule(const Rule (*table)[C_N], size_t i, int k, const Cells& e, Col c,
                       int64_t nDelta) {
    const int nRow = (static_cast<long>(i) < k    ? 0
                      : static_cast<long>(i) == k ? 2
                                                  : 4) +
                     (e.Container() ? 0 : 1);
    const Rule r = table[nRow][c];
    const bool bMove =
        r == A || (r == I && e.v[c] != 0) || (r == B && e.v[C_TSO] != 0 && e.v[C_TEO] != 0);
    return bMove ? Moved(c, e.v[c], nDelta) : e.v[c];
}

// Every offset of the patched list is the table's move of the offset before the edit.
inline void ExpectPatchedByTable(const std::vector<Cells>& before, const std::vector<Cells>& after,
                                 bool bBody, int k, int64_t nDelta, const std::string& strWhat) {
    ASSERT_EQ(before.size(), after.size()) << strWhat;
    for (size_t i = 0; i < before.size(); ++i)
        for (int c = 0; c < C_N; ++c)
            ASSERT_EQ(after[i].v[c],
                      ByRule(bBody ? kBodyRules : kHdrRules, i, k, before[i], Col(c), nDelta))
                << strWhat << ": entry " << i << " column " << c << " (edited " << k << ")";
}

// The patched list against a fresh parse of the rewritten message: same parts, types and
// numbers, and the eight offsets alike, except where the table moved an offset that the edit did not
// move, or kept one that it did. Returns whether any such cell was met.
inline bool ExpectLikeFresh(const std::vector<Cells>& before, const std::vector<Cells>& patched,
                            const std::vector<Cells>& fresh, int64_t nDelta,
                            const std::string& strWhat) {
    bool bDiffers = false;
    EXPECT_EQ(patched.size(), fresh.size()) << strWhat;
    for (size_t i = 0; i < patched.size() && i < fresh.size(); ++i) {
        EXPECT_EQ(patched[i].depth, fresh[i].depth) << strWhat << ": entry " << i;
        EXPECT_EQ(patched[i].ct, fresh[i].ct) << strWhat << ": entry " << i;
        EXPECT_EQ(patched[i].subct, fresh[i].subct) << strWhat << ": entry " << i;
        for (int c = 0; c < C_N; ++c) {
            // The header block's own offsets are not part of the record.
            if (c == C_HDR_START || c == C_HDR_END) continue;
            const uint64_t e = before[i].v[c], p = patched[i].v[c], f = fresh[i].v[c];
            if (p == f) continue;
            bDiffers = true;
            const bool bTableMoved = p != e;
            EXPECT_EQ(f, bTableMoved ? e : Moved(Col(c), e, nDelta))
                << strWhat << ": entry " << i << " column " << c << " patched " << p;
        }
    }
    return bDiffers;
}

// The message's bytes as they stand now.
inline std::string Current(CQLMimeMsg& msg) {
    std::string s;
    msg.Save(s);
    return s;
}

// The range an edit of a node replaces, in the message before the edit.
inline std::pair<uint64_t, uint64_t> EditedRange(const Cells& e, bool bBody) {
    if (bBody) return {e.v[C_BSO], e.v[C_BEO]};
    if (e.v[C_HSO] == 0 && e.v[C_HEO] == 0 && e.v[C_MSO] != 0 && e.v[C_MEO] != 0)
        return {e.v[C_MSO], e.v[C_MEO]};
    return {e.v[C_HSO], e.v[C_HEO]};
}

// Checks a write-back of node k that has just happened: the bytes outside the edited range are
// those of before, the patched list follows the table, the main message mirrors its first
// entry, and a fresh parse of the rewritten message agrees. Returns whether the patched list
// differs from the fresh parse where the table allows it.
inline bool ExpectRewritten(CQLMimeMsg& msg, const std::vector<Cells>& before,
                            const std::string& strOld, bool bBody, int k,
                            const std::string& strWhat) {
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
    return ExpectLikeFresh(before, after, Snapshot(fresh), nDelta, strWhat);
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
