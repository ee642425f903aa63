// Header fields of one parse reused by the next parse of the same thread: what a field held
// before must never show through.
#include "mime/MimeTestUtil.h"

#include <thread>

namespace {

struct Field {
    std::string name, value, raw, error;
    bool operator==(const Field& o) const {
        return name == o.name && value == o.value && raw == o.raw && error == o.error;
    }
};

// Every header of every part, with the attachment flag of each header block.
std::vector<Field> Fields(const std::string& strData, bool bFile) {
    CQLMimeMsg msg;
    std::vector<Field> v;
    if (!msg.Open(strData, bFile)) return v;
    for (const CQLMimeMsg* pPart : msg) {
        for (const CQLMimeHdrItem& item : pPart->m_Hdr)
            v.push_back({item.m_strName, item.m_strValue, item.m_strRaw, item.GetLastError()});
        v.push_back({"attachment", pPart->m_Hdr.m_bAttachment ? "1" : "0", "", ""});
    }
    return v;
}

// The same in a thread of its own, which has nothing to reuse.
std::vector<Field> FreshFields(const std::string& strData, bool bFile) {
    std::vector<Field> v;
    std::thread([&] { v = Fields(strData, bFile); }).join();
    return v;
}

} // namespace

TEST(MimeHdrReuse, FieldsOfAnEarlierParseLeaveNothingBehind) {
    const std::string strLong(400, 'v');
    const std::string strBefore =
        "Subject: a rather long subject line that fills the field\r\n"
        "X-Long: " +
        strLong +
        "\r\n"
        "Content-Type: multipart/mixed; boundary=b\r\n\r\n"
        "--b\r\nContent-Disposition: attachment; filename=a.bin\r\n"
        "Content-Type: application/octet-stream; name=\"some fairly long name.bin\"\r\n\r\n"
        "x\r\n--b--\r\n";
    // Fields that are shorter, empty, one blank, without colon or folded, in either line end.
    const std::vector<std::string> vAfter = {
        "A: 1\n\nbody\n",
        "X-Empty:\r\nY: \r\nZ:  two blanks\r\n\r\n",
        "Subject: folded\r\n  on two lines\r\nbroken line\r\n\r\nb",
        "Content-Disposition: inline\nContent-Type: text/plain\n\nb",
        "Content-Type: multipart/mixed; boundary=q\n\n--q\nB: 2\n\nx\n--q--\n",
    };
    CTempDir dir;
    for (bool bFile : {false, true}) {
        for (const std::string& strAfter : vAfter) {
            const std::string strIn = bFile ? dir.MakeFile(strBefore) : strBefore;
            const std::string strOut = bFile ? dir.MakeFile(strAfter) : strAfter;
            const std::vector<Field> vExpected = FreshFields(strOut, bFile);
            ASSERT_FALSE(vExpected.empty()) << strAfter;
            // Twice, so that the second parse reuses the fields of the first.
            for (int i = 0; i < 2; ++i) {
                EXPECT_FALSE(Fields(strIn, bFile).empty());
                EXPECT_TRUE(Fields(strOut, bFile) == vExpected) << strAfter << " file " << bFile;
            }
        }
    }
}

TEST(MimeHdrReuse, HeadersOutliveTheThreadThatParsedThem) {
    // Kept by another thread once their own has ended, and still whole.
    CQLMimeHdr hdr;
    std::thread([&] {
        CQLMimeStr src;
        src.SetData("A: 1\r\nB: 2\r\n\r\nbody", false);
        CQLMimeHdr local;
        local.Parse(&src, 0);
        hdr = local;
    }).join();
    ASSERT_EQ(hdr.size(), 2u);
    EXPECT_EQ(hdr.back().m_strValue, "2");
    const std::vector<Field> v = Fields("C: 3\r\n\r\nx", false);
    ASSERT_FALSE(v.empty());
    EXPECT_EQ(v.front().value, "3");
}

TEST(MimeHdrReuse, AHeaderParsedAgainAfterInitCountsOnlyItsNewLines) {
    CQLMimeStr src;
    src.SetData("A: 1\r\n 2\r\nB: 3\r\n\r\nbody", false);
    CQLMimeHdr hdr;
    hdr.Parse(&src, 0);
    ASSERT_EQ(hdr.m_nLineCnt, 3);
    hdr.Init();
    EXPECT_TRUE(hdr.empty());
    EXPECT_EQ(hdr.m_nLineCnt, 0);
    hdr.Parse(&src, 0);
    EXPECT_EQ(hdr.size(), 2u);
    EXPECT_EQ(hdr.m_nLineCnt, 3);
}
