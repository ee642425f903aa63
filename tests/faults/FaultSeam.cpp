#include "faults/FaultSeam.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

extern "C" {
ssize_t __real_write(int nFD, const void* pBuf, size_t nLen);
int __real_rename(const char* pszFrom, const char* pszTo);
int __real_unlink(const char* pszPath);
int __real_open64(const char* pszPath, int nFlags, ...);
ssize_t __real_copy_file_range(int nIn, loff_t* pnIn, int nOut, loff_t* pnOut, size_t nLen,
                               unsigned int nFlags);
}

namespace {

struct Fault {
    int nCalls = 0;
    int nFailAt = 0; // the call count that fails; 0 for none
    int nErrno = 0;
};

Fault g_Faults[5];
std::size_t g_nShortWrite = 0;

// Counts the call and tells whether it is the one to fail, errno set.
bool Due(seam::Call call) {
    Fault& f = g_Faults[static_cast<int>(call)];
    if (++f.nCalls != f.nFailAt) return false;
    errno = f.nErrno;
    return true;
}

} // namespace

namespace seam {

void FailNth(Call call, int nNth, int nErrno) {
    Fault& f = g_Faults[static_cast<int>(call)];
    f.nFailAt = f.nCalls + nNth;
    f.nErrno = nErrno;
}

void ShortWrites(std::size_t nMax) {
    g_nShortWrite = nMax;
}

int Count(Call call) {
    return g_Faults[static_cast<int>(call)].nCalls;
}

void Reset() {
    for (Fault& f : g_Faults) f = Fault();
    g_nShortWrite = 0;
}

} // namespace seam

extern "C" {

ssize_t __wrap_write(int nFD, const void* pBuf, size_t nLen) {
    if (nFD > 2) {
        if (Due(seam::Call::Write)) return -1;
        if (g_nShortWrite != 0 && nLen > g_nShortWrite) nLen = g_nShortWrite;
    }
    return __real_write(nFD, pBuf, nLen);
}

int __wrap_rename(const char* pszFrom, const char* pszTo) {
    if (Due(seam::Call::Rename)) return -1;
    return __real_rename(pszFrom, pszTo);
}

int __wrap_unlink(const char* pszPath) {
    if (Due(seam::Call::Unlink)) return -1;
    return __real_unlink(pszPath);
}

int __wrap_open64(const char* pszPath, int nFlags, ...) {
    va_list args;
    va_start(args, nFlags);
    const mode_t nMode = (nFlags & O_CREAT) ? va_arg(args, mode_t) : 0;
    va_end(args);
    if (Due(seam::Call::Open)) return -1;
    return __real_open64(pszPath, nFlags, nMode);
}

ssize_t __wrap_copy_file_range(int nIn, loff_t* pnIn, int nOut, loff_t* pnOut, size_t nLen,
                               unsigned int nFlags) {
    if (Due(seam::Call::CopyFileRange)) return -1;
    return __real_copy_file_range(nIn, pnIn, nOut, pnOut, nLen, nFlags);
}
}
