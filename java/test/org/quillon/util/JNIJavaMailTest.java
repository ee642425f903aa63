package org.quillon.util;

import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertNull;

import java.nio.file.Files;
import java.nio.file.Path;
import org.junit.Test;

public class JNIJavaMailTest {
    @Test
    public void formatOfAFile() throws Exception {
        Path dir = Files.createTempDirectory("qlmail-java");
        Path eml = Files.write(dir.resolve("a.eml"), "From: a\r\n\r\nhello\r\n".getBytes("UTF-8"));
        assertEquals("0,9,11,18,0,9,11,18,,0,0,7,1,,,,,\u0005",
                JNIJavaMail.GetMsgFormat(eml.toString()));
        assertNull(JNIJavaMail.GetMsgFormat(dir.resolve("missing.eml").toString()));
        assertNull(JNIJavaMail.GetMsgFormat(null));
    }
}
