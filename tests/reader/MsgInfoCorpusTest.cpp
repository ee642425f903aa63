// Real mail: every message of the public corpus indexed once and read back through the facade.
#include "reader/ReaderTestUtil.h"

#include <filesystem>

namespace {

bool OnlyCRLF(const std::string& strBytes) {
    for (size_t i = 0; i < strBytes.size(); ++i)
        if (strBytes[i] == '\n' && (i == 0 || strBytes[i - 1] != '\r')) return false;
    return true;
}

// The number of parts whose size was checked against the stream.
size_t ReadBack(const std::string& strPath, bool bCRLF) {
    size_t nSized = 0;
    CQLMimeMsg msg;
    msg.Open(strPath, true);
    const std::string strFormat = msg.GetFormat();
    msg.Close();
    CQLMimeMsgInfo info(strPath, strFormat);
    std::string strOut;
    for (const char* pszName : {"Subject", "From", "To", "Date"})
        for (bool bDecode : {false, true})
            info.GetHeaderValue(pszName, strOut, bDecode, "euc-kr", "UTF-8", "");
    for (bool bHtml : {false, true}) info.GetText(strOut, bHtml, "euc-kr", "", "UTF-8", true, "");

    for (bool bCID : {false, true}) {
        info.InitAttachCursor();
        CQLMimeAttachInfo a;
        while (bCID ? info.GetNextCID(a, "euc-kr", "UTF-8", "")
                    : info.GetNextAttach(a, "euc-kr", "UTF-8", "")) {
            const size_t nStreamed = Joined(StreamBlocks(info, a, true)).size();
            // The stored line count of an enclosed message is its delimiter search's, not the
            // count of its body's lines, so only leaves are sized from it.
            if (bCRLF && a.m_nEncoding == 'B' && a.m_nContentType != CQLMimeConst::MESSAGE) {
                EXPECT_EQ(info.GetAttachContentSize(a, true), nStreamed) << a.m_strAttachId;
                ++nSized;
            }
        }
    }
    return nSized;
}

} // namespace

TEST(MsgInfoCorpus, EveryMessageReadsBack) {
    const std::filesystem::path corpus(QLMAIL_CORPUS_DIR);
    if (!std::filesystem::is_directory(corpus))
        GTEST_SKIP() << "no corpus at " << corpus << "; the robustness run needs it";
    size_t nMessages = 0, nSized = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(corpus)) {
        if (!entry.is_regular_file()) continue;
        const std::string strRel = entry.path().lexically_relative(corpus).string();
        if (strRel.rfind("LICENSES", 0) == 0 || strRel == "README.md" || strRel == "MANIFEST.tsv")
            continue;
        SCOPED_TRACE(strRel);
        ++nMessages;
        nSized +=
            ReadBack(entry.path().string(), OnlyCRLF(CTempDir::ReadAll(entry.path().string())));
    }
    EXPECT_GT(nMessages, 250u);
    EXPECT_GT(nSized, 20u);
}
