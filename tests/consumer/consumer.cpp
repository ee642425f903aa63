// Built against the installed tree only: proves that headers, library and package files fit,
// that a stored message can be read through the exported classes, and that what the library
// throws is caught here by its own type.
#include "date/QLDateParser.h"
#include "foundation/DefineParser.h"
#include "foundation/QLFileParser.h"
#include "foundation/QLStringParser.h"
#include "mime/QLMimeMsg.h"
#include "reader/QLMimeMsgInfo.h"

#include <cstdio>
#include <string>

namespace {

int Fail(const char* pszWhat) {
    std::printf("consumer: %s\n", pszWhat);
    return 1;
}

// The road of a stored message: parse the file once, keep the format string, read through it.
int ReadStored(const char* pszPath) {
    CQLMimeMsg msg;
    if (!msg.Open(pszPath, true)) return Fail("cannot parse the sample message");
    const std::string strFormat = msg.GetFormat();
    msg.Close();
    CQLMimeMsgInfo info(pszPath, strFormat);
    std::string strSubject;
    if (!info.GetHeaderValue("Subject", strSubject, true, "", "UTF-8", "") ||
        strSubject != "Lunch on Friday")
        return Fail("unexpected subject of the sample message");
    return 0;
}

int CatchAcrossTheLibrary() {
    try {
        CQLDateParser date;
        date.SetValue(2024, 2, 30, 0, 0, 0, 0);
        return Fail("an invalid date was not refused");
    } catch (const CQLExceptionParser& e) {
        // Thrown as a CQLDateParser inside the library: caught by its base, and still that type.
        if (dynamic_cast<const CQLDateParser*>(&e) == nullptr ||
            e.GetLastError().rfind("In SetValue(), Invalid data: ", 0) != 0)
            return Fail("a thrown CQLDateParser lost its type or its text");
    }
    try {
        CQLFileParser::GetSize(std::string("/nonexistent/qlmail-consumer"));
        return Fail("the size of a missing file was given");
    } catch (const CQLFileParser&) {
        return Fail("a plain CQLExceptionParser was caught as a CQLFileParser");
    } catch (const CQLExceptionParser& e) {
        if (e.GetLastError().rfind("In GetSize(), ", 0) != 0)
            return Fail("a thrown CQLExceptionParser lost its text");
    }
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    CQLStringParser str;
    if (CDefineParser::GetVersion() != "1.00.0032" || str.ToUpper("qlmail") != "QLMAIL")
        return Fail("unexpected result");
    CQLMimeMsg msg;
    if (!msg.Open("From: a\r\n\r\nhello\r\n", false) ||
        msg.GetFormat() != std::string("0,9,11,18,0,9,11,18,,0,0,7,1,,,,,\x05"))
        return Fail("unexpected format string");
    if (CatchAcrossTheLibrary() != 0) return 1;
    if (argc > 1 && ReadStored(argv[1]) != 0) return 1;
    std::printf("consumer: qlmail %s\n", CDefineParser::GetVersion().c_str());
    return 0;
}
