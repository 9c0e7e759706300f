// What a disk takes.
#ifndef BENCH_WRITTEN_BLOCKS_H
#define BENCH_WRITTEN_BLOCKS_H

// MB/s of blocks of 8 MiB past the system's memory, as `dd oflag=direct bs=8M` does it: one file,
// not waited for.
double WriteBlocks(int count);

#endif
