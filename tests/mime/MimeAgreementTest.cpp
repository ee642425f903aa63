// A message parsed from a file gives the tree it gives in memory, and every message of the
// public corpus opens, round-trips and reads without harm.
#include "mime/MimeTestUtil.h"

#include <filesystem>
#include <sstream>

namespace {

// Leaf line counts: memory counts the byte behind the body, a file does not.
int FileLines(const Entry& memEntry, const std::string& strBytes) {
    const bool bLF = memEntry.beo < strBytes.size() && strBytes[memEntry.beo] == '\n';
    return memEntry.lines - (bLF ? 1 : 0);
}

std::vector<std::string> HdrItems(const CQLMimeHdr& hdr) {
    std::vector<std::string> v;
    for (const CQLMimeHdrItem& item : hdr) {
        v.push_back(item.m_strName);
        v.push_back(item.m_strValue);
        v.push_back(item.m_strRaw);
    }
    return v;
}

void CheckAgreement(const std::string& strName, const std::string& strBytes, const CTempDir& dir,
                    bool bExactLines) {
    CQLMimeMsg mem, file;
    const bool bMem = mem.Open(strBytes, false);
    const std::string strPath = dir.MakeFile(strBytes);
    const bool bFile = file.Open(strPath, true);
    ASSERT_EQ(bMem, bFile) << strName << ": " << mem.GetLastError() << " / " << file.GetLastError();
    const std::vector<Entry> vMem = Entries(mem), vFile = Entries(file);
    ExpectSameEntries(vMem, vFile, false, strName);
    for (size_t i = 0; i < mem.size() && i < file.size(); ++i)
        EXPECT_EQ(HdrItems(mem[i]->m_Hdr), HdrItems(file[i]->m_Hdr)) << strName << " entry " << i;
    if (bExactLines && vMem.size() == vFile.size()) {
        for (size_t i = 0; i < vMem.size(); ++i) {
            if (vMem[i].ct == CQLMimeConst::MULTIPART || vMem[i].ct == CQLMimeConst::MESSAGE)
                continue;
            if (vMem[i].bso == 0 && vMem[i].beo == 0) continue;
            if (i == 0 && vMem[i].tso == 0 && vMem[i].teo == 0) continue; // header only
            EXPECT_EQ(vFile[i].lines, FileLines(vMem[i], strBytes)) << strName << " entry " << i;
        }
    }
    // The file's format string rebuilds the same list from the file.
    const std::string strFormat = file.GetFormat();
    CQLMimeMsg rebuilt;
    ASSERT_TRUE(rebuilt.Open(strPath.c_str(), 0, strFormat.c_str(), true, true, true));
    EXPECT_EQ(rebuilt.GetFormat(), strFormat) << strName;
    // Bodies read alike, raw and decoded.
    for (size_t i = 0; i < mem.size() && i < file.size(); ++i) {
        for (bool bDecode : {false, true}) {
            std::string strMem, strFile;
            mem[i]->GetBody(strMem, bDecode);
            file[i]->GetBody(strFile, bDecode);
            EXPECT_EQ(strMem, strFile) << strName << " entry " << i;
        }
    }
    std::string strSaved;
    file.Save(strSaved);
    EXPECT_EQ(strSaved, strBytes) << strName;
}

} // namespace

TEST(MimeAgreement, FileAndMemoryGiveTheSameTree) {
    CTempDir dir;
    for (const NamedMessage& m : TestMessages()) CheckAgreement(m.strName, m.strBytes, dir, true);
}

