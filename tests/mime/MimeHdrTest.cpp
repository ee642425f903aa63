// Header blocks: the tolerant line scanner, content types and parameters.
#include "codec/QLHdrCodec.h"
#include "mime/MimeTestUtil.h"

namespace {

using CT = CQLMimeConst;

CQLMimeHdr ParseHdr(const std::string& strText, unsigned long* pnEnd = nullptr) {
    CQLMimeStr src;
    src.SetData(strText, false);
    CQLMimeHdr hdr;
    const unsigned long nEnd = hdr.Parse(&src, 0);
    if (pnEnd) *pnEnd = nEnd;
    return hdr;
}

CQLMimeHdrItem Field(const std::string& strValue) {
    return CQLMimeHdrItem("X", strValue, "");
}

} // namespace

TEST(MimeHdr, BlocksAndFields) {
    unsigned long nEnd = 0;
    // Blank first line, or a first line without colon or starting with a blank: empty block.
    for (const char* psz : {"\r\nbody", "\nbody", "no colon here\n\n", " Subject: x\n\n"}) {
        CQLMimeHdr hdr = ParseHdr(psz, &nEnd);
        EXPECT_TRUE(hdr.empty()) << psz;
        EXPECT_EQ(nEnd, 0u) << psz;
        EXPECT_EQ(hdr.m_nHdrEnd, hdr.m_nHdrStart);
    }
    // A CR without LF is no empty line: here it is trimmed off the field's name.
    ASSERT_EQ(ParseHdr("\rX: 1\n\n").size(), 1u);
    EXPECT_EQ(ParseHdr("\rX: 1\n\n").front().m_strName, "X");

    // A line without colon belongs to the field before; one beginning with white space too,
    // colon or not; a TAB at the start of the first line is not a blank.
    CQLMimeHdr hdr = ParseHdr("Subject: a\r\nbroken line\r\nTo: b\r\n\tY: 2\r\n\r\nbody", &nEnd);
    ASSERT_EQ(hdr.size(), 2u);
    EXPECT_EQ(hdr.front().m_strValue, "a\r\nbroken line");
    EXPECT_EQ(hdr.back().m_strName, "To");
    EXPECT_EQ(hdr.back().m_strRaw, "To: b\r\n\tY: 2");
    EXPECT_EQ(hdr.m_nLineCnt, 4);
    EXPECT_EQ(nEnd, 39u);
    EXPECT_EQ(ParseHdr("\tX: 1\n\n").size(), 1u);

    // Line ends: CR LF and a lone CR go, a bare LF stays; blanks but not tabs are skipped.
    struct Case {
        const char *pszText, *pszName, *pszValue, *pszRaw;
    } cases[] = {
        {"A: 1\r\n", "A", "1", "A: 1"},      {"A: 1\n", "A", "1\n", "A: 1\n"},
        {"A :\t 1", "A", "\t 1", "A :\t 1"}, {"A:   1", "A", "1", "A:   1"},
        {"Name:", "Name", "", "Name:"},      {"Name: ", "Name", " ", "Name: "},
        {"Name:  ", "Name", "", "Name:  "},
    };
    for (const Case& c : cases) {
        CQLMimeHdr one = ParseHdr(c.pszText);
        ASSERT_EQ(one.size(), 1u) << c.pszText;
        EXPECT_EQ(one.front().m_strName, c.pszName);
        EXPECT_EQ(one.front().m_strValue, c.pszValue) << c.pszText;
        EXPECT_EQ(one.front().m_strRaw, c.pszRaw);
    }
    CQLMimeHdr byHand;
    byHand.AddHdrItem("B: 2\r", 1);
    EXPECT_EQ(byHand.back().m_strValue, "2");
    EXPECT_EQ(byHand.Encode("x", "UTF-8", true, 10), "");
}

TEST(MimeHdr, LookupsAndAttachmentFlag) {
    CQLMimeHdr hdr = ParseHdr("Received: a\nreceived: b\nContent-Disposition:   ATTACHMENT; x=1\n"
                              "Subject: s\n\n");
    EXPECT_EQ(hdr.GetCount(nullptr, 0), 4);
    EXPECT_EQ(hdr.GetCount("RECEIVED", 8), 2);
    EXPECT_EQ(hdr.GetCount("Receive", 7), 0);
    ASSERT_NE(hdr.FindHdrItem("subject", 7), nullptr);
    EXPECT_EQ(hdr.FindHdrItem("subject", 7)->m_strValue, "s\n");
    EXPECT_EQ(hdr.FindHdrItem(nullptr, 0), nullptr);
    EXPECT_TRUE(hdr.m_bAttachment);
    EXPECT_FALSE(ParseHdr("Content-Disposition: attachment\n\n").m_bAttachment);
    EXPECT_FALSE(ParseHdr("Content-Disposition: inline; attachment;\n\n").m_bAttachment);
}

