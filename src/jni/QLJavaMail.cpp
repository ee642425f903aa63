#include "jni/QLJavaMail.h"

#include "foundation/QLExceptionParser.h"
#include "mime/QLMimeMsg.h"
#include "reader/QLMimeAttachInfo.h"
#include "reader/QLMimeMsgInfo.h"

#include <atomic>
#include <cstdint>
#include <cstring>
#include <cstdio>
#include <exception>
#include <memory>
#include <string>

namespace {

// A pending Java exception is printed and cleared. The JNI calls that can leave one answer
// null then, which is what the callers test.
void ClearPending(JNIEnv* env) {
    if (!env->ExceptionCheck()) return;
    env->ExceptionDescribe();
    env->ExceptionClear();
}

bool IsCont(unsigned char c) {
    return (c & 0xC0) == 0x80;
}

void AppendUtf8(std::string& str, unsigned long nCode) {
    if (nCode < 0x80) {
        str += static_cast<char>(nCode);
    } else if (nCode < 0x800) {
        str += static_cast<char>(0xC0 | (nCode >> 6));
        str += static_cast<char>(0x80 | (nCode & 0x3F));
    } else if (nCode < 0x10000) {
        str += static_cast<char>(0xE0 | (nCode >> 12));
        str += static_cast<char>(0x80 | ((nCode >> 6) & 0x3F));
        str += static_cast<char>(0x80 | (nCode & 0x3F));
    } else {
        str += static_cast<char>(0xF0 | (nCode >> 18));
        str += static_cast<char>(0x80 | ((nCode >> 12) & 0x3F));
        str += static_cast<char>(0x80 | ((nCode >> 6) & 0x3F));
        str += static_cast<char>(0x80 | (nCode & 0x3F));
    }
}

// Length of the well-formed UTF-8 sequence at p, or 0.
size_t Utf8SeqLen(const unsigned char* p) {
    const unsigned char c = p[0];
    if (c < 0x80) return 1;
    if (c >= 0xC2 && c <= 0xDF) return IsCont(p[1]) ? 2 : 0;
    unsigned char nLow = 0x80, nHigh = 0xBF;
    if (c == 0xE0 || c == 0xF0) nLow = c == 0xE0 ? 0xA0 : 0x90;
    if (c == 0xED) nHigh = 0x9F; // no surrogates
    if (c == 0xF4) nHigh = 0x8F;
    if (c < 0xE0 || c > 0xF4 || p[1] < nLow || p[1] > nHigh || !IsCont(p[2])) return 0;
    if (c < 0xF0) return 3;
    return IsCont(p[3]) ? 4 : 0;
}

// Code point of the surrogate that modified UTF-8 holds at p (ED A0..BF xx), or 0.
unsigned long SurrogateAt(const unsigned char* p) {
    if (p[0] != 0xED || p[1] < 0xA0 || p[1] > 0xBF || !IsCont(p[2])) return 0;
    return 0xD000ul | ((p[1] & 0x3Ful) << 6) | (p[2] & 0x3Ful);
}

// Bytes at p that the JVM takes as they stand: well-formed UTF-8 within the BMP.
size_t PlainPrefix(const unsigned char* p) {
    size_t n = 0;
    while (p[n] != 0) {
        const size_t nLen = p[n] < 0x80 ? 1 : Utf8SeqLen(p + n);
        if (nLen == 0 || nLen == 4) break;
        n += nLen;
    }
    return n;
}

} // namespace

std::string ToModifiedUtf8(const char* pszText) {
    const unsigned char* p = reinterpret_cast<const unsigned char*>(pszText);
    std::string strOut;
    while (true) {
        const size_t nPlain = PlainPrefix(p);
        strOut.append(reinterpret_cast<const char*>(p), nPlain);
        p += nPlain;
        if (*p == 0) return strOut;
        if (Utf8SeqLen(p) == 4) {
            const unsigned long nCode = ((p[0] & 0x07ul) << 18) | ((p[1] & 0x3Ful) << 12) |
                                        ((p[2] & 0x3Ful) << 6) | (p[3] & 0x3Ful);
            AppendUtf8(strOut, 0xD800 + ((nCode - 0x10000) >> 10));
            AppendUtf8(strOut, 0xDC00 + ((nCode - 0x10000) & 0x3FF));
            p += 4;
        } else {
            AppendUtf8(strOut, 0xDC00 + *p++); // a lone low surrogate carries the byte
        }
    }
}

