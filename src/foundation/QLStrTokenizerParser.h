#ifndef QLMAIL_FOUNDATION_QLSTRTOKENIZERPARSER_H
#define QLMAIL_FOUNDATION_QLSTRTOKENIZERPARSER_H

#include "foundation/QLExport.h"

/// A cursor over a delimited buffer that hands out pointers into it; nothing is copied or
/// allocated, which is why the records of a format string are read with it. The buffer
/// belongs to the caller and must outlive the tokenizer.
///
/// With a length, the last field comes with or without a trailing delimiter. Without one
/// (NUL-terminated), text after the last delimiter is not delivered: every field must be
/// closed by the delimiter.
///
///     CQLStrTokenizerParser tok(strFormat.data(), strFormat.size(), '\x05');
///     unsigned long nLen;
///     while (const char* pRecord = tok.GetNext(nLen)) { ... }
class QLMAIL_EXPORT CQLStrTokenizerParser {
public:
    ///@{
    /// As Set() with the same arguments.
    CQLStrTokenizerParser(const char* pszStr, char cDelim);
    CQLStrTokenizerParser(const char* pszStr, unsigned long nLen, char cDelim);
    ///@}
    virtual ~CQLStrTokenizerParser() {}

    /// A buffer that ends at its NUL byte; the cursor goes back to the start.
    void Set(const char* pszStr, char cDelim);
    /// A buffer of nLen bytes; the cursor goes back to the start.
    void Set(const char* pszStr, unsigned long nLen, char cDelim);
    /// Back to the first field.
    void InitCursor() { m_nCursor = 0; }
    /// Pointer to the next field (not NUL-terminated) or null; nLen gets its length. An empty
    /// field is a non-null pointer with length 0.
    const char* GetNext(unsigned long& nLen);

private:
    static const unsigned long NUL_TERMINATED = static_cast<unsigned long>(-1);

    char m_cDelim;
    const char* m_pszStr;
    unsigned long m_nLen;
    unsigned long m_nCursor;
};

#endif
