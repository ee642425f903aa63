#include "ToolCommon.h"

#include "foundation/QLSystemError.h"
#include "mime/QLMimeConst.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

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

std::string ToolArgs::Get(const std::string& strOption, const std::string& strDefault) const {
    const auto it = mapOptions.find(strOption);
    return it == mapOptions.end() ? strDefault : it->second;
}

bool ParseArgs(const std::vector<std::string>& vArgs, const std::vector<std::string>& vFlags,
               const std::vector<std::string>& vValued, ToolArgs& args, std::string& strError) {
    auto known = [](const std::vector<std::string>& v, const std::string& s) {
        for (const std::string& t : v)
            if (t == s) return true;
        return false;
    };
    bool bOptions = true;
    for (size_t i = 0; i < vArgs.size(); ++i) {
        const std::string& strArg = vArgs[i];
        if (!bOptions || strArg.size() < 2 || strArg[0] != '-') {
            args.vOperands.push_back(strArg);
        } else if (strArg == "--") {
            bOptions = false;
        } else {
            const std::string::size_type nEq = strArg.find('=');
            const std::string strName = strArg.substr(0, nEq);
            if (known(vFlags, strName) && nEq == std::string::npos) {
                args.mapOptions[strName] = "";
            } else if (known(vValued, strName)) {
                if (nEq != std::string::npos) {
                    args.mapOptions[strName] = strArg.substr(nEq + 1);
                } else if (i + 1 < vArgs.size()) {
                    args.mapOptions[strName] = vArgs[++i];
                } else {
                    strError = strName + " needs a value";
                    return false;
                }
            } else {
                strError = "unknown option " + strArg;
                return false;
            }
        }
    }
    return true;
}

namespace {

const char kTempMark[] = ".qlmail-";

} // namespace

CAtomicFile::CAtomicFile(const std::string& strTarget) : m_strTarget(strTarget), m_nFD(-1) {}

CAtomicFile::~CAtomicFile() {
    Discard();
}

bool CAtomicFile::Failed() {
    m_strLastError = m_strTarget + ": " + CQLSystemError::GetStrError(errno);
    Discard();
    return false;
}

void CAtomicFile::Discard() {
    if (m_nFD >= 0) close(m_nFD);
    m_nFD = -1;
    if (!m_strTemp.empty()) unlink(m_strTemp.c_str());
    m_strTemp.clear();
}

bool CAtomicFile::Open() {
    Discard();
    const std::string::size_type nSlash = m_strTarget.rfind('/');
    const std::string strDir = nSlash == std::string::npos ? "" : m_strTarget.substr(0, nSlash + 1);
    const std::string strBase = m_strTarget.substr(strDir.size());
    // Unique within the process by the counter, across processes by the pid; a name left
    // by a process that died is stepped over.
    static std::atomic<unsigned long> nCounter(0);
    for (int nTry = 0; nTry < 100; ++nTry) {
        const std::string strTemp = strDir + "." + strBase + kTempMark + std::to_string(getpid()) +
                                    "-" + std::to_string(nCounter++);
        // The mode is the user's umask applied to 0666, as for any new file.
        m_nFD = open(strTemp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (m_nFD >= 0) {
            m_strTemp = strTemp;
            return true;
        }
        if (errno != EEXIST) return Failed();
    }
    return Failed();
}

bool CAtomicFile::Write(const char* pData, size_t nLen) {
    while (nLen > 0) {
        const ssize_t n = write(m_nFD, pData, nLen);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return Failed();
        pData += n;
        nLen -= static_cast<size_t>(n);
    }
    return true;
}

bool CAtomicFile::Commit() {
    const int nFD = m_nFD;
    m_nFD = -1;
    if (close(nFD) != 0) return Failed();
    if (rename(m_strTemp.c_str(), m_strTarget.c_str()) != 0) return Failed();
    m_strTemp.clear();
    return true;
}

bool WriteFileAtomic(const std::string& strTarget, const std::string& strData,
                     std::string& strError) {
    CAtomicFile file(strTarget);
    if (file.Open() && file.Write(strData.data(), strData.size()) && file.Commit()) return true;
    strError = file.GetLastError();
    return false;
}

bool IsToolTemp(const std::string& strName) {
    return !strName.empty() && strName[0] == '.' && strName.find(kTempMark) != std::string::npos;
}
