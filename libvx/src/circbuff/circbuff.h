/* A byte ring over memory of the caller, with a checked header. Valid C11 and C++17.
 *
 * The ring is empty when Read equals Write; one byte always stays unused, so a ring of Size bytes
 * holds at most Size - 1. Nothing here waits for room or data, and unread bytes are never
 * overwritten.
 *
 * Threads: any number may use the block operations. The byte operations are for exactly one writing
 *          and one reading thread and must not be mixed with the block operations at the same time.
 * Locks:   the block operations hold the header's Lock during their whole copy, the byte
 *          operations take none.
 * Owns:    nothing; header and storage stay the caller's and are simply forgotten when done with.
 */
#ifndef CIRCBUFF_H
#define CIRCBUFF_H

#include "vxexport.h"

#include <pthread.h>
#include <stdint.h>

#define CIRC_BUFFER_MAGIC_NUMBER 52223

#ifdef __cplusplus
extern "C" {
#endif

typedef struct tsCircBuffHeader {
    uint32_t Magic;       /* CIRC_BUFFER_MAGIC_NUMBER once initialised */
    uint32_t Size;        /* bytes of storage */
    unsigned char* Write; /* next byte to write */
    unsigned char* Read;  /* next byte to read */
    unsigned char* Start; /* first byte of storage */
    unsigned char* End;   /* one past the last byte of storage */
    pthread_mutex_t Lock; /* guards the block operations */
} tsCircBuffHeader;

/* Makes an empty ring over `size` bytes at `start`. Returns the result of initialising the mutex:
 * 0, or an error number. */
VX_EXPORT int InitCircBuff(tsCircBuffHeader* header, void* start, uint32_t size);

/* Stores as many of `n` bytes as there is room for and returns their number; 0 when the ring is
 * full or `n` is below 1. Aborts the process when the header was never initialised. */
VX_EXPORT int WriteCircBuff(tsCircBuffHeader* header, const void* data, int n);

/* Takes up to `n` bytes out of the ring and returns their number; 0 when it is empty or `n` is
 * below
 * 1. Aborts the process when the header was never initialised. */
VX_EXPORT int ReadCircBuff(tsCircBuffHeader* header, void* data, int n);

/* Stores one byte; drops it silently when the ring is full. */
VX_EXPORT void WriteCircByte(tsCircBuffHeader* header, unsigned char byte);

/* Takes one byte, 0 to 255; -1 when the ring is empty. */
VX_EXPORT int ReadCircByte(tsCircBuffHeader* header);

#ifdef __cplusplus
}
#endif

#endif
