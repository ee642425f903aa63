#include "foundation/QLScan.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#ifdef QLMAIL_SCAN_X86
#include <immintrin.h>
#endif

// ---------------------------------------------------------------------------------------------
// Portable forms: the C library's searches, which have a vector form on most processors, and
// words of eight bytes.

namespace {

const uint64_t kOnes = 0x0101010101010101ull;
const uint64_t kLow7 = 0x7F7F7F7F7F7F7F7Full;

// 1 in each byte of w that equals c, 0 in the others. Exact: no carry crosses a byte.
inline uint64_t BytesEqual(uint64_t w, unsigned char c) {
    const uint64_t x = w ^ (kOnes * c);
    const uint64_t nNonZero = ((x & kLow7) + kLow7) | x; // top bit of each byte that isn't 0
    return (~nNonZero >> 7) & kOnes;
}

// Byte-wide counters, summed before they can overflow.
unsigned long CountLFPortable(const char* p, unsigned long n) {
    unsigned long nCount = 0, i = 0;
    while (n - i >= 8) {
        uint64_t nAcc = 0;
        const unsigned long nWords = std::min<unsigned long>((n - i) / 8, 255);
        for (unsigned long k = 0; k < nWords; ++k, i += 8) {
            uint64_t w;
            memcpy(&w, p + i, 8);
            nAcc += BytesEqual(w, '\n');
        }
        // Pairs of bytes into four 16-bit sums, whose total the multiply gathers in the top.
        nAcc = (nAcc & 0x00FF00FF00FF00FFull) + ((nAcc >> 8) & 0x00FF00FF00FF00FFull);
        nCount += static_cast<unsigned long>((nAcc * 0x0001000100010001ull) >> 48);
    }
    for (; i < n; ++i) nCount += p[i] == '\n';
    return nCount;
}

// Words of ASCII.
size_t Utf8RunPortable(const unsigned char* p, size_t n) {
    size_t i = 0;
    for (; n - i >= 8; i += 8) {
        uint64_t w;
        memcpy(&w, p + i, 8);
        if ((w & (kOnes << 7)) != 0) break;
    }
    return i;
}

} // namespace

// ---------------------------------------------------------------------------------------------
// Vector forms

#ifdef QLMAIL_SCAN_X86
namespace {

// Counting newlines runs over every body byte, more than once per parse: a vector step, with
// byte-wide counters summed before they can overflow.
unsigned long CountLFSse2(const char* p, unsigned long n) {
    const __m128i vLF = _mm_set1_epi8('\n');
    unsigned long nCount = 0, i = 0;
    while (n - i >= 16) {
        __m128i vAcc = _mm_setzero_si128();
        const unsigned long nBlocks = std::min<unsigned long>((n - i) / 16, 255);
        for (unsigned long k = 0; k < nBlocks; ++k, i += 16) {
            const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + i));
            vAcc = _mm_sub_epi8(vAcc, _mm_cmpeq_epi8(v, vLF));
        }
        const __m128i vSum = _mm_sad_epu8(vAcc, _mm_setzero_si128());
        nCount += static_cast<unsigned long>(_mm_cvtsi128_si64(vSum)) +
                  static_cast<unsigned long>(_mm_extract_epi16(vSum, 4));
    }
    for (; i < n; ++i) nCount += p[i] == '\n';
    return nCount;
}

__attribute__((target("avx2"))) unsigned long CountLFAvx2(const char* p, unsigned long n) {
    const __m256i vLF = _mm256_set1_epi8('\n');
    unsigned long nCount = 0, i = 0;
    while (n - i >= 32) {
        __m256i vAcc = _mm256_setzero_si256();
        const unsigned long nBlocks = std::min<unsigned long>((n - i) / 32, 255);
        for (unsigned long k = 0; k < nBlocks; ++k, i += 32) {
            const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p + i));
            vAcc = _mm256_sub_epi8(vAcc, _mm256_cmpeq_epi8(v, vLF));
        }
        const __m256i vSum = _mm256_sad_epu8(vAcc, _mm256_setzero_si256());
        nCount += static_cast<unsigned long>(_mm256_extract_epi64(vSum, 0)) +
                  static_cast<unsigned long>(_mm256_extract_epi64(vSum, 1)) +
                  static_cast<unsigned long>(_mm256_extract_epi64(vSum, 2)) +
                  static_cast<unsigned long>(_mm256_extract_epi64(vSum, 3));
    }
    return nCount + CountLFSse2(p + i, n - i);
}

