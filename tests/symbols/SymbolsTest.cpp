// The dynamic symbols of the built libqlmail.so, held against exported.txt: the library may
// export the members, type information and virtual tables of the listed classes, the listed
// Java natives, and the standard library's templates that it instantiates (weak, so that
// the program's own copies win). Anything else is an internal that got out.
#include <gtest/gtest.h>

#include <cxxabi.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace {

// The class, namespace or C name that a symbol belongs to, from its mangled form: "std" for
// the standard library, "" for a form not known here.
std::string OwnerOf(const std::string& strName) {
    // AddressSanitizer's indicator of an exported global belongs to that global.
    static const std::string strOdr = "__odr_asan.";
    if (strName.compare(0, strOdr.size(), strOdr) == 0)
        return OwnerOf(strName.substr(strOdr.size()));
    if (strName.compare(0, 2, "_Z") != 0) return strName;
    size_t p = 2;
    auto skipPast = [&](int nUnderscores) {
        for (int i = 0; i < nUnderscores && p != std::string::npos; ++i) {
            p = strName.find('_', p);
            if (p != std::string::npos) ++p;
        }
    };
    if (strName.compare(p, 2, "Th") == 0) { // non-virtual thunk: Th <offset> _
        skipPast(1);
    } else if (strName.compare(p, 2, "Tv") == 0) { // virtual thunk: Tv <offset> _ <offset> _
        skipPast(2);
    } else if (strName[p] == 'T' || strName.compare(p, 2, "GV") == 0) {
        p += 2; // vtable, VTT, typeinfo and its name, construction vtable; guard variable
    }
    if (p == std::string::npos) return "";
    if (p < strName.size() && strName[p] == 'Z') ++p; // a static local: named by its function
    if (p < strName.size() && strName[p] == 'N') {
        ++p;
        while (p < strName.size() && std::strchr("rVK", strName[p])) ++p;
    }
    if (p + 1 < strName.size() && strName[p] == 'S' && std::isalpha((unsigned char)strName[p + 1]))
        return "std";
    size_t nLen = 0;
    while (p < strName.size() && std::isdigit((unsigned char)strName[p]))
        nLen = nLen * 10 + (strName[p++] - '0');
    if (nLen == 0 || p + nLen > strName.size()) return "";
    return strName.substr(p, nLen);
}

std::string Demangle(const std::string& strName) {
    int nStatus = 0;
    std::unique_ptr<char, void (*)(void*)> p(
        abi::__cxa_demangle(strName.c_str(), nullptr, nullptr, &nStatus), std::free);
    return nStatus == 0 ? std::string(p.get()) : strName;
}

struct Symbol {
    char cType;
    std::string strName;
};

std::vector<Symbol> DynamicSymbols() {
    std::string strCmd = "nm -D --defined-only '" QLMAIL_LIBRARY "'";
    std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(strCmd.c_str(), "r"), pclose);
    std::vector<Symbol> vSymbols;
    if (!pipe) return vSymbols;
    char szLine[8192];
    while (std::fgets(szLine, sizeof(szLine), pipe.get())) {
        char szType[4], szName[8000];
        if (std::sscanf(szLine, "%*s %3s %7999s", szType, szName) == 2)
            vSymbols.push_back({szType[0], szName});
    }
    return vSymbols;
}

std::set<std::string> ExportList() {
    std::ifstream in(QLMAIL_EXPORT_LIST);
    std::set<std::string> names;
    std::string strLine;
    while (std::getline(in, strLine))
        if (!strLine.empty() && strLine[0] != '#') names.insert(strLine);
    return names;
}

bool IsJavaNative(const std::string& strName) {
    return strName.rfind("Java_", 0) == 0;
}

bool IsKeptInside(const std::string& strName) {
    return strName[0] == '-';
}

bool IsWeak(char cType) {
    return cType == 'W' || cType == 'V' || cType == 'u';
}

} // namespace