std::string FromModifiedUtf8(const char* pszText) {
    std::string strOut;
    const char* p = pszText;
    // Every surrogate begins with the byte ED.
    while (const char* pLead = std::strchr(p, '\xED')) {
        strOut.append(p, pLead);
        const unsigned char* u = reinterpret_cast<const unsigned char*>(pLead);
        const unsigned long nCode = SurrogateAt(u);
        const unsigned long nLow = nCode >= 0xD800 && nCode < 0xDC00 ? SurrogateAt(u + 3) : 0;
        if (nLow >= 0xDC00) {
            AppendUtf8(strOut, 0x10000 + ((nCode - 0xD800) << 10) + (nLow - 0xDC00));
            p = pLead + 6;
        } else if (nCode >= 0xDC80 && nCode <= 0xDCFF) {
            strOut += static_cast<char>(nCode - 0xDC00);
            p = pLead + 3;
        } else {
            strOut += *pLead;
            p = pLead + 1;
        }
    }
    strOut.append(p);
    return strOut;
}

jfieldID getjFieldIdInt(JNIEnv* env, jclass cls, std::string strName) {
    jfieldID fid = env->GetFieldID(cls, strName.c_str(), "I");
    ClearPending(env);
    return fid;
}

jfieldID getjFieldIdLong(JNIEnv* env, jclass cls, std::string strName) {
    jfieldID fid = env->GetFieldID(cls, strName.c_str(), "J");
    ClearPending(env);
    return fid;
}

jfieldID getjFieldIdString(JNIEnv* env, jclass cls, std::string strName) {
    jfieldID fid = env->GetFieldID(cls, strName.c_str(), "Ljava/lang/String;");
    ClearPending(env);
    return fid;
}

void setIntField(JNIEnv* env, jobject obj, jfieldID fid, int nValue) {
    env->SetIntField(obj, fid, nValue);
    ClearPending(env);
}

void setLongField(JNIEnv* env, jobject obj, jfieldID fid, long nValue) {
    env->SetLongField(obj, fid, nValue);
    ClearPending(env);
}

void setObjectField(JNIEnv* env, jobject obj, jfieldID fid, jstring strValue) {
    env->SetObjectField(obj, fid, strValue);
    ClearPending(env);
}

jstring newStringUTF(JNIEnv* env, std::string strValue) {
    const char* psz = strValue.c_str();
    const unsigned char* u = reinterpret_cast<const unsigned char*>(psz);
    jstring js = env->NewStringUTF(u[PlainPrefix(u)] == 0 ? psz : ToModifiedUtf8(psz).c_str());
    ClearPending(env);
    return js;
}

