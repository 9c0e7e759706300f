// The rows of the table, by what they need.
#ifndef BENCH_ROWS_H
#define BENCH_ROWS_H

#include "table.h"

#include <set>
#include <string>

// Which rows to measure; empty means all.
struct tsRowChoice {
    std::set<std::string> names;
    bool Wants(const std::string& name) const { return names.empty() || names.count(name) != 0; }
};

// The names of all rows.
inline constexpr const char* gaRowNames[] = {
    "S1", "S2", "S3", "S4", "S5", "L1", "L2", "L3", "I1", "I2", "P1", "D1", "G1", "G2", "G3", "C1",
    "F1", "F2", "K1", "K2", "N1", "N2", "W1", "W2", "W3", "W4", "W5", "W6", "W7", "W8", "V1", "V2"};

void MeasureStreams(tcTable& table, const tsRowChoice& choice, const tsBenchOptions& options);
void MeasureLatencies(tcTable& table, const tsRowChoice& choice, const tsBenchOptions& options);
void MeasureFiles(tcTable& table, const tsRowChoice& choice, const tsBenchOptions& options);
void MeasureRecords(tcTable& table, const tsRowChoice& choice, const tsBenchOptions& options);
void MeasureWire(tcTable& table, const tsRowChoice& choice, const tsBenchOptions& options);
void MeasureKit(tcTable& table, const tsRowChoice& choice, const tsBenchOptions& options);
// Left out, which is told, where the program is not built.
void MeasurePrograms(tcTable& table, const tsRowChoice& choice, const tsBenchOptions& options);
// Left out, which is told, where Python is not built.
void MeasurePython(tcTable& table, const tsRowChoice& choice, const tsBenchOptions& options);
void MeasureParts(tcTable& table, const tsRowChoice& choice, const tsBenchOptions& options);

#endif