TEST(ExportedSymbols, OwnerOfMangledNames) {
    const std::map<std::string, std::string> cases = {
        {"_ZN10CQLMimeMsg4OpenERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEEb",
         "CQLMimeMsg"},
        {"_ZNK10CQLMimeMsg9GetFormatB5cxx11Ev", "CQLMimeMsg"},
        {"_ZN14CQLMimeMsgInfo18CQLMimeMsgInfoItem3SetEPKc", "CQLMimeMsgInfo"},
        {"_ZN10CQLMimeMsg6SaveToIiEEbRT_", "CQLMimeMsg"},
        {"_ZTI18CQLExceptionParser", "CQLExceptionParser"},
        {"_ZTS13CQLDateParser", "CQLDateParser"},
        {"_ZTV21CQLFixedObjPoolParserI10CQLMimeMsgE", "CQLFixedObjPoolParser"},
        {"_ZTIN11CQLIMimeStr14DelimiterIndexE", "CQLIMimeStr"},
        {"_ZThn16_N10CQLMimeMsgD1Ev", "CQLMimeMsg"},
        {"_ZTv0_n24_N10CQLMimeMsgD0Ev", "CQLMimeMsg"},
        {"_ZGVZN10CQLMimeMsg4OpenEvE5s_str", "CQLMimeMsg"},
        {"_ZN8CQLIconv4OpenEPKcS1_", "CQLIconv"},
        {"_ZNSt6vectorIP10CQLMimeMsgSaIS1_EE17_M_realloc_insertIJRKS1_EEEvN9__gnu_cxx17__"
         "normal_iteratorIPS1_S3_EEDpOT_",
         "std"},
        {"_ZTINSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE", "std"},
        {"_ZStplIcSt11char_traitsIcESaIcEENSt7__cxx1112basic_stringIT_T0_T1_EERKS8_PKS5_", "std"},
        {"_Z12newStringUTFP7JNIEnv_NSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE",
         "newStringUTF"},
        {"Java_org_quillon_util_JNIJavaMail_Open", "Java_org_quillon_util_JNIJavaMail_Open"},
        {"__odr_asan._ZN13CQLDateParser10LunarTableE", "CQLDateParser"},
        {"_Z", ""},
        {"_ZN99Short", ""},
    };
    for (const auto& [strName, strOwner] : cases) EXPECT_EQ(OwnerOf(strName), strOwner) << strName;
}

TEST(ExportedSymbols, OnlyListedClassesAndNatives) {
    const std::set<std::string> allowed = ExportList();
    ASSERT_FALSE(allowed.empty()) << "cannot read " << QLMAIL_EXPORT_LIST;
    const std::vector<Symbol> vSymbols = DynamicSymbols();
    ASSERT_FALSE(vSymbols.empty()) << "nm found no symbols in " << QLMAIL_LIBRARY;

    std::string strStray;
    for (const Symbol& sym : vSymbols) {
        const std::string strOwner = OwnerOf(sym.strName);
        const std::string strReadable = Demangle(sym.strName);
        bool bInside = false;
        for (const std::string& strName : allowed)
            if (IsKeptInside(strName) && strReadable.find(strName.substr(1)) != std::string::npos)
                bInside = true;
        if (!bInside && (allowed.count(strOwner) || (strOwner == "std" && IsWeak(sym.cType))))
            continue;
        strStray += std::string(1, sym.cType) + " " + strReadable + "\n";
    }
    EXPECT_EQ(strStray, "") << "exported but not listed in " << QLMAIL_EXPORT_LIST;
}

TEST(ExportedSymbols, EveryListedNameIsExported) {
    std::set<std::string> owners;
    for (const Symbol& sym : DynamicSymbols()) owners.insert(OwnerOf(sym.strName));
    for (const std::string& strName : ExportList()) {
        if (IsKeptInside(strName)) continue;
        if (IsJavaNative(strName) && !QLMAIL_WITH_JAVA) {
            EXPECT_EQ(owners.count(strName), 0u) << strName << " without the Java binding";
            continue;
        }
        EXPECT_EQ(owners.count(strName), 1u) << strName << " is listed but not exported";
    }
}
