// Text extraction: part selection, separators, decoding, and the charset chain.
#include "reader/ReaderTestUtil.h"

#include <filesystem>

namespace {

std::string Part(const std::string& strType, const std::string& strBody) {
    return "--b\nContent-Type: " + strType + "\n\n" + strBody + "\n";
}

std::string Mixed(const std::string& strParts) {
    return "Subject: t\nContent-Type: multipart/mixed; boundary=b\n\n" + strParts + "--b--\n";
}

} // namespace

TEST(MsgInfoText, SelectsPartsOfTheAskedKindWithSeparators) {
    struct Case {
        std::string strMsg;
        bool bHtml;
        bool bResult;
        std::vector<std::string> bodies; // joined by the separator
    } cases[] = {
        {"Content-Type: multipart/alternative; boundary=b\n\n" +
             Part("text/plain; charset=utf-8", "plain one") +
             Part("text/html; charset=utf-8", "<p>html</p>") + "--b--\n",
         true,
         true,
         {"<p>html</p>"}},
        {"Content-Type: multipart/alternative; boundary=b\n\n" +
             Part("text/plain; charset=utf-8", "plain one") +
             Part("text/html; charset=utf-8", "<p>html</p>") + "--b--\n",
         false,
         true,
         {"plain one"}},
        // A text part with a file name is an attachment.
        {Mixed(Part("text/plain", "one") + Part("text/html", "<b>1</b>") +
               Part("text/plain; name=x.txt", "attached") + Part("text/plain", "two") +
               Part("text/html", "<b>2</b>")),
         false,
         true,
         {"one", "two"}},
        {Mixed(Part("text/plain", "one") + Part("text/html", "<b>1</b>") +
               Part("text/html", "<b>2</b>")),
         true,
         true,
         {"<b>1</b>", "<b>2</b>"}},
        {Mixed(Part("image/png; name=a.png", "x")), false, false, {}},
        {Mixed(Part("text/plain", "only plain")), true, false, {}},
    };
    for (const Case& c : cases) {
        for (const auto& [strForm, strMsg] : BothForms(c.strMsg)) {
            SCOPED_TRACE(strForm + "\n" + c.strMsg);
            CTempDir dir;
            const Stored s = Store(dir, strMsg);
            CQLMimeMsgInfo info(s.strPath, s.strFormat);
            // Bodies end where the delimiter's line end begins, which in CR LF is after it.
            const std::string strEnd = strForm == "LF" ? "" : "\r\n";
            std::string strWant;
            for (const std::string& strBody : c.bodies)
                strWant += (strWant.empty() ? ""
                            : c.bHtml       ? "<hr>"
                                            : "--------------------") +
                           strBody + strEnd;
            std::string strOut = "old";
            EXPECT_EQ(info.GetText(strOut, c.bHtml, "", "", "UTF-8", true, ""), c.bResult);
            EXPECT_EQ(strOut, strWant);
            EXPECT_EQ(info.GetLastError(), "No Text Msg");
            EXPECT_FALSE(info.GetText(strOut, c.bHtml, "", "", "UTF-8", true, "x"));
            EXPECT_EQ(strOut, "");
        }
    }
}

TEST(MsgInfoText, CharsetChain) {
    struct Case {
        const char* pszMessageCs; // field 14 of the first record
        const char* pszPartCs;    // field 14 of the text part
        const char* pszDefault;
        const char* pszForce;
        std::string strBody;
        std::string strWant;
    } cases[] = {
        {"", "euc-kr", "", "", "\xbe\xc8", "안"},
        {"", "utf-8", "", "",
         "a\xff"
         "b",
         "ab"}, // an invalid sequence is dropped
        {"", "'euc-kr'", "", "", "\xbe\xc8", "안"},
        {"", "X-UNKNOWN", "euc-kr", "", "\xbe\xc8", "안"},
        {"", "euc-kr", "", "x-unknown", "\xbe\xc8", "\xbe\xc8"}, // forced as it stands
        {"", "utf-8", "", "euc-kr", "\xbe\xc8", "안"},
        {"euc-kr", "", "iso-8859-1", "", "\xbe\xc8", "안"},
        {"", "", "euc-kr", "", "\xbe\xc8", "안"},
        {"", "iso-8859", "", "", "caf\xe9", "café"},
        {"", "Iso-8859", "", "", "caf\xe9", "caf\xe9"},
        {"", "no-such-charset", "", "", "caf\xe9", "caf\xe9"},
        // The converter of ISO-2022-KR is given the designation the body leaves out.
        {"", "ISO-2022-KR", "", "", "\x0e\x3e\x48\x0f", "안"},
        {"", "iso-2022-kr", "", "", "\x0e\x3e\x48\x0f", "안"},
    };
    CTempDir dir;
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.pszPartCs) + " " + c.pszForce);
        const Stored s = Store(dir, Mixed(Part("text/plain", c.strBody)));
        std::string strFormat = SetField(s.strFormat, 0, 14, c.pszMessageCs);
        strFormat = SetField(strFormat, 1, 14, c.pszPartCs);
        CQLMimeMsgInfo info(s.strPath, strFormat);
        std::string strOut;
        EXPECT_TRUE(info.GetText(strOut, false, c.pszDefault, c.pszForce, "UTF-8", true, ""));
        EXPECT_EQ(strOut, c.strWant);
    }
}