namespace {

// The characters of a Java string, released as soon as they are copied. False for a null
// string or when the JVM cannot give them.
bool FromJava(JNIEnv* env, jstring js, std::string& str) {
    if (js == nullptr) return false;
    struct Chars {
        JNIEnv* env;
        jstring js;
        const char* psz;
        ~Chars() {
            if (psz != nullptr) env->ReleaseStringUTFChars(js, psz);
        }
    } chars{env, js, env->GetStringUTFChars(js, nullptr)};
    if (chars.psz == nullptr) {
        ClearPending(env);
        return false;
    }
    str = FromModifiedUtf8(chars.psz);
    return true;
}

template <class... Rest>
bool FromJava(JNIEnv* env, jstring js, std::string& str, jstring jsNext, Rest&&... rest) {
    return FromJava(env, js, str) && FromJava(env, jsNext, rest...);
}

// append(String) of a StringBuffer, or null.
jmethodID AppendOf(JNIEnv* env, jobject sb) {
    if (sb == nullptr) return nullptr;
    // StringBuffer is final and never unloaded, so its append stays the same method for the
    // JVM's life; looking it up at every call was most of the cost of a short value.
    static std::atomic<jmethodID> s_append{nullptr};
    if (jmethodID mid = s_append.load(std::memory_order_relaxed)) return mid;
    jclass cls = env->GetObjectClass(sb);
    jmethodID mid =
        cls ? env->GetMethodID(cls, "append", "(Ljava/lang/String;)Ljava/lang/StringBuffer;")
            : nullptr;
    ClearPending(env);
    if (mid == nullptr) return nullptr;
    s_append.store(mid, std::memory_order_relaxed);
    return mid;
}

bool Append(JNIEnv* env, jobject sb, jmethodID append, const std::string& str) {
    jstring js = newStringUTF(env, str);
    if (js == nullptr) return false;
    env->CallObjectMethod(sb, append, js);
    return true;
}

// The eight fields of the attachment object, in the order they are looked up and set.
struct AttachFields {
    jfieldID startPos, endPos, lineCnt, contentType, subContentType, encoding, attachId, fileName;
};

// False for a null object, or a class that lacks one of the fields.
bool FieldsOf(JNIEnv* env, jobject attach, AttachFields& f) {
    if (attach == nullptr) return false;
    jclass cls = env->GetObjectClass(attach);
    ClearPending(env);
    if (cls == nullptr) return false;
    // The first that is missing ends the lookup: its exception is printed once.
    return (f.startPos = getjFieldIdLong(env, cls, "startPos")) &&
           (f.endPos = getjFieldIdLong(env, cls, "endPos")) &&
           (f.lineCnt = getjFieldIdLong(env, cls, "lineCnt")) &&
           (f.contentType = getjFieldIdInt(env, cls, "contentType")) &&
           (f.subContentType = getjFieldIdInt(env, cls, "subContentType")) &&
           (f.encoding = getjFieldIdString(env, cls, "encoding")) &&
           (f.attachId = getjFieldIdString(env, cls, "attachId")) &&
           (f.fileName = getjFieldIdString(env, cls, "fileName"));
}

// The descriptor as the Java object holds it; false when a string field is null.
bool ReadAttach(JNIEnv* env, jobject attach, CQLMimeAttachInfo& Attach) {
    AttachFields f;
    if (!FieldsOf(env, attach, f)) return false;
    jstring jAttachId = static_cast<jstring>(env->GetObjectField(attach, f.attachId));
    jstring jFileName = static_cast<jstring>(env->GetObjectField(attach, f.fileName));
    Attach.m_nStartPos = static_cast<uint32_t>(env->GetLongField(attach, f.startPos));
    Attach.m_nEndPos = static_cast<uint32_t>(env->GetLongField(attach, f.endPos));
    Attach.m_nLineCnt =
        static_cast<int>(static_cast<uint32_t>(env->GetLongField(attach, f.lineCnt)));
    Attach.m_nContentType = env->GetIntField(attach, f.contentType);
    Attach.m_nSubContentType = env->GetIntField(attach, f.subContentType);
    jstring jEncoding = static_cast<jstring>(env->GetObjectField(attach, f.encoding));
    std::string strEncoding;
    if (!FromJava(env, jEncoding, strEncoding, jAttachId, Attach.m_strAttachId, jFileName,
                  Attach.m_strFileName))
        return false;
    Attach.m_nEncoding = static_cast<signed char>(strEncoding.c_str()[0]);
    return true;
}

// Fills the Java object from the descriptor; false when the JVM fails on the way.
bool WriteAttach(JNIEnv* env, jobject attach, const CQLMimeAttachInfo& Attach) {
    AttachFields f;
    if (!FieldsOf(env, attach, f)) return false;
    const char szEncoding[2] = {static_cast<char>(Attach.m_nEncoding), '\0'};
    jstring jEncoding = newStringUTF(env, szEncoding);
    jstring jAttachId = jEncoding ? newStringUTF(env, Attach.m_strAttachId) : nullptr;
    jstring jFileName = jAttachId ? newStringUTF(env, Attach.m_strFileName) : nullptr;
    if (jFileName == nullptr) return false;
    setLongField(env, attach, f.startPos, Attach.m_nStartPos);
    setLongField(env, attach, f.endPos, Attach.m_nEndPos);
    setLongField(env, attach, f.lineCnt, static_cast<uint32_t>(Attach.m_nLineCnt));
    setIntField(env, attach, f.contentType, Attach.m_nContentType);
    setIntField(env, attach, f.subContentType, Attach.m_nSubContentType);
    setObjectField(env, attach, f.encoding, jEncoding);
    setObjectField(env, attach, f.attachId, jAttachId);
    setObjectField(env, attach, f.fileName, jFileName);
    return true;
}

// Called in a handler: the text of the exception in flight goes to the handle.
void NoteFailure(CQLMimeMsgInfo* pInfo, const char* pszNative) noexcept {
    if (pInfo == nullptr) return;
    try {
        std::string strText;
        try {
            throw;
        } catch (const CQLExceptionParser& e) {
            strText = e.GetLastError();
        } catch (const std::exception& e) {
            strText = e.what();
        } catch (...) {
            strText = "unknown exception";
        }
        pInfo->m_strLastError = std::string("In JNIJavaMail::") + pszNative + "(), " + strText;
    } catch (...) {
    }
}

// The handle that Open gave; 0 and -1, which Java may hold by mistake, are no object.
CQLMimeMsgInfo* InfoOf(jlong handle) {
    return handle == 0 || handle == -1 ? nullptr : reinterpret_cast<CQLMimeMsgInfo*>(handle);
}

// Runs the work of a native. What the library throws ends here: the native answers its
// failure value, with the text in the handle's last error where there is a handle.
template <class R, class Work>
R Guarded(CQLMimeMsgInfo* pInfo, const char* pszNative, R failure, Work work) noexcept {
    try {
        return work();
    } catch (...) {
        NoteFailure(pInfo, pszNative);
    }
    return failure;
}

template <class Work>
void Guarded(CQLMimeMsgInfo* pInfo, const char* pszNative, Work work) noexcept {
    try {
        work();
    } catch (...) {
        NoteFailure(pInfo, pszNative);
    }
}

// GetNextAttach and GetNextCID differ only in the operation they call.
using NextOp = bool (CQLMimeMsgInfo::*)(CQLMimeAttachInfo&, const std::string&, const std::string&,
                                        const std::string&);

jboolean NextAttach(JNIEnv* env, jlong handle, jobject attach, jstring jDefaultCharset,
                    jstring jToCharset, jstring jLevel, NextOp op, const char* pszNative) {
    CQLMimeMsgInfo* pInfo = InfoOf(handle);
    if (pInfo == nullptr || attach == nullptr) return JNI_FALSE;
    return Guarded<jboolean>(pInfo, pszNative, JNI_FALSE, [&]() -> jboolean {
        CQLMimeAttachInfo Attach;
        std::string strDefaultCharset, strToCharset, strLevel;
        if (!FromJava(env, jDefaultCharset, strDefaultCharset, jToCharset, strToCharset, jLevel,
                      strLevel) ||
            !(pInfo->*op)(Attach, strDefaultCharset, strToCharset, strLevel))
            return JNI_FALSE;
        return WriteAttach(env, attach, Attach) ? JNI_TRUE : JNI_FALSE;
    });
}

} // namespace