// Delimiters ("\n--...") are searched for over whole bodies: candidates are filtered a vector
// at a time on the needle's first two bytes, which rarely stand together in a body, and only
// those are compared in full. The AVX2 search also counts the newlines before the match in
// the same pass, because the parser needs the line count of every body it searches; without
// AVX2 they are counted afterwards. Both leave in i where they stopped: the positions before
// it have been searched.
const char* FindSse2(const char* pHay, size_t nHay, const char* pNeedle, size_t nNeedle,
                     size_t& i) {
    const __m128i vFirst = _mm_set1_epi8(pNeedle[0]);
    const __m128i vSecond = _mm_set1_epi8(pNeedle[1]);
    const size_t nLast = nHay - nNeedle; // last start position
    for (; i + 16 <= nLast + 1 && i + 17 <= nHay; i += 16) {
        const __m128i v0 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pHay + i));
        const __m128i v1 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pHay + i + 1));
        unsigned int nMask = static_cast<unsigned int>(_mm_movemask_epi8(
            _mm_and_si128(_mm_cmpeq_epi8(v0, vFirst), _mm_cmpeq_epi8(v1, vSecond))));
        while (nMask != 0) {
            const size_t nAt = i + static_cast<size_t>(__builtin_ctz(nMask));
            if (memcmp(pHay + nAt + 2, pNeedle + 2, nNeedle - 2) == 0) return pHay + nAt;
            nMask &= nMask - 1;
        }
    }
    return nullptr;
}

// One bit per byte of v that equals the byte of vByte.
__attribute__((target("avx2"))) inline uint64_t EqualBits(__m256i v, __m256i vByte) {
    return static_cast<uint32_t>(_mm256_movemask_epi8(_mm256_cmpeq_epi8(v, vByte)));
}

// The first match among the candidates that nMask marks from i, or null; with kCount the
// newlines that nLFMask marks are added to nLF, up to the match or all of them.
template <bool kCount>
__attribute__((target("popcnt"))) inline const char*
MatchAmong(uint64_t nMask, uint64_t nLFMask, const char* pHay, size_t i, const char* pNeedle,
           size_t nNeedle, unsigned long& nLF) {
    for (; nMask != 0; nMask &= nMask - 1) {
        const unsigned int nBit = static_cast<unsigned int>(__builtin_ctzll(nMask));
        if (memcmp(pHay + i + nBit + 2, pNeedle + 2, nNeedle - 2) == 0) {
            if (kCount) {
                const uint64_t nUpTo = (uint64_t{2} << nBit) - 1u; // bits 0..nBit
                nLF += static_cast<unsigned long>(__builtin_popcountll(nLFMask & nUpTo));
            }
            return pHay + i + nBit;
        }
    }
    if (kCount) nLF += static_cast<unsigned long>(__builtin_popcountll(nLFMask));
    return nullptr;
}

template <bool kCount>
__attribute__((target("avx2,popcnt"))) const char* FindAvx2(const char* pHay, size_t nHay,
                                                            const char* pNeedle, size_t nNeedle,
                                                            size_t& i, unsigned long& nLF) {
    const __m256i vFirst = _mm256_set1_epi8(pNeedle[0]);
    const __m256i vSecond = _mm256_set1_epi8(pNeedle[1]);
    const __m256i vLF = _mm256_set1_epi8('\n');
    const bool bLFFirst = pNeedle[0] == '\n';
    // Where a match can begin; the needle has two bytes or more, so the byte behind the last
    // of these lies inside the haystack.
    const size_t nStarts = nHay - nNeedle + 1;
    // 64 positions a step from one load of each half: the second byte of a candidate is the
    // bit after its first, and for the last position the byte behind the step.
    for (; i + 64 <= nStarts; i += 64) {
        const __m256i v0 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(pHay + i));
        const __m256i v1 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(pHay + i + 32));
        const uint64_t nFirst = EqualBits(v0, vFirst) | EqualBits(v1, vFirst) << 32;
        const uint64_t nSecond = (EqualBits(v0, vSecond) | EqualBits(v1, vSecond) << 32) >> 1 |
                                 uint64_t{pHay[i + 64] == pNeedle[1]} << 63;
        uint64_t nLFMask = 0;
        if (kCount) nLFMask = bLFFirst ? nFirst : EqualBits(v0, vLF) | EqualBits(v1, vLF) << 32;
        if (const char* pHit =
                MatchAmong<kCount>(nFirst & nSecond, nLFMask, pHay, i, pNeedle, nNeedle, nLF))
            return pHit;
    }
    for (; i + 32 <= nStarts; i += 32) {
        const __m256i v0 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(pHay + i));
        const __m256i v1 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(pHay + i + 1));
        const uint64_t nMask = EqualBits(v0, vFirst) & EqualBits(v1, vSecond);
        const uint64_t nLFMask = kCount ? EqualBits(v0, bLFFirst ? vFirst : vLF) : 0;
        if (const char* pHit = MatchAmong<kCount>(nMask, nLFMask, pHay, i, pNeedle, nNeedle, nLF))
            return pHit;
    }
    return nullptr;
}

