// Japanese Windows mail labelled Shift_JIS, read through the facade: NEC row 13, IBM
// extensions and backslashes come out whole in the subject, file names and both bodies.
#include "reader/ReaderTestUtil.h"

namespace {

std::string Part(const std::string& strBoundary, const std::string& strFields,
                 const std::string& strBody) {
    return "--" + strBoundary + "\n" + strFields + "\n\n" + strBody + "\n";
}

} // namespace

TEST(Cp932, SubjectFileNamesAndBodies) {
    const std::string strMsg =
        // ①Ⅴ㈱ C:\dir ㍻
        "Subject: =?Shift_JIS?B?h0CHWIeKIEM6XGRpciCHfg==?=\n"
        "Content-Type: multipart/mixed; boundary=b\n\n" +
        Part("b", "Content-Type: multipart/alternative; boundary=c",
             // ㈱ソテ C:\dir ①, where ソ is 83 5C
             Part("c", "Content-Type: text/plain; charset=shift_jis",
                  "\x87\x8A\x83\x5C\x83\x65 C:\\dir \x87\x40") +
                 // <p>Ⅴ \ 髙</p>
                 Part("c",
                      "Content-Type: text/html; charset=\"x-sjis\"\n"
                      "Content-Transfer-Encoding: base64",
                      "PHA+h1ggXCD7/DwvcD4=") +
                 "--c--") +
        // 表№\㎏.txt, where 表 is 95 5C; the backslash is no file name character
        Part("b",
             "Content-Type: application/octet-stream\n"
             "Content-Disposition: attachment; filename=\"=?MS_Kanji?B?lVyHglyHcy50eHQ=?=\"",
             "data") +
        // ①℡.txt in raw bytes, read in the part's charset
        Part("b",
             "Content-Type: application/octet-stream; charset=sjis; name=\"\x87\x40\x87\x84.txt\"",
             "data") +
        "--b--\n";
    for (const auto& [strForm, strBytes] : BothForms(strMsg)) {
        SCOPED_TRACE(strForm);
        CTempDir dir;
        const Stored s = Store(dir, strBytes);
        CQLMimeMsgInfo info(s.strPath, s.strFormat);
        std::string strOut;
        EXPECT_TRUE(info.GetHeaderValue("Subject", strOut, true, "", "UTF-8", ""));
        EXPECT_EQ(strOut, "\xE2\x91\xA0\xE2\x85\xA4\xE3\x88\xB1 C:\\dir \xE3\x8D\xBB");

        EXPECT_TRUE(info.GetText(strOut, false, "", "", "UTF-8", true, ""));
        EXPECT_EQ(strOut, "\xE3\x88\xB1\xE3\x82\xBD\xE3\x83\x86 C:\\dir \xE2\x91\xA0" +
                              std::string(strForm == "LF" ? "" : "\r\n"));
        EXPECT_TRUE(info.GetText(strOut, true, "", "", "UTF-8", true, ""));
        EXPECT_EQ(strOut, "<p>\xE2\x85\xA4 \\ \xE9\xAB\x99</p>");

        info.InitAttachCursor();
        CQLMimeAttachInfo a;
        ASSERT_TRUE(info.GetNextAttach(a, "", "UTF-8", ""));
        EXPECT_EQ(a.m_strFileName, "\xE8\xA1\xA8\xE2\x84\x96_\xE3\x8E\x8F.txt");
        ASSERT_TRUE(info.GetNextAttach(a, "", "UTF-8", ""));
        EXPECT_EQ(a.m_strFileName, "\xE2\x91\xA0\xE2\x84\xA1.txt");
        EXPECT_FALSE(info.GetNextAttach(a, "", "UTF-8", ""));
    }
}