TEST(MimeHdr, ContentTypeAndEncoding) {
    struct Case {
        const char* pszFields;
        CT::CT ct;
        CT::SUBCT subct;
        CT::ENCODER enc;
    } cases[] = {
        {"", CT::AUDIO, CT::GIF, CT::ENCODER_BINARY}, // nothing found: the caller's values
        {"Content-Type: TEXT/HTML\n", CT::TEXT, CT::HTML, CT::ENCODER_BINARY},
        {"Content-Type: multipart/mixed; boundary=x\n", CT::MULTIPART, CT::MIXED,
         CT::ENCODER_BINARY},
        {"Content-Type: text\n", CT::TEXT, CT::GIF, CT::ENCODER_BINARY},
        {"Content-Type: foo/bar\n", CT::CT_UNKNOWN, CT::SUBCT_UNKNOWN, CT::ENCODER_BINARY},
        {"Content-Type: textual/x\n", CT::TEXT, CT::SUBCT_UNKNOWN, CT::ENCODER_BINARY},
        {"Content-Type: message/rfc822-headers\n", CT::MESSAGE, CT::RFC822_HEADERS,
         CT::ENCODER_BINARY},
        {"Content-Type: application/ms-tnef\n", CT::APPLICATION, CT::MS_TNEF, CT::ENCODER_BINARY},
        {"Content-Type: image/jpeg\nContent-Type: text/plain\n", CT::IMAGE, CT::JPEG,
         CT::ENCODER_BINARY},
        {"Content-Transfer-Encoding:  Quoted-Printable \n", CT::AUDIO, CT::GIF, CT::ENCODER_QP},
        {"Content-Transfer-Encoding: quoted-printablX\n", CT::AUDIO, CT::GIF, CT::ENCODER_7BIT},
        {"Content-Transfer-Encoding: BASE64\n", CT::AUDIO, CT::GIF, CT::ENCODER_BASE64},
        {"Content-Transfer-Encoding: binary\n", CT::AUDIO, CT::GIF, CT::ENCODER_BINARY},
        {"Content-Transfer-Encoding: base65\n", CT::AUDIO, CT::GIF, CT::ENCODER_BINARY},
        {"Content-Transfer-Encoding: 8bit\n", CT::AUDIO, CT::GIF, CT::ENCODER_8BIT},
        {"Content-Transfer-Encoding: bit7\n", CT::AUDIO, CT::GIF, CT::ENCODER_BINARY},
        {"Content-Transfer-Encoding: x-uuencode\n", CT::AUDIO, CT::GIF, CT::ENCODER_7BIT},
        {"Content-Transfer-Encoding: 8bit\nContent-Transfer-Encoding: base64\n", CT::AUDIO, CT::GIF,
         CT::ENCODER_8BIT},
    };
    for (const Case& c : cases) {
        CQLMimeHdr hdr = ParseHdr(std::string(c.pszFields) + "\n");
        CT::CT ct = CT::AUDIO;
        CT::SUBCT subct = CT::GIF;
        CT::ENCODER enc = CT::ENCODER_BINARY;
        hdr.GetContentType(ct, subct, enc);
        EXPECT_EQ(ct, c.ct) << c.pszFields;
        EXPECT_EQ(subct, c.subct) << c.pszFields;
        EXPECT_EQ(enc, c.enc) << c.pszFields;
    }
    EXPECT_EQ(ParseHdr("Content-Type: multipart/mixed;\n boundary=\"=_x_=\"\n\n").GetBoundary(),
              "=_x_=");
    EXPECT_EQ(ParseHdr("Subject: x\n\n").GetBoundary(), "");
}

