#include "ToolCommon.h"

#include "mime/QLMimeConst.h"

#include <cstdio>

int Usage(const std::string& strWhy) {
    std::fprintf(stderr, "qlmail: %s (try --help)\n", strWhy.c_str());
    return 2;
}

int Fail(const std::string& strWhy) {
    std::fprintf(stderr, "qlmail: %s\n", strWhy.c_str());
    return 1;
}

std::string TypeName(int nCT) {
    if (nCT >= 0 && nCT < CQLMimeConst::CT_UNKNOWN) return CQLMimeConst::m_szMIMEType[nCT];
    return "unknown";
}

std::string SubTypeName(int nSubCT) {
    if (nSubCT == CQLMimeConst::MS_TNEF) return "ms-tnef";
    if (nSubCT >= 0 && nSubCT <= CQLMimeConst::RFC822) return CQLMimeConst::m_szSubMIMEType[nSubCT];
    return "unknown";
}

std::string EncodingName(int nEncoder) {
    switch (nEncoder) {
    case CQLMimeConst::ENCODER_7BIT:
        return "7bit";
    case CQLMimeConst::ENCODER_8BIT:
        return "8bit";
    case CQLMimeConst::ENCODER_BASE64:
        return "base64";
    case CQLMimeConst::ENCODER_QP:
        return "quoted-printable";
    case CQLMimeConst::ENCODER_BINARY:
        return "binary";
    default:
        return "unknown";
    }
}

std::string Printable(const std::string& strText) {
    std::string strOut;
    for (unsigned char c : strText) {
        if (c == '\\')
            strOut += "\\\\";
        else if (c == '\n')
            strOut += "\\n";
        else if (c == '\r')
            strOut += "\\r";
        else if (c == '\t')
            strOut += "\\t";
        else if (c < 0x20 || c == 0x7F) {
            char szHex[8];
            std::snprintf(szHex, sizeof(szHex), "\\x%02X", c);
            strOut += szHex;
        } else
            strOut += static_cast<char>(c);
    }
    return strOut.empty() ? "-" : strOut;
}

namespace {

// Length of a valid UTF-8 sequence at p, or 0.
size_t Utf8Length(const unsigned char* p, size_t nLeft) {
    const unsigned char c = p[0];
    size_t n = c < 0x80 ? 1 : (c >> 5) == 6 ? 2 : (c >> 4) == 14 ? 3 : (c >> 3) == 30 ? 4 : 0;
    if (n == 0 || n > nLeft) return 0;
    for (size_t i = 1; i < n; ++i)
        if ((p[i] & 0xC0) != 0x80) return 0;
    return n;
}

} // namespace

std::string Json(const std::string& strText) {
    std::string strOut = "\"";
    const unsigned char* p = reinterpret_cast<const unsigned char*>(strText.data());
    const size_t nLen = strText.size();
    for (size_t i = 0; i < nLen;) {
        const unsigned char c = p[i];
        const size_t n = Utf8Length(p + i, nLen - i);
        if (c == '"' || c == '\\') {
            strOut += '\\';
            strOut += static_cast<char>(c);
        } else if (c == '\n') {
            strOut += "\\n";
        } else if (c == '\r') {
            strOut += "\\r";
        } else if (c == '\t') {
            strOut += "\\t";
        } else if (c < 0x20 || c == 0x7F || n == 0) {
            char szHex[8];
            std::snprintf(szHex, sizeof(szHex), "\\u%04X", c);
            strOut += szHex;
        } else {
            strOut.append(strText, i, n);
            i += n;
            continue;
        }
        ++i;
    }
    return strOut + "\"";
}

std::string PartName(const std::string& strDepth) {
    return strDepth.empty() ? "top" : strDepth;
}
