#ifndef QLMAIL_FOUNDATION_QLSCAN_H
#define QLMAIL_FOUNDATION_QLSCAN_H

#include <cstddef>
#include <cstring>

// The vector forms are compiled for x86-64 only, where SSE2 is always there and AVX2 is asked
// for at run time. QLMAIL_PORTABLE leaves them out, to build as for any other processor.
#if defined(__x86_64__) && !defined(QLMAIL_PORTABLE)
#define QLMAIL_SCAN_X86 1
#include <emmintrin.h>
#endif

// The byte scanners that run over whole messages: newlines, a string, the end of a line, a
// header line with its colon, and runs of UTF-8. Each has a portable form for any processor;
// on x86-64 there are vector forms too: SSE2, which every x86-64 processor has, and AVX2 for
// the processors that have it. A build with QLMAIL_PORTABLE has the portable form only.
// Every form gives the same results (UTF-8 runs may stop at other places, see Utf8Run). By
// default a scanner takes the best form that runs here; naming a form is for comparing them,
// and a form that does not run here falls back to one that does.
class CQLScan {
public:
    // Each form runs wherever a later one does.
    enum Form { PORTABLE, SSE2, AVX2 };

    // Whether this build has the form and this processor runs it.
    static bool Runs(Form eForm);
    // The last form that runs.
    static Form Best() { return s_eBest; }

    // The newlines among the n bytes at p.
    static unsigned long CountLF(const char* p, unsigned long n);
    static unsigned long CountLF(const char* p, unsigned long n, Form eForm);
    // The first match of the needle in the haystack, or null. With pnLF, also the number of
    // newlines from the start of the haystack up to the match, the match's first byte
    // included; without a match, the newlines of the whole haystack.
    static const char* Find(const char* pHay, size_t nHay, const char* pNeedle, size_t nNeedle,
                            unsigned long* pnLF, Form eForm = Best());
    // The first CR or LF among the n bytes at p, or p + n. Like HeaderLine, without a form
    // chosen at run time, and inline.
    static const char* LineEnd(const char* p, size_t n) {
#ifdef QLMAIL_SCAN_X86
        return LineEndSse2(p, n);
#else
        return LineEndPortable(p, n);
#endif
    }
    static const char* LineEnd(const char* p, size_t n, Form eForm);
    // The length of the line at p, up to and including its LF or to the end of the n bytes,
    // and in pColon its first colon, or null. Called for every header line, so the form this
    // build prefers is inline.
    static size_t HeaderLine(const char* p, size_t n, const char*& pColon) {
#ifdef QLMAIL_SCAN_X86
        return HeaderLineSse2(p, n, pColon);
#else
        return HeaderLinePortable(p, n, pColon);
#endif
    }
    static size_t HeaderLine(const char* p, size_t n, const char*& pColon, Form eForm);
    // The length of a run from p of whole characters of one to four bytes, none overlong and
    // none a surrogate. The run may end before the first byte that breaks these rules, and
    // where it ends depends on the form (the portable one takes ASCII only): callers go on a
    // character at a time from there.
    static size_t Utf8Run(const unsigned char* p, size_t n, Form eForm = Best());

private:
    // Found when the library is loaded. A static initializer that scans before that reads
    // PORTABLE, with the same results.
    static const Form s_eBest;
    static Form Detect();

    static const char* LineEndPortable(const char* p, size_t n) {
        const char* pLF = static_cast<const char*>(memchr(p, '\n', n));
        const size_t nLine = pLF != nullptr ? static_cast<size_t>(pLF - p) : n;
        const char* pCR = static_cast<const char*>(memchr(p, '\r', nLine));
        return pCR != nullptr ? pCR : p + nLine;
    }

    static size_t HeaderLinePortable(const char* p, size_t n, const char*& pColon) {
        const char* pLF = static_cast<const char*>(memchr(p, '\n', n));
        const size_t nLine = pLF != nullptr ? static_cast<size_t>(pLF - p) + 1 : n;
        pColon = static_cast<const char*>(memchr(p, ':', nLine));
        return nLine;
    }

#ifdef QLMAIL_SCAN_X86
    static const char* LineEndSse2(const char* p, size_t n) {
        const __m128i vCR = _mm_set1_epi8('\r');
        const __m128i vLF = _mm_set1_epi8('\n');
        size_t i = 0;
        for (; i + 16 <= n; i += 16) {
            const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + i));
            const unsigned int nMask = static_cast<unsigned int>(
                _mm_movemask_epi8(_mm_or_si128(_mm_cmpeq_epi8(v, vCR), _mm_cmpeq_epi8(v, vLF))));
            if (nMask != 0) return p + i + __builtin_ctz(nMask);
        }
        for (; i < n; ++i)
            if (p[i] == '\r' || p[i] == '\n') return p + i;
        return p + n;
    }

    // Header lines are short, and each needs both its end and its first colon: one pass.
    static size_t HeaderLineSse2(const char* p, size_t n, const char*& pColon) {
        const __m128i vLF = _mm_set1_epi8('\n');
        const __m128i vColon = _mm_set1_epi8(':');
        pColon = nullptr;
        size_t i = 0;
        for (; i + 16 <= n; i += 16) {
            const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + i));
            const unsigned int nLF =
                static_cast<unsigned int>(_mm_movemask_epi8(_mm_cmpeq_epi8(v, vLF)));
            unsigned int nColon =
                static_cast<unsigned int>(_mm_movemask_epi8(_mm_cmpeq_epi8(v, vColon)));
            if (nLF != 0) nColon &= (nLF & (0u - nLF)) - 1; // colons before the LF
            if (pColon == nullptr && nColon != 0) pColon = p + i + __builtin_ctz(nColon);
            if (nLF != 0) return i + __builtin_ctz(nLF) + 1;
        }
        for (; i < n; ++i) {
            if (p[i] == ':' && pColon == nullptr) pColon = p + i;
            if (p[i] == '\n') return i + 1;
        }
        return n;
    }
#endif
};

#endif
