#include "circbuff.h"

#include "vxhoststreams.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// Holds the ring's mutex for the life of the object.
class tcRingGuard
{
public:
    explicit tcRingGuard(tsCircBuffHeader* header) : mpLock(&header->Lock)
    {
        pthread_mutex_lock(mpLock);
    }
    ~tcRingGuard() { pthread_mutex_unlock(mpLock); }
    tcRingGuard(const tcRingGuard&) = delete;
    tcRingGuard& operator=(const tcRingGuard&) = delete;

private:
    pthread_mutex_t* mpLock;
};

// An assertion that release builds keep.
void RequireMagic(const tsCircBuffHeader* header, int line, const char* function)
{
    if (header->Magic == CIRC_BUFFER_MAGIC_NUMBER) return;
    vx::PrintFormatted(stderr, "%s: ../libvx/src/circbuff:%d: %s: Assertion `%s' failed.\n",
                       program_invocation_short_name, line, function,
                       "Buffer_Header->Magic == CIRC_BUFFER_MAGIC_NUMBER");
    std::abort();
}

// Copies at most `room` of `n` bytes to the write position and wraps it.
ptrdiff_t Fill(tsCircBuffHeader* header, const unsigned char* data, ptrdiff_t n, ptrdiff_t room)
{
    n = std::min(n, room);
    if (n <= 0) return 0;
    std::memcpy(header->Write, data, static_cast<size_t>(n));
    header->Write += n;
    if (header->Write == header->End) header->Write = header->Start;
    return n;
}

// Copies at most `held` of `n` bytes from the read position and wraps it.
ptrdiff_t Drain(tsCircBuffHeader* header, unsigned char* data, ptrdiff_t n, ptrdiff_t held)
{
    n = std::min(n, held);
    if (n <= 0) return 0;
    std::memcpy(data, header->Read, static_cast<size_t>(n));
    header->Read += n;
    if (header->Read == header->End) header->Read = header->Start;
    return n;
}

unsigned char* Next(const tsCircBuffHeader* header, unsigned char* position)
{
    return header->End - position <= 1 ? header->Start : position + 1;
}

} // namespace

int InitCircBuff(tsCircBuffHeader* header, void* start, uint32_t size)
{
    auto* first = static_cast<unsigned char*>(start);
    header->Size = size;
    header->Start = first;
    header->Read = first;
    header->Write = first;
    header->End = first + size;
    const int result = pthread_mutex_init(&header->Lock, nullptr);
    header->Magic = CIRC_BUFFER_MAGIC_NUMBER;
    return result;
}

int WriteCircBuff(tsCircBuffHeader* header, const void* data, int n)
{
    RequireMagic(header, __LINE__, "WriteCircBuff");
    if (n <= 0) return 0;
    const auto* bytes = static_cast<const unsigned char*>(data);
    tcRingGuard guard(header);
    ptrdiff_t written = 0;
    if (header->Write >= header->Read) {
        const ptrdiff_t unused = header->Read == header->Start ? 1 : 0;
        written = Fill(header, bytes, n, header->End - header->Write - unused);
    }
    if (header->Write < header->Read) {
        written += Fill(header, bytes + written, n - written, header->Read - header->Write - 1);
    }
    return static_cast<int>(written);
}

int ReadCircBuff(tsCircBuffHeader* header, void* data, int n)
{
    RequireMagic(header, __LINE__, "ReadCircBuff");
    if (n <= 0) return 0;
    auto* bytes = static_cast<unsigned char*>(data);
    tcRingGuard guard(header);
    ptrdiff_t taken = 0;
    if (header->Read > header->Write) {
        taken = Drain(header, bytes, n, header->End - header->Read);
    }
    if (header->Write > header->Read) {
        taken += Drain(header, bytes + taken, n - taken, header->Write - header->Read);
    }
    return static_cast<int>(taken);
}

// The owner of each position publishes it, so that the byte is visible before its position is.
void WriteCircByte(tsCircBuffHeader* header, unsigned char byte)
{
    unsigned char* write = __atomic_load_n(&header->Write, __ATOMIC_RELAXED);
    unsigned char* next = Next(header, write);
    if (next == __atomic_load_n(&header->Read, __ATOMIC_ACQUIRE)) return;
    *write = byte;
    __atomic_store_n(&header->Write, next, __ATOMIC_RELEASE);
}

int ReadCircByte(tsCircBuffHeader* header)
{
    unsigned char* read = __atomic_load_n(&header->Read, __ATOMIC_RELAXED);
    if (read == __atomic_load_n(&header->Write, __ATOMIC_ACQUIRE)) return -1;
    const int byte = *read;
    __atomic_store_n(&header->Read, Next(header, read), __ATOMIC_RELEASE);
    return byte;
}
