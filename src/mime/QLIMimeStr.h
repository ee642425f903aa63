#ifndef QLMAIL_MIME_QLIMIMESTR_H
#define QLMAIL_MIME_QLIMIMESTR_H

#include "foundation/QLExceptionParser.h"
#include "foundation/QLFileParser.h"

#include <ostream>
#include <string>

// A source of message bytes: the byte at an offset, the next match of a string, a range
// delivered to a sink, and the number of lines in a range. Sources never throw on bad input;
// a failure leaves a text in the last error and an empty result.
class CQLIMimeStr : public CQLExceptionParser {
public:
    static constexpr unsigned long NOT_FOUND = static_cast<unsigned long>(-1);

    CQLIMimeStr();
    CQLIMimeStr(const CQLIMimeStr& other);
    CQLIMimeStr& operator=(const CQLIMimeStr& other);
    virtual ~CQLIMimeStr();

    virtual void Close() = 0;
    // The byte at the offset, 0 outside the source.
    virtual char GetChar(int nOffset) = 0;
    virtual unsigned long Find(const std::string& strFind, unsigned long nFrom, int* pnLine,
                               int* pbCRLF) = 0;
    virtual std::string SubStr(unsigned long nOffset, unsigned long nLen) = 0;
    virtual unsigned long SubStr(char* pszBuf, unsigned long nOffset, unsigned long nLen) = 0;
    virtual unsigned long SubStr(unsigned long nOffset, unsigned long nLen, std::ostream& out) = 0;
    virtual unsigned long SubStr(unsigned long nOffset, unsigned long nLen,
                                 CQLFileParser& file) = 0;
    virtual unsigned long SubStr(unsigned long nOffset, unsigned long nLen,
                                 std::string& strOut) = 0;
    virtual unsigned long SubStr(unsigned long nOffset, unsigned long nLen, int nFD) = 0;
    virtual unsigned long FastLineCnt(unsigned long nOffset, unsigned long nLen) = 0;
    // 0 for memory, 1 for a file.
    virtual int GetType() = 0;

    // With bFile the text is a path; otherwise it is the message itself.
    bool SetData(const std::string& strData, bool bFile);
    bool SetDataPtr(const char* pszData, unsigned long nLen, bool bFile);
    std::string& GetData() { return m_strData; }
    unsigned long GetLength() const { return m_nLength; }

    static unsigned long GetLineCnt(const char* pszData, const unsigned long& nLen);
    // Newlines at nFrom <= p <= nTo: the end is included.
    static unsigned long GetLineCnt(const std::string& strData, const unsigned long& nFrom,
                                    const unsigned long& nTo);

    // The first match of the needle in the haystack, or null. With pnLF, also the number of
    // newlines from the start of the haystack up to the match, the match's first byte
    // included; without a match, the newlines of the whole haystack.
    static const char* FindBytes(const char* pHay, size_t nHay, const char* pNeedle, size_t nNeedle,
                                 unsigned long* pnLF = nullptr);

protected:
    // The size of the file just opened in m_File; throws as CQLFileParser::GetSize does.
    virtual long long OpenedFileSize() { return m_File.GetSize(); }

    CQLFileParser m_File;
    std::string m_strData;
    unsigned long m_nLength;
    const char* m_pszData;
};

#endif
