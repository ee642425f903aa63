#ifndef QLMAIL_TESTS_MIME_REWRITECHECK_H
#define QLMAIL_TESTS_MIME_REWRITECHECK_H

// What a rewrite must leave behind, told without a test framework, so that the fuzz target
// checks the same as the tests: the patched list follows the tables, and it agrees with a
// fresh parse of the rewritten message except where the tables say otherwise.

#include "mime/QLMimeMsg.h"

#include <array>
#include <string>
#include <vector>

namespace rewrite_check {

// The offsets of one node, in the tables' column order, and what a parse tells apart.
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

// The patching tables written out a second time, apart from the library's, so that a slip in
// either shows.
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

inline uint64_t ByRule(bool bBody, size_t i, int k, const Cells& e, Col c, int64_t nDelta) {
    const long n = static_cast<long>(i);
    const int nRow = (n < k ? 0 : n == k ? 2 : 4) + (e.Container() ? 0 : 1);
    const Rule r = (bBody ? kBodyRules : kHdrRules)[nRow][c];
    const bool bMove =
        r == A || (r == I && e.v[c] != 0) || (r == B && e.v[C_TSO] != 0 && e.v[C_TEO] != 0);
    return bMove ? Moved(c, e.v[c], nDelta) : e.v[c];
}

inline std::string Cell(size_t i, int c) {
    return "entry " + std::to_string(i) + " column " + std::to_string(c);
}

// The first offset of the patched list that is not the table's move of the one before the
// edit of node k; empty when there is none.
inline std::string PatchedByTable(const std::vector<Cells>& before, const std::vector<Cells>& after,
                                  bool bBody, int k, int64_t nDelta) {
    if (before.size() != after.size()) return "the list changed its length";
    for (size_t i = 0; i < before.size(); ++i)
        for (int c = 0; c < C_N; ++c) {
            const uint64_t nWant = ByRule(bBody, i, k, before[i], Col(c), nDelta);
            if (after[i].v[c] != nWant)
                return Cell(i, c) + " is " + std::to_string(after[i].v[c]) + ", the table says " +
                       std::to_string(nWant) + " (edited " + std::to_string(k) + ")";
        }
    return std::string();
}

// The patched list against a fresh parse of the rewritten message: the same parts, types and
// numbers, and the eight offsets alike, except where the table moved an offset that the edit
// did not move, or kept one that it did. The first other difference, or empty; bDiffers tells
// whether the allowed differences were met.
inline std::string LikeFresh(const std::vector<Cells>& before, const std::vector<Cells>& patched,
                             const std::vector<Cells>& fresh, int64_t nDelta, bool& bDiffers) {
    bDiffers = false;
    if (patched.size() != fresh.size())
        return "a fresh parse has " + std::to_string(fresh.size()) + " entries, not " +
               std::to_string(patched.size());
    for (size_t i = 0; i < patched.size(); ++i) {
        if (patched[i].depth != fresh[i].depth || patched[i].ct != fresh[i].ct ||
            patched[i].subct != fresh[i].subct)
            return "entry " + std::to_string(i) + " is another part in a fresh parse";
        for (int c = 0; c < C_N; ++c) {
            // The header block's own offsets are not part of the record.
            if (c == C_HDR_START || c == C_HDR_END) continue;
            const uint64_t e = before[i].v[c], p = patched[i].v[c], f = fresh[i].v[c];
            if (p == f) continue;
            bDiffers = true;
            const bool bTableMoved = p != e;
            if (f != (bTableMoved ? e : Moved(Col(c), e, nDelta)))
                return Cell(i, c) + " is " + std::to_string(p) + ", a fresh parse says " +
                       std::to_string(f);
        }
    }
    return std::string();
}

// The range an edit of a node replaces, in the message before the edit.
inline std::pair<uint64_t, uint64_t> EditedRange(const Cells& e, bool bBody) {
    if (bBody) return {e.v[C_BSO], e.v[C_BEO]};
    if (e.v[C_HSO] == 0 && e.v[C_HEO] == 0 && e.v[C_MSO] != 0 && e.v[C_MEO] != 0)
        return {e.v[C_MSO], e.v[C_MEO]};
    return {e.v[C_HSO], e.v[C_HEO]};
}

// Whether the parts nest as a parse of sound mail makes them: each within its parent, one
// after the other, header before body. Damaged mail can give parts that overlap (a part not
// closed running into the next one); an edit there may change which parts there are, which no
// patching can follow, so edits are tried on well-formed lists only.
inline bool Below(const Cells& e, const Cells& ancestor) {
    return e.depth.compare(0, ancestor.depth.size(), ancestor.depth) == 0;
}

inline bool WellFormed(const std::vector<Cells>& v) {
    auto start = [&](size_t i) { return i == 0 ? v[0].v[C_HSO] : v[i].v[C_MSO]; };
    auto parent = [&](size_t i) {
        const std::string& d = v[i].depth;
        const size_t nDot = d.rfind('.', d.size() - 2);
        const std::string strParent = nDot == std::string::npos ? "" : d.substr(0, nDot + 1);
        size_t p = i;
        while (p > 0 && v[p].depth != strParent) --p;
        return p;
    };
    for (size_t i = 1; i < v.size(); ++i) {
        const Cells& e = v[i];
        if (e.v[C_MSO] > e.v[C_MEO] || e.v[C_MEO] > e.v[C_BSO] || e.v[C_BSO] > e.v[C_BEO])
            return false;
        const Cells& p = v[parent(i)];
        if (start(i) < p.v[C_BSO] || e.v[C_BEO] > p.v[C_BEO]) return false;
        // What follows a part and is not inside it begins behind it.
        size_t j = i + 1;
        while (j < v.size() && Below(v[j], e)) ++j;
        if (j < v.size() && e.v[C_BEO] > start(j)) return false;
        // A multipart inside without parts found its delimiters nowhere before its end: where
        // they are, or whether at all, the bytes behind it decide.
        if (e.ct == CQLMimeConst::MULTIPART && (i + 1 == v.size() || !Below(v[i + 1], e)))
            return false;
    }
    return true;
}

// Whether every closing delimiter is told by the bytes around it alone. "--boundary--" with
// a blank behind it closes a multipart when the end of the message lies within 512 bytes,
// whatever stands between: an edit that moves the end of the message past such a line changes
// which parts there are.
inline bool DelimitersStay(const CQLMimeMsg& msg, const std::string& strBytes) {
    for (const CQLMimeMsg* p : msg) {
        if (p->m_CT != CQLMimeConst::MULTIPART) continue;
        const std::string strBoundary = p->m_Hdr.GetBoundary();
        if (strBoundary.empty()) continue;
        const std::string strClose = "\n--" + strBoundary + "--";
        for (size_t n = strBytes.find(strClose); n != std::string::npos;
             n = strBytes.find(strClose, n + 1)) {
            const char c =
                n + strClose.size() < strBytes.size() ? strBytes[n + strClose.size()] : '\n';
            if (c == ' ' || c == '\t' || c == '\v' || c == '\f') return false;
        }
    }
    return true;
}

// Whether an edit of entry i leaves the shape of the message alone, so that a patched list
// can follow it: the entry's header block ends at a blank line where its body begins, and no
// entry begins or ends inside the range the edit replaces. Damaged messages fail this where a
// header runs on over the next delimiter or to the end, or its first line has no colon; an
// edit there changes which parts the message has.
inline bool Editable(const std::vector<Cells>& v, size_t i, bool bBody,
                     const std::string& strBytes) {
    const Cells& e = v[i];
    if (bBody && e.ct == CQLMimeConst::MULTIPART) return false;
    const uint64_t nEnd = i == 0 ? e.v[C_HEO] : e.v[C_MEO];
    if (nEnd > e.v[C_BSO] || e.v[C_BSO] > e.v[C_BEO] || nEnd >= strBytes.size()) return false;
    // A body that begins at its header's end shares the blank line with what follows it.
    if (nEnd == e.v[C_BSO] && (bBody || !e.Container())) return false;
    if (strBytes[nEnd] != '\n' && strBytes.compare(nEnd, 2, "\r\n") != 0) return false;
    // A part's header begins a line: otherwise it holds the end of the delimiter line before
    // it, which decides whether that is a delimiter at all.
    if (i > 0 && (e.v[C_MSO] == 0 || strBytes[e.v[C_MSO] - 1] != '\n')) return false;
    const auto range = EditedRange(e, bBody);
    for (const Cells& other : v)
        for (int c = 0; c < C_N; ++c)
            if (c != C_HDR_START && c != C_HDR_END && other.v[c] > range.first &&
                other.v[c] < range.second)
                return false;
    return true;
}

// The line end that new body data of a leaf ends with: that of the body it replaces, so that
// what follows (a delimiter) begins a line as before.
inline std::string BodyLineEnd(const Cells& e, const std::string& strBytes) {
    const uint64_t nEnd = e.v[C_BEO];
    return nEnd >= 2 && strBytes.compare(nEnd - 2, 2, "\r\n") == 0 ? "\r\n" : "\n";
}

} // namespace rewrite_check

#endif