extern "C" {

JNIEXPORT jstring JNICALL Java_org_quillon_util_JNIJavaMail_GetMsgFormat(JNIEnv* env, jclass,
                                                                         jstring jEmlPath) {
    return Guarded<jstring>(nullptr, "GetMsgFormat", nullptr, [&]() -> jstring {
        std::string strEmlPath;
        if (!FromJava(env, jEmlPath, strEmlPath)) return nullptr;
        CQLMimeMsg msg;
        if (!msg.Open(strEmlPath, true)) return nullptr;
        jstring jFormat = newStringUTF(env, msg.GetFormat());
        msg.Close();
        return jFormat;
    });
}

JNIEXPORT jlong JNICALL Java_org_quillon_util_JNIJavaMail_Open(JNIEnv* env, jclass, jlong,
                                                               jstring jEmlPath, jstring jFormat) {
    return Guarded<jlong>(nullptr, "Open", -1, [&]() -> jlong {
        std::string strEmlPath, strFormat;
        if (!FromJava(env, jEmlPath, strEmlPath, jFormat, strFormat)) return -1;
        if (strFormat.empty()) {
            CQLMimeMsg msg;
            if (!msg.Open(strEmlPath, true)) std::puts(msg.GetLastError().c_str());
            strFormat = msg.GetFormat();
            msg.Close();
        }
        if (!CQLFileParser::Exists(strEmlPath)) return -1;
        auto pInfo = std::make_unique<CQLMimeMsgInfo>(strFormat);
        if (!pInfo->SetEmlPath(strEmlPath)) {
            std::puts(pInfo->GetLastError().c_str());
            return -1;
        }
        return reinterpret_cast<jlong>(pInfo.release());
    });
}

JNIEXPORT void JNICALL Java_org_quillon_util_JNIJavaMail_Close(JNIEnv*, jclass, jlong handle) {
    CQLMimeMsgInfo* pInfo = InfoOf(handle);
    Guarded(nullptr, "Close", [&] { delete pInfo; });
}

JNIEXPORT jstring JNICALL Java_org_quillon_util_JNIJavaMail_GetLastError(JNIEnv* env, jclass,
                                                                         jlong handle) {
    CQLMimeMsgInfo* pInfo = InfoOf(handle);
    if (pInfo == nullptr) return nullptr;
    return Guarded<jstring>(pInfo, "GetLastError", nullptr,
                            [&] { return newStringUTF(env, pInfo->GetLastError()); });
}

JNIEXPORT void JNICALL Java_org_quillon_util_JNIJavaMail_InitAttachCursor(JNIEnv*, jclass,
                                                                          jlong handle) {
    CQLMimeMsgInfo* pInfo = InfoOf(handle);
    if (pInfo == nullptr) return;
    Guarded(pInfo, "InitAttachCursor", [&] { pInfo->InitAttachCursor(); });
}

JNIEXPORT jboolean JNICALL Java_org_quillon_util_JNIJavaMail_GetNextAttach(
    JNIEnv* env, jclass, jlong handle, jobject attach, jstring jDefaultCharset, jstring jToCharset,
    jstring jLevel) {
    return NextAttach(env, handle, attach, jDefaultCharset, jToCharset, jLevel,
                      &CQLMimeMsgInfo::GetNextAttach, "GetNextAttach");
}

JNIEXPORT jboolean JNICALL Java_org_quillon_util_JNIJavaMail_GetNextCID(
    JNIEnv* env, jclass, jlong handle, jobject attach, jstring jDefaultCharset, jstring jToCharset,
    jstring jLevel) {
    return NextAttach(env, handle, attach, jDefaultCharset, jToCharset, jLevel,
                      &CQLMimeMsgInfo::GetNextCID, "GetNextCID");
}

JNIEXPORT jlong JNICALL Java_org_quillon_util_JNIJavaMail_GetAttachContentSize(JNIEnv* env, jclass,
                                                                               jlong handle,
                                                                               jobject attach,
                                                                               jboolean bDecode) {
    CQLMimeMsgInfo* pInfo = InfoOf(handle);
    if (pInfo == nullptr) return 0;
    return Guarded<jlong>(pInfo, "GetAttachContentSize", 0, [&]() -> jlong {
        CQLMimeAttachInfo Attach;
        if (!ReadAttach(env, attach, Attach)) return 0;
        // All 32 bits set, the failure value, reaches Java as 4294967295.
        return static_cast<jlong>(pInfo->GetAttachContentSize(Attach, bDecode == JNI_TRUE));
    });
}

JNIEXPORT jboolean JNICALL Java_org_quillon_util_JNIJavaMail_OpenAttach(JNIEnv* env, jclass,
                                                                        jlong handle,
                                                                        jobject attach) {
    CQLMimeMsgInfo* pInfo = InfoOf(handle);
    if (pInfo == nullptr) return JNI_FALSE;
    return Guarded<jboolean>(pInfo, "OpenAttach", JNI_FALSE, [&]() -> jboolean {
        CQLMimeAttachInfo Attach;
        return ReadAttach(env, attach, Attach) && pInfo->OpenAttach(Attach) ? JNI_TRUE : JNI_FALSE;
    });
}

JNIEXPORT jbyteArray JNICALL Java_org_quillon_util_JNIJavaMail_GetAttachContentNext(
    JNIEnv* env, jclass, jlong handle, jobject sbState, jboolean bDecode) {
    CQLMimeMsgInfo* pInfo = InfoOf(handle);
    if (pInfo == nullptr) return nullptr;
    jmethodID append = AppendOf(env, sbState);
    if (append == nullptr) return nullptr;
    std::string strBlock;
    const bool bGot = Guarded<bool>(pInfo, "GetAttachContentNext", false,
                                    [&] { return pInfo->GetAttachContentNext(strBlock, bDecode); });
    if (!bGot) {
        Append(env, sbState, append, "false");
        return nullptr;
    }
    jbyteArray block = env->NewByteArray(static_cast<jsize>(strBlock.size()));
    ClearPending(env);
    if (block == nullptr) return nullptr;
    env->SetByteArrayRegion(block, 0, static_cast<jsize>(strBlock.size()),
                            reinterpret_cast<const jbyte*>(strBlock.data()));
    Append(env, sbState, append, "true");
    return block;
}

JNIEXPORT void JNICALL Java_org_quillon_util_JNIJavaMail_CloseAttach(JNIEnv*, jclass,
                                                                     jlong handle) {
    CQLMimeMsgInfo* pInfo = InfoOf(handle);
    if (pInfo == nullptr) return;
    Guarded(pInfo, "CloseAttach", [&] { pInfo->CloseAttach(); });
}

JNIEXPORT jboolean JNICALL Java_org_quillon_util_JNIJavaMail_GetHeader(JNIEnv* env, jclass,
                                                                       jlong handle, jobject sbOut,
                                                                       jstring jLevel) {
    CQLMimeMsgInfo* pInfo = InfoOf(handle);
    if (pInfo == nullptr) return JNI_FALSE;
    return Guarded<jboolean>(pInfo, "GetHeader", JNI_FALSE, [&]() -> jboolean {
        jmethodID append = AppendOf(env, sbOut);
        std::string strLevel, strOut;
        if (append == nullptr || !FromJava(env, jLevel, strLevel) ||
            !pInfo->GetHeader(strOut, strLevel))
            return JNI_FALSE;
        return Append(env, sbOut, append, strOut) ? JNI_TRUE : JNI_FALSE;
    });
}

JNIEXPORT jboolean JNICALL Java_org_quillon_util_JNIJavaMail_GetHeaderValue(
    JNIEnv* env, jclass, jlong handle, jstring jName, jobject sbOut, jboolean bDecode,
    jstring jDefaultCharset, jstring jToCharset, jstring jLevel) {
    CQLMimeMsgInfo* pInfo = InfoOf(handle);
    if (pInfo == nullptr) return JNI_FALSE;
    return Guarded<jboolean>(pInfo, "GetHeaderValue", JNI_FALSE, [&]() -> jboolean {
        std::string strLevel, strName, strDefaultCharset, strToCharset, strOut;
        if (!FromJava(env, jLevel, strLevel)) return JNI_FALSE;
        jmethodID append = AppendOf(env, sbOut);
        if (append == nullptr ||
            !FromJava(env, jName, strName, jDefaultCharset, strDefaultCharset, jToCharset,
                      strToCharset) ||
            !pInfo->GetHeaderValue(strName, strOut, bDecode == JNI_TRUE, strDefaultCharset,
                                   strToCharset, strLevel))
            return JNI_FALSE;
        return Append(env, sbOut, append, strOut) ? JNI_TRUE : JNI_FALSE;
    });
}

JNIEXPORT jboolean JNICALL Java_org_quillon_util_JNIJavaMail_GetText(
    JNIEnv* env, jclass, jlong handle, jobject sbOut, jboolean bHtml, jstring jDefaultCharset,
    jstring jForceCharset, jstring jToCharset, jboolean bDecode, jstring jLevel) {
    CQLMimeMsgInfo* pInfo = InfoOf(handle);
    if (pInfo == nullptr) return JNI_FALSE;
    return Guarded<jboolean>(pInfo, "GetText", JNI_FALSE, [&]() -> jboolean {
        jmethodID append = AppendOf(env, sbOut);
        std::string strDefaultCharset, strForceCharset, strToCharset, strLevel, strOut;
        if (append == nullptr ||
            !FromJava(env, jDefaultCharset, strDefaultCharset, jForceCharset, strForceCharset,
                      jToCharset, strToCharset, jLevel, strLevel) ||
            !pInfo->GetText(strOut, bHtml == JNI_TRUE, strDefaultCharset, strForceCharset,
                            strToCharset, bDecode == JNI_TRUE, strLevel))
            return JNI_FALSE;
        return Append(env, sbOut, append, strOut) ? JNI_TRUE : JNI_FALSE;
    });
}

JNIEXPORT jboolean JNICALL Java_org_quillon_util_JNIJavaMail_IsTNEF(JNIEnv*, jclass, jlong handle) {
    CQLMimeMsgInfo* pInfo = InfoOf(handle);
    if (pInfo == nullptr) return JNI_FALSE;
    return Guarded<jboolean>(pInfo, "IsTNEF", JNI_FALSE,
                             [&] { return pInfo->IsTNEF() ? JNI_TRUE : JNI_FALSE; });
}

} // extern "C"
