// What a part is called: charsets, Content-IDs and file names, with real charset conversion.
#include "mime/MimeTestUtil.h"

namespace {

const std::string kAnnyeongTxt = "\xEC\x95\x88\xEB\x85\x95.txt"; // "안녕.txt" in UTF-8

std::vector<Entry> Parse(const std::string& strMsg) {
    CQLMimeMsg msg;
    EXPECT_TRUE(msg.Open(strMsg, false)) << msg.GetLastError();
    return Entries(msg);
}

std::string Multipart(const std::string& strTopFields, const std::string& strParts) {
    return ToCRLF(strTopFields + "Content-Type: multipart/mixed; boundary=\"b\"\n\n" + strParts +
                  "--b--\n");
}

} // namespace

TEST(MimeIdentity, KoreanFileNames) {
    const std::vector<Entry> v = Parse(Multipart(
        "",
        // An RFC 2047 word in EUC-KR.
        "--b\nContent-Type: application/octet-stream\nContent-Disposition: attachment;\n"
        " filename=\"=?EUC-KR?B?vsiz5y50eHQ=?=\"\n\nx\n"
        // RFC 2231 with continuations, in UTF-8.
        "--b\nContent-Type: application/octet-stream\nContent-Disposition: attachment;\n"
        " filename*0*=UTF-8''%EC%95%88;\n filename*1*=%EB%85%95.txt\n\nx\n"
        // A raw EUC-KR name in the part's own charset.
        "--b\nContent-Type: text/plain; charset=euc-kr; name=\"\xBE\xC8\xB3\xE7.txt\"\n\nx\n"
        // Characters a file name must not hold.
        "--b\nContent-Type: application/pdf; name=\"a/b:c,d.txt\"\n\nx\n"));
    ASSERT_EQ(v.size(), 5u);
    EXPECT_EQ(v[1].filename, kAnnyeongTxt);
    EXPECT_EQ(v[2].filename, kAnnyeongTxt);
    EXPECT_EQ(v[3].filename, kAnnyeongTxt);
    EXPECT_EQ(v[3].charset, "euc-kr");
    EXPECT_EQ(v[4].filename, "a_b_c_d.txt");
}

TEST(MimeIdentity, Charsets) {
    // Quotes around the label go; x-unknown means UTF-8.
    EXPECT_EQ(Parse("Content-Type: text/plain; charset='euc-kr'\n\nx")[0].charset, "euc-kr");
    EXPECT_EQ(Parse("Content-Type: text/plain; charset=X-Unknown\n\nx")[0].charset, "UTF-8");
    // Parts inherit the charset of the top of the message.
    std::vector<Entry> v = Parse(ToCRLF("Content-Type: multipart/mixed; boundary=b; "
                                        "charset=ks_c_5601-1987\n\n--b\n\nx\n--b\nContent-Type: "
                                        "text/plain; charset=utf-8\n\ny\n--b--\n"));
    ASSERT_EQ(v.size(), 3u);
    EXPECT_EQ(v[1].charset, "ks_c_5601-1987");
    EXPECT_EQ(v[2].charset, "utf-8");
    // Without a label, the top takes the charset of its subject's encoded words, and passes
    // it down; a plain ASCII subject gives nothing.
    v = Parse(Multipart("Subject: =?EUC-KR?B?waa48Q==?= report\n", "--b\n\nx\n"));
    EXPECT_EQ(v[0].charset, "euc-kr");
    EXPECT_EQ(v[1].charset, "euc-kr");
    EXPECT_EQ(Parse("Subject: plain report\n\nx")[0].charset, "");
    EXPECT_EQ(Parse("From: a\n\nx")[0].charset, "");
    // Raw 8-bit subjects are left to statistical detection, which answers only when sure.
    const std::string strDetected =
        Parse("Subject: \xEC\x95\x88\xEB\x85\x95\xED\x95\x98\xEC\x84\xB8\xEC\x9A\x94 "
              "\xEC\x97\xAC\xEB\x9F\xAC\xEB\xB6\x84 \xEB\xB3\xB4\xEA\xB3\xA0\xEC\x84\x9C\xEC\x9E"
              "\x85\xEB\x8B\x88\xEB\x8B\xA4\n\nx")[0]
            .charset;
    EXPECT_TRUE(strDetected == "UTF-8" || strDetected.empty()) << strDetected;
    CQLMimeMsg msg;
    EXPECT_EQ(msg.DetectCharset("plain ascii text"), "");
    EXPECT_EQ(msg.DetectCharset(""), "");
    // Seven-bit ISO-2022-JP is found by its escapes.
    EXPECT_EQ(msg.DetectCharset("x\x1B$B;d\x1B(By"), "ISO-2022-JP");
}

