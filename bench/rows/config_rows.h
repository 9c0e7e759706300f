// The rows of the configuration, as MeasureParts runs them.
#ifndef BENCH_CONFIG_ROWS_H
#define BENCH_CONFIG_ROWS_H

#include <benchmark/benchmark.h>

// F1: a file of 100,000 items is loaded.
void LoadOurs(benchmark::State& state);
void LoadReference(benchmark::State& state);

// F2: its items are looked up.
void LookupOurs(benchmark::State& state);
void LookupReference(benchmark::State& state);

#endif