TEST(MsgInfoText, TransferDecodingAndNulCleaning) {
    struct Case {
        std::string strHeader;
        std::string strBody;
        bool bDecode;
        std::string strWant; // before the line end that closes the body
    } cases[] = {
        // NUL bytes become blanks, the very last byte excepted.
        {"Content-Transfer-Encoding: base64", "YQBiAA==", true, std::string("a b\0", 4)},
        {"Content-Transfer-Encoding: base64", "AAB4", true, "  x"},
        {"Content-Transfer-Encoding: base64", "YQBiAA==", false, "YQBiAA=="},
        {"Content-Transfer-Encoding: quoted-printable", "caf=C3=A9 =\nsoft", true, "café soft"},
        {"Content-Transfer-Encoding: quoted-printable", "caf=C3=A9", false, "caf=C3=A9"},
    };
    for (const Case& c : cases) {
        for (const auto& [strForm, strMsg] : BothForms("Content-Type: text/plain; charset=utf-8\n" +
                                                       c.strHeader + "\n\n" + c.strBody + "\n")) {
            SCOPED_TRACE(strForm + " " + c.strBody);
            CTempDir dir;
            const Stored s = Store(dir, strMsg);
            CQLMimeMsgInfo info(s.strPath, s.strFormat);
            std::string strOut;
            ASSERT_TRUE(info.GetText(strOut, false, "", "", "UTF-8", c.bDecode, ""));
            const std::string strEol = strForm == "LF" ? "\n" : "\r\n";
            if (c.strHeader.find("base64") != std::string::npos && c.bDecode)
                EXPECT_EQ(strOut, c.strWant);
            else
                EXPECT_EQ(strOut, c.strWant + strEol);
        }
    }
}

// A file that can't be opened or read fails the part; a converter that throws leaves the
// bytes unconverted.
TEST(MsgInfoText, FailuresOfOnePart) {
    CTempDir dir;
    const Stored s = Store(dir, "Content-Type: text/plain; charset=utf-8\n\n\xff\xfe body\n");
    CQLMimeMsgInfo info(s.strPath, s.strFormat);
    CQLMimeMsgInfo::CQLMimeMsgInfoItem item;
    item.Set(s.strFormat.c_str());
    std::string strOut = "kept:";
    ASSERT_TRUE(info.GetText(strOut, item, "", "autodetect_kr", "UTF-8", true));
    EXPECT_EQ(strOut, "kept:\xff\xfe body\n");
    EXPECT_EQ(info.GetLastError().rfind("In CQLMimeMsgInfo::GetText, In Conv", 0), 0u)
        << info.GetLastError();

    std::filesystem::remove(s.strPath);
    EXPECT_FALSE(info.GetText(strOut, item, "", "", "UTF-8", true));
    EXPECT_EQ(info.GetLastError().rfind("In CQLMimeMsgInfo::GetText, In Open(", 0), 0u);
    EXPECT_FALSE(info.GetText(strOut, false, "", "", "UTF-8", true, ""));
    EXPECT_EQ(info.GetLastError(), "No Text Msg");
    // A path that has become a directory opens, and fails at the read.
    std::filesystem::create_directory(s.strPath);
    EXPECT_FALSE(info.GetText(strOut, item, "", "", "UTF-8", true));
    EXPECT_EQ(info.GetLastError().rfind("In CQLMimeMsgInfo::GetText, In Read(", 0), 0u)
        << info.GetLastError();
    EXPECT_EQ(strOut, "");
}
