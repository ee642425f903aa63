#ifndef QLMAIL_FOUNDATION_QLSTRTOKENIZERPARSER_H
#define QLMAIL_FOUNDATION_QLSTRTOKENIZERPARSER_H

#include "foundation/QLExport.h"

// A cursor over a delimited buffer that hands out pointers into it; nothing is copied or
// allocated. The buffer belongs to the caller and must outlive the tokenizer.
//
// With a length, the last field comes with or without a trailing delimiter. Without one
// (NUL-terminated), text after the last delimiter is not delivered: every field must be
// closed by the delimiter.
class QLMAIL_EXPORT CQLStrTokenizerParser {
public:
    CQLStrTokenizerParser(const char* pszStr, char cDelim);
    CQLStrTokenizerParser(const char* pszStr, unsigned long nLen, char cDelim);
    virtual ~CQLStrTokenizerParser() {}

    void Set(const char* pszStr, char cDelim);
    void Set(const char* pszStr, unsigned long nLen, char cDelim);
    void InitCursor() { m_nCursor = 0; }
    // Pointer to the next field (not NUL-terminated) or null; nLen gets its length.
    const char* GetNext(unsigned long& nLen);

private:
    static const unsigned long NUL_TERMINATED = static_cast<unsigned long>(-1);

    char m_cDelim;
    const char* m_pszStr;
    unsigned long m_nLen;
    unsigned long m_nCursor;
};

#endif
