#ifndef QLMAIL_JNI_QLJAVAMAIL_H
#define QLMAIL_JNI_QLJAVAMAIL_H

#include <jni.h>

#include <string>

// The natives of org.quillon.util.JNIJavaMail live in QLJavaMail.cpp under their JNI names.
// These helpers are what they share. Each JNI call is followed by a look for a pending Java
// exception, which is printed on standard error and cleared, never thrown on to Java.

jfieldID getjFieldIdInt(JNIEnv* env, jclass cls, std::string strName);
jfieldID getjFieldIdLong(JNIEnv* env, jclass cls, std::string strName);
jfieldID getjFieldIdString(JNIEnv* env, jclass cls, std::string strName);
void setIntField(JNIEnv* env, jobject obj, jfieldID fid, int nValue);
void setLongField(JNIEnv* env, jobject obj, jfieldID fid, long nValue);
void setObjectField(JNIEnv* env, jobject obj, jfieldID fid, jstring strValue);
// A Java string of the characters up to the first NUL, or null.
jstring newStringUTF(JNIEnv* env, std::string strValue);

// The JVM speaks modified UTF-8, the library bytes (UTF-8 when the caller asks for it).
// Going out, a character beyond the BMP becomes its surrogate pair, and a byte that is no
// part of well-formed UTF-8 becomes the lone surrogate U+DC00 + byte, instead of ending the
// Java string there. Coming back, both are undone, so text that went out returns unchanged.
std::string ToModifiedUtf8(const char* pszText);
std::string FromModifiedUtf8(const char* pszText);

#endif
