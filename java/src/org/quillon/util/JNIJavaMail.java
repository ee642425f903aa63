package org.quillon.util;

/**
 * The natives of libqlmail. {@link #GetMsgFormat} parses a stored message and gives the format
 * string to keep beside it; {@link #Open} gives a handle over a message and its format string,
 * which every other native takes until {@link #Close}. Compare the handle with -1 before using
 * it. One handle serves one thread at a time; different handles are independent.
 *
 * <p>Results that are appended to a {@code StringBuffer} accumulate: pass an empty one. Text
 * comes out right only when it is asked for in "UTF-8". A byte that is no UTF-8 reaches Java as
 * the lone surrogate U+DC00 + byte and goes back to the library as that byte.
 */
public final class JNIJavaMail {
    static {
        System.loadLibrary("qlmail");
    }

    public JNIJavaMail() {}

    /** The format string of the message file at the path, or null if it cannot be parsed. */
    public static native String GetMsgFormat(String strEmlPath);

    /**
     * A handle over a message file and its format string, or -1 when the file does not exist
     * or cannot be opened. An empty format string has the message parsed here.
     */
    public static native long Open(long nIgnored, String strEmlPath, String strFormat);

    /** Frees the handle; 0 is ignored. */
    public static native void Close(long handle);

    /** Text of the handle's last failure, "" if none. */
    public static native String GetLastError(long handle);

    /** Back to the first part, before {@link #GetNextAttach} or {@link #GetNextCID}. */
    public static native void InitAttachCursor(long handle);

    /** The next attachment into {@code attach}; false when there is none left. */
    public static native boolean GetNextAttach(long handle, Object attach,
            String strDefaultCharset, String strToCharset, String strLevel);

    /** The next inline image into {@code attach}, its Content-ID in {@code fileName}. */
    public static native boolean GetNextCID(long handle, Object attach,
            String strDefaultCharset, String strToCharset, String strLevel);

    /** Size in bytes of what streaming the part gives; 4294967295 when the file fails. */
    public static native long GetAttachContentSize(long handle, Object attach, boolean bDecode);

    /** Starts streaming the part that {@code attach} describes. */
    public static native boolean OpenAttach(long handle, Object attach);

    /**
     * The next block of the open part, or null at its end; appends "true" or "false" to
     * {@code sbState}.
     */
    public static native byte[] GetAttachContentNext(long handle, StringBuffer sbState,
            boolean bDecode);

    public static native void CloseAttach(long handle);

    /** Appends the raw header block of the message. */
    public static native boolean GetHeader(long handle, StringBuffer sbOut, String strLevel);

    /** Appends the first value of the named header field, decoded into strToCharset. */
    public static native boolean GetHeaderValue(long handle, String strName, StringBuffer sbOut,
            boolean bDecode, String strDefaultCharset, String strToCharset, String strLevel);

    /** Appends the text parts of one kind, html or plain, converted into strToCharset. */
    public static native boolean GetText(long handle, StringBuffer sbOut, boolean bHtml,
            String strDefaultCharset, String strForceCharset, String strToCharset,
            boolean bDecode, String strLevel);

    /** True when a part is application/ms-tnef. */
    public static native boolean IsTNEF(long handle);
}
