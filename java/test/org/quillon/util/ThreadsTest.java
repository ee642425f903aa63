package org.quillon.util;

import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertNotEquals;
import static org.junit.Assert.assertNotNull;
import static org.junit.Assert.assertNull;

import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.Paths;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.Callable;
import java.util.concurrent.ExecutorService;
import java.util.concurrent.Executors;
import java.util.concurrent.Future;
import java.util.concurrent.atomic.AtomicReference;
import org.junit.Rule;
import org.junit.Test;
import org.junit.rules.TemporaryFolder;

public class ThreadsTest {
    @Rule public TemporaryFolder tmp = new TemporaryFolder();

    private static final int THREADS = 8;

    @Test
    public void eightThreadsReadLikeOne() throws Exception {
        List<Path> messages = new ArrayList<>();
        for (int i = 0; i < THREADS - 2; i++) {
            String m = TestMail.mixed().replace("Subject: ", "Subject: " + i + " ")
                    .replace("data.bin", "data" + i + ".bin");
            messages.add(TestMail.write(tmp.getRoot().toPath(), i + ".eml", m));
        }
        Path samples = Paths.get(System.getProperty("qlmail.samples", "samples"));
        messages.add(samples.resolve("korean-attachment.eml"));
        messages.add(samples.resolve("alternative-inline-image.eml"));

        List<String> expected = new ArrayList<>();
        for (Path p : messages) expected.add(roadOf(p, ""));
        ExecutorService pool = Executors.newFixedThreadPool(THREADS);
        try {
            List<Future<?>> futures = new ArrayList<>();
            for (int t = 0; t < THREADS; t++) {
                final int mine = t;
                futures.add(pool.submit((Callable<Void>) () -> {
                    Path p = messages.get(mine);
                    String format = JNIJavaMail.GetMsgFormat(p.toString());
                    for (int i = 0; i < 40; i++) {
                        assertEquals(expected.get(mine), roadOf(p, i % 2 == 0 ? format : ""));
                    }
                    return null;
                }));
            }
            for (Future<?> f : futures) f.get();
        } finally {
            pool.shutdown();
        }
    }

    private static String roadOf(Path p, String format) {
        long h = JNIJavaMail.Open(0, p.toString(), format);
        assertNotEquals(-1, h);
        try {
            return TestMail.road(h);
        } finally {
            JNIJavaMail.Close(h);
        }
    }

    /** Runs work on a thread whose stack is 256 KiB, as small as application servers set. */
    private static void onSmallStack(Runnable work) throws Throwable {
        AtomicReference<Throwable> failure = new AtomicReference<>();
        Thread t = new Thread(null, () -> {
            try {
                work.run();
            } catch (Throwable e) {
                failure.set(e);
            }
        }, "small-stack", 256 * 1024);
        t.start();
        t.join();
        if (failure.get() != null) throw failure.get();
    }

    @Test
    public void deepAndWideMessagesOnASmallStack() throws Throwable {
        Path deep = TestMail.write(tmp.getRoot().toPath(), "deep.eml", TestMail.nested(2000));
        Path wide = TestMail.write(tmp.getRoot().toPath(), "wide.eml", TestMail.wide(2000));
        onSmallStack(() -> {
            String format = JNIJavaMail.GetMsgFormat(deep.toString());
            assertNotNull(format);
            assertEquals(2000, format.split("\u0005").length);
            long h = JNIJavaMail.Open(0, deep.toString(), "");
            StringBuffer sb = new StringBuffer();
            assertEquals(true, JNIJavaMail.GetText(h, sb, false, "", "", "UTF-8", true, ""));
            assertEquals("bottom\r\n", sb.toString());
            JNIJavaMail.Close(h);

            // One entity over the limit: no format, but the file still opens.
            assertNull(JNIJavaMail.GetMsgFormat(wide.toString()));
            h = JNIJavaMail.Open(0, wide.toString(), "");
            assertNotEquals(-1, h);
            TestMail.road(h);
            JNIJavaMail.Close(h);
        });
    }

    @Test
    public void corpusReadsTheSameWithAndWithoutFormat() throws Exception {
        Path corpus = Paths.get(System.getProperty("qlmail.corpus", "corpus"));
        org.junit.Assume.assumeTrue("corpus absent: " + corpus, Files.isDirectory(corpus));
        List<Path> files = new ArrayList<>();
        try (var walk = Files.walk(corpus)) {
            walk.filter(Files::isRegularFile).forEach(files::add);
        }
        for (Path p : files) {
            String format = JNIJavaMail.GetMsgFormat(p.toString());
            if (format == null) continue;
            assertEquals(p.toString(), roadOf(p, ""), roadOf(p, format));
        }
    }
}