TEST(MimeHdr, Parameters) {
    struct Case {
        const char *pszValue, *pszName, *pszResult;
    } cases[] = {
        {"text/plain; charset=\"euc-kr\"", "charset", "euc-kr"},
        {"text/plain; CHARSET = utf-8 ;", "charset", "utf-8"},
        {"text/plain; name=\"a;b.txt\"", "name", "a"}, // cut before quotes are looked at
        {"x; filename=x", "name", ""},                 // compared from the first byte
        {"x; names=x", "name", ""},                    // neither equal nor followed by "*"
        {"x; name", "name", ""},
        {"", "name", ""},
        {"x; name=\"=?UTF-8?B?7JWI?=\"", "name", "=?UTF-8?B?7JWI?="},
        {"x; name=\"long\r\n\t name\"", "name", "longname"},
        {"x; name=\"\"\"q\"\"\"", "name", "q"},
        {"x; name=\"\"\"\"", "name", ""},
        // RFC 2231: joined continuations, percent-decoded, as an encoded word with a charset.
        {"x; filename*=UTF-8''%EC%95%88.txt", "filename", "=?UTF-8?B?7JWILnR4dA==?="},
        {"x; filename*0*=utf-8''%EC%95;\r\n filename*1*=%88.txt", "filename",
         "=?utf-8?B?7JWILnR4dA==?="},
        {"x; filename*0=\"a\"; filename*1=\"b\"", "filename", "ab"},
        {"x; filename*=plain%20name", "filename", "plain name"},
        // A ";" that ends the value is not joined; one before it is.
        {"x; filename*=plain%20name;", "filename", "plain name"},
        {"x; filename*=a;;", "filename", "a;"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(
            Field(c.pszValue).GetParameter(c.pszName, static_cast<unsigned>(strlen(c.pszName))),
            c.pszResult)
            << c.pszValue;
    }
    EXPECT_EQ(Field("x").GetParameter(nullptr, 0), "");
    EXPECT_EQ(Field("text/plain; charset=x").GetSubType(), "plain");
    EXPECT_EQ(Field("text/plain").GetSubType(), "");
    EXPECT_EQ(Field("text; a=b/c;").GetSubType(), "c");
}

TEST(MimeHdr, DecodesValues) {
    CQLMimeHdr hdr;
    EXPECT_EQ(hdr.Decode("", "UTF-8", true, true), "");
    EXPECT_EQ(hdr.Decode("=?EUC-KR?B?vsiz5w==?= <a@b>", "UTF-8", false, false),
              "\xEC\x95\x88\xEB\x85\x95 <a@b>");
    // The two flags add the angle-bracket and double-quote clean-ups of the codec.
    EXPECT_EQ(hdr.Decode("\"Kim\" <a@b>", "UTF-8", false, true),
              CQLHdrCodec().Decode("\"Kim\" <a@b>", "UTF-8", "", CQLHdrCodec::O_TRIM_DQ));
    EXPECT_EQ(hdr.Decode("<a@b>", "UTF-8", true, false),
              CQLHdrCodec().Decode("<a@b>", "UTF-8", "", CQLHdrCodec::O_CONV_LTGT));
}

TEST(MimeHdr, FileAndMemoryReadTheSameBlock) {
    CTempDir dir;
    std::string strHdr;
    // Field lines crossing the file source's read-ahead edges.
    for (int i = 0; i < 3000; ++i) strHdr += "X-F" + std::to_string(i) + ": value\n continued\n";
    strHdr += "Last: field";
    for (const std::string& s : {strHdr, ToCRLF(strHdr), strHdr + "\n\nbody"}) {
        CQLMimeStr mem;
        mem.SetData(s, false);
        CQLMimeFile file;
        ASSERT_TRUE(file.SetData(dir.MakeFile(s), true));
        CQLMimeHdr a, b;
        EXPECT_EQ(a.Parse(&mem, 0), b.Parse(&file, 0));
        ASSERT_EQ(a.size(), b.size());
        EXPECT_EQ(a.m_nLineCnt, b.m_nLineCnt);
        EXPECT_EQ(a.back().m_strRaw, b.back().m_strRaw);
        EXPECT_EQ(a.front().m_strRaw, b.front().m_strRaw);
    }
    CQLMimeHdr hdr;
    EXPECT_EQ(hdr.Parse(nullptr, 0), static_cast<unsigned long>(-1));
    EXPECT_EQ(hdr.GetLastError(), "In Parse(), Invalid pMimeStr");
    EXPECT_THROW(hdr.ParseMem(nullptr, 0), CQLMimeHdr);
    EXPECT_THROW(hdr.ParseFile(nullptr, 0), CQLMimeHdr);
    EXPECT_EQ(hdr.GetLastError(), "In ParseFile(), Invalid pMimeStr");
}
