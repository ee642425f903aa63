#ifndef QLMAIL_MIME_QLMIMESTR_H
#define QLMAIL_MIME_QLMIMESTR_H

#include "foundation/QLExport.h"
#include "mime/QLIMimeStr.h"

/// A message held in memory. CQLMimeMsg::Open() with bFile false makes one; on its own,
/// SetData() copies the message in and SetDataPtr() reads bytes that the caller keeps alive.
class QLMAIL_EXPORT CQLMimeStr : public CQLIMimeStr {
public:
    CQLMimeStr() {}
    virtual ~CQLMimeStr() {}

    void Close() override {}
    char GetChar(int nOffset) override;
    unsigned long Find(const std::string& strFind, unsigned long nFrom, int* pnLine,
                       int* pbCRLF) override;
    std::string SubStr(unsigned long nOffset, unsigned long nLen) override;
    unsigned long SubStr(char* pszBuf, unsigned long nOffset, unsigned long nLen) override;
    unsigned long SubStr(unsigned long nOffset, unsigned long nLen, std::ostream& out) override;
    unsigned long SubStr(unsigned long nOffset, unsigned long nLen, CQLFileParser& file) override;
    unsigned long SubStr(unsigned long nOffset, unsigned long nLen, std::string& strOut) override;
    unsigned long SubStr(unsigned long nOffset, unsigned long nLen, int nFD) override;
    unsigned long FastLineCnt(unsigned long nOffset, unsigned long nLen) override;
    int GetType() override { return 0; }
    unsigned long ParseHdr(CQLMimeHdr& hdr, unsigned long nOffset) override;

protected:
    const char* BytesAt(unsigned long nOffset, unsigned long nWant, unsigned long& nGot,
                        bool bPeek) override;
};

#endif
