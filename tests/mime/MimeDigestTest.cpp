// Every message we have, parsed in memory and from its file, gives the Open result, last error
// and format string recorded in format-digests.tsv. The list was made by an earlier build, so a
// change of any parse result anywhere shows up here.
//
// Sets: the public corpus (QLMAIL_CORPUS_DIR), the peer corpus (the directory in the
// environment variable QLMAIL_PEER_CORPUS, made by ../shared/peers/gen_corpus.py), the samples
// and the message fuzz seeds. A set whose directory is absent is skipped with a message.
// QLMAIL_WRITE_DIGESTS=FILE writes the list of the present sets from this build instead.
#include "mime/MimeTestUtil.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>

namespace {

namespace fs = std::filesystem;

std::string Hex64(uint64_t n) {
    char sz[17];
    snprintf(sz, sizeof(sz), "%016llx", static_cast<unsigned long long>(n));
    return sz;
}

// FNV-1a over the Open result, the last error and the format string.
std::string Digest(CQLMimeMsg& msg, bool bOpen) {
    uint64_t h = 0xcbf29ce484222325ull;
    auto add = [&h](const std::string& s) {
        for (unsigned char c : s) h = (h ^ c) * 0x100000001b3ull;
        h = (h ^ 0xff) * 0x100000001b3ull; // separator
    };
    add(bOpen ? "1" : "0");
    add(msg.GetLastError());
    add(msg.GetFormat());
    return Hex64(h);
}

struct Set {
    std::string strName;
    fs::path dir;
};

std::vector<Set> PresentSets(std::vector<std::string>& vSkipped) {
    std::vector<Set> vSets;
    auto add = [&](const std::string& strName, const fs::path& dir) {
        if (fs::is_directory(dir))
            vSets.push_back(Set{strName, dir});
        else
            vSkipped.push_back(strName + " (no directory " + dir.string() + ")");
    };
    add("corpus", QLMAIL_CORPUS_DIR);
    const char* pszPeer = std::getenv("QLMAIL_PEER_CORPUS");
    if (pszPeer != nullptr && *pszPeer != '\0')
        add("peer", pszPeer);
    else
        vSkipped.push_back("peer (QLMAIL_PEER_CORPUS not set)");
    add("samples", fs::path(QLMAIL_SOURCE_DIR) / "samples");
    add("seeds", fs::path(QLMAIL_SOURCE_DIR) / "fuzz" / "seeds" / "message");
    return vSets;
}

bool IsMessageFile(const std::string& strRel) {
    return strRel.rfind("LICENSES", 0) != 0 && strRel != "README.md" &&
           strRel.find("MANIFEST.tsv") == std::string::npos;
}

// "set/relative path" to "memory digest<TAB>file digest", for every message of the set.
void DigestSet(const Set& set, std::map<std::string, std::string>& mOut) {
    for (const auto& entry : fs::recursive_directory_iterator(set.dir)) {
        if (!entry.is_regular_file()) continue;
        const std::string strRel = entry.path().lexically_relative(set.dir).string();
        if (!IsMessageFile(strRel)) continue;
        const std::string strBytes = CTempDir::ReadAll(entry.path().string());
        std::string strLine;
        {
            CQLMimeMsg msg;
            const bool bOpen = msg.Open(strBytes, false);
            strLine = Digest(msg, bOpen);
        }
        CQLMimeMsg msg;
        const bool bOpen = msg.Open(entry.path().string(), true);
        mOut[set.strName + "/" + strRel] = strLine + "\t" + Digest(msg, bOpen);
    }
}

std::map<std::string, std::string> ReadList(const std::string& strPath) {
    std::map<std::string, std::string> mList;
    std::ifstream in(strPath);
    std::string strLine;
    while (std::getline(in, strLine)) {
        if (strLine.empty() || strLine[0] == '#') continue;
        const size_t nTab = strLine.find('\t');
        if (nTab != std::string::npos) mList[strLine.substr(0, nTab)] = strLine.substr(nTab + 1);
    }
    return mList;
}

} // namespace

TEST(MimeDigest, FormatStringsOfEveryMessageStayAsRecorded) {
    std::vector<std::string> vSkipped;
    const std::vector<Set> vSets = PresentSets(vSkipped);
    std::map<std::string, std::string> mNow;
    for (const Set& set : vSets) DigestSet(set, mNow);

    if (const char* pszOut = std::getenv("QLMAIL_WRITE_DIGESTS")) {
        std::ofstream out(pszOut);
        out << "# message\tmemory\tfile (FNV-1a of Open result, last error, format string)\n";
        for (const auto& [strKey, strValue] : mNow) out << strKey << '\t' << strValue << '\n';
        GTEST_SKIP() << "wrote " << mNow.size() << " digests to " << pszOut;
    }

    const std::map<std::string, std::string> mList =
        ReadList(std::string(QLMAIL_SOURCE_DIR) + "/tests/mime/format-digests.tsv");
    ASSERT_FALSE(mList.empty()) << "no stored digests";
    size_t nChecked = 0;
    for (const auto& [strKey, strValue] : mList) {
        const std::string strSet = strKey.substr(0, strKey.find('/'));
        const bool bPresent = std::any_of(vSets.begin(), vSets.end(),
                                          [&](const Set& s) { return s.strName == strSet; });
        if (!bPresent) continue;
        auto it = mNow.find(strKey);
        if (it == mNow.end()) {
            ADD_FAILURE() << strKey << " is listed but missing";
            continue;
        }
        EXPECT_EQ(it->second, strValue) << strKey << " (memory, file)";
        ++nChecked;
    }
    std::ostringstream note;
    note << nChecked << " messages checked in both modes";
    for (const auto& [strKey, strValue] : mNow)
        if (mList.count(strKey) == 0) note << "; not listed: " << strKey;
    for (const std::string& s : vSkipped) note << "; skipped " << s;
    std::cout << note.str() << std::endl;
    EXPECT_GT(nChecked, 0u);
}
