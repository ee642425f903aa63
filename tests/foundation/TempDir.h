#ifndef QLMAIL_TESTS_FOUNDATION_TEMPDIR_H
#define QLMAIL_TESTS_FOUNDATION_TEMPDIR_H

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

// A private directory under the system's temp dir, removed with everything in it.
class CTempDir {
public:
    CTempDir() : m_strDir(std::filesystem::temp_directory_path().string() + "/qlmail-test-XXXXXX") {
        if (mkdtemp(m_strDir.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
    }
    ~CTempDir() {
        std::error_code ec;
        std::filesystem::remove_all(m_strDir, ec);
    }
    CTempDir(const CTempDir&) = delete;
    CTempDir& operator=(const CTempDir&) = delete;

    const std::string& Dir() const { return m_strDir; }
    std::string Path(const std::string& strName) const { return m_strDir + "/" + strName; }

    // A new file with a unique name holding the given bytes; returns its full path.
    std::string MakeFile(const std::string& strContent) const {
        const std::string strPath = Path("f-" + std::to_string(++m_nFiles));
        std::ofstream(strPath, std::ios::binary) << strContent;
        return strPath;
    }

    static std::string ReadAll(const std::string& strPath) {
        std::ifstream in(strPath, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }

private:
    std::string m_strDir;
    mutable int m_nFiles = 0;
};

// Bytes that differ at every position modulo a prime, so misplaced blocks show up.
inline std::string PatternBytes(size_t nLen) {
    std::string str(nLen, '\0');
    for (size_t i = 0; i < nLen; ++i) str[i] = static_cast<char>('!' + i % 89);
    return str;
}

#endif
