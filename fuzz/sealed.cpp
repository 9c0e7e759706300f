// Keeps the code under test away from the rest of the system. Linked into every fuzz program with
// --wrap, so that these stand in for the C library's functions of the same names:
//
// - nothing is sent, resolved or connected: sockets are local ones that nobody listens to;
// - files are those that the target itself holds open, under their names in /proc/self/fd; what is
//   opened for appending is kept in memory.
#include <fcntl.h>
#include <netdb.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

// Before anything of the library runs: no debug daemon, nothing on the console.
__attribute__((constructor(101))) static void BeQuiet()
{
    setenv("DBGD_DISABLE", "1", 1);
    setenv("TCLOG_SUPPRESS_ERR_CONSOLE", "1", 1);
}

static bool IsOurs(const char* path)
{
    constexpr char prefix[] = "/proc/self/fd/";
    constexpr size_t length = sizeof prefix - 1;
    if (std::strncmp(path, prefix, length) != 0) return false;
    const char* digits = path + length;
    // From 100 on: the descriptors that targets hold open for this.
    return std::strlen(digits) == 3 && std::strspn(digits, "0123456789") == 3 && *digits == '1';
}

// Visible, since the linker has the shared libraries of a target refer to them, too.
#pragma GCC visibility push(default)
extern "C" {

int __real_access(const char* path, int mode);
FILE* __real_fopen(const char* path, const char* mode);
int __real_getaddrinfo(const char* name, const char* service, const addrinfo* wanted,
                       addrinfo** found);
int __real_open(const char* path, int flags, ...);
int __real_socket(int domain, int type, int protocol);

int __wrap_access(const char* path, int mode)
{
    if (IsOurs(path)) return __real_access(path, mode);
    errno = ENOENT;
    return -1;
}

FILE* __wrap_fopen(const char* path, const char* mode)
{
    // The library opens close-on-exec; whoever does not is the fuzzer, keeping what it found.
    if (IsOurs(path) || std::strchr(mode, 'e') == nullptr) return __real_fopen(path, mode);
    errno = ENOENT;
    return nullptr;
}

int __wrap_open(const char* path, int flags, ...)
{
    va_list rest;
    va_start(rest, flags);
    const auto mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : mode_t{};
    va_end(rest);
    if ((flags & O_APPEND) == 0) return __real_open(path, flags, mode);
    return memfd_create("appended", MFD_CLOEXEC);
}

int __wrap_getaddrinfo(const char* name, const char* service, const addrinfo* wanted,
                       addrinfo** found)
{
    addrinfo numeric = wanted != nullptr ? *wanted : addrinfo{};
    numeric.ai_flags |= AI_NUMERICHOST;
    return __real_getaddrinfo(name, service, &numeric, found);
}

int __wrap_socket(int, int type, int)
{
    return __real_socket(AF_UNIX, type, 0);
}

int __wrap_bind(int, const sockaddr*, socklen_t)
{
    return 0;
}

int __wrap_connect(int, const sockaddr*, socklen_t)
{
    errno = ECONNREFUSED;
    return -1;
}

ssize_t __wrap_sendto(int, const void*, size_t count, int, const sockaddr*, socklen_t)
{
    return static_cast<ssize_t>(count);
}
}
#pragma GCC visibility pop