TEST(MimeIdentity, UnnamedPartsAndCIDs) {
    const std::vector<Entry> v = Parse(Multipart(
        "", "--b\nContent-Type: text/plain\n\nunnamed text\n"
            "--b\nContent-Type: multipart/related; boundary=r\n\n--r\nContent-Type: image/gif\n"
            "Content-ID: <i1>\n\nGIF\n--r\nContent-Type: text/html\n\n<img src=cid:i1>\n--r--\n"));
    ASSERT_EQ(v.size(), 5u);
    EXPECT_EQ(v[1].filename, "");
    EXPECT_EQ(v[3].depth, "2.1.");
    EXPECT_EQ(v[3].filename, "noname_2.1");
    EXPECT_EQ(v[3].cid, "<i1>");
    EXPECT_EQ(Parse("Content-Type: application/pdf\n\n%PDF")[0].filename, "noname_");
}

TEST(MimeIdentity, AttachmentFlags) {
    struct Case {
        const char* pszFields;
        bool bAttach;
    } cases[] = {
        {"Content-Type: image/png; name=\"p.png\"\nContent-ID: <p>\n", false}, // inline picture
        {"Content-Type: application/x; name=\"p.PNG\"\nContent-ID: <p>\n", false},
        {"Content-Type: image/png; name=\"p.png\"\nContent-ID: <p>\n"
         "Content-Disposition: attachment\n",
         true},
        {"Content-Type: image/png; name=\"p.png\"\n", true},
        {"Content-Type: application/pdf; name=\"a.pdf\"\nContent-ID: <a>\n", true},
        {"Content-Type: text/plain\n", false},
    };
    for (const Case& c : cases) {
        CQLMimeMsg msg;
        ASSERT_TRUE(msg.Open(Multipart("", std::string("--b\n") + c.pszFields + "\nx\n"), false));
        EXPECT_EQ(msg[1]->m_bHasAttach, c.bAttach) << c.pszFields;
        EXPECT_EQ(msg.m_bHasAttach, c.bAttach) << c.pszFields;
    }
    CQLMimeMsg tnef;
    ASSERT_TRUE(tnef.Open(Multipart("", "--b\nContent-Type: application/ms-tnef\n\nx\n"), false));
    EXPECT_TRUE(tnef[1]->m_bTNEF);
    EXPECT_TRUE(tnef.m_bTNEF);
}

TEST(MimeIdentity, EmbeddedMessagesAreNamedFromTheirSubject) {
    const std::vector<Entry> v = Parse(Multipart(
        "", "--b\nContent-Type: message/rfc822\n\n\nSubject: =?UTF-8?B?7JWI64WVIOuztOqzoOyEnA==?=\n"
            "\nhello\n"
            "--b\nContent-Type: message/rfc822\nContent-Transfer-Encoding: base64\n\n"
            "U3ViamVjdDogYS9iCgpib2R5Cg==\n"
            "--b\nContent-Type: message/rfc822\n\nFrom: nobody\n\nno subject\n"
            "--b\nContent-Type: message/rfc822; name=\"kept.eml\"\n\nSubject: x\n\ny\n"));
    ASSERT_EQ(v.size(), 5u);
    EXPECT_EQ(v[1].filename, "\xEC\x95\x88\xEB\x85\x95 \xEB\xB3\xB4\xEA\xB3\xA0\xEC\x84\x9C.eml");
    EXPECT_EQ(v[2].filename, "a_b.eml");
    EXPECT_EQ(v[3].filename, "noname.eml");
    EXPECT_EQ(v[4].filename, "kept.eml");
}

TEST(MimeIdentity, NameHelpers) {
    CQLMimeMsg msg;
    EXPECT_EQ(msg.FixFilename("a/b\\c:d\"e*f<g>h|i?j,k"), "a_b_c_d_e_f_g_h_i_j_k");
    // A part's name loses what FixFilename replaces and the line breaks it decodes to.
    EXPECT_EQ(
        Parse("Content-Type: text/plain; name=\"=?UTF-8?B?YQ0KYjpjLHR4dA==?=\"\n\nx")[0].filename,
        "ab_c_txt");
    struct Case {
        const char* pszName;
        bool bImage;
    } cases[] = {{"x.JPG", true}, {"x.gif", true},   {"a.b.Png", true},
                 {"x.bmp", true}, {"x.jpeg", false}, {"x.tif", false},
                 {"jpg", false},  {"", false},       {"x.", false}};
    for (const Case& c : cases) EXPECT_EQ(msg.IsImageExtention(c.pszName), c.bImage) << c.pszName;
}
