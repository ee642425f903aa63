#ifndef QLMAIL_TESTS_FAULTS_FAULTSEAM_H
#define QLMAIL_TESTS_FAULTS_FAULTSEAM_H

#include <gtest/gtest.h>

#include <cstddef>

// This test program links the library's objects with write, rename, unlink, open64 and
// copy_file_range wrapped (-Wl,--wrap), so a test can make the library's own calls fail or fall
// short without any hook in the library. Only descriptors above 2 are touched: the test's output
// stays whole.
namespace seam {

enum class Call { Write, Rename, Unlink, Open, CopyFileRange };

// The nth call of that kind from now on (1: the next one) fails with nErrno.
void FailNth(Call call, int nNth, int nErrno);
// Every write puts at most nMax bytes; 0 lifts the limit.
void ShortWrites(std::size_t nMax);
// Calls of that kind seen since the last reset, failed ones included.
int Count(Call call);
void Reset();

} // namespace seam

// Tests that use the seam derive from this, so that no fault outlives its test.
class FaultTest : public ::testing::Test {
protected:
    void SetUp() override { seam::Reset(); }
    void TearDown() override { seam::Reset(); }
};

#endif
