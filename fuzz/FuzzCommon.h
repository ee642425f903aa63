#ifndef QLMAIL_FUZZ_FUZZCOMMON_H
#define QLMAIL_FUZZ_FUZZCOMMON_H

#include "mime/QLMimeMsg.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <stdexcept>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

// The test script proves that its fuzz gate can fail: it names an input in QLMAIL_FUZZ_PLANT,
// and a target stops on it as on a real finding. Every target calls this first.
inline void AbortOnPlantedInput(const uint8_t* pData, size_t nSize) {
    static const char* const pszPlant = std::getenv("QLMAIL_FUZZ_PLANT");
    if (pszPlant != nullptr && nSize == std::strlen(pszPlant) &&
        std::memcmp(pData, pszPlant, nSize) == 0)
        std::abort();
}

// The bytes as a file that CQLMimeFile can open by path, without touching the disk.
class MemFile {
public:
    explicit MemFile(const std::string& strData) {
        m_nFD = memfd_create("qlmail-fuzz", 0);
        size_t nDone = 0;
        while (m_nFD >= 0 && nDone < strData.size()) {
            ssize_t n = write(m_nFD, strData.data() + nDone, strData.size() - nDone);
            if (n <= 0) break;
            nDone += static_cast<size_t>(n);
        }
        m_strPath = "/proc/self/fd/" + std::to_string(m_nFD);
    }
    ~MemFile() {
        if (m_nFD >= 0) close(m_nFD);
    }
    const std::string& Path() const { return m_strPath; }

private:
    int m_nFD;
    std::string m_strPath;
};

// Every reading operation of every entry; the library may refuse, but never crash. Names and
// parameters depend on the header only, which the two sources read alike: bNames asks for
// them where the header was read.
inline void ReadEveryPart(CQLMimeMsg& msg, bool bNames = true) {
    std::string strBody;
    for (CQLMimeMsg* p : msg) {
        p->GetBody(strBody, true);
        p->GetBody(strBody, false);
        std::ostringstream out;
        p->GetBody(out, true);
        try {
            // A stream from memory refuses an offset past the end by the standard exception.
            p->GetBody(out, false);
            p->GetMIME(out);
            p->GetHdr(out);
        } catch (const std::out_of_range&) {
        } catch (const CQLExceptionParser&) {
        }
        if (!bNames) continue;
        p->GetCID();
        p->GetSubject();
        p->GetDateStr();
        p->GetSentDate();
        p->GetRecentRecvDate();
        bool bAttachment = false;
        p->GetFilename(bAttachment);
        for (const CQLMimeHdrItem& item : p->m_Hdr) {
            item.GetParameter("charset", 7);
            item.GetParameter("name", 4);
            item.GetSubType();
        }
    }
    msg.Save(strBody);
    try {
        msg.GetMsgID();
        msg.IsXLinkMail();
    } catch (const CQLExceptionParser&) {
    }
}

#endif