inline __m128i Below(__m128i v, unsigned char c) {
    return _mm_cmplt_epi8(v, _mm_set1_epi8(static_cast<char>(c))); // bytes 0x80 up to c - 1
}

inline unsigned Mask(__m128i v) {
    return static_cast<unsigned>(_mm_movemask_epi8(v));
}

// Blocks of 16 bytes that hold ASCII and characters of two to four bytes only. A character
// that runs past a block is left to the next one, so the run ends between two characters.
// Whatever else stops it, the five- and six-byte forms included.
size_t Utf8RunSse2(const unsigned char* p, size_t n) {
    size_t i = 0;
    while (n - i >= 16) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + i));
        const unsigned nHigh = Mask(v);
        if (nHigh == 0) {
            i += 16;
            continue;
        }
        // Signed compares: the bytes from 0x80 up are the negative ones, ASCII never matches.
        const __m128i below90 = Below(v, 0x90), belowA0 = Below(v, 0xA0);
        const __m128i belowF8 = Below(v, 0xF8);
        const unsigned nTrail = Mask(Below(v, 0xC0));
        const unsigned nLead = Mask(_mm_andnot_si128(Below(v, 0xC2), belowF8));
        const unsigned nLead3 = Mask(_mm_andnot_si128(Below(v, 0xE0), belowF8)); // 3 bytes or more
        const unsigned nLead4 = Mask(_mm_andnot_si128(Below(v, 0xF0), belowF8));
        // The second byte after E0, ED and F0 in its narrower range.
        const __m128i prev = _mm_slli_si128(v, 1);
        const auto After = [&prev](unsigned char c) {
            return _mm_cmpeq_epi8(prev, _mm_set1_epi8(static_cast<char>(c)));
        };
        const __m128i bad = _mm_or_si128(_mm_or_si128(_mm_and_si128(After(0xE0), belowA0),
                                                      _mm_andnot_si128(belowA0, After(0xED))),
                                         _mm_and_si128(After(0xF0), below90));
        if ((nHigh & ~(nTrail | nLead)) != 0 || Mask(bad) != 0) break;
        // Continuation bytes stand exactly where the first bytes want them.
        const unsigned nWanted = (nLead << 1) | (nLead3 << 2) | (nLead4 << 3);
        if ((nWanted & 0xFFFF) != nTrail) break;
        if ((nWanted >> 16) == 0)
            i += 16;
        else
            i += 31 - static_cast<size_t>(__builtin_clz(nLead)); // up to the last character
    }
    return i;
}

} // namespace
#endif

// ---------------------------------------------------------------------------------------------

bool CQLScan::Runs(Form eForm) {
#ifdef QLMAIL_SCAN_X86
    if (eForm != AVX2) return true;
    __builtin_cpu_init(); // may run before the C library's constructors
    return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("popcnt");
#else
    return eForm == PORTABLE;
#endif
}

const CQLScan::Form CQLScan::s_eBest = CQLScan::Detect();

CQLScan::Form CQLScan::Detect() {
    return Runs(AVX2) ? AVX2 : Runs(SSE2) ? SSE2 : PORTABLE;
}

