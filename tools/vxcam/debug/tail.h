// Following a logger of another process.
#ifndef TAIL_H
#define TAIL_H

#include "tcLogOutput.h"
#include "tcLogService.h"

#include <optional>
#include <string>

struct tsTailChoice {
    std::optional<int> level; // the logger's level meanwhile; none: as it is
    bool binary = false;
    std::string address; // where the process sends; empty: our address on the way to it
    uint16_t port = 0;
    tsLogEnd end;
    bool force = false, json = false, quiet = false;
};

// Redirects the logger here and prints its records until the end. Level and destination are put
// back as they were in any case, also when it throws. Throws tcFailure: when a capture with records
// would be lost, unless `force`; and when the redirection was lost or could not be undone.
void TailLogger(tcLogService& service, const std::string& name, const tsTailChoice& choice);

#endif
