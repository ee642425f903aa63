// Arbitrary format strings, as damaged or stale storage hands them back, against a small
// fixed message in memory and in a file: every part is read.
#include "FuzzCommon.h"

namespace {

const std::string kMessage =
    "From: a@example.org\r\nSubject: =?UTF-8?B?7JWI64WV?=\r\nDate: Tue, 05 Mar 2024 14:07:09 "
    "+0900\r\nContent-Type: multipart/mixed; boundary=\"b\"\r\n\r\n--b\r\nContent-Type: "
    "text/plain; charset=utf-8\r\nContent-Transfer-Encoding: quoted-printable\r\n\r\ncaf=C3=A9\r\n"
    "--b\r\nContent-Type: image/gif; name=\"x.gif\"\r\nContent-Transfer-Encoding: base64\r\n\r\n"
    "R0lGODlhAQABAAAAACw=\r\n--b--\r\n";

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize) {
    AbortOnPlantedInput(pData, nSize);
    const std::string strFormat(reinterpret_cast<const char*>(pData), nSize);
    static MemFile file(kMessage);
    for (bool bFile : {false, true}) {
        for (bool bParseHdr : {false, true}) {
            CQLMimeMsg msg;
            if (!msg.Open(bFile ? file.Path().c_str() : kMessage.c_str(), kMessage.size(),
                          strFormat.c_str(), bFile, bParseHdr, bParseHdr))
                continue;
            msg.GetFormat();
            ReadEveryPart(msg);
            CQLMimeMsg node;
            msg.InitMsgCursor();
            while (msg.GetNextMsg(node)) node.IsSameLevel(*msg[0]);
        }
    }
    return 0;
}