namespace {

// The form asked for, or the best that runs when it does not.
CQLScan::Form Effective(CQLScan::Form eForm) {
    return std::min(eForm, CQLScan::Best());
}

} // namespace

// Sources count the newlines of every block they read, many small ones: one test, no more.
unsigned long CQLScan::CountLF(const char* p, unsigned long n) {
#ifdef QLMAIL_SCAN_X86
    return s_eBest == AVX2 ? CountLFAvx2(p, n) : CountLFSse2(p, n);
#else
    return CountLFPortable(p, n);
#endif
}

unsigned long CQLScan::CountLF(const char* p, unsigned long n, Form eForm) {
    switch (Effective(eForm)) {
#ifdef QLMAIL_SCAN_X86
    case AVX2:
        return CountLFAvx2(p, n);
    case SSE2:
        return CountLFSse2(p, n);
#endif
    default:
        return CountLFPortable(p, n);
    }
}

const char* CQLScan::Find(const char* pHay, size_t nHay, const char* pNeedle, size_t nNeedle,
                          unsigned long* pnLF, Form eForm) {
    eForm = Effective(eForm);
    if (pnLF != nullptr) *pnLF = 0;
    if (nNeedle == 0) {
        // An empty needle matches at the start, whose byte the count includes.
        if (pnLF != nullptr && nHay > 0) *pnLF = pHay[0] == '\n' ? 1 : 0;
        return pHay;
    }
    if (nNeedle > nHay) {
        if (pnLF != nullptr) *pnLF = CountLF(pHay, nHay, eForm);
        return nullptr;
    }
    const char* pHit = nullptr;
    size_t nCounted = 0; // newlines before nCounted are in nLF
    unsigned long nLF = 0;
    if (nNeedle == 1) {
        pHit = static_cast<const char*>(memchr(pHay, pNeedle[0], nHay));
    } else if (eForm == PORTABLE) {
        pHit = static_cast<const char*>(memmem(pHay, nHay, pNeedle, nNeedle));
    } else {
#ifdef QLMAIL_SCAN_X86
        size_t i = 0; // positions before i have been searched
        if (eForm == AVX2 && pnLF != nullptr) {
            pHit = FindAvx2<true>(pHay, nHay, pNeedle, nNeedle, i, nLF);
            nCounted = pHit != nullptr ? pHit - pHay + 1 : i;
        } else if (eForm == AVX2) {
            pHit = FindAvx2<false>(pHay, nHay, pNeedle, nNeedle, i, nLF);
        } else {
            pHit = FindSse2(pHay, nHay, pNeedle, nNeedle, i);
        }
        // The last positions, fewer than a vector's worth, one at a time.
        for (const size_t nLast = nHay - nNeedle; pHit == nullptr && i <= nLast; ++i)
            if (pHay[i] == pNeedle[0] && memcmp(pHay + i + 1, pNeedle + 1, nNeedle - 1) == 0)
                pHit = pHay + i;
#endif
    }
    if (pnLF != nullptr) {
        const size_t nUpTo = pHit != nullptr ? pHit - pHay + 1 : nHay;
        if (nCounted < nUpTo) nLF += CountLF(pHay + nCounted, nUpTo - nCounted, eForm);
        *pnLF = nLF;
    }
    return pHit;
}

const char* CQLScan::LineEnd(const char* p, size_t n, Form eForm) {
    switch (Effective(eForm)) {
#ifdef QLMAIL_SCAN_X86
    case AVX2:
    case SSE2:
        return LineEndSse2(p, n);
#endif
    default:
        return LineEndPortable(p, n);
    }
}

size_t CQLScan::HeaderLine(const char* p, size_t n, const char*& pColon, Form eForm) {
    switch (Effective(eForm)) {
#ifdef QLMAIL_SCAN_X86
    case AVX2:
    case SSE2:
        return HeaderLineSse2(p, n, pColon);
#endif
    default:
        return HeaderLinePortable(p, n, pColon);
    }
}

size_t CQLScan::Utf8Run(const unsigned char* p, size_t n, Form eForm) {
    switch (Effective(eForm)) {
#ifdef QLMAIL_SCAN_X86
    case AVX2:
    case SSE2:
        return Utf8RunSse2(p, n);
#endif
    default:
        return Utf8RunPortable(p, n);
    }
}
