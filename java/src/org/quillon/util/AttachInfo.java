package org.quillon.util;

/**
 * A part as the natives describe it: filled by {@link JNIJavaMail#GetNextAttach} and
 * {@link JNIJavaMail#GetNextCID}, read back by {@link JNIJavaMail#OpenAttach} and
 * {@link JNIJavaMail#GetAttachContentSize}. The natives find the fields by name.
 */
public class AttachInfo {
    /** Byte offsets of the part's body in the message file, and its number of lines. */
    public long startPos;
    public long endPos;
    public long lineCnt;
    /** Content type and subtype as the library numbers them (0 text, 1 image, 4 application). */
    public int contentType;
    public int subContentType;
    /** Transfer encoding: "B" base64, "Q" quoted-printable, "7", "8", or "" read raw. */
    public String encoding = "";
    /** Part number such as "2." or "1.3.". */
    public String attachId = "";
    /** Decoded file name, or the Content-ID for an inline image. */
    public String fileName = "";
}
