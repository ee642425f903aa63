#include "RewriteCommands.h"

#include "ToolCommon.h"
#include "mime/QLMimeMsg.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <sys/stat.h>
#include <vector>

const char* const kRewriteUsage =
    "Rewriting a stored message in place. FILE is rewritten through a temporary file beside\n"
    "it, and FILE.fmt, when it exists, is written anew from a fresh parse of the result. Where\n"
    "no part takes the banner or tag, or no field is to change, the message stays as it is and\n"
    "a note says so.\n"
    "\n"
    "  edit FILE [--add 'Name: value']... [--set 'Name: value']... [--del Name]...\n"
    "       [--front] [--encode b|q --charset CS]\n"
    "                         edit the top header fields, in the order given, and write the\n"
    "                         message back: --add appends a field, --set changes the first\n"
    "                         field of that name or appends it, --del removes the first field\n"
    "                         of that name; --front puts the fields added first instead;\n"
    "                         --encode writes the values of --add and --set as encoded words\n"
    "                         in charset CS\n"
    "  set-body FILE PART (--text T | --from F) [--encoding base64|qp|7bit]\n"
    "                         replace the body of part PART (as \"parts\" numbers it: top,\n"
    "                         1., 1.2.) with text T or the bytes of file F, encoded as the\n"
    "                         part's header says unless --encoding is given; headers stay.\n"
    "                         T written as it is gets a line break at its end if it has none\n"
    "  banner FILE TEXT [--html]\n"
    "                         append the UTF-8 TEXT to the first text/plain part (text/html\n"
    "                         with --html), in that part's charset\n"
    "  confirm-tag FILE --url BASE --port N [--path P] --msgid ID --sender S --receiver R\n"
    "       --subject S       put a hidden read-confirmation image into the first html part\n"
    "  edm-tag FILE --url BASE --port N [--path P] --data D\n"
    "                         fill in the reject link ##EDM_REJECT_URL## of the first html part\n"
    "  attachments --tree [--json] FILE\n"
    "                         list the attachments found on the parsed message: number, name,\n"
    "                         content type, transfer encoding, body offsets, decoded size,\n"
    "                         Content-ID\n";

namespace {

// The arguments of a command: its operands, and the values of its options in order.
struct Args {
    std::vector<std::string> vOperands;
    std::multimap<std::string, std::string> mOptions;
    std::vector<std::pair<std::string, std::string>> vInOrder;

