#ifndef QLMAIL_FOUNDATION_QLSCAN_H
#define QLMAIL_FOUNDATION_QLSCAN_H

#include <cstddef>

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
    // The last form that runs, found out once.
    static Form Best() {
        static const Form eBest = Detect();
        return eBest;
    }

    // The newlines among the n bytes at p.
    static unsigned long CountLF(const char* p, unsigned long n, Form eForm = Best());
    // The first match of the needle in the haystack, or null. With pnLF, also the number of
    // newlines from the start of the haystack up to the match, the match's first byte
    // included; without a match, the newlines of the whole haystack.
    static const char* Find(const char* pHay, size_t nHay, const char* pNeedle, size_t nNeedle,
                            unsigned long* pnLF, Form eForm = Best());
    // The first CR or LF among the n bytes at p, or p + n.
    static const char* LineEnd(const char* p, size_t n, Form eForm = Best());
    // The length of the line at p, up to and including its LF or to the end of the n bytes,
    // and in pColon its first colon, or null.
    static size_t HeaderLine(const char* p, size_t n, const char*& pColon, Form eForm = Best());
    // The length of a run from p of whole characters of one to four bytes, none overlong and
    // none a surrogate. The run may end before the first byte that breaks these rules, and
    // where it ends depends on the form (the portable one takes ASCII only): callers go on a
    // character at a time from there.
    static size_t Utf8Run(const unsigned char* p, size_t n, Form eForm = Best());

private:
    static Form Detect();
};

#endif
