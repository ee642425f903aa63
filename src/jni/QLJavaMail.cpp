#include "jni/QLJavaMail.h"

#include "foundation/QLExceptionParser.h"
#include "mime/QLMimeMsg.h"

#include <exception>
#include <string>

namespace {

// A pending Java exception is printed and cleared; true if there was one.
bool JavaFailed(JNIEnv* env) {
    if (!env->ExceptionCheck()) return false;
    env->ExceptionDescribe();
    env->ExceptionClear();
    return true;
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

} // namespace

std::string ToModifiedUtf8(const char* pszText) {
    const unsigned char* p = reinterpret_cast<const unsigned char*>(pszText);
    std::string strOut;
    while (*p != 0) {
        const size_t nLen = Utf8SeqLen(p);
        if (nLen == 4) {
            const unsigned long nCode = ((p[0] & 0x07ul) << 18) | ((p[1] & 0x3Ful) << 12) |
                                        ((p[2] & 0x3Ful) << 6) | (p[3] & 0x3Ful);
            AppendUtf8(strOut, 0xD800 + ((nCode - 0x10000) >> 10));
            AppendUtf8(strOut, 0xDC00 + ((nCode - 0x10000) & 0x3FF));
        } else if (nLen > 0) {
            strOut.append(reinterpret_cast<const char*>(p), nLen);
        } else {
            AppendUtf8(strOut, 0xDC00 + *p); // a lone low surrogate carries the byte
        }
        p += nLen > 0 ? nLen : 1;
    }
    return strOut;
}

std::string FromModifiedUtf8(const char* pszText) {
    const unsigned char* p = reinterpret_cast<const unsigned char*>(pszText);
    std::string strOut;
    while (*p != 0) {
        const unsigned long nCode = SurrogateAt(p);
        const unsigned long nLow = nCode >= 0xD800 && nCode < 0xDC00 ? SurrogateAt(p + 3) : 0;
        if (nLow >= 0xDC00) {
            AppendUtf8(strOut, 0x10000 + ((nCode - 0xD800) << 10) + (nLow - 0xDC00));
            p += 6;
        } else if (nCode >= 0xDC80 && nCode <= 0xDCFF) {
            strOut += static_cast<char>(nCode - 0xDC00);
            p += 3;
        } else {
            strOut += static_cast<char>(*p++);
        }
    }
    return strOut;
}

jfieldID getjFieldIdInt(JNIEnv* env, jclass cls, std::string strName) {
    jfieldID fid = env->GetFieldID(cls, strName.c_str(), "I");
    return JavaFailed(env) ? nullptr : fid;
}

jfieldID getjFieldIdLong(JNIEnv* env, jclass cls, std::string strName) {
    jfieldID fid = env->GetFieldID(cls, strName.c_str(), "J");
    return JavaFailed(env) ? nullptr : fid;
}

jfieldID getjFieldIdString(JNIEnv* env, jclass cls, std::string strName) {
    jfieldID fid = env->GetFieldID(cls, strName.c_str(), "Ljava/lang/String;");
    return JavaFailed(env) ? nullptr : fid;
}

void setIntField(JNIEnv* env, jobject obj, jfieldID fid, int nValue) {
    env->SetIntField(obj, fid, nValue);
    JavaFailed(env);
}

void setLongField(JNIEnv* env, jobject obj, jfieldID fid, long nValue) {
    env->SetLongField(obj, fid, nValue);
    JavaFailed(env);
}

void setObjectField(JNIEnv* env, jobject obj, jfieldID fid, jstring strValue) {
    env->SetObjectField(obj, fid, strValue);
    JavaFailed(env);
}

jstring newStringUTF(JNIEnv* env, std::string strValue) {
    jstring js = env->NewStringUTF(ToModifiedUtf8(strValue.c_str()).c_str());
    return JavaFailed(env) ? nullptr : js;
}

namespace {

// The characters of a Java string, released as soon as they are copied. False for a null
// string or when the JVM cannot give them.
bool FromJava(JNIEnv* env, jstring js, std::string& str) {
    if (js == nullptr) return false;
    const char* psz = env->GetStringUTFChars(js, nullptr);
    if (psz == nullptr) {
        JavaFailed(env);
        return false;
    }
    try {
        str = FromModifiedUtf8(psz);
    } catch (...) {
        env->ReleaseStringUTFChars(js, psz);
        throw;
    }
    env->ReleaseStringUTFChars(js, psz);
    return true;
}

// Runs the work of a native; whatever the library throws ends here with the failure value.
template <class R, class Work> R Guarded(R failure, Work work) noexcept {
    try {
        return work();
    } catch (...) {
        return failure;
    }
}

} // namespace

extern "C" {

JNIEXPORT jstring JNICALL Java_org_quillon_util_JNIJavaMail_GetMsgFormat(JNIEnv* env, jclass,
                                                                         jstring jEmlPath) {
    return Guarded<jstring>(nullptr, [&]() -> jstring {
        std::string strEmlPath;
        if (!FromJava(env, jEmlPath, strEmlPath)) return nullptr;
        CQLMimeMsg msg;
        if (!msg.Open(strEmlPath, true)) return nullptr;
        jstring jFormat = newStringUTF(env, msg.GetFormat());
        msg.Close();
        return jFormat;
    });
}

} // extern "C"
