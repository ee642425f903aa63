package org.quillon.util;

import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertTrue;

import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import org.junit.Rule;
import org.junit.Test;
import org.junit.rules.TemporaryFolder;

/** Run in a JVM of its own with a fixed heap, so that resident memory grows only natively. */
public class MemoryTest {
    @Rule public TemporaryFolder tmp = new TemporaryFolder();

    private static long residentKiB() throws Exception {
        List<String> status = Files.readAllLines(Path.of("/proc/self/status"));
        for (String line : status) {
            if (line.startsWith("VmRSS:")) return Long.parseLong(line.replaceAll("\\D", ""));
        }
        throw new IllegalStateException("no VmRSS");
    }

    private static void cycles(int n, String path, String format) {
        StringBuffer sb = new StringBuffer();
        for (int i = 0; i < n; i++) {
            long h = JNIJavaMail.Open(0, path, format);
            sb.setLength(0);
            JNIJavaMail.GetText(h, sb, false, "EUC-KR", "", "UTF-8", true, "");
            JNIJavaMail.Close(h);
        }
        assertEquals(TestMail.KOREAN, sb.toString());
    }

    @Test
    public void openTextCloseCyclesKeepResidentMemoryFlat() throws Exception {
        // A long path and a real format string: what a leak of either would show.
        Path dir = tmp.newFolder("a-rather-long-folder-name-".repeat(6)).toPath();
        Path eml = TestMail.write(dir, "message.eml", TestMail.mixed());
        String format = JNIJavaMail.GetMsgFormat(eml.toString());
        cycles(10_000, eml.toString(), format);
        System.gc();
        long before = residentKiB();
        cycles(190_000, eml.toString(), format);
        System.gc();
        long grown = residentKiB() - before;
        System.out.println("resident memory grew by " + grown + " KiB over 190000 cycles");
        assertTrue("grew by " + grown + " KiB", grown < 16 * 1024);
    }
}