TEST(MimeAgreement, HeaderLinesEndingInStrayCarriageReturns) {
    // Only the line end comes off a field: a CR before it stays, in both sources.
    CTempDir dir;
    for (const char* pszEnd : {"\r\r\n", "\r\r\r\n", "\r", "\n\r", "\r\n", "\n"}) {
        const std::string strEnd = pszEnd;
        const std::string strMsg = "Content-Type: text/plain" + strEnd + "Content-ID: <a>" +
                                   strEnd + "Subject: s" + strEnd + "\r\n\r\nbody\r\n";
        CheckAgreement("line end " + ::testing::PrintToString(strEnd), strMsg, dir, false);
    }
    CQLMimeMsg msg;
    ASSERT_TRUE(msg.Open("Content-Type: text/plain\r\nContent-ID: <a>\r\r\n\r\nbody\r\n", false));
    EXPECT_EQ(msg[0]->m_strCID, "<a>\r");
}

TEST(MimeAgreement, AReusedObjectReadsAFileAsAFreshOneDoes) {
    // The first file leaves delimiter-like lines where the second one's search buffer ends;
    // they must not count as lines of the second file's embedded message.
    std::string strFirst = "Content-Type: multipart/mixed; boundary=zz\r\n\r\n--zz\r\n\r\n";
    while (strFirst.size() < 3000) strFirst += "x\r\n";
    strFirst += "\r\n--zz--\r\n";
    while (strFirst.size() < 9000) strFirst += "epilogue\r\n--zzX\r\n";
    const std::string strSecond = "Content-Type: multipart/mixed; boundary=zz\r\n\r\n--zz\r\n"
                                  "Content-Type: message/rfc822\r\n\r\nSubject: in\r\n\r\nbody\r\n";
    CTempDir dir;
    const std::string strA = dir.MakeFile(strFirst), strB = dir.MakeFile(strSecond);
    CQLMimeMsg fresh, reused;
    ASSERT_TRUE(fresh.Open(strB, true));
    ASSERT_TRUE(reused.Open(strA, true));
    ASSERT_TRUE(reused.Open(strB, true));
    EXPECT_EQ(reused.GetFormat(), fresh.GetFormat());
}

TEST(MimeAgreement, BodiesFullOfDashLines) {
    // Lines that begin like delimiters, nested and in the tens of thousands: a memory parse
    // past its limit for indexing them searches directly, with the same result.
    CTempDir dir;
    for (size_t nLines : {10u, 70000u}) {
        std::string strDashes;
        for (size_t i = 0; i < nLines; ++i) strDashes += i % 2 ? "--o-not\n" : "--ix\n-\n";
        const std::string strMsg =
            "Content-Type: multipart/mixed; boundary=o\n\n--o\nContent-Type: multipart/"
            "alternative; boundary=i\n\n--i\n\n" +
            strDashes + "--i\n\nsecond\n--i--\n--o\n\n" + strDashes + "--o--\n";
        CheckAgreement("dash lines " + std::to_string(nLines), strMsg, dir, true);
        CheckAgreement("dash lines crlf " + std::to_string(nLines), ToCRLF(strMsg), dir, true);
    }
}

TEST(MimeAgreement, PublicCorpus) {
    const std::filesystem::path corpus(QLMAIL_CORPUS_DIR);
    if (!std::filesystem::is_directory(corpus))
        GTEST_SKIP() << "no corpus at " << corpus << "; the robustness run needs it";
    CTempDir dir;
    size_t nMessages = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(corpus)) {
        if (!entry.is_regular_file()) continue;
        const std::string strRel = entry.path().lexically_relative(corpus).string();
        if (strRel.rfind("LICENSES", 0) == 0 || strRel == "README.md" || strRel == "MANIFEST.tsv")
            continue;
        const std::string strBytes = CTempDir::ReadAll(entry.path().string());
        if (strBytes.empty()) continue;
        ++nMessages;
        CheckAgreement(strRel, strBytes, dir, false);
        CQLMimeMsg msg;
        msg.Open(entry.path().string(), true);
        std::ostringstream out;
        for (CQLMimeMsg* p : msg) {
            p->GetBody(out, true);
            p->GetBody(out, false);
            p->GetMIME(out);
            p->GetHdr(out);
        }
    }
    EXPECT_GT(nMessages, 250u);
}
