#ifndef QLMAIL_TESTS_FOUNDATION_TEMPDIR_H
#define QLMAIL_TESTS_FOUNDATION_TEMPDIR_H

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <vector>

// A private directory under the system's temp dir, removed with everything in it.
class CTempDir {
public:
    CTempDir() {
        std::string strTemplate = std::filesystem::temp_directory_path().string();
        strTemplate += "/qlmail-test-XXXXXX";
        std::vector<char> vName(strTemplate.begin(), strTemplate.end());
        vName.push_back('\0');
        if (mkdtemp(vName.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
        m_strDir = vName.data();
    }
    ~CTempDir() {
        std::error_code ec;
        std::filesystem::remove_all(m_strDir, ec);
    }
    CTempDir(const CTempDir&) = delete;
    CTempDir& operator=(const CTempDir&) = delete;

    const std::string& Dir() const { return m_strDir; }
    std::string Path(const std::string& strName) const { return m_strDir + "/" + strName; }

    // A new file with a unique name (mkstemp) holding the given bytes; returns its full path.
    std::string MakeFile(const std::string& strContent) const {
        std::string strTemplate = m_strDir + "/f-XXXXXX";
        std::vector<char> vName(strTemplate.begin(), strTemplate.end());
        vName.push_back('\0');
        const int nFD = mkstemp(vName.data());
        if (nFD < 0) throw std::runtime_error("mkstemp failed");
        size_t nDone = 0;
        while (nDone < strContent.size()) {
            const ssize_t n = write(nFD, strContent.data() + nDone, strContent.size() - nDone);
            if (n <= 0) break;
            nDone += static_cast<size_t>(n);
        }
        close(nFD);
        return vName.data();
    }

    static std::string ReadAll(const std::string& strPath) {
        std::ifstream in(strPath, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }

private:
    std::string m_strDir;
};

// Bytes that differ at every position modulo a prime, so misplaced blocks show up.
inline std::string PatternBytes(size_t nLen) {
    std::string str(nLen, '\0');
    for (size_t i = 0; i < nLen; ++i) str[i] = static_cast<char>('!' + i % 89);
    return str;
}

#endif
