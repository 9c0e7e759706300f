// A graph of successive values on standard error.
#ifndef GRAPH_H
#define GRAPH_H

#include <string>
#include <vector>

// The lines of it, from the highest value down: the last values that fit into `width` characters,
// a star for each, with the limits before them. Values of 0 are gaps. None when there is no value.
std::vector<std::string> GraphLines(const std::vector<double>& values, int width, int height);

// Draws nothing when standard error is no terminal, or TERM says that it is a dumb one. Wipes
// nothing when it goes: the last one stays.
//
// Threads: one.
class tcGraph
{
public:
    explicit tcGraph(bool wanted);

    void Show(const std::string& title, const std::vector<double>& values);
    void Clear(); // so that lines may be printed above it

private:
    bool mbDrawn;
    int mnLines = 0; // that stand there
};

#endif
