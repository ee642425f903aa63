#ifndef QLMAIL_FOUNDATION_QLMIMEENVELOPE_H
#define QLMAIL_FOUNDATION_QLMIMEENVELOPE_H

#include "foundation/QLExceptionParser.h"
#include "foundation/QLExport.h"

#include <string>
#include <vector>

// The SMTP envelope of a transfer: its sender and recipients, apart from the message's own
// headers. Addresses are held as given; nothing here parses or checks them.
class QLMAIL_EXPORT CQLMimeEnvelope : public CQLExceptionParser {
public:
    struct RCPTTO {
        std::string strRcpt;
        // Carried along for the caller; this class never reads it.
        int nFlag = 0;
    };

    CQLMimeEnvelope() {}
    virtual ~CQLMimeEnvelope() {}

    void Init();
    void SetMailFrom(const std::string& strMailFrom) { m_strMailFrom = strMailFrom; }
    void SetMailFrom(const char* pszMailFrom, int nLen);
    std::string& GetMailFrom() { return m_strMailFrom; }
    const std::string& GetMailFrom() const { return m_strMailFrom; }
    std::vector<RCPTTO>& GetRcpt() { return m_vRcptTo; }
    const std::vector<RCPTTO>& GetRcpt() const { return m_vRcptTo; }
    void AddRcptTo(const RCPTTO& rcpt) { m_vRcptTo.push_back(rcpt); }
    // The addresses joined by cDelim; each is read up to its first NUL byte.
    std::string GetRcptByDel(char cDelim) const;

protected:
    std::string m_strMailFrom;
    std::vector<RCPTTO> m_vRcptTo;
};

#endif
