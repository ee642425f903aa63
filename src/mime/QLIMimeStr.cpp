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

} // namespace

// The first match of the needle in the haystack. Delimiters ("\n--...") are searched for over
// whole bodies: candidates are filtered 16 bytes at a time on the needle's first two bytes,
// which rarely stand together in a body, and only those are compared in full.
const char* CQLIMimeStr::FindBytes(const char* pHay, size_t nHay, const char* pNeedle,
                                   size_t nNeedle) {
    if (nNeedle == 0) return pHay;
    if (nNeedle > nHay) return nullptr;
    if (nNeedle == 1) return static_cast<const char*>(memchr(pHay, pNeedle[0], nHay));
    const __m128i vFirst = _mm_set1_epi8(pNeedle[0]);
    const __m128i vSecond = _mm_set1_epi8(pNeedle[1]);
    const size_t nLast = nHay - nNeedle; // last start position
    size_t i = 0;
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
    for (; i <= nLast; ++i)
        if (pHay[i] == pNeedle[0] && memcmp(pHay + i + 1, pNeedle + 1, nNeedle - 1) == 0)
            return pHay + i;
    return nullptr;
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
