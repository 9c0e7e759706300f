// Errors that are not printed, private to the library.
#ifndef VX_OFFCONSOLE_H
#define VX_OFFCONSOLE_H

namespace vx {

// While one lives, error records of the calling thread are kept and delivered, but not printed on
// standard error.
class tcOffConsole
{
public:
    tcOffConsole();
    ~tcOffConsole();
    tcOffConsole(const tcOffConsole&) = delete;
    tcOffConsole& operator=(const tcOffConsole&) = delete;

    // Whether the calling thread has one.
    static bool IsInForce();
};

} // namespace vx

#endif
