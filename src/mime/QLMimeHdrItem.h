#ifndef QLMAIL_MIME_QLMIMEHDRITEM_H
#define QLMAIL_MIME_QLMIMEHDRITEM_H

#include "foundation/QLExceptionParser.h"
#include "foundation/QLExport.h"

#include <string>
#include <utility>

/// One header field: name, value and the raw text as it stands in the message.
///
/// Found by CQLMimeHdr::FindHdrItem() or CQLMimeMsg::FindHdrItem(); values are raw, so a
/// caller decodes encoded words itself (CQLMimeHdr::Decode(), CQLHdrCodec).
class QLMAIL_EXPORT CQLMimeHdrItem : public CQLExceptionParser {
public:
    /// An empty field.
    CQLMimeHdrItem() {}
    ///@{
    /// Copies and moves take the three texts; the other two build a field of the given name,
    /// value and raw text.
    CQLMimeHdrItem(const CQLMimeHdrItem& other) = default;
    CQLMimeHdrItem(const std::string& strName, const std::string& strValue,
                   const std::string& strRaw)
        : m_strName(strName), m_strValue(strValue), m_strRaw(strRaw) {}
    CQLMimeHdrItem(std::string&& strName, std::string&& strValue, std::string&& strRaw)
        : m_strName(std::move(strName)), m_strValue(std::move(strValue)),
          m_strRaw(std::move(strRaw)) {}
    CQLMimeHdrItem& operator=(const CQLMimeHdrItem& other) = default;
    CQLMimeHdrItem(CQLMimeHdrItem&& other) = default;
    CQLMimeHdrItem& operator=(CQLMimeHdrItem&& other) = default;
    ///@}
    virtual ~CQLMimeHdrItem() {}

    /// Empties the three texts.
    void Init() {
        m_strName.clear();
        m_strValue.clear();
        m_strRaw.clear();
    }

    /// The value of a parameter of this field. An RFC 2231 parameter (name*...) comes back
    /// as an encoded word when it names a charset, so callers decode both forms alike.
    std::string GetParameter(const char* pszName, unsigned int nLen) const;
    /// The text between the first "/" and the next ";" of the value.
    std::string GetSubType() const;

    /// Trimmed text before the colon.
    std::string m_strName;
    /// Text behind the colon; a folded value keeps its line breaks.
    std::string m_strValue;
    /// All lines of the field, less the final line break.
    std::string m_strRaw;
};

#endif
