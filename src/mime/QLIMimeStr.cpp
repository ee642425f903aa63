#include "mime/QLIMimeStr.h"

#include <algorithm>
#include <cstring>
#include <immintrin.h>

CQLIMimeStr::CQLIMimeStr() : m_nLength(0), m_pszData(nullptr) {}

CQLIMimeStr::CQLIMimeStr(const CQLIMimeStr& other)
    : CQLExceptionParser(other), m_File(other.m_File), m_strData(other.m_strData),
      m_nLength(other.m_nLength), m_pszData(other.m_pszData) {}

CQLIMimeStr& CQLIMimeStr::operator=(const CQLIMimeStr& other) {
    if (this == &other) return *this;
    CQLExceptionParser::operator=(other);
    m_File = other.m_File;
    m_strData = other.m_strData;
    m_nLength = other.m_nLength;
    m_pszData = other.m_pszData;
    return *this;
}

CQLIMimeStr::~CQLIMimeStr() {}

bool CQLIMimeStr::SetData(const std::string& strData, bool bFile) {
    if (!bFile) {
        m_strData = strData;
        m_nLength = m_strData.size();
        m_pszData = m_strData.data();
        return true;
    }
    try {
        m_File.SetFileName(strData, false);
        if (!m_File.Open(CQLFileParser::FILE_READ | CQLFileParser::FILE_BINARY))
            throw CQLExceptionParser(m_File.GetLastError(), 0);
        const long long nSize = OpenedFileSize();
        m_strData = strData;
        m_nLength = nSize < 0 ? 0 : static_cast<unsigned long>(nSize);
        m_pszData = m_strData.data();
    } catch (CQLExceptionParser&) {
        m_strLastError = "In SetData(), " + m_File.GetLastError();
        return false;
    }
    return true;
}

bool CQLIMimeStr::SetDataPtr(const char* pszData, unsigned long nLen, bool bFile) {
    if (!bFile) {
        m_nLength = nLen;
        m_pszData = pszData;
        return true;
    }
    const std::string strPath = pszData ? pszData : "";
    if (!SetData(strPath, true)) {
        m_strLastError = "In SetDataPtr(), " + m_File.GetLastError();
        return false;
    }
    m_pszData = pszData;
    return true;
}

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
// AVX2 they are counted afterwards.
const char* FindBytesSse2(const char* pHay, size_t nHay, const char* pNeedle, size_t nNeedle,
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

template <bool kCount>
__attribute__((target("avx2,popcnt"))) const char*
FindBytesAvx2(const char* pHay, size_t nHay, const char* pNeedle, size_t nNeedle, size_t& i,
              unsigned long& nLF) {
    const __m256i vFirst = _mm256_set1_epi8(pNeedle[0]);
    const __m256i vSecond = _mm256_set1_epi8(pNeedle[1]);
    const __m256i vLF = _mm256_set1_epi8('\n');
    const size_t nLast = nHay - nNeedle;
    for (; i + 32 <= nLast + 1 && i + 33 <= nHay; i += 32) {
        const __m256i v0 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(pHay + i));
        const __m256i v1 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(pHay + i + 1));
        const __m256i vEq0 = _mm256_cmpeq_epi8(v0, vFirst);
        unsigned int nMask = static_cast<unsigned int>(
            _mm256_movemask_epi8(_mm256_and_si256(vEq0, _mm256_cmpeq_epi8(v1, vSecond))));
        unsigned int nLFMask = 0;
        if (kCount)
            nLFMask = static_cast<unsigned int>(
                _mm256_movemask_epi8(pNeedle[0] == '\n' ? vEq0 : _mm256_cmpeq_epi8(v0, vLF)));
        while (nMask != 0) {
            const unsigned int nBit = static_cast<unsigned int>(__builtin_ctz(nMask));
            const size_t nAt = i + nBit;
            if (memcmp(pHay + nAt + 2, pNeedle + 2, nNeedle - 2) == 0) {
                if (kCount) {
                    const unsigned int nUpTo = (2u << nBit) - 1u; // bits 0..nBit
                    nLF += static_cast<unsigned long>(__builtin_popcount(nLFMask & nUpTo));
                }
                return pHay + nAt;
            }
            nMask &= nMask - 1;
        }
        if (kCount) nLF += static_cast<unsigned long>(__builtin_popcount(nLFMask));
    }
    return nullptr;
}

bool HasAvx2() {
    return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("popcnt");
}

} // namespace

const char* CQLIMimeStr::FindBytes(const char* pHay, size_t nHay, const char* pNeedle,
                                   size_t nNeedle, unsigned long* pnLF) {
    if (pnLF != nullptr) *pnLF = 0;
    if (nNeedle == 0) {
        // An empty needle matches at the start, whose byte the count includes.
        if (pnLF != nullptr && nHay > 0) *pnLF = pHay[0] == '\n' ? 1 : 0;
        return pHay;
    }
    if (nNeedle > nHay) {
        if (pnLF != nullptr) *pnLF = GetLineCnt(pHay, nHay);
        return nullptr;
    }
    const char* pHit = nullptr;
    size_t i = 0;        // positions before i have been searched
    size_t nCounted = 0; // newlines before nCounted are in nLF
    unsigned long nLF = 0;
    if (nNeedle == 1) {
        pHit = static_cast<const char*>(memchr(pHay, pNeedle[0], nHay));
    } else {
        if (HasAvx2() && pnLF != nullptr) {
            pHit = FindBytesAvx2<true>(pHay, nHay, pNeedle, nNeedle, i, nLF);
            nCounted = pHit != nullptr ? pHit - pHay + 1 : i;
        } else if (HasAvx2()) {
            pHit = FindBytesAvx2<false>(pHay, nHay, pNeedle, nNeedle, i, nLF);
        } else {
            pHit = FindBytesSse2(pHay, nHay, pNeedle, nNeedle, i);
        }
        // The last positions, fewer than a vector's worth, one at a time.
        for (const size_t nLast = nHay - nNeedle; pHit == nullptr && i <= nLast; ++i)
            if (pHay[i] == pNeedle[0] && memcmp(pHay + i + 1, pNeedle + 1, nNeedle - 1) == 0)
                pHit = pHay + i;
    }
    if (pnLF != nullptr) {
        const size_t nUpTo = pHit != nullptr ? pHit - pHay + 1 : nHay;
        if (nCounted < nUpTo) nLF += GetLineCnt(pHay + nCounted, nUpTo - nCounted);
        *pnLF = nLF;
    }
    return pHit;
}

unsigned long CQLIMimeStr::GetLineCnt(const char* pszData, const unsigned long& nLen) {
    if (pszData == nullptr || nLen == 0) return 0;
    return __builtin_cpu_supports("avx2") ? CountLFAvx2(pszData, nLen) : CountLFSse2(pszData, nLen);
}

unsigned long CQLIMimeStr::GetLineCnt(const std::string& strData, const unsigned long& nFrom,
                                      const unsigned long& nTo) {
    const unsigned long nSize = strData.size();
    if (nFrom >= nSize || nTo < nFrom) return 0;
    const unsigned long nEnd = std::min(nTo, nSize - 1) + 1;
    return GetLineCnt(strData.data() + nFrom, nEnd - nFrom);
}
