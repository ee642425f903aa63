#ifndef QLMAIL_FOUNDATION_QLEXCEPTIONPARSER_H
#define QLMAIL_FOUNDATION_QLEXCEPTIONPARSER_H

#include "foundation/QLExport.h"

#include <string>

/// Base of nearly every class of the library, and the one type that is thrown.
///
/// A failing class stores its text in m_strLastError and throws a copy of itself, so what
/// flies is the failing class (a CQLDateParser, a CQLFileParser, ...), or a plain
/// CQLExceptionParser where there is no object to throw. Catch it by reference and read
/// GetLastError():
///
///     try {
///         date.FromRFC822(strValue);
///     } catch (const CQLExceptionParser& e) {
///         log(e.GetLastError()); // "In FromRFC822(), ..."
///     }
///
/// Operations that answer false instead leave their text in the object's GetLastError().
/// Success never clears a text. Texts are for people ("In Operation(), reason"), not for
/// parsing; the error code is always 0.
class QLMAIL_EXPORT CQLExceptionParser {
public:
    // Inline: every header field and every part constructs one.
    /// Empty text, code 0.
    CQLExceptionParser() : m_nErrorCode(0) {}
    /// The exception thrown where there is no failing object to throw.
    CQLExceptionParser(const std::string& strMessage, int nCode);
    ///@{
    /// Copies take the text and the code.
    CQLExceptionParser(const CQLExceptionParser& other);
    CQLExceptionParser& operator=(const CQLExceptionParser& other);
    ///@}

    /// The text of the last failure, empty if there was none.
    virtual std::string GetLastError() const;
    /// Always 0 in this library; kept for callers that set one.
    virtual int GetErrorCode();
    /// Replaces the text; the code stays.
    virtual void SetLastError(const std::string& strError);
    virtual ~CQLExceptionParser() {}

protected:
    std::string m_strLastError; ///< See GetLastError().
    int m_nErrorCode;           ///< See GetErrorCode().
};

#endif