    bool Has(const std::string& strName) const { return mOptions.count(strName) != 0; }
    std::string Get(const std::string& strName) const {
        auto it = mOptions.find(strName);
        return it == mOptions.end() ? std::string() : it->second;
    }
};

// Splits the arguments behind the command. Options with a value are named in strValued, those
// without in strFlags, each name followed by a blank; an option may come more than once, and
// the values are kept in order. Anything else is an error text.
std::string ParseInOrder(const std::vector<std::string>& vArgs, const std::string& strValued,
                         const std::string& strFlags, Args& args) {
    for (size_t i = 0; i < vArgs.size(); ++i) {
        const std::string& strArg = vArgs[i];
        if (strArg.size() < 3 || strArg.compare(0, 2, "--") != 0) {
            args.vOperands.push_back(strArg);
            continue;
        }
        if ((" " + strFlags + " ").find(" " + strArg + " ") != std::string::npos) {
            args.mOptions.emplace(strArg, "");
        } else if ((" " + strValued + " ").find(" " + strArg + " ") != std::string::npos) {
            if (i + 1 >= vArgs.size()) return strArg + " needs a value";
            args.mOptions.emplace(strArg, vArgs[++i]);
            args.vInOrder.emplace_back(strArg, vArgs[i]);
        } else {
            return "unknown option " + strArg;
        }
    }
    return std::string();
}

// "Name: value" into its two halves; false without a colon or a name.
bool SplitField(const std::string& strField, std::string& strName, std::string& strValue) {
    const size_t nColon = strField.find(':');
    if (nColon == std::string::npos || nColon == 0) return false;
    strName = strField.substr(0, nColon);
    const size_t nValue = strField.find_first_not_of(' ', nColon + 1);
    strValue = nValue == std::string::npos ? std::string() : strField.substr(nValue);
    return true;
}

// The message file, opened whole; an error text otherwise.
std::string OpenMessage(const std::string& strPath, CQLMimeMsg& msg) {
    struct stat st;
    if (stat(strPath.c_str(), &st) != 0) return strPath + ": " + std::strerror(errno);
    if (!S_ISREG(st.st_mode)) return strPath + ": not a regular file";
    // A message with more entities than the parser takes is not rewritten: its list is cut.
    if (!msg.Open(strPath, true)) return strPath + ": " + msg.GetLastError();
    return std::string();
}

ino_t Inode(const std::string& strPath) {
    struct stat st;
    return stat(strPath.c_str(), &st) == 0 ? st.st_ino : 0;
}

// The stored format string beside the message, if there is one, written anew from a fresh
// parse: the offsets have moved, and the patched tree keeps stale line counts and names.
std::string RefreshFormat(const std::string& strPath) {
    const std::string strFormatPath = strPath + ".fmt";
    struct stat st;
    if (stat(strFormatPath.c_str(), &st) != 0) return std::string();
    CQLMimeMsg fresh;
    if (!fresh.Open(strPath, true)) return strPath + ": " + fresh.GetLastError();
    std::string strError;
    if (!WriteFileAtomic(strFormatPath, fresh.GetFormat(), strError)) return strError;
    return std::string();
}

// Runs a rewrite of the message at strPath and refreshes its format string. rewrite answers
// false with the message object's text; when it wrote nothing, strNothing says why.
int Rewrite(const std::string& strPath, const std::function<bool(CQLMimeMsg&)>& rewrite,
            const std::string& strNothing) {
    CQLMimeMsg msg;
    const std::string strError = OpenMessage(strPath, msg);
    if (!strError.empty()) return Fail(strError);
    const ino_t nBefore = Inode(strPath);
    try {
        if (!rewrite(msg)) return Fail(strPath + ": " + msg.GetLastError());
    } catch (CQLExceptionParser& e) {
        return Fail(strPath + ": " + e.GetLastError());
    }
    // Every write-back puts a new file in the message's place.
    if (Inode(strPath) == nBefore) {
        if (!strNothing.empty())
            std::fprintf(stderr, "qlmail: %s: %s\n", strPath.c_str(), strNothing.c_str());
        return 0;
    }
    const std::string strFormatError = RefreshFormat(strPath);
    return strFormatError.empty() ? 0 : Fail(strFormatError);
}

int Edit(const std::vector<std::string>& vArgs) {
    Args args;
    std::string strError =
        ParseInOrder(vArgs, "--add --set --del --encode --charset", "--front", args);
    if (!strError.empty()) return Usage("edit: " + strError);
    if (args.vOperands.size() != 1) return Usage("edit takes one FILE");
    if (!args.Has("--add") && !args.Has("--set") && !args.Has("--del"))
        return Usage("edit: nothing to do; give --add, --set or --del");
    const std::string strEncode = args.Get("--encode");
    if (args.Has("--encode") != args.Has("--charset"))
        return Usage("edit: --encode and --charset go together");
    if (args.Has("--encode") && strEncode != "b" && strEncode != "q")
        return Usage("edit: --encode takes b or q");
    const CQLMimeConst::ENCODER eEncoder =
        strEncode == "q" ? CQLMimeConst::ENCODER_QP : CQLMimeConst::ENCODER_BASE64;
    const bool bEncode = args.Has("--encode");
    const std::string strCharset = args.Get("--charset");
    const bool bFront = args.Has("--front");
    for (const auto& option : args.vInOrder) {
        std::string strName, strValue;
        if ((option.first == "--add" || option.first == "--set") &&
            !SplitField(option.second, strName, strValue))
            return Usage("edit: " + option.first + " takes 'Name: value'");
    }
    return Rewrite(
        args.vOperands[0],
        [&](CQLMimeMsg& msg) {
            for (const auto& option : args.vInOrder) {
                std::string strName = option.second, strValue;
                if (option.first == "--del") {
                    msg.DelHdrItem(strName, false);
                    continue;
                }
                if (option.first != "--add" && option.first != "--set") continue;
                SplitField(option.second, strName, strValue);
                if (option.first == "--set" && msg.FindHdrItem(strName) != nullptr)
                    msg.ModifyHdrItem(strName, strValue, eEncoder, strCharset.c_str(), bEncode,
                                      false);
                else
                    msg.AddHdrItem(strName, strValue, eEncoder, strCharset.c_str(), bEncode, bFront,
                                   false);
            }
            return msg.UpdateHdr();
        },
        "nothing written: no field to change");
}

int SetBody(const std::vector<std::string>& vArgs) {
    Args args;
    std::string strError = ParseInOrder(vArgs, "--text --from --encoding", "", args);
    if (!strError.empty()) return Usage("set-body: " + strError);
    if (args.vOperands.size() != 2) return Usage("set-body takes FILE and PART");
    if (args.Has("--text") == args.Has("--from"))
        return Usage("set-body takes one of --text and --from");
    static const std::map<std::string, CQLMimeConst::ENCODER> kEncodings = {
        {"base64", CQLMimeConst::ENCODER_BASE64},
        {"qp", CQLMimeConst::ENCODER_QP},
        {"7bit", CQLMimeConst::ENCODER_7BIT}};
    const bool bEncoding = args.Has("--encoding");
    if (bEncoding && kEncodings.count(args.Get("--encoding")) == 0)
        return Usage("set-body: --encoding takes base64, qp or 7bit");
    std::string strPart = args.vOperands[1];
    if (strPart == "top")
        strPart.clear();
    else if (strPart.back() != '.')
        strPart += '.';
    const std::string& strPath = args.vOperands[0];
    return Rewrite(
        strPath,
        [&](CQLMimeMsg& msg) {
            for (CQLMimeMsg* pPart : msg) {
                if (pPart->GetDepth() != strPart) continue;
                if (pPart->m_CT == CQLMimeConst::MULTIPART) {
                    msg.SetLastError("part " + args.vOperands[1] +
                                     " is a multipart: set the body of one of its parts");
                    return false;
                }
                const CQLMimeConst::ENCODER eEncoder =
                    bEncoding ? kEncodings.at(args.Get("--encoding")) : pPart->m_Encoder;
                const bool bFile = args.Has("--from");
                std::string strText = args.Get("--text");
                // A body written as it is ends with a line break, or what follows it (a
                // delimiter) would no longer begin a line.
                const bool bRaw = eEncoder != CQLMimeConst::ENCODER_BASE64 &&
                                  eEncoder != CQLMimeConst::ENCODER_QP;
                if (!bFile && bRaw && (strText.empty() || strText.back() != '\n'))
                    strText += "\r\n";
                if (pPart->SetBody(bFile ? args.Get("--from") : strText, bFile, eEncoder))
                    return true;
                msg.SetLastError(pPart->GetLastError());
                return false;
            }
            msg.SetLastError("no part " + args.vOperands[1]);
            return false;
        },
        "");
}

int Banner(const std::vector<std::string>& vArgs) {
    Args args;
    std::string strError = ParseInOrder(vArgs, "", "--html", args);
    if (!strError.empty()) return Usage("banner: " + strError);
    if (args.vOperands.size() != 2) return Usage("banner takes FILE and TEXT");
    const bool bHtml = args.Has("--html");
    return Rewrite(
        args.vOperands[0],
        [&](CQLMimeMsg& msg) { return msg.AddBanner(args.vOperands[1], bHtml ? 1 : 0); },
        std::string("nothing written: no ") + (bHtml ? "text/html" : "text/plain") +
            " part takes a banner");
}

// The common options of the two tags; an error text or empty.
std::string TagOptions(const Args& args, const char* pszCommand, int& nPort) {
    if (args.vOperands.size() != 1) return std::string(pszCommand) + " takes one FILE";
    if (!args.Has("--url") || !args.Has("--port"))
        return std::string(pszCommand) + " needs --url and --port";
    const std::string strPort = args.Get("--port");
    char* pEnd = nullptr;
    const long nValue = std::strtol(strPort.c_str(), &pEnd, 10);
    if (strPort.empty() || *pEnd != '\0' || nValue < 1 || nValue > 65535)
        return std::string(pszCommand) + ": --port takes a number from 1 to 65535";
    nPort = static_cast<int>(nValue);
    return std::string();
}

int ConfirmTag(const std::vector<std::string>& vArgs) {
    Args args;
    int nPort = 0;
    std::string strError =
        ParseInOrder(vArgs, "--url --port --path --msgid --sender --receiver --subject", "", args);
    if (strError.empty()) strError = TagOptions(args, "confirm-tag", nPort);
    if (strError.empty())
        for (const char* pszName : {"--msgid", "--sender", "--receiver", "--subject"})
            if (!args.Has(pszName)) strError = std::string("confirm-tag needs ") + pszName;
    if (!strError.empty()) return Usage(strError);
    return Rewrite(
        args.vOperands[0],
        [&](CQLMimeMsg& msg) {
            int nStatus = 0;
            return msg.AddConfirmTag(args.Get("--url"), nPort, args.Get("--path"),
                                     args.Get("--msgid"), args.Get("--sender"),
                                     args.Get("--receiver"), args.Get("--subject"), nStatus);
        },
        "nothing written: no text/html part takes the tag");
}

int EdmTag(const std::vector<std::string>& vArgs) {
    Args args;
    int nPort = 0;
    std::string strError = ParseInOrder(vArgs, "--url --port --path --data", "", args);
    if (strError.empty()) strError = TagOptions(args, "edm-tag", nPort);
    if (strError.empty() && !args.Has("--data")) strError = "edm-tag needs --data";
    if (!strError.empty()) return Usage(strError);
    return Rewrite(
        args.vOperands[0],
        [&](CQLMimeMsg& msg) {
            int nStatus = 0;
            return msg.AddEDMTag(args.Get("--url"), nPort, args.Get("--path"), args.Get("--data"),
                                 nStatus);
        },
        "nothing written: no text/html part takes the link");
}

int TreeAttachments(const std::vector<std::string>& vArgs) {
    Args args;
    std::string strError = ParseInOrder(vArgs, "", "--tree --json", args);
    if (!strError.empty()) return Usage("attachments: " + strError);
    if (args.vOperands.size() != 1) return Usage("attachments takes one FILE");
    const std::string& strPath = args.vOperands[0];
    CQLMimeMsg msg;
    strError = OpenMessage(strPath, msg);
    if (!strError.empty()) return Fail(strError);
    std::vector<CQLMimeMsg::TAttachList> vList;
    try {
        msg.GetAttachFileList(vList);
    } catch (CQLExceptionParser& e) {
        return Fail(strPath + ": " + e.GetLastError());
    }
    std::string strOut;
    if (args.Has("--json")) {
        strOut = "{\"file\": " + Json(strPath) + ", \"attachments\": [";
        for (size_t i = 0; i < vList.size(); ++i) {
            const CQLMimeMsg::TAttachList& a = vList[i];
            strOut += std::string(i ? ",\n  " : "\n  ") +
                      "{\"number\": " + Json(PartName(a.strDepth)) +
                      ", \"filename\": " + Json(a.strFileName) +
                      ", \"contentType\": " + Json(a.strContentType) +
                      ", \"transferEncoding\": " + Json(a.strTransferEncoding) +
                      ", \"start\": " + std::to_string(a.nStartPos) +
                      ", \"end\": " + std::to_string(a.nEndPos) +
                      ", \"size\": " + std::to_string(a.nSize) + ", \"cid\": " + Json(a.strCID) +
                      ", \"header\": " + Json(a.strMimeHdr) + "}";
        }
        strOut += "\n]}\n";
    } else {
        strOut = "# part\tfilename\tcontent-type\ttransfer-encoding\tBSO,BEO\tsize\tcontent-id\n";
        for (const CQLMimeMsg::TAttachList& a : vList)
            strOut += PartName(a.strDepth) + "\t" + Printable(a.strFileName) + "\t" +
                      Printable(a.strContentType) + "\t" + Printable(a.strTransferEncoding) + "\t" +
                      std::to_string(a.nStartPos) + "," + std::to_string(a.nEndPos) + "\t" +
                      std::to_string(a.nSize) + "\t" + Printable(a.strCID) + "\n";
    }
    std::fwrite(strOut.data(), 1, strOut.size(), stdout);
    return std::fflush(stdout) == 0 ? 0 : Fail("cannot write the output");
}

} // namespace

bool IsRewriteCommand(const std::string& strCmd, const std::vector<std::string>& vArgs) {
    if (strCmd == "attachments")
        return std::find(vArgs.begin(), vArgs.end(), "--tree") != vArgs.end();
    return strCmd == "edit" || strCmd == "set-body" || strCmd == "banner" ||
           strCmd == "confirm-tag" || strCmd == "edm-tag";
}

int RewriteCommand(const std::string& strCmd, const std::vector<std::string>& vArgs) {
    if (strCmd == "edit") return Edit(vArgs);
    if (strCmd == "set-body") return SetBody(vArgs);
    if (strCmd == "banner") return Banner(vArgs);
    if (strCmd == "confirm-tag") return ConfirmTag(vArgs);
    if (strCmd == "edm-tag") return EdmTag(vArgs);
    return TreeAttachments(vArgs);
}
