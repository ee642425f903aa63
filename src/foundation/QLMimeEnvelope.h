#ifndef QLMAIL_FOUNDATION_QLMIMEENVELOPE_H
#define QLMAIL_FOUNDATION_QLMIMEENVELOPE_H

#include "foundation/QLExceptionParser.h"
#include "foundation/QLExport.h"

#include <string>
#include <vector>

/// The SMTP envelope of a transfer: its sender and recipients, apart from the message's own
/// headers. Addresses are held as given; nothing here parses or checks them. A mail system
/// fills one with SetMailFrom() and AddRcptTo() as the transfer arrives and hands it on with
/// the message.
class QLMAIL_EXPORT CQLMimeEnvelope : public CQLExceptionParser {
public:
    /// One recipient.
    struct RCPTTO {
        std::string strRcpt; ///< The address.
        /// Carried along for the caller; this class never reads it.
        int nFlag = 0;
    };

    /// No sender, no recipients.
    CQLMimeEnvelope() {}
    virtual ~CQLMimeEnvelope() {}

    /// Empties the sender and the recipients.
    void Init();
    ///@{
    /// Sets the sender (from nLen bytes).
    void SetMailFrom(const std::string& strMailFrom) { m_strMailFrom = strMailFrom; }
    void SetMailFrom(const char* pszMailFrom, int nLen);
    ///@}
    ///@{
    /// The sender itself, not a copy.
    std::string& GetMailFrom() { return m_strMailFrom; }
    const std::string& GetMailFrom() const { return m_strMailFrom; }
    ///@}
    ///@{
    /// The recipients themselves, in the order they were added.
    std::vector<RCPTTO>& GetRcpt() { return m_vRcptTo; }
    const std::vector<RCPTTO>& GetRcpt() const { return m_vRcptTo; }
    ///@}
    /// Appends a copy.
    void AddRcptTo(const RCPTTO& rcpt) { m_vRcptTo.push_back(rcpt); }
    /// The addresses joined by cDelim ("a,b,c"); each is read up to its first NUL byte.
    std::string GetRcptByDel(char cDelim) const;

protected:
    std::string m_strMailFrom;     ///< See GetMailFrom().
    std::vector<RCPTTO> m_vRcptTo; ///< See GetRcpt().
};

#endif
